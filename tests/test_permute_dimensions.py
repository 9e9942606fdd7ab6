"""Transpositions of records: held against NumPy on the elements as they stand, terms in their own order."""

from itertools import permutations

import numpy as np
import pytest

from records import SENTINELS, Room, Stack, elements, random_record
from support import LAYOUTS, call, i32, i64, layout

pytestmark = [
    pytest.mark.parametrize("kind", LAYOUTS),
    pytest.mark.parametrize("code", [False, True], ids=["plain", "code"]),
]


def strides(shape):
    return i64([int(np.prod(shape[d + 1 :])) for d in range(len(shape))])


def stacks(record, shape, kind, rng):
    """The w stack of an operand, the r stack for its transposition, and the arguments that say where all is."""
    w = Stack("w", rng, [record], kind)
    sizes = [record.nelem, record.nnz, record.ncodeatom, record.hassp]
    r = Stack("r", rng, [Room(shape, *sizes, preset=False)], kind)
    return w, r, {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r")}


def assert_transposed(record, dperm, w, r, callers=()):
    """Room 0 of r holds the transposition, nothing else is written, and slot 0 of the fields `callers` isn't either."""
    for field in callers:
        slots = r.slots(0, field)[:1]
        assert np.all(slots == SENTINELS["i32"])
        slots[:] = 0
    result = r.read(0)
    assert np.array_equal(elements(result), elements(record).transpose(dperm))
    w.assert_only_written()
    r.assert_only_written(0)
    return result


def permute(record, dperm, kind, rng):
    shape = [record.shape[d] for d in dperm]
    w, r, where = stacks(record, shape, kind, rng)
    operator = {"dperm": layout(i32(dperm), kind), "stride": layout(strides(record.shape), kind)}
    call(418, where, operator)
    assert r.slots(0, "shape").tolist() == shape
    if not record.hassp:
        call(421, where, operator, dstride=layout(strides(shape), kind))
        return assert_transposed(record, dperm, w, r)
    flat = layout(i64([-7] * (record.nelem + 1)), kind)
    call(419, operator, where, {"from": where["sp"]}, sp=flat)
    assert flat[-1] == -7
    perm = layout(i64(np.argsort(flat[:-1], kind="stable")), kind)
    sizes = call(420, where, perm=perm, sp=flat, c=0, e=0, k=0)
    assert sizes == (record.ncodeatom, record.nelem, record.nnz)
    return assert_transposed(record, dperm, w, r, callers=["ptr", "codeptr"])


@pytest.mark.parametrize("sparse", [False, True], ids=["dense", "sparse"])
@pytest.mark.parametrize("shape", [(), (4,), (3, 4), (2, 3, 4), (3, 1, 2, 2), (2, 2, 1, 3, 2)])
def test_all_permutations(shape, sparse, code, kind):
    """Each of them and back again."""
    rng = np.random.default_rng(len(shape))
    for dperm in list(permutations(range(len(shape))))[:: 1 if len(shape) < 5 else 7]:
        record = random_record(rng, shape, sparse, code)
        back = permute(permute(record, dperm, kind, rng), np.argsort(dperm), kind, rng)
        assert np.array_equal(elements(back), elements(record))


@pytest.mark.parametrize("rows, cols", [(3, 4), (1, 5), (5, 1), (6, 2), (0, 3)])
def test_two_axes(rows, cols, code, kind):
    rng = np.random.default_rng(rows)
    dense, sparse = (random_record(rng, (rows, cols), pattern, code) for pattern in (False, True))
    w, r, where = stacks(dense, (cols, rows), kind, rng)
    r.slots(0, "shape")[:] = cols, rows
    call(423, where, rows=rows, cols=cols)
    assert_transposed(dense, (1, 0), w, r, callers=["codeptr"])

    w, r, where = stacks(sparse, (cols, rows), kind, rng)
    r.slots(0, "shape")[:] = cols, rows
    perm, bucket = 1, sparse.nelem + 2
    xi32 = layout(i32([-7] * (bucket + cols + 2)), kind)
    call(422, where, {"from": where["sp"]}, rows=rows, cols=cols, perm=perm, bucket=bucket, xi32=xi32)
    assert_transposed(sparse, (1, 0), w, r, callers=["codeptr"])
    ends = [np.count_nonzero(sparse.sp % cols <= c) for c in range(cols)]
    assert xi32[bucket:-1].tolist() == ends + [sparse.nelem]
    assert xi32[perm : bucket - 1].tolist() == np.argsort(sparse.sp % cols, kind="stable").tolist()
    assert xi32[0] == xi32[bucket - 1] == xi32[-1] == -7
