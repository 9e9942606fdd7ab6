"""The diagonal of the product of a sparse matrix and an expression, on both sides."""

import numpy as np
import pytest

from records import SENTINELS, Record, Room, Stack, evaluate, random_matrix, random_record
from support import LAYOUTS, call, f64, i32, i64, layout


def right_diagonal(w, sizes, xi32):
    call(451, xi32, w)
    return call(452, xi32, w), lambda r: call(453, xi32, w, r)


def left_diagonal(w, sizes, xi32):
    if not w["hassp"]:
        mi, *measured = call(455, w)
        assert mi == w["mnnz"]
        atoms, elements, terms = measured
        return measured, lambda r: call(456, w, r, rdim=sizes[1], rncodeatom=atoms) or (atoms, elements, terms)
    measured = call(457, xi32, w)

    def write(r):
        atoms, elements, q, mi, terms = call(458, xi32, w, r)
        assert q == w["nelem"] or mi == w["mnnz"]
        return atoms, elements, terms

    return measured, write


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("code", [False, True], ids=["plain", "code"])
@pytest.mark.parametrize("sparse", [False, True], ids=["dense E", "sparse E"])
@pytest.mark.parametrize("side", [right_diagonal, left_diagonal])
@pytest.mark.parametrize("seed", range(5))
def test_diagonal(side, sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    d0, d1 = rng.integers(1, 6, 2)
    dense, matrix = random_matrix(rng, (d1, d0), True, kind)
    record = random_record(rng, (d0, d1), sparse, code)
    w = Stack("w", rng, [record], kind)
    xi32 = {"xi32": layout(np.full(60, SENTINELS["i32"]), kind), "xcolptr": 3, "xperm": 15}
    (atoms, elements, terms), write = side({**w.arrays, **w.fields(0), **matrix, "d1": d1}, (d0, d1), xi32)
    shape = (d0,) if side is right_diagonal else (d1,)
    r = Stack("r", rng, [Room(shape, elements, terms, atoms, True)], kind)
    r.slots(0, "shape")[:] = shape
    assert write({**r.arrays, **r.fields(0, "r")}) == (atoms, elements, terms)
    assert sparse or elements == len(np.unique(matrix["msubj" if side is right_diagonal else "msubi"]))
    if side is right_diagonal:
        expected = np.einsum("jiv,ij->jv", evaluate(record), dense)
    else:
        expected = np.einsum("ij,jiv->iv", dense, evaluate(record))
    np.testing.assert_array_equal(evaluate(r.read(0)), expected)
    r.assert_only_written(0)
    w.assert_only_written()


def test_sorts_of_nothing():
    xi32 = i32([7, 7, 7, 7])
    call(451, mdimj=0, xi32=xi32, xcolptr=1)
    assert xi32.tolist() == [7, 0, 7, 7]
    call(451, mdimj=2, xi32=xi32, xcolptr=1)
    assert xi32.tolist() == [7, 0, 0, 0]


@pytest.mark.parametrize("side", [right_diagonal, left_diagonal])
def test_met_elements_without_terms_make_an_element(side):
    """Of a sparse operand, only those that an entry meets."""
    matrix = {"msubi": i32([0, 1]), "msubj": i32([0, 1]), "mnnz": 2, "mdimj": 2, "mval": f64([1, 1]), "d1": 2}
    for sp, expected in ((None, 2), (i64([1, 3]), 1)):
        record = Record((2, 2), sp, i32([0] * (5 if sp is None else 3)), i64([]), f64([]))
        w = Stack("w", np.random.default_rng(0), [record])
        xi32 = {"xi32": i32([0] * 9), "xcolptr": 0, "xperm": 4}
        (atoms, elements, terms), write = side({**w.arrays, **w.fields(0), **matrix}, (2, 2), xi32)
        assert (atoms, elements, terms) == (0, expected, 0)
