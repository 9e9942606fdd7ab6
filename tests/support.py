"""Shared by the tests: the kernels by number, calls by name, arrays in several layouts, the scripts of examples/."""

import os
import re
import subprocess
import sys
from collections import ChainMap
from pathlib import Path

import numpy as np
import pytest

import fragments

ROOT = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "examples")]

from kernels import read_kernels  # noqa: E402

KERNELS = {number: declared for declared in read_kernels() for number in declared.numbers}
EMPTY = {"i": 0, "L": 0, "d": 0.0, "p": False}  # of each kind of scalar; an array is empty as None

# Whether this is the build with bounds checking. Its folder tells: a build whose checks fail must not pass as normal.
CHECKED = Path(fragments.__file__).parent.name == "checked"

# What the checked build wants of each kind of array.
WANTED = {
    **{"i32": "int32, 1 axis", "i64": "int64, 1 axis", "f64": "float64, 1 axis"},
    **{"i32x2": "int32, 2 axes", "f64x2": "float64, 2 axes", "i32*": "object, 1 axis"},
}

LAYOUTS = ("contiguous", "strided", "reversed")
kinds = pytest.mark.parametrize("kind", LAYOUTS)

UNTOUCHED = -7  # what a slot holds that no kernel has written


def kernel(number):
    """The module function _c_closure_N."""
    return getattr(fragments, f"_c_closure_{number}")


def call(number, *mappings, **named):
    """The kernel's result for arguments by name, `named` ones or else from the mappings, which may hold more than the
    kernel takes; None for the other arrays and 0 for the other scalars."""
    parameters = KERNELS[number].parameters
    assert named.keys() <= {name for name, _ in parameters}
    arguments = ChainMap(named, *mappings)
    return kernel(number)(*(arguments.get(name, EMPTY.get(kind)) for name, kind in parameters))


def is_refused(error, number, name, kind):
    """Whether an exception refuses an array for its type or its axes. The checked build says what it wants and got."""
    text = f"Invalid array shape or type for argument '{name}'"
    pattern = re.escape(f"_c_closure_{number}: {name}: want {WANTED[kind]}; got ") + r".+, (1 axis|\d axes)"
    return type(error) is ValueError and (re.fullmatch(pattern, str(error)) if CHECKED else str(error) == text)


def layout(array, kind):
    """A copy of an array, laid out in memory as `kind` says (one of LAYOUTS) along each of its axes."""
    array = np.asarray(array)
    if kind == "contiguous":
        return array.copy()
    spread = np.zeros([2 * n + 1 for n in array.shape], dtype=array.dtype)
    view = spread[tuple(slice(1, 2 * n + 1, 2) for n in array.shape)]
    if kind == "reversed":
        view = view[(slice(None, None, -1),) * array.ndim]
    view[...] = array
    return view


def i32(values):
    return np.array(values, dtype=np.int32)


def i64(values):
    return np.array(values, dtype=np.int64)


def f64(values):
    return np.array(values, dtype=np.float64)


def blank(n, kind="contiguous", make=i32):
    """An array of n slots that no kernel has written."""
    return layout(make([UNTOUCHED] * n), kind)


def placed(size, start, values, fill=UNTOUCHED):
    """What an array of `size` slots is that held `fill` before `values` were written from slot `start` on."""
    values = np.asarray(values)
    array = np.full(size, fill, dtype=values.dtype)
    array[start : start + len(values)] = values
    return array


def row_major(shape):
    """The strides, in elements, of an array in row-major order."""
    return [int(np.prod(shape[d + 1 :])) for d in range(len(shape))]


def run_example(script, *arguments):
    """Runs a script of examples/ with the module under test."""
    environment = dict(os.environ, PYTHONPATH=str(Path(fragments.__file__).parent))
    command = [sys.executable, str(ROOT / "examples" / script), *map(str, arguments)]
    return subprocess.run(command, env=environment, capture_output=True, text=True)
