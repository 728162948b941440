#!/usr/bin/env bash
# run_load_bench.sh - NAVO load (every field read, and no field read) and NAVO save against expat on
# the same content, side by side in one run: CPU seconds (user + system), median of ROUNDS rounds
# that alternate the four programs; peak RSS; system calls per record of the loads (strace -c).
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${ROUNDS:-5}
NAVO_NEED_BENCH=1 bash scripts/deps.sh
cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DNAVO_BENCH=ON -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build build/bench -j "$(nproc)" --target bench_load >/dev/null
bin=build/bench/bench/bench_load
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work"

median() { sort -g | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

printf '%-8s %-10s %10s %10s %10s\n' records program cpu-median ratio peakKiB
for records in 1000 100000; do
  "$bin" generate "$work/b.navo" "$work/b.xml" "$records"
  : > "$work/times"
  for round in $(seq "$rounds"); do
    for mode in navo navo-none save xml; do
      case $mode in
        save) line=$("$bin" save "$work/out.navo" "$records") ;;
        xml) line=$("$bin" xml "$work/b.xml") ;;
        *) line=$("$bin" "$mode" "$work/b.navo") ;;
      esac
      echo "$line" >> "$work/times"
    done
  done
  xml=$(awk '$1 == "xml" {print $2}' "$work/times" | median)
  for mode in navo navo-none save xml; do
    cpu=$(awk -v m="$mode" '$1 == m {print $2}' "$work/times" | median)
    peak=$(awk -v m="$mode" '$1 == m && $5 > p {p = $5} END {print p}' "$work/times")
    printf '%-8s %-10s %10.3f %10.3f %10d\n' "$records" "$mode" "$cpu" "$(awk -v a="$cpu" -v b="$xml" 'BEGIN{print a / b}')" "$peak"
  done
  cmp -s "$work/b.navo" "$work/out.navo" || { echo "the saved file differs from the generated one" >&2; exit 1; }
done

if command -v strace >/dev/null 2>&1; then
  for mode in navo navo-none; do
    strace -f -c -o "$work/strace.$mode" "$bin" "$mode" "$work/b.navo" >/dev/null
    # The summary's last line: "100.00 seconds usecs/call calls [errors] total".
    total=$(awk '$NF == "total" {print $4}' "$work/strace.$mode")
    printf 'system calls per record, %-9s (100000 records): %.3f\n' "$mode" "$(awk -v t="$total" 'BEGIN{print t / 100000}')"
  done
fi
