#!/usr/bin/env bash
# test-python.sh - the Python package: builds a Release libnavofront into build/python, installs
# the package from bindings/python into a venv there (offline: no index, no build isolation) and
# runs its pytest suite against that library. Installs missing Debian packages with apt-get as root.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
py=/usr/bin/python3  # Debian's interpreter, whose python3-pytest and setuptools the venv sees

bash scripts/deps.sh
need=()
"$py" -c 'import pytest' 2>/dev/null || need+=(python3-pytest)
"$py" -c 'import ensurepip, venv' 2>/dev/null || need+=(python3-venv)
"$py" -c 'import setuptools' 2>/dev/null || need+=(python3-setuptools)
# pip builds a wheel of the package before installing it: without wheel, setuptools knows no
# bdist_wheel command and the install fails.
"$py" -c 'import wheel' 2>/dev/null || need+=(python3-wheel)
"$py" -c 'import mypy' 2>/dev/null || need+=(python3-mypy)
if [ ${#need[@]} -gt 0 ]; then
  if [ "$(id -u)" = 0 ]; then
    echo "== installing ${need[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get install -y -q --no-install-recommends "${need[@]}" ||
      { apt-get update -q && apt-get install -y -q --no-install-recommends "${need[@]}"; }
  else
    echo "missing packages: ${need[*]} (run as root, or: sudo apt-get install ${need[*]})" >&2
    exit 1
  fi
fi

echo "== building a Release libnavofront into build/python"
cmake -S . -B build/python -DCMAKE_BUILD_TYPE=Release -DNAVO_TESTS=OFF -DNAVO_EXAMPLES=OFF >/dev/null
cmake --build build/python -j 2 --target navo_front >/dev/null
lib=$root/build/python/libnavofront.so.1
[ -e "$lib" ] || { echo "no $lib after the build" >&2; exit 1; }
echo "   $lib"

echo "== installing bindings/python into the venv build/python/venv (--system-site-packages)"
[ -x build/python/venv/bin/python ] || "$py" -m venv --system-site-packages build/python/venv
build/python/venv/bin/python -m pip install --quiet --no-build-isolation --no-index --no-deps \
  --force-reinstall bindings/python
rm -rf bindings/python/build bindings/python/src/navo.egg-info

if "$py" -c 'import mypy' 2>/dev/null; then
  echo "== mypy --strict bindings/python/src/navo"
  "$py" -m mypy --strict --no-incremental bindings/python/src/navo
fi

echo "== pytest bindings/python/tests (NAVO_LIBRARY=$lib)"
cd bindings/python
NAVO_LIBRARY=$lib "$root"/build/python/venv/bin/python -m pytest -q -p no:cacheprovider tests
