"""Products with a constant array and with a scalar, and weighted sums of chosen elements."""

import numpy as np
import pytest

from records import Record, Stack, check, evaluate, every_operand, random_operand, result
from support import call, f64, i32, i64, layout


@every_operand
@pytest.mark.parametrize("seed", range(4))
def test_constant_array_and_scalar(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    record, w = random_operand(rng, (3, 4), sparse, code, kind=kind)
    dense = rng.integers(-4, 5, (3, 4, 1)) * (rng.random((3, 4, 1)) < 0.5)
    constant = {"msp": layout(np.flatnonzero(dense), kind), "mcof": layout(f64(dense[dense != 0]), kind)}
    sizes = call(461, w.arguments, constant)
    r = result(rng, (3, 4), sizes, kind, preset=())
    # By the operand's atoms it sets `codeptr[0]`, for which a result without atoms has no slot.
    call(463, w.arguments, constant, r.arguments, rnd=2, ncodeatom=min(record.ncodeatom, sizes[0]))
    check(r, evaluate(record) * dense, w)

    atoms = record.ncodeatom + 2 * record.nnz if record.ncodeatom else 0
    r = result(rng, (3, 4), (atoms, record.nelem, record.nnz), kind, sparse, preset=("ptr", "codeptr"))
    call(464, w.arguments, r.arguments, c=-3.0)
    check(r, -3 * evaluate(record), w)


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
    assert call(461, w.arguments, msp=i64([0, 1, 3])) == (0, 1, 0)
