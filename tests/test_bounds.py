"""Bounds of a domain, sparse and dense, bound vectors from them, and copies of tables."""

import itertools

import numpy as np
import pytest
from numpy.lib.stride_tricks import as_strided

from support import LAYOUTS, blank, call, f64, i32, i64, kernel, kinds, layout


@kinds
def test_union_of_sparse_bounds(kind):
    """Against dense matrices; equal values in both lists at each place keep the place of the lower value out of it."""
    rng = np.random.default_rng(3)
    for density in (0, 0.3, 0.9):
        stored = [rng.random((5, 4)) < d for d in (density, 0.4)]
        lists = [[layout(i32(s), kind) for s in np.nonzero(m)] for m in stored]
        values = [layout(np.full(20, v), kind) for v in (-2.0, 3.0)]
        union = stored[0] | stored[1]
        n = np.count_nonzero(union)
        names = dict(zip(("lsubi", "lsubj", "usubi", "usubj"), lists[0] + lists[1]))
        assert call(282, names, init=1 << 40) == (1 << 40) + n
        inst = layout(i32(np.full((n + 1, 2), -1)), kind)
        lbv, ubv = (layout(np.full(n + 1, -0.5), kind) for _ in range(2))
        call(283, names, inst=inst, lbv=lbv, ubv=ubv, lval=values[0], uval=values[1])
        assert np.array_equal(inst, np.r_[np.argwhere(union), [[-1, -1]]])
        assert np.array_equal(lbv, np.r_[np.where(stored[0], -2, 0)[union], -0.5])
        assert np.array_equal(ubv, np.r_[np.where(stored[1], 3, 0)[union], -0.5])


def test_lower_value_is_read_at_the_place_of_the_upper():
    inst, lbv, ubv = i32(np.zeros((2, 2))), f64([0, 0]), f64([0, 0])
    call(283, inst=inst, lbv=lbv, ubv=ubv, lsubi=i32([0, 1]), lsubj=i32([3, 0]), lval=f64([-4, -5]), usubi=i32([1]),
         usubj=i32([0]), uval=f64([6]))  # fmt: skip
    assert inst.tolist() == [[0, 3], [1, 0]] and list(lbv) == [-4, -4] and list(ubv) == [0, 6]


def test_rows_compare_before_columns():
    """Also where rows and columns are far apart or negative."""
    low, high = -(2**31), 2**31 - 1
    lower, upper = ([0, 1, high], [high, low, 0]), ([-1, 1, high], [high, high, low])
    names = dict(zip(("lsubi", "lsubj", "usubi", "usubj"), map(i32, lower + upper)))
    assert call(282, names) == 6
    inst, values = i32(np.zeros((6, 2))), np.ones(6)
    call(283, names, inst=inst, lbv=values.copy(), ubv=values.copy(), lval=values, uval=values)
    assert inst.tolist() == sorted(map(list, [*zip(*lower), *zip(*upper)]))


@kinds
def test_dense_bounds(kind):
    """A repeated position keeps the last value."""
    dense, subi, subj = np.zeros((3, 70_000)), [1, 0, 2, 2, 0], [7, 4, 69_999, 1, 4]
    dense[subi, subj] = v = f64([9, 5, 6, 7, 8])
    lb, ub = np.arange(6.0).reshape(2, 3), -np.arange(6.0).reshape(2, 3)
    for number, name in ((284, "lval"), (285, "uval")):
        target = layout(np.zeros(dense.size), kind)
        lists = {"subi": layout(i32(subi), kind), "subj": layout(i32(subj), kind), "v": layout(v, kind)}
        call(number, lists, {name: target}, ncols=70_000)
        assert np.array_equal(target, dense.ravel())
    lval, uval = (layout(np.full(8, 9.0), kind) for _ in range(2))
    assert call(286, rows=2, cols=3, pos=1, lb=layout(lb, kind), ub=layout(ub, kind), lval=lval, uval=uval) == 7
    assert np.array_equal(lval, [9, *lb.ravel(), 9]) and np.array_equal(uval, [9, *ub.ravel(), 9])


