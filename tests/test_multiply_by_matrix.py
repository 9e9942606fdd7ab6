"""The product of a constant matrix and an expression: R(i, t) = sum over j of M(i, j) * E(t, j)."""

import numpy as np
import pytest

from records import Record, Room, Stack, coefficients, evaluate, random_matrix, random_record
from support import LAYOUTS, call, f64, i32, kernel


def measure(matrix, w, d0, d1):
    operand = w.fields(0)
    assert call(475, matrix) == (False, False)
    return call(467, w.arrays, operand, matrix, d0=d0, d1=d1)


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("code", [False, True], ids=["plain", "code"])
@pytest.mark.parametrize("sparse_operand", [False, True], ids=["dense E", "sparse E"])
@pytest.mark.parametrize("sparse_matrix", [False, True], ids=["dense M", "sparse M"])
@pytest.mark.parametrize("seed", range(4))
def test_product(sparse_matrix, sparse_operand, code, kind, seed):
    rng = np.random.default_rng(seed)
    mdimi, d0, d1 = rng.integers(1, 6, 3)
    dense, matrix = random_matrix(rng, (mdimi, d1), sparse_matrix, kind)
    record = random_record(rng, (d0, d1), sparse_operand, code)
    w = Stack("w", rng, [record], kind)
    atoms, elements, terms = measure(matrix, w, d0, d1)

    hassp = sparse_matrix or sparse_operand
    r = Stack("r", rng, [Room((mdimi, d0), elements, terms, atoms, hassp)], kind)
    r.slots(0, "shape")[:] = (mdimi, d0)
    common = {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r"), **matrix, "d0": d0, "d1": d1}
    if sparse_matrix and not sparse_operand:
        assert call(472, common) == (atoms, elements, terms)
    elif sparse_matrix:
        assert call(473, common) == (elements, terms)
        if atoms:
            assert call(474, common) == (atoms, terms)
    else:
        elmi = nzi = 0
        for i in range(mdimi):
            if sparse_operand:
                elmi, nzi = call(470, common, elmi=elmi, nzi=nzi, i=i)
            else:
                ei, elmi, nzi = call(468, common, elmi=elmi, nzi=nzi, i=i)
                assert ei == record.nelem
        assert (elmi, nzi) == (elements, terms)
        call(336, common, n=record.nnz, times=mdimi, top=common["rnidxs"], **{"from": common["nidxs"]})
        call(471 if sparse_operand else 469, common)

    expected = np.einsum("ij,tjv->itv", dense, evaluate(record))
    np.testing.assert_array_equal(evaluate(r.read(0)), expected)
    r.assert_only_written(0)
    w.assert_only_written()


@pytest.mark.parametrize("code", [False, True], ids=["plain", "code"])
@pytest.mark.parametrize("kind", LAYOUTS)
def test_one_element_operand(kind, code):
    rng = np.random.default_rng(5)
    dense, matrix = random_matrix(rng, (3, 4), True, kind)
    record = random_record(rng, (1,), code=code, terms=4)
    w = Stack("w", rng, [record], kind)
    atoms = (record.ncodeatom + 2 * record.nnz) * matrix["mnnz"] if code else 0
    sizes = Room((3, 4), matrix["mnnz"], record.nnz * matrix["mnnz"], atoms, hassp=True)
    r = Stack("r", rng, [sizes], kind)
    r.slots(0, "shape")[:] = (3, 4)
    result = call(465, w.arrays, w.fields(0), r.arrays, r.fields(0, "r"), matrix, d1=4)
    assert result == (atoms, sizes.nnz)
    np.testing.assert_array_equal(evaluate(r.read(0)), dense[:, :, None] * evaluate(record)[0])
    r.assert_only_written(0)


def test_terms_stay_in_order_and_unmerged():
    """Zeros and repeated variables stay; terms stand by matrix entry, then in the operand's order."""
    record = Record((1, 2), None, i32([0, 2, 3]), i32([7, 7, 7]), f64([1.0, 2.0, 4.0]))
    matrix = {"mval": f64([0.0, 3.0]), "msubi": i32([0, 0]), "msubj": i32([0, 1]), "mnnz": 2, "mdimi": 1, "mdimj": 2}
    rng = np.random.default_rng(0)
    w, r = Stack("w", rng, [record]), Stack("r", rng, [Room((), 1, 3)])
    assert measure(matrix, w, 1, 2) == (0, 1, 3)
    call(472, w.arrays, w.fields(0), r.arrays, r.fields(0, "r"), matrix, d0=1, d1=2)
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
    assert measure(matrix, w, 2, 2) == (0, elements, 0)
    r = Stack("r", rng, [Room((), elements, hassp=True)])
    common = {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r"), **matrix, "d0": 2, "d1": 2}
    call(473 if sparse else 472, common)
    assert r.read(0).sp.tolist() == list(range(elements))


def test_the_result_has_code_only_by_its_measure():
    """A sparse result is written without `rsp` if the host does not want it, and without code if it has none."""
    rng = np.random.default_rng(1)
    record = random_record(rng, (3, 3), code=True)
    _, matrix = random_matrix(rng, (2, 3), True)
    w = Stack("w", rng, [record])
    _, elements, terms = measure(matrix, w, 3, 3)
    r = Stack("r", rng, [Room((), elements, terms, 0, False)])
    call(472, w.arrays, w.fields(0), r.arrays, r.fields(0, "r"), matrix, d0=3, d1=3)
    r.assert_only_written(0, ("ptr", "nidxs", "cof"))
    assert coefficients(r.read(0)).shape == (terms,)


@pytest.mark.parametrize(
    "msubi, msubj, both, first",
    [
        ([0, 0, 2], [0, 1, 2], (False, False), (False, False)),
        ([0, 0], [1, 1], (False, True), (False, True)),
        ([1, 0], [0, 1], (False, True), (False, True)),
        ([0, 3], [0, 1], (True, False), (True, False)),
        ([-1], [0], (True, False), (True, False)),
        ([0, 0], [2, -1], (True, True), (True, False)),
        ([], [], (False, False), (False, False)),
    ],
)
def test_checks(msubi, msubj, both, first):
    """The second check stops at the first fault, so that it does not tell of the order behind a bad subscript."""
    matrix = {"mdimi": 3, "mdimj": 3, "mnnz": len(msubi), "msubi": i32(msubi), "msubj": i32(msubj)}
    for number in (454, 459, 466):
        assert call(number, matrix) == both
    assert call(475, matrix) == first
    assert call(454, matrix, badidx=True, badorder=True) == (True, True)
    assert call(475, matrix, badidx=True, badorder=False) == (True, False)
    assert kernel(475)(False, False, 3, 3, 9, None, None) == (False, False)


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
    subscripts = {"msubi": i32([1]), "msubj": i32([0]), "mnnz": 1} if sparse_matrix else {"msubi": None, "msubj": None}
    sizes = dict(zip(("rncodeatom", "rnelem", "rnnz"), incoming))
    result = call(467, w.arrays, w.fields(0), subscripts, sizes, d0=3, d1=2, mdimi=2, mnnz=subscripts.get("mnnz", 0))
    assert result == expected
