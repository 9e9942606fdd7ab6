"""Picks by flat index and slices by a box of coordinates."""

import numpy as np
import pytest

from records import SENTINELS, Record, Room, Stack, evaluate, random_record
from support import LAYOUTS, call, f64, i32, i64, layout

OPERANDS = pytest.mark.parametrize(
    "sparse, code", [(False, False), (False, True), (True, False), (True, True)],
    ids=["dense", "dense with code", "sparse", "sparse with code"],
)  # fmt: skip


def strides(number, nd, **shape):
    """Row-major strides as the host layer has them made."""
    st = i64([0] * (nd - 1) + [1])
    call(number, shape, {"st": st, "rst": st}, nd=nd)
    return st


@pytest.mark.parametrize("kind", LAYOUTS)
@OPERANDS
@pytest.mark.parametrize("seed", range(4))
def test_pick(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    shape = (3, 4)
    record = random_record(rng, shape, sparse, code)
    coordinates = rng.integers(0, shape, (7, 2)).astype(np.int32)
    idxs = layout(i64([0] * 7), kind)
    assert not call(406, idxs=coordinates, n=7, shape=i32(shape))
    call(407, idxs=coordinates, nd=2, shape=i32(shape), this_idxs=idxs)

    w = Stack("w", rng, [record], kind)
    slots = {"xi32": layout(np.full(10, SENTINELS["i32"]), kind), "slot": 2}
    atoms, terms = call(411 if sparse else 409, w.arrays, w.fields(0), slots, idxs=idxs)
    r = Stack("r", rng, [Room((7,), 7, terms, atoms)], kind)
    r.slots(0, "shape")[:] = 7
    common = [w.arrays, w.fields(0), r.arrays, r.fields(0, "r"), slots]
    assert call(412 if sparse else 410, *common, idxs=idxs, rhascode=int(atoms > 0)) == (atoms, terms)

    np.testing.assert_array_equal(evaluate(r.read(0)), evaluate(record)[tuple(coordinates.T)])
    r.assert_only_written(0)
    w.assert_only_written()


def test_indices_that_are_not_stored():
    slots = i32([0] * 4)
    record = Record((9,), i64([2, 5]), i32([0, 1, 3]), i64([1, 1, 1]), f64([1, 1, 1]))
    w = Stack("w", np.random.default_rng(0), [record])
    assert call(411, w.arrays, w.fields(0), idxs=i64([5, 0, 8, 2]), xi32=slots) == (0, 3)
    assert slots.tolist() == [1, -1, -1, 0]
    assert call(411, w.arrays, {**w.fields(0), "nelem": 0}, idxs=i64([5, 0]), xi32=slots) == (0, 0)
    assert slots.tolist() == [-1, -1, -1, 0]


def test_coordinates_outside():
    coordinates = i32([[0, 2], [1, 3]])
    assert call(406, idxs=coordinates, n=2, shape=i32([2, 3]))
    assert not call(406, idxs=coordinates, n=1, shape=i32([2, 3]))
    assert call(406, idxs=coordinates, n=1, shape=i32([2, 3]), bad=True)
    assert call(406, idxs=-coordinates, n=2, shape=i32([2, 4]))


@pytest.mark.parametrize("kind", LAYOUTS)
@OPERANDS
@pytest.mark.parametrize(
    "shape, first, last",
    [
        ((6,), (2,), (5,)),
        ((3, 4), (0, 0), (3, 4)),
        ((3, 4), (1, 1), (3, 2)),
        ((3, 4), (1, 2), (2, 2)),
        ((2, 3, 4), (0, 1, 1), (2, 3, 4)),
        ((2, 3, 4), (1, 0, 3), (2, 3, 4)),
    ],
)
def test_slice(shape, first, last, sparse, code, kind):
    rng = np.random.default_rng(3)
    record = random_record(rng, shape, sparse, code)
    w = Stack("w", rng, [record], kind)
    box = tuple(slice(*bounds) for bounds in zip(first, last))
    rshape = np.subtract(last, first)
    arguments = {
        **w.arrays,
        **w.fields(0),
        "first": layout(i32(first), kind),
        "last": layout(i32(last), kind),
        "st": strides(413, len(shape), **w.arrays, shape=w.fields(0)["shape"]),
        "rst": strides(416, len(shape), rshape=i32(rshape)),
    }
    atoms, elements, terms = call(414, arguments)
    assert elements == (np.prod(rshape) if not sparse else elements)
    r = Stack("r", rng, [Room(tuple(rshape), elements, terms, atoms, sparse)], kind)
    call(415, r.arrays, n=len(shape), rshape=i32(rshape), top=r.fields(0)["shape"])
    assert call(417, arguments, r.arrays, r.fields(0, "r"), rhascode=int(atoms > 0)) == (atoms, elements, terms)
    np.testing.assert_array_equal(evaluate(r.read(0)), evaluate(record)[box])
    r.assert_only_written(0)


def test_cursors_of_a_slice_run_on():
    """`e` is replaced for a dense operand and grows for a sparse one."""
    record = Record((2,), None, i32([0, 1, 3]), i64([1, 2, 3]), f64([1.0, 2.0, 3.0]))
    for sp, expected in ((None, (5, 1, 9)), (i64([0, 1]), (5, 21, 9))):
        record.sp = sp
        w = Stack("w", np.random.default_rng(0), [record])
        bounds = {"first": i32([1]), "last": i32([2]), "st": i64([1]), "rst": i64([1])}
        assert call(414, w.arrays, w.fields(0), bounds, c=5, e=20, k=7) == expected
