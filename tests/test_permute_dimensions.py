"""Transpositions of records: held against NumPy on the elements as they stand, terms in their own order."""

from itertools import permutations

import numpy as np
import pytest

from records import Stack, check, elements, every_operand, random_record, result
from support import blank, call, i32, i64, layout, row_major


def permute(record, dperm, kind, rng):
    shape = [record.shape[d] for d in dperm]
    w = Stack("w", rng, [record], kind)
    # A sparse transposition leaves the pointers' first slots to the caller.
    preset = ("ptr", "codeptr") if record.hassp else ()
    r = result(rng, shape, (record.ncodeatom, record.nelem, record.nnz), kind, record.hassp, preset)
    operands = {**w.arguments, **r.arguments, "dperm": layout(i32(dperm), kind)}
    operands["stride"] = layout(i64(row_major(record.shape)), kind)
    call(418, operands)
    if record.hassp:
        flat = blank(record.nelem + 1, kind, i64)
        call(419, operands, {"from": operands["sp"]}, sp=flat)
        assert flat[-1] == -7
        perm = layout(i64(np.argsort(flat[:-1], kind="stable")), kind)
        assert call(420, operands, perm=perm, sp=flat) == (record.ncodeatom, record.nelem, record.nnz)
    else:
        call(421, operands, dstride=layout(i64(row_major(shape)), kind))
    assert r.slots(0, "shape").tolist() == shape
    return check(r, elements(record).transpose(dperm), w, meaning=elements)


@every_operand
@pytest.mark.parametrize("shape", [(), (4,), (3, 4), (2, 3, 4), (3, 1, 2, 2), (2, 2, 1, 3, 2)])
def test_all_permutations(shape, sparse, code, kind):
    """Each of them and back again."""
    rng = np.random.default_rng(len(shape))
    for dperm in list(permutations(range(len(shape))))[:: 1 if len(shape) < 5 else 7]:
        record = random_record(rng, shape, sparse, code, density=0.6 if shape else 1)
        back = permute(permute(record, dperm, kind, rng), np.argsort(dperm), kind, rng)
        assert np.array_equal(elements(back), elements(record))
