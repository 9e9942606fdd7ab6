"""Weighted sums of two operands and of many, and sums over blocks of neighbours."""

import numpy as np
import pytest

from records import Record, Stack, check, codes, evaluate, random_record, result
from support import call, f64, i32, i64, kinds


def atoms_of_sum(records):
    """The atoms that a sum reserves: two more a term of an operand with code, one a term of an operand without."""
    if not any(record.ncodeatom for record in records):
        return 0
    return sum(record.ncodeatom + (2 if record.ncodeatom else 1) * record.nnz for record in records)


@kinds
@pytest.mark.parametrize("codes", [(False, False), (True, False), (False, True), (True, True)])
@pytest.mark.parametrize("sparse", [(False, False), (False, True), (True, True)])
@pytest.mark.parametrize("seed", range(3))
def test_sum_of_two(sparse, codes, kind, seed):
    rng = np.random.default_rng(seed)
    a, b = (random_record(rng, (3, 4), *flags, density=rng.random()) for flags in zip(sparse, codes))
    w = Stack("w", rng, [a, b], kind)
    operands = {**w.arrays, **w.fields(0, suffix="1"), **w.fields(1, suffix="2"), "c1": -2.0, "c2": 3.0}
    nelem = call(508, operands, n1=a.nelem, n2=b.nelem) if all(sparse) else 12
    sizes = atoms, nelem, terms = atoms_of_sum([a, b]), nelem, a.nnz + b.nnz
    r = result(rng, (3, 4), sizes, kind, all(sparse), preset=("shape",) if all(sparse) else ("shape", "ptr", "codeptr"))
    if all(sparse):
        assert call(510, operands, r.arguments) is None
    elif sparse[1]:
        assert call(506, operands, r.arguments) == (atoms, nelem, b.nelem, terms)
    else:
        assert call(504, operands, r.arguments) == (atoms, terms)
    check(r, -2 * evaluate(a) + 3 * evaluate(b), w)


def test_terms_of_a_sum_stay_apart():
    """A's terms come first, a weight of 0 keeps its terms, and an operand beyond A's last element is not met."""
    a = Record((2,), None, i32([0, 1, 1]), i64([7]), f64([4.0]))
    b = Record((2,), i64([0, 5]), i32([0, 1, 2]), i64([7, 7]), f64([5.0, 6.0]))
    rng = np.random.default_rng(0)
    w, r = Stack("w", rng, [a, b]), result(rng, (), (0, 2, 2), hassp=False)
    fields = {**w.fields(0, suffix="1"), **w.fields(1, suffix="2")}
    assert call(506, w.arrays, fields, r.arguments, c1=0.0, c2=2.0) == (0, 2, 1, 2)
    assert r.read(0).nidxs.tolist() == [7, 7] and r.read(0).cof.tolist() == [0.0, 10.0]


def test_atoms_counted_for_an_operand_without_code():
    """In a sum with code: one an element of a sparse operand, one a term of a dense operand."""
    tables = {"ptr_base": i32([0]), "sp_base": i32([0]), "ncodeatom": i32([0]), "k": 0}
    stack = {"wi32": i32([0, 2, 5]), "wi64": i64([0, 1]), "rptr": 0, "xpos": 0}
    for number, expected in ((518, [0, 1, 1]), (519, [0, 2, 3])):
        for hascode in (False, True):
            for nelem in (1, 2):
                counts = {"ri32": i32([0, 0, 0]), "xi32": i32([0, 0, 0]), "nelem": i32([nelem])}
                call(number, tables, stack, counts, hascode=hascode)
                assert counts["ri32"][: nelem + 1].tolist() == [0, 2, 3][: nelem + 1]
                assert counts["xi32"][: nelem + 1].tolist() == (expected if hascode else [0, 0, 0])[: nelem + 1]


@pytest.mark.parametrize(
    "change", [{"nd": i32([2, 1])}, {"wi32": i32([2, 3, 2, 4])}, {"wi32": i32([2, 3, 1, 3])}], ids=str
)
def test_operands_of_different_shapes(change):
    tables = {"n": 2, "nd": i32([2, 2]), "shape_base": i32([0, 2]), "wi32": i32([2, 3, 2, 3])}
    assert call(511, tables, ok=True) and not call(511, tables, ok=False)
    assert call(511, {**tables, "n": 1}, change, ok=True) and not call(511, {**tables, **change}, ok=True)
