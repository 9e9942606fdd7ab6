"""Products with a constant array and with a scalar, and weighted sums of chosen elements."""

import numpy as np
import pytest

from records import Record, Room, Stack, evaluate, random_record
from support import LAYOUTS, call, f64, i32, i64, layout

CASES = [
    pytest.mark.parametrize("kind", LAYOUTS),
    pytest.mark.parametrize("code", [False, True], ids=["plain", "code"]),
    pytest.mark.parametrize("sparse", [False, True], ids=["dense", "sparse"]),
    pytest.mark.parametrize("seed", range(4)),
]


def all_cases(test):
    for mark in CASES:
        test = mark(test)
    return test


def random_constant(rng, shape, kind):
    """A sparse constant array for NumPy, its pattern and its values."""
    dense = rng.integers(-4, 5, int(np.prod(shape))).astype(float)
    stored = rng.random(len(dense)) < 0.5
    dense *= stored
    return dense, layout(np.flatnonzero(stored), kind), layout(dense[stored], kind)


@all_cases
def test_constant_array(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    shape = (3, 4)
    dense, msp, mcof = random_constant(rng, shape, kind)
    record = random_record(rng, shape, sparse, code)
    w = Stack("w", rng, [record], kind)
    assert call(460, msp=msp, size=12) == (False, False)
    atoms, elements, terms = call(461, w.arrays, w.fields(0), msp=msp)
    r = Stack("r", rng, [Room(shape, elements, terms, atoms, True, preset=False)], kind)
    common = [w.arrays, w.fields(0), r.arrays, r.fields(0, "r"), {"rnd": 2}]
    call(463, *common, mcof=mcof, msp=msp)
    np.testing.assert_array_equal(evaluate(r.read(0)), evaluate(record) * dense.reshape(3, 4, 1))
    r.assert_only_written(0)
    w.assert_only_written()


@all_cases
def test_scalar(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    record = random_record(rng, (3, 4), sparse, code)
    w = Stack("w", rng, [record], kind)
    atoms = record.ncodeatom + 2 * record.nnz if record.ncodeatom else 0
    r = Stack("r", rng, [Room((3, 4), record.nelem, record.nnz, atoms, sparse)], kind)
    call(464, w.arrays, w.fields(0), r.arrays, r.fields(0, "r"), c=-3.0)
    np.testing.assert_array_equal(evaluate(r.read(0)), -3 * evaluate(record))
    r.assert_only_written(0)


@all_cases
def test_sum_of_picks(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    shape = (3, 4)
    dense, vsub, vcof = random_constant(rng, shape, kind)
    record = random_record(rng, shape, sparse, code)
    w = Stack("w", rng, [record], kind)
    assert call(446, size=12, vsub3=vsub) == (False, False)
    terms = call(447, w.arrays, w.fields(0), vsub=vsub)
    atoms = int(code) * call(461, w.arrays, w.fields(0), msp=vsub)[0]
    r = Stack("r", rng, [Room((1,), 1, terms, atoms)], kind)
    r.slots(0, "shape")[:] = 1
    r.slots(0, "ptr")[1] = terms
    common = [w.arrays, w.fields(0), r.arrays, r.fields(0, "r")]
    assert call(448, *common, vcof=vcof, vsub=vsub) == (atoms, terms)
    np.testing.assert_array_equal(evaluate(r.read(0))[0], dense @ evaluate(record).reshape(12, -1))
    r.assert_only_written(0)


def test_flat_positions_of_rows_of_coordinates():
    s = i64([0, 0, 1])
    call(449, nd=3, s=s, shape=i32([2, 3, 4]))
    assert s.tolist() == [12, 4, 1]
    res = i64([0, 100])
    call(450, nd=3, res=res, s=s, vsub=i32([[1, 2, 3], [0, 1, 0]]))
    assert res.tolist() == [23, 104]


def test_elements_without_terms_are_stored_where_they_are_met():
    record = Record((4,), i64([1, 2]), i32([0, 0, 1]), i64([5]), f64([1.0]))
    w = Stack("w", np.random.default_rng(0), [record])
    assert call(461, w.arrays, w.fields(0), msp=i64([0, 1, 3])) == (0, 1, 0)
