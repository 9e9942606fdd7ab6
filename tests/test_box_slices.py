"""Slices of index arrays by a box, and what other arrays of native indices are made by."""

import itertools

import numpy as np
import pytest

from support import blank, call, i32, i64, kernel, kinds, layout, row_major


def random_box(rng, shape):
    first = rng.integers(0, shape)
    last = rng.integers(first + (rng.random() < 0.8), np.array(shape) + 1)
    return first, last, np.ix_(*map(np.arange, first, last))


@kinds
@pytest.mark.parametrize("shape", [(1,), (7,), (4, 5), (3, 1, 4), (5, 3, 12), (2, 3, 2, 3), (2, 1) * 5], ids=str)
def test_slice(shape, kind):
    rng = np.random.default_rng(len(shape))
    native = rng.integers(0, 1000, shape)
    for _ in range(8):
        first, last, box = random_box(rng, shape)
        wanted = native[box].ravel()
        n, nd = len(wanted), len(shape)
        table = {"nd": nd, "shape": layout(i32(shape), kind)}
        table |= {name: layout(i32(first), kind) for name in ("firsta", "astart")}
        table |= {name: layout(i32(last), kind) for name in ("lasta", "astop")}
        table |= {"con_nativeidxs": layout(i32(native.ravel()), kind), "stride": layout(i64(row_major(shape)), kind)}

        walked = blank(n + 1, kind)
        call(260, table, sliceidxs=walked, n=n)
        assert np.array_equal(walked, np.r_[wanted, -7])

        index, filtered = blank(nd, kind), blank(n + 2, kind)
        assert call(317, table, index=index, pos=1, nidxs=table["con_nativeidxs"], rnidxs=filtered) == n + 1
        assert np.array_equal(filtered, np.r_[-7, wanted, -7]) and np.array_equal(index, np.array(shape) - 1)

        stored = rng.random(shape) < 0.6
        rsp = np.flatnonzero(stored[box])
        table |= {"sp": layout(i64(np.flatnonzero(stored)), kind), "nidxs": layout(i32(native[stored]), kind)}
        assert call(318, table, index=index, count=5) == 5 + len(rsp)
        out = {"rsp": blank(len(rsp), kind, i64), "rnidxs": blank(len(rsp), kind)}
        assert call(320, table, out, index=index, rstride=i64(row_major(last - first))) == len(rsp)
        assert np.array_equal(out["rsp"], rsp) and np.array_equal(out["rnidxs"], native[box].ravel()[rsp])


def test_strides_are_taken_as_they_are():
    """Coordinates follow from the strides given, row-major or not, and all of them are left of the last element."""
    index, rnidxs = i32([-1, -1]), i32([-1] * 6)
    table = {"nd": 2, "shape": i32([2, 3]), "stride": i64([1, 2]), "astart": i32([1, 0]), "astop": i32([2, 3])}
    assert call(317, table, index=index, nidxs=i32(range(10, 16)), rnidxs=rnidxs) == 3
    assert list(rnidxs) == [11, 13, 15, -1, -1, -1] and list(index) == [1, 2]


@pytest.mark.parametrize("shape", [(4,), (9, 40), (50, 3), (2, 3, 2, 3), (2, 1) * 2 + (3, 2, 3, 2, 3, 7)], ids=str)
@pytest.mark.parametrize("reach", [300, 900, 4000])
def test_boxes_by_any_strides(shape, reach):
    """A coordinate is flat // stride % extent, and a box may begin before its array and end behind it."""
    rng, extents, nd = np.random.default_rng(reach), np.array(shape), len(shape)
    native = rng.integers(0, 1000, 300)
    for trial in range(24):
        stride = rng.integers(1, 9, nd) if trial % 3 == 2 else np.array(row_major(shape))
        stride[: trial % 3 * rng.integers(nd + 1)] += rng.integers(0, 3)
        first = rng.integers(-1, extents) * (rng.random(nd) < 1 / nd)
        last = np.where(rng.random(nd) < 1 / nd, rng.integers(first, extents + 2), extents)
        rstride, sp = rng.integers(1, 99, nd), rng.choice(reach, 300, replace=False)
        if trial % 2:
            sp.sort()  # as patterns are; a filter takes them in any order
        table = {"nd": nd, "index": blank(nd), "shape": i32(shape), "stride": i64(stride), "nidxs": i32(native)}
        table |= {"astart": i32(first), "astop": i32(last), "sp": i64(sp), "rstride": i64(rstride)}
        for number, flat in ((317, np.arange(300)), (320, sp)):
            x = flat[:, None] // stride % extents
            inside = np.flatnonzero(((first <= x) & (x < last)).all(1))
            n, rsp, filtered = len(inside), blank(301, make=i64), blank(301)
            assert call(number, table, {"rnidxs": filtered, "rsp": rsp}) == n
            assert filtered.tolist() == [*native[inside], *[-7] * (301 - n)]
        assert rsp.tolist() == [*((x - first)[inside] @ rstride), *[-7] * (301 - n)]
        assert call(318, table) == n


