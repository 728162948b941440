#!/usr/bin/env bash
# run_binding_bench.sh - the C++ example (examples/read.cpp) and the Python reader (navo.read) on
# the sample and on a generated file of 100,000 records (one document, a repeating block of 28
# fields), every field read, side by side with the C load of bench_load: wall time, CPU time
# (user + system) and peak resident memory of each process, the run of least wall time of 3.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
NAVO_NEED_BENCH=1 bash scripts/deps.sh
cmake -S . -B build/bench-bindings -DCMAKE_BUILD_TYPE=Release -DNAVO_BENCH=ON -DNAVO_TESTS=OFF \
  -DNAVO_EXAMPLES=ON >/dev/null
cmake --build build/bench-bindings -j 2 --target bench_load navo_read_cpp navo_front >/dev/null
bin=build/bench-bindings
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work" NAVO_LIBRARY="$root/$bin/libnavofront.so.1" PYTHONPATH="$root/bindings/python/src"
"$bin/bench/bench_load" generate "$work/big.navo" "$work/big.xml" 100000 >/dev/null

cat >"$work/read.py" <<'PY'
import sys, navo
fields = sum(len(r) for d in navo.read(sys.argv[1]) for b in d.blocks.values() for r in b)
print(f"{fields} fields")
PY
# Runs a command 3 times under GNU time; prints the run of least wall time as
# "seconds cpu-seconds peakKiB" (time's own small process is the parent, so the peak is the
# program's, not inherited from a larger parent).
measure() {
  local best="" line
  for run in 1 2 3; do
    line=$(/usr/bin/time -f '%e %U %S %M' "$@" 2>&1 >/dev/null | tail -1)
    if [ -z "$best" ] || awk "BEGIN{exit !(${line%% *} < ${best%% *})}"; then best=$line; fi
  done
  echo "$best" | awk '{printf "%s %.2f %s\n", $1, $2 + $3, $4}'
}
printf '%-10s %-18s %8s %8s %9s\n' file reader seconds cpu-s peakKiB
for file in examples/data/sample.navo "$work/big.navo"; do
  name=$([ "$file" = examples/data/sample.navo ] && echo sample || echo 100000rec)
  for reader in "C bench_load" "C++ read.cpp" "Python navo.read"; do
    case $reader in
      C*bench_load) cmd=("$bin/bench/bench_load" navo "$file") ;;
      C++*) cmd=("$bin/examples/navo_read_cpp" --count "$file") ;;
      Python*) cmd=(/usr/bin/python3 "$work/read.py" "$file") ;;
    esac
    read -r secs cpu kib < <(measure "${cmd[@]}")
    printf '%-10s %-18s %8s %8s %9s\n' "$name" "$reader" "$secs" "$cpu" "$kib"
  done
done
