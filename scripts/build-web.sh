#!/usr/bin/env bash
# build-web.sh - the browser page: build/web/index.html, one self-contained HTML file with the
# library and libnavofront compiled to WebAssembly inside it (web/). Built with Debian's
# emscripten package, installed with apt-get when missing and run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

# cmake, the compilers CMake looks for and nlohmann-json as for every build, and emscripten.
NAVO_TOOLS=OFF NAVO_NEED_WEB=1 bash scripts/deps.sh

# emscripten's optimiser runs on node with Debian's acorn parser (node-acorn). A node that is not
# Debian's does not look in Debian's module directory: point it there.
# em-config names the node emscripten runs, as a path or as a list of one: ['/usr/bin/node'].
node=$(em-config NODE_JS 2>/dev/null | tr -d "[]'\"," | awk '{print $1}')
node=${node:-$(command -v node)}
if ! "$node" -e "require.resolve('acorn')" >/dev/null 2>&1; then
  export NODE_PATH=/usr/share/nodejs${NODE_PATH:+:$NODE_PATH}
fi

emcmake cmake -S . -B build/web-wasm -DCMAKE_BUILD_TYPE=Release -DNAVO_TESTS=OFF -DNAVO_TOOLS=OFF \
  -DNAVO_EXAMPLES=OFF -DNAVO_WEB_PAGE="$root/build/web/index.html" -Wno-dev >/dev/null
cmake --build build/web-wasm -j 2 --target navo_page
page=build/web/index.html
echo "$page: $(stat -c %s "$page") bytes"
