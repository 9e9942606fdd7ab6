"""Checks of what callers hand over: each gives the argument as kernels take it, or raises an error that names it.

A wrong type is a TypeError, a wrong value a ValueError. `what` is how a message calls the argument.
"""

from __future__ import annotations

import operator
from typing import Sequence, Tuple

import numpy as np


def floats(values, what: str, finite: bool = True) -> np.ndarray:
    """Numbers of any type and nesting as an array of float64. NaN is refused, and so is inf if they are `finite`."""
    array = _array(values)
    if array.dtype.kind not in "biuf":
        raise TypeError(f"{what}: numbers are wanted, not {_kind(values, array)}")
    array = array.astype(np.float64, copy=False)
    with np.errstate(all="ignore"):
        total = array.sum()  # not finite if one number is not; a faster test than one of each
    if np.isfinite(total) or not (finite or np.isnan(total)):
        return array
    good = np.isfinite(array) if finite else ~np.isnan(array)
    if not good.all():
        at = np.argwhere(~good)[0].tolist()
        raise ValueError(f"{what}: number {at[0] if len(at) == 1 else tuple(at)} is {array[tuple(at)]}" if at
                         else f"{what} is {array}")
    return array


def number(value, what: str) -> float:
    """One finite number."""
    array = floats(value, what)
    if array.ndim:
        raise TypeError(f"{what} is one number, not an array of shape {array.shape}")
    return float(array)


def integers(values, what: str, kind: type = np.int64) -> np.ndarray:
    """Integers of any width and nesting as an array of `kind`; those that it cannot hold are refused."""
    array = _array(values)
    if array.size and array.dtype.kind not in "iu":
        raise TypeError(f"{what}: integers are wanted, not {_kind(values, array)}")
    limits = np.iinfo(kind)
    if array.dtype != kind and array.size and not limits.min <= array.min() <= array.max() <= limits.max:
        raise ValueError(f"{what}: the numbers do not fit {limits.bits} bits")
    return array.astype(kind, copy=False)


def count(value, what: str, least: int = 0) -> int:
    """One integer, not below `least`."""
    try:
        value = operator.index(value)
    except TypeError:
        raise TypeError(f"{what} is an integer, not {value!r}") from None
    if value < least:
        raise ValueError(f"{what} is {least} or more, not {value}")
    return value


def flags(values, what: str) -> np.ndarray:
    """Truth values, or the numbers 0 and 1, of any nesting as an array of bool."""
    array = _array(values)
    if array.size and (array.dtype.kind not in "biuf" or not np.isin(array, (0, 1)).all()):
        raise TypeError(f"{what}: True or False is wanted, not {_kind(values, array)}")
    return array.astype(bool)


def extents(shape: Sequence[int], what: str = "a shape") -> Tuple[int, ...]:
    """A shape as a tuple of extents from 0 to 2^31 - 1, outermost first."""
    try:
        shape = tuple(map(operator.index, shape))
    except TypeError:
        raise TypeError(f"{what} is a tuple of extents like (3,) or (2, 3), not {shape!r}") from None
    if not all(0 <= n <= np.iinfo(np.int32).max for n in shape):
        raise ValueError(f"{what} has extents from 0 on and below 2^31, not {shape}")
    return shape


def label(name: str, number: int) -> str:
    """What messages call thing `number` of its kind: its name or, if that is "", its number."""
    if not isinstance(name, str):
        raise TypeError(f"a name is a string, not {name!r}")
    return name or f"number {number}"


def _array(values) -> np.ndarray:
    try:
        return np.asarray(values)
    except ValueError:  # rows of different lengths
        return np.array(None)


def _kind(values, array: np.ndarray) -> str:
    return f"a {type(values).__name__}" + f" of {array.dtype}" * (array.ndim > 0)
