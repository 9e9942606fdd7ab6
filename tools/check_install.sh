#!/bin/bash
# Makes the sdist and, from what is in it, the wheel; installs that into an environment that is thrown away afterwards,
# calls kernels there, and lets mypy find the types. Nothing is fetched.
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

"$python" -c 'import mesonpy, sys; print(mesonpy.build_sdist(sys.argv[1]))' "$place" > "$place/log" || fail "$(< "$place/log")"
# Options of the build go through --config-settings; without optimisation it is quick.
"$python" -m pip wheel --quiet --no-build-isolation --no-deps --config-settings=setup-args=-Doptimization=0 \
  --wheel-dir "$place" "$place"/fragments-*.tar.gz
"$python" -m pip install --quiet --no-index "$place"/fragments-*.whl

"$python" tests/smoke.py
cd "$place" # not the tree: what is imported from here on is what was installed
module=$("$python" -c 'import fragments; print(fragments.__file__)')
[[ $module == "$place"/* ]] || fail "imported, but not what was installed: $module"
version=$("$python" -c 'import fragments_kernels as k; assert k.checked is False; print(k.__version__)')
[[ $(echo fragments-*.whl) == "fragments-$version"-* ]] || fail "the companion says it is of version $version"
files=$("$python" -m pip show --files fragments | sed '1,/^Files:/d; /^ *fragments-[0-9]/d; /__pycache__/d' | sort | xargs)
[ "$files" = "fragments-stubs/__init__.pyi $(basename "$module") fragments_kernels/__init__.py\
 fragments_kernels/_names.py fragments_kernels/_names.pyi fragments_kernels/py.typed fragments_kernels/records.py" ] ||
  fail "installed:" "$files"
exported=$(nm -D --defined-only "$module" | sed 's/.* //')
[ "$exported" = PyInit_fragments ] || fail "exported by the module:" "$exported"

cat > calls.py << 'END'
from fragments import _c_closure_333
from fragments_kernels import call, zero_slots
from fragments_kernels.records import check_record
_c_closure_333(0, None, 0)
zero_slots(0, None, 0)
_c_closure_333(0, [], 0)
zero_slots(0, [], 0)
call(0, 0)
check_record(0)
END
refused=$({ mypy --strict --python-executable "$python" calls.py || true; } | sed -n 's/^calls.py:\([0-9]*\): error.*/\1/p' | xargs)
[ "$refused" = "6 7 8 9" ] || fail "mypy refuses these lines of calls.py, where 6 to 9 are wrong: $refused"
