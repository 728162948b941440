#!/usr/bin/env bash
# test.sh - the whole test job: installs what is missing; builds the library and the fuzz targets
# with clang -Werror and replays the fuzz corpora; builds with gcc -Werror and runs the suite under
# ASan+UBSan; links a C and a C++ host against the installed library; runs the suite under valgrind.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)

NAVO_NEED_TESTS=1 bash scripts/deps.sh

echo "== clang -Werror build of the library and the fuzz targets; replay of the fuzz corpora"
bash fuzz/run_fuzz.sh --replay

echo "== gcc -Werror, AddressSanitizer + UndefinedBehaviorSanitizer"
cmake -S . -B build/asan -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DNAVO_WERROR=ON -DNAVO_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure -j "$jobs"

echo "== install, then build a C and a C++ host against it with pkg-config"
rm -rf build/prefix
cmake --install build/asan --prefix "$root/build/prefix" >/dev/null
export PKG_CONFIG_PATH="$root/build/prefix/lib/pkgconfig"
for compiler in "gcc -std=c11" "g++ -x c++ -std=c++17"; do
  $compiler -Wall -Wextra -Wpedantic -Werror -fsanitize=address,undefined tests/install/host.c \
    $(pkg-config --cflags --libs navo) -Wl,-rpath,"$root/build/prefix/lib" -o build/prefix/host
  build/prefix/host
done

echo "== gcc -Werror, valgrind memcheck (leaks are failures)"
cmake -S . -B build/valgrind -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DNAVO_WERROR=ON -DNAVO_VALGRIND=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/valgrind -j "$jobs"
ctest --test-dir build/valgrind --output-on-failure -j "$jobs"

echo "all test runs passed ($root)"
