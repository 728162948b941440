#!/usr/bin/env bash
# run_web_bench.sh - the browser page against the native tool on the same file, in one run: the
# 100,000-record file of bench_load (one TOBRCA document whose repeating block DDORCA has 100,000
# records, 31 MB) read and summarised by build/web/index.html in headless Chromium
# (bench/web_bench.py, the page's own clock from the file chosen to the summary shown), and
# checked by `navo validate` (wall time of the process). Best of RUNS runs each (default 5),
# interleaved; the page's content checks and the longest pause of its thread beside them.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${RUNS:-5}
records=${RECORDS:-100000}
NAVO_NEED_BENCH=1 NAVO_NEED_BROWSER=1 bash scripts/deps.sh
bash scripts/build-web.sh >/dev/null
cmake -S . -B build/web-bench -DCMAKE_BUILD_TYPE=Release -DNAVO_BENCH=ON -DNAVO_TOOLS=ON -DNAVO_TESTS=OFF \
  -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build build/web-bench -j 2 --target bench_load navo_tool >/dev/null
navo=build/web-bench/tools/navo
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work"
build/web-bench/bench/bench_load generate "$work/b.navo" "$work/b.xml" "$records"
rm -f "$work/b.xml"

# Wall seconds of one `navo validate`, which must find the file valid.
native() {
  /usr/bin/python3 - "$navo" "$work/b.navo" <<'PY'
import subprocess, sys, time
start = time.perf_counter()
result = subprocess.run([sys.argv[1], "validate", "--no-progress", sys.argv[2]], stdout=subprocess.DEVNULL)
elapsed = time.perf_counter() - start
if result.returncode != 0:
    sys.exit("navo validate failed")
print("%.3f" % elapsed)
PY
}

: >"$work/native"
: >"$work/page"
for _ in $(seq "$runs"); do
  native >>"$work/native"
  /usr/bin/python3 bench/web_bench.py build/web/index.html "$work/b.navo" 1 >>"$work/page"
done
awk -v records="$records" -v page_bytes="$(stat -c %s build/web/index.html)" '
  FILENAME ~ /native$/ { if (n == "" || $1 < n) n = $1 }
  FILENAME ~ /page$/ {
    if ($4 != 1) { print "the page did not read the file whole" > "/dev/stderr"; exit 1 }
    if (s == "" || $1 < s) s = $1
    if (c == "" || $2 < c) c = $2
    if ($3 > p) p = $3
    if (steps == "" || $5 < steps) steps = $5
  }
  END {
    printf "records %d, page %d bytes, best of the runs\n", records, page_bytes
    printf "%-36s %8.3f s\n", "navo validate (native)", n
    printf "%-36s %8.3f s  %5.2f x native\n", "page: read and summarised", s, s / n
    printf "%-36s %8.3f s  %5.2f x native\n", "page: and its content checks shown", c, c / n
    printf "%-36s %8.3f s\n", "page: longest pause of its thread", p
    printf "%-36s %8d\n", "page: progress bar steps, fewest", steps
    if (s > 3 * n) { print "the page took more than 3 times the native validate" > "/dev/stderr"; exit 1 }
  }' "$work/native" "$work/page"
