"""Shared by the tests: the kernels by number, arrays in several layouts, and random expression records."""

import sys
from collections import ChainMap
from pathlib import Path

import numpy as np

import fragments

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from kernels import read_kernels  # noqa: E402

LAYOUTS = ("contiguous", "strided", "reversed")


PARAMETERS = {number: [name for name, _ in k.parameters] for k in read_kernels() for number in k.numbers}


def kernel(number):
    """The module function _c_closure_N."""
    return getattr(fragments, f"_c_closure_{number}")


def call(number, *named, **more):
    """Call a kernel with arguments by parameter name, from all the mappings given; those that it lacks are left out."""
    arguments = ChainMap(more, *named)
    return kernel(number)(*(arguments[name] for name in PARAMETERS[number]))


def layout(array, kind):
    """A copy of a one-dimensional array, laid out in memory as `kind` says (one of LAYOUTS)."""
    array = np.asarray(array)
    if kind == "contiguous":
        return array.copy()
    spread = np.zeros(3 * len(array) + 1, dtype=array.dtype)
    view = spread[1::3][: len(array)] if kind == "strided" else spread[: 2 * len(array) : 2][::-1]
    view[...] = array
    return view


def i32(values):
    return np.array(values, dtype=np.int32)


def i64(values):
    return np.array(values, dtype=np.int64)


def f64(values):
    return np.array(values, dtype=np.float64)
