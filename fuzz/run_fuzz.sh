#!/usr/bin/env bash
# run_fuzz.sh - builds the libFuzzer targets with clang and fuzzes each for SECONDS (default 60),
# growing the corpus in a scratch directory; `--replay` only runs the checked-in corpora once.
set -euo pipefail
cd "$(dirname "$0")/.."
NAVO_NEED_TESTS=1 bash scripts/deps.sh
cmake -S . -B build/fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DNAVO_FUZZ=ON \
  -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/fuzz -j "$(nproc 2>/dev/null || echo 2)"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export TMPDIR="$scratch"
for target in definition load scanner; do
  if [ "${1:-}" = "--replay" ]; then
    echo "fuzz_$target: replaying fuzz/corpus/$target"
    build/fuzz/fuzz/fuzz_$target -runs=0 "fuzz/corpus/$target" 2>&1 | tail -n 1
  else
    mkdir -p "$scratch/$target"
    echo "fuzz_$target: fuzzing for ${1:-60} s from fuzz/corpus/$target"
    build/fuzz/fuzz/fuzz_$target -max_total_time="${1:-60}" -max_len=8192 "$scratch/$target" "fuzz/corpus/$target" 2>&1 | tail -n 1
  fi
done