def test_without_axes_everything_is_inside():
    rsp, rnidxs = i64([-1] * 3), i32([-1] * 3)
    assert call(318, nidxs=i32([7, 8]), sp=i64([4, 5])) == 2
    assert call(320, nidxs=i32([7, 8]), sp=i64([4, 5]), rsp=rsp, rnidxs=rnidxs) == 2
    assert list(rsp) == [0, 0, -1] and list(rnidxs) == [7, 8, -1]
    assert call(260, nd=2) is None


def test_a_walk_goes_on_behind_its_box():
    """The walk trusts the count: behind the box it goes on along the first axis."""
    sliced = i32([-1] * 5)
    box = {"nd": 2, "shape": i32([3, 3]), "firsta": i32([0, 1]), "lasta": i32([1, 3])}
    call(260, box, con_nativeidxs=i32(range(9)), sliceidxs=sliced, n=5)
    assert list(sliced) == [1, 2, 4, 5, 7]
    box = {"nd": 1, "shape": i32([3]), "firsta": i32([1]), "lasta": i32([3])}
    call(260, box, con_nativeidxs=i32(range(9)), sliceidxs=sliced, n=5)
    assert list(sliced) == [1, 2, 3, 4, 5]


@kinds
def test_variable_lists(kind):
    rng = np.random.default_rng(4)
    for size in (0, 1, 2, 30):
        variables = layout(i64(rng.integers(1, 12, size)), kind)
        distinct = layout(np.unique(variables), kind)
        perm = layout(i64(np.argsort(variables, kind="stable")), kind)
        assert kernel(245)("yes", len(distinct), distinct) is True and kernel(245)(0, len(distinct), distinct) is False
        assert kernel(245)(True, size, variables) is (len(distinct) == size and np.array_equal(variables, distinct))

        assert kernel(247)(size, 3, perm, variables) == 3 + max(0, len(distinct) - 1)
        ordered, narrow = layout(variables[perm], kind), blank(size + 2, kind)
        identity = layout(i64(range(size)), kind)
        kernel(246)(min(size, 1), ordered, narrow)
        assert kernel(248)(2, size, identity, ordered, narrow) == max(2, 1 + len(distinct))
        assert np.array_equal(narrow[1 : len(distinct) + 1], distinct)
        assert narrow[0] == -7 and np.all(narrow[len(distinct) + 1 :] == -7)


def test_a_repeat_anywhere_is_no_ascent():
    for n, k in itertools.product((1, 8, 9, 10, 17, 18), range(1, 19)):
        variables = i64(range(20))
        variables[k] = k - 1
        assert kernel(245)(True, n, variables) is (k >= n)


def test_ascents_of_the_list_pick_entries_of_the_permutation():
    """Kernel 247 compares through the permutation; 248 compares the list as it stands and takes entries through it."""
    variables, perm, narrow = i64([5, 9, 7]), i64([0, 2, 1]), i32([-1] * 4)
    assert kernel(247)(3, 0, perm, variables) == 2
    assert kernel(248)(1, 3, perm, variables, narrow) == 2 and list(narrow) == [-1, 7, -1, -1]


def test_concatenation():
    r, first, second = i32([-1] * 6), i32([4, 4]), i32([1, 4, 0])
    kernel(274)(r, first)
    kernel(275)(r, first, second[:0])
    assert list(r) == [4, 4, -1, -1, -1, -1]
    kernel(275)(r, first, second)
    assert list(r) == [4, 4, 1, 4, 0, -1]
