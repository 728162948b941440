#!/usr/bin/env bash
# build-windows.sh - cross-builds navo.dll (with its import library libnavo.dll.a), the static
# libnavo_static.a and the example hosts for 64-bit Windows with MinGW-w64 into build/windows,
# then checks that the DLL exports exactly the names of the spec's "External interfaces".
# Installs mingw-w64 with apt-get when it is missing and the script runs as root.
set -euo pipefail
cd "$(dirname "$0")/.."

triplet=x86_64-w64-mingw32
build=build/windows
jobs=$(nproc 2>/dev/null || echo 2)

NAVO_NEED_WINDOWS=1 bash scripts/deps.sh

cmake -S . -B "$build" \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
  -DCMAKE_BUILD_TYPE="${NAVO_BUILD_TYPE:-Release}" \
  -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=ON -DNAVO_WERROR=ON >/dev/null
cmake --build "$build" -j "${NAVO_JOBS:-$jobs}"

dll="$build/navo.dll"
for file in "$dll" "$build/libnavo.dll.a" "$build/libnavo_static.a" \
            "$build/examples/navo_read.exe" "$build/examples/navo_write.exe"; do
  [ -f "$file" ] || { echo "not built: $file" >&2; exit 1; }
done

# The spec's External interfaces table (65 functions) and the three exported variables of
# Part 1.3; the same list as tests/test_exports.cpp.
expected=$(sort <<'NAMES'
dk_Init
dk_Destroy
dk_Malloc
dk_Free
dk_sdInit
dk_sdDestroy
dk_sdGetID
dk_sdGetSafeID
dk_sdAddStr
dk_sdDelStr
dk_sdDopisz
dk_sdStrCmp
dk_sdTrimAll
dk_GetNAVOLine
dk_GetNAVOError
dk_GetNAVOErrorMessage
dk_GetLastNAVOErrorMessage
dk_UstawCallBack
dk_OnNAVOError
dk_OnNAVOBlock
dk_OnNAVODocument
dk_dfInit
dk_dfLoadDefinition
dk_dfDestroyDefinition
dk_dfDestroy
GetDefTXT_1_2
GetDefTXT_1_3
dk_InitDocuments
dk_1fGetIDFormularza
dk_AddDocument
dk_RemoveDocument
dk_RemoveDocuments
dk_RemoveAllDocuments
dk_GetDocCount
dk_lfBlockSave
dk_SetField
dk_GetField
dk_AddBlock
dk_RemoveBlock
dk_GetBlockCount
dk_GetNAVODocument
dk_GetNAVOBlock
dk_SetNAVODocument
dk_SetNAVOBlock
dk_SetDefaultNAVOProlog
dk_GetNAVOProlog
dk_GetNAVOHeader
dk_GetNAVOFooter
dk_GetDocHeader
dk_GetDocFooter
dk_AddNAVOError
dk_AddDocError
dk_AddDocOCR
dk_LoadChar
dk_LoadStringbyLen
dk_LoadStringforTag
dk_LoadStringtoTerminator
dk_LoadNAVO
dk_OpenFileforSave
dk_SaveProlog
dk_SaveHeader
dk_SaveDocument
dk_SaveFooter
dk_CloseFile
dk_SaveNAVO
i_lNumerLinii
i_lLinii
OnNAVODocument
NAMES
)

# The export directory's name table: lines "[ n] name" between its heading and the blank line.
exported=$("$triplet-objdump" -p "$dll" |
  sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' |
  sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]*\([^[:space:]]*\).*/\1/p' | sort)

expected_count=$(printf '%s\n' "$expected" | grep -c .)
exported_count=$(printf '%s\n' "$exported" | grep -c . || true)
if [ "$expected_count" != 68 ]; then
  echo "internal error: the expected list has $expected_count names, not 68" >&2
  exit 1
fi
missing=$(comm -23 <(printf '%s\n' "$expected") <(printf '%s\n' "$exported"))
extra=$(comm -13 <(printf '%s\n' "$expected") <(printf '%s\n' "$exported"))
if [ -n "$missing" ] || [ -n "$extra" ]; then
  [ -z "$missing" ] || printf 'not exported by %s:\n%s\n' "$dll" "$missing" >&2
  [ -z "$extra" ] || printf 'exported by %s but not a spec name:\n%s\n' "$dll" "$extra" >&2
  exit 1
fi
echo "exports: $exported_count names, exactly the spec's 65 functions and 3 variables"
echo "built: $dll $build/libnavo.dll.a $build/libnavo_static.a $build/examples/navo_read.exe $build/examples/navo_write.exe"
echo "needs: $("$triplet-objdump" -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr '\n' ' ')"
