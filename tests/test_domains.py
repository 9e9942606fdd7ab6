"""Bound vectors from domains."""

import numpy as np
import pytest
from support import LAYOUTS, call, f64, i32, layout

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
    expected = np.full(SIZE, 77.0)
    for index, value in zip(table, values):
        expected[np.ravel_multi_index(index, SHAPE)] = value
    return expected.tobytes()


def test_sparse_bounds_go_to_their_elements(domain):
    kind, table, lower, upper = domain
    bl, bu = (layout(np.full(SIZE, 77.0), kind) for _ in range(2))
    stack = layout(i32([99, 98, *SHAPE, 97]), kind)
    call(82, bl=bl, bu=bu, domlb=lower, domsp=table, domub=upper, nd=3, n=SIZE, ri32=stack, pos=2)
    assert bl.tobytes() == scattered(table, lower) and bu.tobytes() == scattered(table, upper)
    bl[:] = 77.0
    call(100, b=bl, dombnd=lower, domsp=table, nd=3, stride=layout(i32([8, 2, 1]), kind))
    assert bl.tobytes() == scattered(table, lower)


@pytest.mark.parametrize("n", (0, 1, 6))
def test_one_pair_for_all_and_a_pair_for_each(domain, n):
    kind, table, lower, upper = domain
    rest = [77.0] * (7 - n)
    for scalar, expected in ((True, (lower[[0] * n], upper[[0] * n])), (False, (lower[:n], upper[:n]))):
        bl, bu = (layout(np.full(7, 77.0), kind) for _ in range(2))
        call(82, bl=bl, bu=bu, dense=not scalar, domlb=lower, scalar=scalar, domub=upper, n=n)
        assert bl.tobytes() == f64([*expected[0], *rest]).tobytes()
        assert bu.tobytes() == f64([*expected[1], *rest]).tobytes()
    # One pair for all goes before a pair for each; no elements read no pair.
    call(82, dense=True, scalar=True, n=0)
    bl, bu = f64([0] * 3), f64([0] * 3)
    call(82, bl=bl, bu=bu, dense=True, domlb=f64([1]), scalar=True, domub=f64([2]), n=3)
    assert bl.tolist() == [1] * 3 and bu.tolist() == [2] * 3
