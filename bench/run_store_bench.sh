#!/usr/bin/env bash
# run_store_bench.sh - document store benchmark: time, peak RSS and system calls per record.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NAVO_BENCH_BUILD:-build-store-bench}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DNAVO_BENCH=ON -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j1 --target bench_store >/dev/null
bin="$build/bench/bench_store"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work"

echo "== time and peak RSS (each size in its own process)"
"$bin" 1000 100000

echo "== system calls per phase (strace -f; phases cut at the getppid marks of bench_store)"
for records in 1000 100000; do
  strace -f -o "$work/trace.$records" "$bin" --in-process "$records" >/dev/null
  awk -v r="$records" '
    /getppid\(/ { phase++; next }
    phase >= 1 && phase <= 3 { n[phase]++; if (match($0, /^[0-9]+ +[a-z_0-9]+\(/) || match($0, /^[a-z_0-9]+\(/)) { s = $0; sub(/^[0-9]+ +/, "", s); sub(/\(.*/, "", s); k[phase "," s]++ } }
    END {
      split("add set get", name, " ")
      for (p = 1; p <= 3; p++) {
        detail = ""
        for (key in k) { split(key, part, ","); if (part[1] == p) detail = detail " " part[2] "=" k[key] }
        printf "records %-6d %-3s syscalls %7d  per record %.3f %s\n", r, name[p], n[p], n[p] / r, detail
      }
      printf "records %-6d set+get per record %.3f\n", r, (n[2] + n[3]) / r
    }' "$work/trace.$records"
  rm -f "$work/trace.$records"
done
