#!/usr/bin/env bash
# run_load_bench.sh - NAVO load (every field read) against expat on the same content, side by side.
set -euo pipefail
cd "$(dirname "$0")/.."
NAVO_NEED_BENCH=1 bash scripts/deps.sh
cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DNAVO_BENCH=ON -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build build/bench -j "$(nproc)" --target bench_load >/dev/null
bin=build/bench/bench/bench_load
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work"
printf '%-8s %-5s %9s %9s %12s %12s %10s\n' records mode seconds MB/s records/s fields peakKiB
for records in 1000 100000; do
  "$bin" generate "$work/b.navo" "$work/b.xml" "$records"
  for mode in navo xml; do
    file="$work/b.$mode"
    bytes=$(stat -c %s "$file")
    best=""
    for run in 1 2 3; do
      line=$("$bin" "$mode" "$file")
      secs=$(echo "$line" | cut -d' ' -f2)
      if [ -z "$best" ] || awk "BEGIN{exit !($secs < $(echo "$best" | cut -d' ' -f2))}"; then best=$line; fi
    done
    secs=$(echo "$best" | cut -d' ' -f2)
    awk -v r="$records" -v m="$mode" -v s="$secs" -v b="$bytes" -v l="$best" 'BEGIN{split(l,a," ");
      printf "%-8s %-5s %9.3f %9.1f %12.0f %12d %10d\n", r, m, s, b/1e6/s, r/s, a[3], a[4]}'
    eval "t_${mode}_${records}=$secs"
  done
done
awk -v n="$t_navo_100000" -v x="$t_xml_100000" 'BEGIN{printf "ratio navo/expat at 100000 records: %.2f\n", n/x}'
