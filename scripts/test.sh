#!/usr/bin/env bash
# test.sh - the whole test job: installs what is missing, builds with -Werror (gcc, and the
# library once more with clang), runs the suite under ASan+UBSan, then under valgrind memcheck.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)

NAVO_NEED_TESTS=1 bash scripts/deps.sh

echo "== clang -Werror build of the library"
cmake -S . -B build/clang -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DNAVO_WERROR=ON -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/clang -j "$jobs" --target navo navo_static

echo "== gcc -Werror, AddressSanitizer + UndefinedBehaviorSanitizer"
cmake -S . -B build/asan -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DNAVO_WERROR=ON -DNAVO_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure -j "$jobs"

echo "== gcc -Werror, valgrind memcheck (leaks are failures)"
cmake -S . -B build/valgrind -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DNAVO_WERROR=ON -DNAVO_VALGRIND=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/valgrind -j "$jobs"
ctest --test-dir build/valgrind --output-on-failure -j "$jobs"

echo "all test runs passed ($root)"
