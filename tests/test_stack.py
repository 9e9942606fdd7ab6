"""Stacks of records along an axis: checks, sizes and sorts that the random trees of operators cannot show."""

import numpy as np
import pytest

from support import blank, call, i32, kinds, layout


@pytest.mark.parametrize(
    "dim, nds, extents, hassp, incoming, expected",
    [
        (1, [2, 2], [[3, 4], [5, 4]], [0, 0], (True, False), (True, True)),
        (2, [2, 2], [[3, 4], [3, 5]], [0, 0], (True, False), (True, True)),  # a new axis: all must agree
        (0, [2, 3], [[3, 4], [3, 4]], [0, 0], (True, False), (True, True)),  # another number of axes
        (1, [2, 3], [[3, 4], [3, 4]], [0, 0], (True, False), (True, False)),  # not looked at: operand 1, dim 1
        (1, [2, 3], [[3, 4], [9, 4]], [0, 0], (True, False), (True, True)),  # but its extents are
        (0, [2, 2], [[3, 4]] * 2, [1, 0], (True, False), (True, False)),  # the first operand is the caller's
        (0, [2, 2, 2], [[3, 4]] * 3, [0, 0, 1], (True, True), (False, True)),  # bad stays, alldense is still found
    ],
)
def test_agreement(dim, nds, extents, hassp, incoming, expected):
    arrays = {"wi32": i32([x for shape in extents for x in shape]), "shape_base": i32(range(0, 2 * len(nds), 2))}
    tables = {"nds": i32(nds), "hassp": i32(hassp)}
    alldense, bad = incoming
    assert call(428, arrays, tables, dim=dim, n=len(nds), nd=2, shape=0, alldense=alldense, bad=bad) == expected


def test_sizes_start_from_what_comes_in():
    tables = {"ncodeatom": i32([0, 5]), "nelem": i32([2, 3]), "nnz": i32([4, 1])}
    assert call(430, tables, n=2, hascode=False, c=100, e=10, k=20) == (True, 109, 15, 25)
    assert call(430, tables, n=1, hascode=False, c=100, e=10, k=20) == (False, 100, 12, 24)
    assert call(430, tables, n=1, hascode=True, c=100, e=10, k=20) == (True, 104, 12, 24)
    extents = {"wi32": i32([3, 4, 5, 6]), "shape_base": i32([0, 2])}
    assert call(429, extents, dim=1, n=2, nd=2, total=7) == 17
    assert call(429, extents, dim=2, n=2, nd=2, total=7) == 2  # a new axis: what comes in is replaced
    assert call(535, extents, init=2, n=3) == 120 and call(536, extents, init=2, dim=1, nd=4) == 60
    assert call(440, ri32=i32([3, 9, 4]), init=5, n=3) == 9 and call(440, init=5) == 5


@kinds
@pytest.mark.parametrize("extents", [(), (7,), (3, 1), (4, 1, 3), (2, 5, 3, 2)])
def test_sort_of_keys(extents, kind):
    """A stable sort with a pass for every axis, also one of extent 1; the buckets are left by the pass of axis 0."""
    rng = np.random.default_rng(len(extents))
    n, key, bucket = 40, 3, 82
    keys = rng.integers(0, int(np.prod(extents)), n) if extents else rng.integers(0, 9, n)
    xi32 = blank(bucket + 9, kind)
    xi64 = layout(np.r_[[0] * key, keys], kind)
    place, other = call(
        442, order=1, other=41, key=key, bucket=bucket, n=n, nd=len(extents), ri32=i32(extents), xi32=xi32, xi64=xi64
    )
    assert (place, other) == ((41, 1) if len(extents) % 2 else (1, 41))
    expected = np.argsort(keys, kind="stable") if extents else np.arange(n)
    assert np.array_equal(xi32[place : place + n], expected)
    assert xi32[0] == xi32[-1] == -7
    if extents:
        coordinates = keys // int(np.prod(extents[1:]))
        ends = [np.count_nonzero(coordinates <= b) for b in range(extents[0])]
        assert xi32[bucket : bucket + extents[0] + 1].tolist() == ends + [n]


