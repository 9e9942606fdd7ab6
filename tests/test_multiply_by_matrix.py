"""The product of a constant matrix and an expression: R(i, t) = sum over j of M(i, j) * E(t, j)."""

import numpy as np
import pytest

from records import (
    Record, Stack, check, codes, coefficients, evaluate, every_operand, random_matrix, random_operand,
    random_record, result,
)  # fmt: skip
from support import call, f64, i32, i64, kernel, kinds


@every_operand
@pytest.mark.parametrize("sparse_matrix", [False, True], ids=["dense M", "sparse M"])
@pytest.mark.parametrize("seed", range(4))
def test_product(sparse_matrix, sparse, code, kind, seed):
    rng = np.random.default_rng(seed)
    mdimi, d0, d1 = rng.integers(1, 6, 3)
    dense, matrix = random_matrix(rng, (mdimi, d1), sparse_matrix, kind)
    record, w = random_operand(rng, (d0, d1), sparse, code, kind=kind)
    operands = {**w.arguments, **matrix, "d0": d0, "d1": d1}
    assert call(475, operands) == (False, False)
    sizes = atoms, elements, terms = call(467, operands)
    r = result(rng, (mdimi, d0), sizes, kind, sparse_matrix or sparse)
    if sparse_matrix and not sparse:
        assert call(472, operands, r.arguments) == sizes
    elif sparse_matrix:
        assert call(473, operands, r.arguments) == (elements, terms)
        if atoms:
            assert call(474, operands, r.arguments) == (atoms, terms)
    else:
        elmi = nzi = 0
        for i in range(mdimi):
            if sparse:
                elmi, nzi = call(470, operands, r.arguments, elmi=elmi, nzi=nzi, i=i)
            else:
                ei, elmi, nzi = call(468, operands, r.arguments, elmi=elmi, nzi=nzi, i=i)
                assert ei == record.nelem
        assert (elmi, nzi) == (elements, terms)
        variables = {"from": operands["nidxs"], "top": r.arguments["rnidxs"]}
        call(336, operands, r.arguments, variables, n=record.nnz, times=mdimi)
        call(471 if sparse else 469, operands, r.arguments)
    check(r, np.einsum("ij,tjv->itv", dense, evaluate(record)), w)


@kinds
@codes
def test_one_element_operand(kind, code):
    rng = np.random.default_rng(5)
    dense, matrix = random_matrix(rng, (3, 4), True, kind)
    record, w = random_operand(rng, (1,), code=code, terms=4, kind=kind)
    entries = matrix["mnnz"]
    atoms = (record.ncodeatom + 2 * record.nnz) * entries if code else 0
    r = result(rng, (3, 4), (atoms, entries, record.nnz * entries), kind)
    assert call(465, w.arguments, r.arguments, matrix, d1=4) == (atoms, record.nnz * entries)
    check(r, dense[:, :, None] * evaluate(record)[0], w)


def test_terms_stay_in_order_and_unmerged():
    """Zeros and repeated variables stay; terms stand by matrix entry, then in the operand's order."""
    record = Record((1, 2), None, i32([0, 2, 3]), i64([7, 7, 7]), f64([1.0, 2.0, 4.0]))
    matrix = {"mval": f64([0.0, 3.0]), "msubi": i32([0, 0]), "msubj": i32([0, 1]), "mnnz": 2, "mdimi": 1, "mdimj": 2}
    rng = np.random.default_rng(0)
    w, r = Stack("w", rng, [record]), result(rng, (), (0, 1, 3), hassp=False)
    assert call(467, w.arguments, matrix, d0=1, d1=2) == call(472, w.arguments, r.arguments, matrix, d0=1, d1=2) == (0, 1, 3)
    assert r.read(0).nidxs.tolist() == [7, 7, 7] and r.read(0).cof.tolist() == [0.0, 0.0, 12.0]


