#!/bin/bash
# Builds the module for every other CPython from 3.9 on that is at hand, one of each minor version, and calls kernels
# there. It looks into the versions that pyenv keeps and for python3.N on the path. Without any it says so and succeeds.
#
# The compiler is called directly: the meson of Debian 12 knows no interpreter from 3.12 on.
set -euo pipefail
cd "$(dirname "$0")/.."

python=${PYTHON:-/usr/bin/python3}
minor_version='import sys; sys.version_info >= (3, 9) and print(sys.implementation.name + "-%d.%d" % sys.version_info[:2])'
paths='import sysconfig; print(sysconfig.get_path("include"), sysconfig.get_config_var("EXT_SUFFIX"))'

compile() {
  ${CXX:-g++} -std=c++20 -fno-rtti -fno-exceptions -fvisibility=hidden -fPIC -Wall -Wextra -Wpedantic -Werror \
    -Isrc -isystem "$include" -c "$1" -o "$build/$(tr / _ <<< "${1%.cpp}").o"
}
export -f compile

declare -A seen=(["$("$python" -c "$minor_version")"]=1)
for candidate in "${PYENV_ROOT:-$HOME/.pyenv}"/versions/*/bin/python3 /usr/bin/python3.* /usr/local/bin/python3.*; do
  version=$("$candidate" -c "$minor_version" 2>/dev/null) || continue
  [[ $version == cpython-* && -z ${seen[$version]:-} ]] || continue
  read -r include suffix <<< "$("$candidate" -c "$paths")"
  [ -f "$include/Python.h" ] || continue
  seen[$version]=1

  export include build=build/$version
  rm -rf "$build"
  mkdir -p "$build"/fragments_kernels
  find src -name '*.cpp' -print0 | xargs -0 -P "$(nproc)" -I{} bash -c 'compile {}'
  ${CXX:-g++} -shared "$build"/*.o -o "$build/fragments$suffix"
  cp fragments_kernels/init.py "$build"/fragments_kernels/__init__.py
  "$candidate" tools/kernels.py names > "$build"/fragments_kernels/_names.py
  PYTHONPATH=$build "$candidate" tests/smoke.py
done
[ ${#seen[@]} -gt 1 ] || echo "no other CPython from 3.9 on is at hand"