@kinds
def test_tables(kind):
    table = layout(np.arange(12.0).reshape(3, 4), kind)
    shape, flat = layout(i32([3, 4]), kind), layout(np.full(13, -1.0), kind)
    kernel(327)(shape, flat, table)
    assert np.array_equal(flat, np.r_[np.arange(12.0), -1])
    kernel(328)(shape, layout(i64([11, 0, 7]), kind), flat, table)
    assert list(flat[:4]) == [11, 0, 7, 3]
    kernel(328)(shape, i64([5]), flat, table)
    assert list(flat[:4]) == [5, 0, 7, 3]
    kernel(328)(None, i64([]), None, None)

    subi, subj = layout(i32([5, 6]), kind), layout(i32([8, 9]), kind)
    gapless = i32(np.zeros((3, 2)))
    kernel(287)(gapless, subi, subj)
    assert gapless.tolist() == [[5, 8], [6, 9], [0, 0]]
    pairs = layout(i32(np.zeros((3, 3))), kind)
    kernel(287)(pairs, subi, subj)
    assert pairs.tolist() == [[5, 8, 0], [6, 9, 0], [0, 0, 0]]
    kernel(331)(pairs, subj)
    assert pairs.tolist() == [[8, 8, 0], [9, 9, 0], [0, 0, 0]]
    kernel(332)(pairs, subi)
    assert pairs.tolist() == [[5, 6, 0], [9, 9, 0], [0, 0, 0]]


@pytest.mark.parametrize("columns, width", [(3, 5), (31, 40), (32, 40), (32, 100), (40, 40), (40, 30), (40, -50)])
def test_flattening_in_place_runs_forward(columns, width):
    """A value that is written before it is read goes on with its new value, also where the rows of a matrix have gaps
    or lie over one another."""
    for rows, begin, to in itertools.product((1, 4), (160, 300), range(0, 460, 5)):
        memory, expected = np.arange(700.0), np.arange(700.0)
        values, source = (as_strided(a[begin:], (rows, columns), (8 * width, 8)) for a in (memory, expected))
        kernel(327)(i32([rows, columns]), memory[to:], values)
        for k in range(rows * columns):
            expected[to + k] = source[k // columns, k % columns]
        assert memory.tolist() == expected.tolist()


SHAPE = (3, 4, 2)
SIZE = 24


@pytest.fixture(params=LAYOUTS)
def domain(request):
    """Seven bounded elements as a table of multi-indices, one of them twice, and their bounds."""
    rng = np.random.default_rng(82)
    table = np.stack(np.unravel_index(rng.permutation(SIZE)[:7], SHAPE), axis=1).astype(np.int32)
    table[6] = table[1]
    lower = rng.choice([-np.inf, -0.0, 0.0, 1.5, np.nan, -3.0, 2.0], 7)
    upper = rng.normal(size=7)
    return request.param, layout(table, request.param), layout(lower, request.param), layout(upper, request.param)


def scattered(table, values):
    expected = blank(SIZE, make=f64)
    for index, value in zip(table, values):
        expected[np.ravel_multi_index(index, SHAPE)] = value
    return expected.tobytes()


def test_sparse_bounds_go_to_their_elements(domain):
    kind, table, lower, upper = domain
    bl, bu = (blank(SIZE, kind, f64) for _ in range(2))
    stack = layout(i32([99, 98, *SHAPE, 97]), kind)
    call(82, bl=bl, bu=bu, domlb=lower, domsp=table, domub=upper, nd=3, n=SIZE, ri32=stack, pos=2)
    assert bl.tobytes() == scattered(table, lower) and bu.tobytes() == scattered(table, upper)
    bl[:] = -7
    call(100, b=bl, dombnd=lower, domsp=table, nd=3, stride=layout(i32([8, 2, 1]), kind))
    assert bl.tobytes() == scattered(table, lower)


@pytest.mark.parametrize("n", (0, 1, 6))
def test_one_pair_for_all_and_a_pair_for_each(domain, n):
    kind, table, lower, upper = domain
    rest = [-7] * (7 - n)
    for scalar, expected in ((True, (lower[[0] * n], upper[[0] * n])), (False, (lower[:n], upper[:n]))):
        bl, bu = (blank(7, kind, f64) for _ in range(2))
        call(82, bl=bl, bu=bu, dense=not scalar, domlb=lower, scalar=scalar, domub=upper, n=n)
        assert bl.tobytes() == f64([*expected[0], *rest]).tobytes()
        assert bu.tobytes() == f64([*expected[1], *rest]).tobytes()
    # One pair for all goes before a pair for each; no elements read no pair.
    call(82, dense=True, scalar=True, n=0)
    bl, bu = f64([0] * 3), f64([0] * 3)
    call(82, bl=bl, bu=bu, dense=True, domlb=f64([1]), scalar=True, domub=f64([2]), n=3)
    assert bl.tolist() == [1] * 3 and bu.tolist() == [2] * 3
