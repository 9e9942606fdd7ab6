"""Shared by the tests: the kernels by number, arrays in several layouts, and random expression records."""

import sys
from collections import ChainMap
from pathlib import Path

import numpy as np

import fragments

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from kernels import read_kernels  # noqa: E402

KERNELS = {number: declared for declared in read_kernels() for number in declared.numbers}
EMPTY = {"i": 0, "L": 0, "d": 0.0, "p": False}  # of each kind of scalar; an array is empty as None

# Whether this is the build with bounds checking. Its folder tells: a build whose checks fail must not pass as normal.
CHECKED = Path(fragments.__file__).parent.name == "checked"

LAYOUTS = ("contiguous", "strided", "reversed")


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


def layout(array, kind):
    """A copy of an array, laid out in memory as `kind` says (one of LAYOUTS) along each of its axes."""
    array = np.asarray(array)
    if kind == "contiguous":
        return array.copy()
    spread = np.zeros([3 * n + 1 for n in array.shape], dtype=array.dtype)
    if kind == "strided":
        view = spread[tuple(slice(1, 3 * n + 1, 3) for n in array.shape)]
    else:
        view = spread[tuple(slice(0, 2 * n, 2) for n in array.shape)]
        view = view[(slice(None, None, -1),) * array.ndim]
    view[...] = array
    return view


def i32(values):
    return np.array(values, dtype=np.int32)


def i64(values):
    return np.array(values, dtype=np.int64)


def f64(values):
    return np.array(values, dtype=np.float64)


def placed(size, start, values, fill=-7):
    """What an array of `size` slots is that held `fill` before `values` were written from slot `start` on."""
    values = np.asarray(values)
    array = np.full(size, fill, dtype=values.dtype)
    array[start : start + len(values)] = values
    return array
