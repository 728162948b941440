#!/usr/bin/env bash
# test-web.sh - the browser page in a real browser: builds build/web/index.html
# (scripts/build-web.sh) and the navo tool (build/web-tool), then drives the page in headless
# Chromium through tests/web/test_page.py: the sample, a faulty file, a file with findings, a
# document of 120 records, a CP1250 file; every export compared with `navo convert`; no request
# but file:, data: and blob:. The test writes the page's screenshot, docs/web-page.png.
# Installs what is missing (apt-get, as root).
set -euo pipefail
cd "$(dirname "$0")/.."
NAVO_NEED_BROWSER=1 bash scripts/deps.sh
bash scripts/build-web.sh
# The tool for the comparison, unoptimised: it converts small files only, and builds faster.
cmake -S . -B build/web-tool -DCMAKE_BUILD_TYPE=Debug -DNAVO_TOOLS=ON -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF \
  >/dev/null
cmake --build build/web-tool -j 2 --target navo_tool >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
/usr/bin/python3 tests/web/test_page.py build/web/index.html build/web-tool/tools/navo "$work" docs/web-page.png
