#!/bin/bash
# Installs the module with pip into an environment that is thrown away afterwards, and calls kernels there.
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  printf '%s\n' "$@"
  exit 1
}

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
"${PYTHON:-/usr/bin/python3}" -m venv --system-site-packages "$place"
python=$place/bin/python
# Options of the build go through --config-settings; without optimisation it is quick.
"$python" -m pip install --quiet --no-build-isolation --config-settings=setup-args=-Doptimization=0 .
"$python" tests/smoke.py

module=$("$python" -c 'import fragments; print(fragments.__file__)')
[[ $module == "$place"/* ]] || fail "imported, but not what was installed: $module"
others=$("$python" -m pip show --files fragments | sed '1,/^Files:/d; /^ *fragments[.-]/d')
[ -z "$others" ] || fail "installed besides the module:" "$others"
exported=$(nm -D --defined-only "$module" | sed 's/.* //')
[ "$exported" = PyInit_fragments ] || fail "exported by the module:" "$exported"
