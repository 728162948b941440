#!/usr/bin/env bash
# check-abi.sh - guards the C ABI of libnavo.so. Builds the shared library alone (gcc,
# RelWithDebInfo, no tests, examples or tool) in build/abi, describes with abidw what of it the
# public headers in include/ declare (exported functions and variables, their signatures, the
# records they reach with every member's offset and the records' sizes, the ELF symbols and the
# SONAME), and compares that with the committed description cmake/libnavo.abi through abidiff: a
# changed signature, layout or size, an export removed or added fails with abidiff's report.
#   scripts/check-abi.sh            compare (installs abigail-tools with apt-get as root when missing)
#   scripts/check-abi.sh --update   write cmake/libnavo.abi from the build, for a deliberate change
set -euo pipefail
cd "$(dirname "$0")/.."

mode=check
case "${1:-}" in
  '') ;;
  --update) mode=update ;;
  *) echo "usage: scripts/check-abi.sh [--update]" >&2; exit 2 ;;
esac

committed=cmake/libnavo.abi
build=build/abi
NAVO_TOOLS=OFF NAVO_NEED_ABI=1 bash scripts/deps.sh

# The description depends on the compiler's debug information, so it is made by one compiler.
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF -DNAVO_TOOLS=OFF >/dev/null
cmake --build "$build" -j 2 --target navo >/dev/null

# The options keep the description the same for the same library wherever it is built: no paths
# of the build or the checkout (--no-corpus-path, --no-comp-dir-path, --short-locs names each
# translation unit by its file name), no source lines (--no-show-locs: editing a comment changes
# no ABI), type ids from a hash of the type instead of a running count (a new type renumbers
# nothing). --headers-dir with --drop-private-types and --exported-interfaces-only keeps the
# exports and the types the public headers declare, not the library's own.
describe() {
  local out=$1 body
  body=$(mktemp)
  abidw --headers-dir include --drop-private-types --exported-interfaces-only \
    --no-corpus-path --no-comp-dir-path --no-show-locs --short-locs --type-id-style hash \
    --out-file "$body" "$build/libnavo.so.1"
  # abidiff reads a comment inside the root element, not before it (and none holding "--").
  {
    head -n 1 "$body"
    echo '  <!-- cmake/libnavo.abi - the C ABI of libnavo.so as abidw describes it; written and'
    echo '       compared by scripts/check-abi.sh, never edited by hand -->'
    tail -n +2 "$body"
  } >"$out"
  rm -f "$body"
}

if [ "$mode" = update ]; then
  describe "$committed"
  echo "wrote $committed: $(grep -c "type='func-type'" "$committed") functions and" \
    "$(grep -c "type='object-type'" "$committed") variables exported"
  exit 0
fi

if [ ! -f "$committed" ]; then
  echo "check-abi: $committed is missing; scripts/check-abi.sh --update writes it" >&2
  exit 1
fi
# abidiff reports no change at all against a description it fails to parse (cut short, a stray
# "--" in a comment); abilint refuses such a file.
if ! abilint --noout "$committed"; then
  echo "check-abi: $committed cannot be read; scripts/check-abi.sh --update writes it again" >&2
  exit 1
fi
describe "$build/libnavo.abi"
# abidiff's status is a bit set: 1 error, 2 usage error, 4 a change, 8 an incompatible one (an
# export removed, the SONAME changed). Every change fails: abidiff calls a record grown at its end a change only, yet
# a host that embeds the record or reads its size from navo.h breaks.
status=0
abidiff "$committed" "$build/libnavo.abi" || status=$?
if [ "$status" -eq 0 ]; then
  echo "libnavo.so's ABI matches $committed"
  # What abidiff does not weigh (the libraries needed, which source file holds a function) may
  # still differ; the description is kept as the build writes it.
  if ! cmp -s "$committed" "$build/libnavo.abi"; then
    echo "note: $committed differs from this build's description in what abidiff does not count;" \
      "scripts/check-abi.sh --update brings it up to date"
  fi
  exit 0
fi
if [ $((status & 3)) -ne 0 ]; then
  echo "check-abi: abidiff could not compare $committed with $build/libnavo.abi (status $status)" >&2
  exit 1
fi
echo "check-abi: the ABI of libnavo.so differs from $committed (above); if the change is deliberate, run scripts/check-abi.sh --update and commit $committed with it" >&2
exit 1
