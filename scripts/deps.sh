#!/usr/bin/env bash
# deps.sh - installs what the build and the tests need, when it is missing (apt-get as root).
set -euo pipefail

need=()
command -v cmake >/dev/null 2>&1 || need+=(cmake)
command -v gcc >/dev/null 2>&1 || need+=(gcc)
command -v g++ >/dev/null 2>&1 || need+=(g++)
command -v make >/dev/null 2>&1 || need+=(make)
command -v nm >/dev/null 2>&1 || need+=(binutils)
# libnavofront reads rules files with nlohmann-json; the tool needs CLI11 and fmt besides.
[ -f /usr/include/nlohmann/json.hpp ] || need+=(nlohmann-json3-dev)
if [ "${NAVO_TOOLS:-ON}" != OFF ]; then
  [ -f /usr/include/CLI/CLI.hpp ] || need+=(libcli11-dev)
  [ -f /usr/include/fmt/format.h ] || need+=(libfmt-dev)
fi
if [ "${NAVO_NEED_TESTS:-0}" = 1 ]; then
  [ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
  command -v valgrind >/dev/null 2>&1 || need+=(valgrind)
  command -v pkg-config >/dev/null 2>&1 || need+=(pkg-config)
  command -v clang >/dev/null 2>&1 || need+=(clang libclang-rt-dev)
  if command -v clang >/dev/null 2>&1 && [ ! -f "$(clang -print-file-name=libclang_rt.fuzzer-x86_64.a)" ]; then
    need+=(libclang-rt-dev)
  fi
fi
if [ "${NAVO_NEED_WINDOWS:-0}" = 1 ]; then
  command -v x86_64-w64-mingw32-gcc >/dev/null 2>&1 || need+=(gcc-mingw-w64-x86-64 g++-mingw-w64-x86-64)
  command -v x86_64-w64-mingw32-objdump >/dev/null 2>&1 || need+=(binutils-mingw-w64-x86-64)
fi
if [ "${NAVO_NEED_WINE:-0}" = 1 ]; then
  # The test suite's Windows run: GoogleTest's sources for the cross build, and Wine to run it.
  [ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
  command -v wine64 >/dev/null 2>&1 || command -v wine >/dev/null 2>&1 || [ -x /usr/lib/wine/wine64 ] || need+=(wine64)
fi
if [ "${NAVO_NEED_TESTS:-0}" = 1 ] || [ "${NAVO_NEED_ABI:-0}" = 1 ]; then
  # scripts/check-abi.sh: abidw describes the ABI of libnavo.so, abidiff compares two descriptions.
  { command -v abidw >/dev/null 2>&1 && command -v abidiff >/dev/null 2>&1; } || need+=(abigail-tools)
fi
if [ "${NAVO_NEED_TESTS:-0}" = 1 ] || [ "${NAVO_NEED_WINE:-0}" = 1 ]; then
  # scripts/gtest-summary.py: the cases each run of the suite ran, passed and skipped.
  command -v python3 >/dev/null 2>&1 || need+=(python3)
fi
if [ "${NAVO_NEED_BENCH:-0}" = 1 ]; then
  [ -f /usr/include/expat.h ] || need+=(libexpat1-dev)
  command -v strace >/dev/null 2>&1 || need+=(strace)
fi
if [ "${NAVO_NEED_WEB:-0}" = 1 ]; then
  # The browser page (scripts/build-web.sh): emscripten, whose optimiser runs on node with the
  # acorn parser of Debian's node-acorn.
  command -v em++ >/dev/null 2>&1 || need+=(emscripten)
  [ -d /usr/share/nodejs/acorn ] || need+=(node-acorn)
fi
if [ "${NAVO_NEED_BROWSER:-0}" = 1 ]; then
  # The page driven in headless Chromium (scripts/test-web.sh, bench/run_web_bench.sh): Debian's
  # selenium, which Debian's own python3 finds.
  command -v chromium >/dev/null 2>&1 || need+=(chromium)
  command -v chromedriver >/dev/null 2>&1 || need+=(chromium-driver)
  /usr/bin/python3 -c "import selenium" >/dev/null 2>&1 || need+=(python3-selenium)
fi

if [ ${#need[@]} -gt 0 ]; then
  if [ "$(id -u)" = 0 ]; then
    echo "installing: ${need[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q
    apt-get install -y -q --no-install-recommends -o Dpkg::Progress-Fancy=0 "${need[@]}"
  else
    echo "missing packages: ${need[*]} (run as root, or: sudo apt-get install ${need[*]})" >&2
    exit 1
  fi
fi
