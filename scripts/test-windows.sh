#!/usr/bin/env bash
# test-windows.sh - cross-builds the test suite for 64-bit Windows with MinGW-w64 (GoogleTest
# compiled from the sources Debian's googletest package puts in /usr/src/googletest) into
# build/windows-tests and runs it under Wine, so that the Windows C runtime's own text mode,
# its temporary-file calls and the owner-only files of the spool are what the tests exercise.
# Installs mingw-w64, googletest and wine64 with apt-get when missing and the script runs as root.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/windows-tests
jobs=$(nproc 2>/dev/null || echo 2)

NAVO_NEED_WINDOWS=1 NAVO_NEED_WINE=1 bash scripts/deps.sh

wine=$(command -v wine64 || command -v wine || echo /usr/lib/wine/wine64)
export WINEDEBUG=-all WINEPREFIX="$PWD/build/wine-prefix" WINEDLLOVERRIDES="mscoree,mshtml="
echo "cross build of the suite with MinGW-w64 into $build"
cmake -S . -B "$build" \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DNAVO_TESTS=ON -DNAVO_EXAMPLES=OFF -DNAVO_TOOLS=OFF -DNAVO_WERROR=ON \
  -DCMAKE_CROSSCOMPILING_EMULATOR="$wine" >/dev/null
cmake --build "$build" -j "$jobs"

# The first start of Wine makes its prefix (a minute on a slow machine); done once, visibly.
echo "starting $("$wine" --version) with prefix $WINEPREFIX"
"$wine" wineboot --init >/dev/null 2>&1 || true
echo "running the suite under Wine"
( while sleep 30; do echo "   ... still running the suite under Wine"; done ) &
beat=$!
trap 'kill "$beat" 2>/dev/null || true' EXIT
# Each program leaves GoogleTest's report of its cases (Wine's drive Z: is the Unix root), so the
# job shows how many cases ran under Wine and which were skipped there, and why.
reports="$PWD/$build/gtest-results"
rm -rf "$reports"
status=0
GTEST_OUTPUT="xml:Z:$reports/" ctest --test-dir "$build" --output-on-failure -j "$jobs" || status=$?
python3 scripts/gtest-summary.py "$reports" "under Wine" || status=1
exit "$status"
