#!/usr/bin/env bash
# test.sh - the whole test job. Installs what is missing (apt-get, as root), then in stages:
#   1. clang -Werror build of the library and the fuzz targets; replay of the fuzz corpora
#   2. gcc -Werror build; the suite under AddressSanitizer + UndefinedBehaviorSanitizer
#   3. gcc -Werror build with ThreadSanitizer; navo.hpp's threaded tests and the navo tool's
#      progress bar polling a running load
#   4. install; hosts built against it with pkg-config (C and C++; navo.hpp with navofront.pc)
#      and find_package (C with the shared and the static library, C++ with navo.hpp)
#   5. the ABI of libnavo.so (abidw) against the committed cmake/libnavo.abi (abidiff)
#   6. gcc -Werror build; the suite under valgrind memcheck (leaks are failures)
#   7. Windows: MinGW-w64 cross build of the DLL, the static library and the examples, export check
#   8. Windows: the suite cross-built with MinGW-w64 and run under Wine
#   9. the Python package: installed offline into a venv, mypy --strict, pytest
#  10. the browser page (WebAssembly) built and driven in headless Chromium; its exports against
#      the navo tool's
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)
started=$(date +%s)
stage() { printf '\n== [%4ds] %s\n' "$(( $(date +%s) - started ))" "$*"; }
# Runs a command and, while it runs, says every 30 s that it still does (ctest prints a test only
# when it ends, and one program under valgrind takes minutes).
with_heartbeat() {
  ( while sleep 30; do printf '   ... [%4ds] still running: %s\n' "$(( $(date +%s) - started ))" "$1"; done ) &
  local beat=$! status=0
  "$@" || status=$?
  kill "$beat" 2>/dev/null || true
  return "$status"
}

stage "installing what the tests need (when missing)"
NAVO_NEED_TESTS=1 NAVO_NEED_WINDOWS=1 NAVO_NEED_WINE=1 bash scripts/deps.sh

stage "1. clang -Werror build of the library and the fuzz targets; replay of the corpora of fuzz_definition, fuzz_load, fuzz_scanner"
bash fuzz/run_fuzz.sh --replay

stage "2. gcc -Werror, the suite under AddressSanitizer + UndefinedBehaviorSanitizer"
cmake -S . -B build/asan -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DNAVO_WERROR=ON -DNAVO_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/asan -j "$jobs"
rm -rf build/asan/gtest-results
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  GTEST_OUTPUT="xml:$root/build/asan/gtest-results/" \
  with_heartbeat ctest --test-dir build/asan --output-on-failure -j "$jobs"
python3 scripts/gtest-summary.py build/asan/gtest-results "on Linux (ASan+UBSan)"

stage "3. gcc -Werror with ThreadSanitizer: test_cpp_api and the progress bar's test of test_cli"
# Only the two programs whose threads meet in the core (writers, loads and navo::progress at once;
# the tool's progress bar polling a load), in a build of their own.
cmake -S . -B build/tsan -DCMAKE_CXX_COMPILER=g++ -DNAVO_WERROR=ON -DNAVO_SANITIZE=OFF -DNAVO_TOOLS=ON \
  -DNAVO_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-fsanitize=thread \
  -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread >/dev/null
cmake --build build/tsan -j "$jobs" --target test_cpp_api test_cli
TSAN_OPTIONS=halt_on_error=1 build/tsan/tests/test_cpp_api
TSAN_OPTIONS=halt_on_error=1 build/tsan/tests/tool/test_cli --gtest_filter='Progress.*'

stage "4. install, then hosts against the installed library"
prefix="$root/build/prefix"
rm -rf "$prefix" build/install-check
# A build directory of its own: this build leaves the examples out, and build/release stays what
# scripts/run.sh and the README make (CMake keeps an option once a directory is configured).
cmake -S . -B build/install -DCMAKE_BUILD_TYPE=Release -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build build/install -j "$jobs"
cmake --install build/install --prefix "$prefix" >/dev/null
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
for compiler in "gcc -std=c11" "g++ -x c++ -std=c++17"; do
  echo "pkg-config host, $compiler:"
  $compiler -Wall -Wextra -Wpedantic -Werror tests/install/host.c \
    $(pkg-config --cflags --libs navo) -Wl,-rpath,"$prefix/lib" -o build/prefix/host
  build/prefix/host
done
echo "pkg-config host of navo.hpp (navofront), g++ -std=c++20:"
g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror tests/install/host.cpp \
  $(pkg-config --cflags --libs navofront) -Wl,-rpath,"$prefix/lib" -o build/prefix/host_cpp
build/prefix/host_cpp
cmake -S tests/install -B build/install-check -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build/install-check -j "$jobs" >/dev/null
for host in host_shared host_static host_cpp; do
  echo "find_package host $host:"
  "build/install-check/$host"
done

stage "5. the ABI of libnavo.so against cmake/libnavo.abi (abidw, abidiff)"
bash scripts/check-abi.sh

stage "6. gcc -Werror, the suite under valgrind memcheck (leaks are failures)"
# The tool's own tests run its program, which valgrind would not see; they ran under ASan above.
cmake -S . -B build/valgrind -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
  -DNAVO_WERROR=ON -DNAVO_VALGRIND=ON -DNAVO_TOOLS=OFF -DNAVO_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/valgrind -j "$jobs"
with_heartbeat ctest --test-dir build/valgrind --output-on-failure -j "$jobs"

stage "7. Windows: MinGW-w64 cross build and export check"
bash scripts/build-windows.sh

stage "8. Windows: the suite cross-built with MinGW-w64, run under Wine"
bash scripts/test-windows.sh

stage "9. the Python package (bindings/python): offline install, mypy, pytest"
bash scripts/test-python.sh

stage "10. the browser page: built with emscripten, driven in headless Chromium"
bash scripts/test-web.sh

stage "all test runs passed ($root)"