@pytest.mark.parametrize("sparse", [False, True])
def test_empty_elements_that_are_met_are_stored(sparse):
    """A row of M that meets only an element without terms makes an element; one that meets none does not, unless the
    operand is dense."""
    sp = np.array([0]) if sparse else None
    record = Record((2, 2), sp, i32([0] * (2 if sparse else 5)), i32([]), f64([]))
    matrix = {"mval": f64([1, 1]), "msubi": i32([0, 1]), "msubj": i32([0, 1]), "mnnz": 2, "mdimi": 2, "mdimj": 2}
    rng = np.random.default_rng(0)
    w = Stack("w", rng, [record])
    elements = 1 if sparse else 4
    assert call(467, w.arguments, matrix, d0=2, d1=2) == (0, elements, 0)
    r = result(rng, (), (0, elements, 0))
    call(473 if sparse else 472, w.arguments, r.arguments, matrix, d0=2, d1=2)
    assert r.read(0).sp.tolist() == list(range(elements))


def test_the_result_has_code_only_by_its_measure():
    """A sparse result is written without `rsp` if the host does not want it, and without code if it has none."""
    rng = np.random.default_rng(1)
    record = random_record(rng, (3, 3), code=True)
    _, matrix = random_matrix(rng, (2, 3), True)
    w = Stack("w", rng, [record])
    _, elements, terms = call(467, w.arguments, matrix, d0=3, d1=3)
    r = result(rng, (), (0, elements, terms), hassp=False)
    call(472, w.arguments, r.arguments, matrix, d0=3, d1=3)
    r.assert_only_written(0, ("ptr", "nidxs", "cof"))
    assert coefficients(r.read(0)).shape == (terms,)


@pytest.mark.parametrize(
    "msubi, msubj, both, first",
    [
        ([0, 0, 2], [0, 1, 2], (False, False), (False, False)),
        ([0, 0], [1, 1], (False, True), (False, True)),
        ([0, 1], [1, 0], (False, False), (False, False)),
        ([1, 0], [0, 1], (False, True), (False, True)),
        ([0, 3], [0, 1], (True, False), (True, False)),
        ([3], [0], (True, False), (True, False)),
        ([-1], [0], (True, False), (True, False)),
        ([0, 0], [-1, 1], (True, False), (True, False)),
        ([0, 0], [2, -1], (True, True), (True, False)),
        ([1, 0], [0, 3], (True, True), (True, False)),
        ([], [], (False, False), (False, False)),
    ],
)
def test_checks_of_entries(msubi, msubj, both, first):
    """475 stops at the first fault, so that it does not tell of the order behind a bad subscript. Flags stay set."""
    matrix = {"mdimi": 3, "mdimj": 3, "mnnz": len(msubi), "msubi": i32(msubi), "msubj": i32(msubj)}
    for number in (454, 459, 466):
        assert call(number, matrix) == both
        assert call(number, matrix, badidx=True) == (True, both[1]) and call(number, matrix, badorder=True)[1]
    assert call(475, matrix) == first
    assert call(475, matrix, badidx=True, badorder=False) == (True, False)
    assert kernel(475)(False, False, 3, 3, 9, None, None) == (False, False)
    assert call(489, matrix, ok=True) == (not any(both)) and not call(489, matrix, ok=False)
    assert call(490, matrix) == both[0] and call(490, matrix, badidx=True)
    assert call(491, matrix) == both[1] and call(491, matrix, badorder=True)


@pytest.mark.parametrize(
    "incoming, hassp, sparse_matrix, expected",
    [
        ((7, 8, 9), False, False, (0, 6, 4)),  # dense M: replaced
        ((7, 8, 9), True, False, (0, 20, 4)),  # sparse E: the incoming elements are multiplied with the counted ones
        ((7, 8, 9), False, True, (7, 27, 10)),  # sparse M, dense E: multiplied by d0
        ((7, 8, 9), True, True, (7, 9, 10)),  # sparse M, sparse E: added to
    ],
)
def test_what_measuring_does_with_incoming_sizes(incoming, hassp, sparse_matrix, expected):
    sp = np.array([1, 4]) if hassp else None
    ptr = [0, 1, 2] if hassp else [0, 0, 1, 1, 1, 2, 2]
    rng = np.random.default_rng(0)
    w = Stack("w", rng, [Record((3, 2), sp, i32(ptr), i32([3, 4]), f64([1.0, 1.0]))])
    subscripts = {"msubi": i32([1]), "msubj": i32([0])} if sparse_matrix else {}
    sizes = dict(zip(("rncodeatom", "rnelem", "rnnz"), incoming))
    assert call(467, w.arguments, subscripts, sizes, d0=3, d1=2, mdimi=2, mnnz=int(sparse_matrix)) == expected
