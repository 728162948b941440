#!/usr/bin/env bash
# build-windows.sh - cross-builds navo.dll (with its import library libnavo.dll.a), the static
# libnavo_static.a and the example hosts for 64-bit Windows with MinGW-w64 into build/windows,
# then checks that the DLL exports exactly the library's 68 names and needs only system DLLs.
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

# The exported names, one a line, as the Linux test checks them too.
expected=$(grep -v '^#' cmake/exported-names.txt | sort)

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
  [ -z "$extra" ] || printf 'exported by %s but not in cmake/exported-names.txt:\n%s\n' "$dll" "$extra" >&2
  exit 1
fi
echo "exports: $exported_count names, exactly the 65 functions and 3 variables of navo.h"
# The compiler's runtime is linked in: the DLL needs the system's own DLLs and nothing else, and
# the programs need navo.dll (or navofront.dll, the C++ examples) besides.
for binary in "$dll" "$build"/examples/*.exe "$build"/tools/*.exe; do
  [ -f "$binary" ] || continue
  needs=$("$triplet-objdump" -p "$binary" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr 'a-z' 'A-Z' | sort -u)
  foreign=$(printf '%s\n' "$needs" | grep -v -E '^(KERNEL32|ADVAPI32|MSVCRT|UCRTBASE|API-MS-WIN-.*|NAVO|NAVOFRONT)\.DLL$' || true)
  if [ -n "$foreign" ]; then
    printf '%s needs DLLs that Windows does not have:\n%s\n' "$binary" "$foreign" >&2
    exit 1
  fi
done
echo "built: $dll $build/libnavo.dll.a $build/libnavo_static.a $build/examples/navo_read.exe $build/examples/navo_write.exe"
echo "needs: $("$triplet-objdump" -p "$dll" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr '\n' ' ')"
