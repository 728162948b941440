#!/usr/bin/env bash
# run.sh - the main job: installs what is missing, builds the library, the navo tool and the example
# hosts, and shows the tool at work on a NAVO file (the sample by default): validates it, shows its
# first document and converts it to JSON Lines. `scripts/run.sh FILE` takes a path relative to
# where you stand.
set -euo pipefail
file=$(realpath -- "${1:-$(dirname "$0")/../examples/data/sample.navo}")
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
bash scripts/deps.sh
echo "== building the library, the navo tool and the examples (build/release)"
# The options are given every time: CMake keeps what a directory was configured with, and the
# README runs build/release/tools/navo and build/release/examples/navo_write.
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DNAVO_TESTS=OFF -DNAVO_TOOLS=ON \
  -DNAVO_EXAMPLES=ON >/dev/null
cmake --build build/release -j "$jobs" >/dev/null
navo=build/release/tools/navo

echo "== navo validate $file"
status=0
"$navo" validate "$file" || status=$?
echo
echo "== navo show --doc 1 (the first document)"
"$navo" show "$file" --doc 1 || status=$?
echo
echo "== navo convert --to jsonl"
"$navo" convert "$file" --to jsonl || status=$?
exit "$status"
