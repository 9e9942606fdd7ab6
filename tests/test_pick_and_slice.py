"""Picks by flat index and slices by a box of coordinates."""

import numpy as np
import pytest

from records import Record, Stack, check, evaluate, every_operand, random_record, result
from support import blank, call, f64, i32, i64


@every_operand
@pytest.mark.parametrize("seed", range(3))
def test_pick(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    record = random_record(rng, (3, 4), sparse, code)
    coordinates = rng.integers(0, (3, 4), (7, 2)).astype(np.int32)
    idxs = blank(7, kind, i64)
    call(407, idxs=coordinates, nd=2, shape=i32([3, 4]), this_idxs=idxs)
    w = Stack("w", rng, [record], kind)
    operands = {**w.arguments, "idxs": idxs, "xi32": blank(10, kind), "slot": 2}
    atoms, terms = call(411 if sparse else 409, operands)
    r = result(rng, (7,), (atoms, 7, terms), kind, hassp=False)
    assert call(412 if sparse else 410, operands, r.arguments, rhascode=int(atoms > 0)) == (atoms, terms)
    check(r, evaluate(record)[tuple(coordinates.T)], w)


def test_indices_that_are_not_stored():
    slots = i32([0] * 4)
    record = Record((9,), i64([2, 5]), i32([0, 1, 3]), i64([1, 1, 1]), f64([1, 1, 1]))
    w = Stack("w", np.random.default_rng(0), [record])
    assert call(411, w.arguments, idxs=i64([5, 0, 8, 2]), xi32=slots) == (0, 3)
    assert slots.tolist() == [1, -1, -1, 0]
    assert call(411, {**w.arguments, "nelem": 0}, idxs=i64([5, 0]), xi32=slots) == (0, 0)
    assert slots.tolist() == [-1, -1, -1, 0]


def test_coordinates_outside():
    coordinates = i32([[0, 2], [1, 3]])
    assert call(406, idxs=coordinates, n=2, shape=i32([2, 3]))
    assert not call(406, idxs=coordinates, n=1, shape=i32([2, 3]))
    assert call(406, idxs=coordinates, n=1, shape=i32([2, 3]), bad=True)
    assert call(406, idxs=-coordinates, n=2, shape=i32([2, 4]))


def test_cursors_of_a_slice_run_on():
    """`e` is replaced for a dense operand and grows for a sparse one."""
    record = Record((2,), None, i32([0, 1, 3]), i64([1, 2, 3]), f64([1.0, 2.0, 3.0]))
    for sp, expected in ((None, (5, 1, 9)), (i64([0, 1]), (5, 21, 9))):
        record.sp = sp
        w = Stack("w", np.random.default_rng(0), [record])
        bounds = {"first": i32([1]), "last": i32([2]), "st": i64([1]), "rst": i64([1])}
        assert call(414, w.arguments, bounds, c=5, e=20, k=7) == expected
