"""The diagonal of the product of a sparse matrix and an expression, on both sides."""

import numpy as np
import pytest

from records import check, evaluate, every_operand, random_matrix, random_operand, result
from support import blank, call, f64, i32, i64


@every_operand
@pytest.mark.parametrize("seed", range(4))
def test_diagonals(sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    d0, d1 = rng.integers(1, 6, 2)
    dense, matrix = random_matrix(rng, (d1, d0), True, kind)
    record, w = random_operand(rng, (d0, d1), sparse, code, kind=kind)
    operands = {**w.arguments, **matrix, "d1": d1, "xi32": blank(60, kind), "xcolptr": 3, "xperm": 15}

    call(451, operands)
    ends = np.cumsum(np.bincount(matrix["msubj"], minlength=d0))
    assert operands["xi32"][3:15].tolist() == [0, *ends, *[-7] * (11 - d0)]
    sizes = call(452, operands)
    r = result(rng, (d0,), sizes, kind)
    assert call(453, operands, r.arguments) == sizes
    check(r, np.einsum("jiv,ij->jv", evaluate(record), dense), w)

    if sparse:
        sizes = call(457, operands)
        r = result(rng, (d1,), sizes, kind)
        atoms, elements, q, mi, terms = call(458, operands, r.arguments)
        assert (atoms, elements, terms) == sizes and (q == record.nelem or mi == matrix["mnnz"])
    else:
        mi, *sizes = call(455, operands)
        assert mi == matrix["mnnz"] and sizes[1] == len(np.unique(matrix["msubi"]))
        r = result(rng, (d1,), sizes, kind, preset=())
        # By the operand's atoms it sets `codeptr[0]`, for which a result without atoms has no slot.
        call(456, operands, r.arguments, rdim=d1, rncodeatom=sizes[0], ncodeatom=min(record.ncodeatom, sizes[0]))
    check(r, np.einsum("ij,jiv->iv", dense, evaluate(record)), w)


def test_a_match_takes_both_cursors_past_it():
    operands = {"wi32": i32([0, 1]), "wi64": i64([2, 9]), "nidxs": 1, "wf64": f64([1]), "nelem": 1, "d1": 2}
    operands |= {"msubi": i32([0, 0]), "msubj": i32([1, 2]), "mval": f64([1, 1]), "xi32": i32([0])}
    written = {"ri32": blank(2), "rf64": blank(1, make=f64), "ri64": blank(2, make=i64), "rsp": 1}
    assert call(458, operands, written) == (0, 1, 1, 2, 1)
