#!/usr/bin/env bash
# run.sh - the main job: installs what is missing, builds the library and the examples, and
# runs the example host program.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
bash scripts/deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DNAVO_TESTS=OFF >/dev/null
cmake --build build/release -j "$jobs"
if [ -x build/release/examples/navo_read ] && [ -f examples/data/sample.navo ]; then
  build/release/examples/navo_read "${1:-examples/data/sample.navo}"
else
  echo "built: $(ls build/release/libnavo.so* | tr '\n' ' ')"
fi
