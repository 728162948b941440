#!/usr/bin/env bash
# run_tool_bench.sh - the navo tool against the library on the same files, side by side:
#   validate  vs a bare load (no callback)
#   convert --to jsonl  vs a load that reads every field (bench_load navo)
#   build of that JSON Lines file  vs the same document built through the API and dk_SaveNAVO
#   validate --content  vs plain navo validate (the content checks' own cost)
# Every side runs as its own process; the figure is its CPU time (user + system), best of RUNS
# runs (default 5), which a busy shared machine disturbs far less than wall time. At 1,000 and
# 100,000 records, with the peak memory of each navo command.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${RUNS:-5}
NAVO_NEED_BENCH=1 bash scripts/deps.sh
cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DNAVO_BENCH=ON -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build build/bench -j 2 --target bench_load bench_tool navo_tool >/dev/null
bench=build/bench/bench
navo=build/bench/tools/navo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work"

# "cpu-seconds peak-KiB" of a command: the best CPU time of $runs runs and the largest peak. An
# exit status above $allow (default 0; validate --content exits 1 on its findings) is a failure.
measure() {
  for _ in $(seq "$runs"); do "$bench/bench_tool" exec "$@"; done |
    awk -v allow="${allow:-0}" '{ if (t == "" || $2 < t) t = $2; if ($3 > m) m = $3; if ($4 < 0 || $4 > allow) bad = 1 }
         END { if (bad) { print "command failed" > "/dev/stderr"; exit 1 } print t, m }'
}
row() {
  printf '%-8s %-9s %9.3f %9.3f %7.2f %9d %9d\n' "$1" "$2" "$3" "$5" "$(awk "BEGIN{print $5/$3}")" "$4" "$6"
}

printf '%-8s %-9s %9s %9s %7s %9s %9s\n' records command library navo ratio libKiB navoKiB
for records in 1000 100000; do
  "$bench/bench_load" generate "$work/b.navo" "$work/b.xml" "$records"
  rm -f "$work/b.xml"
  row "$records" validate $(measure "$bench/bench_tool" bare "$work/b.navo") \
      $(measure "$navo" validate --no-progress "$work/b.navo")
  row "$records" convert $(measure "$bench/bench_load" navo "$work/b.navo") \
      $(measure "$navo" convert --no-progress "$work/b.navo" --to jsonl -o "$work/b.jsonl")
  row "$records" build $(measure "$bench/bench_tool" save "$work/api.navo" "$records") \
      $(measure "$navo" build --no-progress "$work/b.jsonl" -o "$work/c.navo")
  row "$records" content $(measure "$navo" validate --no-progress "$work/b.navo") \
      $(allow=1 measure "$navo" validate --no-progress --content "$work/b.navo")
  cmp -s "$work/c.navo" "$work/b.navo" || { echo "build did not give back the generated file" >&2; exit 1; }
  cmp -s "$work/api.navo" "$work/b.navo" || { echo "the API build differs from the generated file" >&2; exit 1; }
  rm -f "$work"/*.navo "$work"/*.jsonl
done
echo "limits at 100000 records: validate 1.10, convert 2.00, build 2.00 (library = 1); content 1.50 (navo validate = 1)"
