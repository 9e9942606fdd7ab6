"""Weighted sums of two operands and of many, and sums over blocks of neighbours."""

import numpy as np
import pytest

from records import SENTINELS, Record, Room, Stack, coefficients, evaluate, random_record
from support import LAYOUTS, call, f64, i32, i64, layout


def atoms_of_sum(records):
    """The atoms that a sum reserves: two more a term of an operand with code, one a term of an operand without."""
    if not any(record.ncodeatom for record in records):
        return 0
    return sum(record.ncodeatom + (2 if record.ncodeatom else 1) * record.nnz for record in records)


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("codes", [(False, False), (True, False), (False, True), (True, True)])
@pytest.mark.parametrize("sparse", [(False, False), (False, True), (True, True)])
@pytest.mark.parametrize("seed", range(3))
def test_sum_of_two(sparse, codes, kind, seed):
    rng = np.random.default_rng(seed)
    shape = (3, 4)
    records = [random_record(rng, shape, *flags, density=rng.random()) for flags in zip(sparse, codes)]
    a, b = records
    w = Stack("w", rng, records, kind)
    fields = {**w.fields(0, suffix="1"), **w.fields(1, suffix="2")}
    nelem = 12
    if all(sparse):
        nelem = call(508, w.arrays, fields, n1=a.nelem, n2=b.nelem)
    atoms, terms = atoms_of_sum(records), a.nnz + b.nnz
    r = Stack("r", rng, [Room(shape, nelem, terms, atoms, all(sparse), preset=not all(sparse))], kind)
    r.slots(0, "shape")[:] = shape
    common = [w.arrays, fields, r.arrays, r.fields(0, "r"), {"c1": -2.0, "c2": 3.0}]
    if all(sparse):
        assert call(510, *common) is None
    elif sparse[1]:
        assert call(506, *common) == (atoms, nelem, b.nelem, terms)
    else:
        assert call(504, *common) == (atoms, terms)
    np.testing.assert_array_equal(evaluate(r.read(0)), -2 * evaluate(a) + 3 * evaluate(b))
    r.assert_only_written(0)
    w.assert_only_written()


def test_terms_of_a_sum_stay_apart():
    """A's terms come first, a weight of 0 keeps its terms, and an operand beyond A's last element is not met."""
    a = Record((2,), None, i32([0, 1, 1]), i64([7]), f64([4.0]))
    b = Record((2,), i64([0, 5]), i32([0, 1, 2]), i64([7, 7]), f64([5.0, 6.0]))
    rng = np.random.default_rng(0)
    w, r = Stack("w", rng, [a, b]), Stack("r", rng, [Room((), 2, 2)])
    fields = {**w.fields(0, suffix="1"), **w.fields(1, suffix="2")}
    assert call(506, w.arrays, fields, r.arrays, r.fields(0, "r"), c1=0.0, c2=2.0) == (0, 2, 1, 2)
    assert r.read(0).nidxs.tolist() == [7, 7] and r.read(0).cof.tolist() == [0.0, 10.0]


@pytest.mark.parametrize("n1, n2, union", [(0, 0, 0), (3, 0, 3), (0, 3, 3), (3, 3, 5)])
def test_union_count(n1, n2, union):
    assert call(508, n1=n1, n2=n2, acc=10, sp1=1, sp2=4, wi64=i64([9, 0, 2, 4, 1, 4, 5])) == 10 + union


def operand_tables(rng, records, kind):
    w = Stack("w", rng, records, kind)
    weights = rng.integers(-3, 4, len(records)).astype(float)
    expected = sum(weight * evaluate(record) for weight, record in zip(weights, records))
    common = {**w.arrays, **w.tables(), "n": len(records), "w": layout(weights, kind)}
    assert call(511, common, ok=True) and not call(511, common, ok=False)
    hascode = call(512, common)
    assert hascode == any(record.ncodeatom for record in records)
    return w, {**common, "hascode": hascode}, expected


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("codes", [0.0, 0.5])
@pytest.mark.parametrize("n", [1, 2, 5])
@pytest.mark.parametrize("seed", range(3))
def test_sum_of_sparse_operands(n, codes, kind, seed):
    rng = np.random.default_rng(seed)
    shape = (3, 5)
    records = [random_record(rng, shape, True, rng.random() < codes, density=rng.random()) for _ in range(n)]
    w, common, expected = operand_tables(rng, records, kind)
    atoms, elements, terms = call(514, common)
    assert (atoms, terms) == (atoms_of_sum(records), sum(record.nnz for record in records))
    r = Stack("r", rng, [Room(shape, elements, terms, atoms, True)], kind)
    call(515, common, r.arrays, pos=r.fields(0)["shape"])
    call(525, common, r.arrays, r.fields(0, "r"))
    np.testing.assert_array_equal(evaluate(r.read(0)), expected)
    r.assert_only_written(0)
    w.assert_only_written()


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("codes", [0.0, 0.5])
@pytest.mark.parametrize("n", [1, 2, 5])
@pytest.mark.parametrize("seed", range(3))
def test_dense_sum_of_operands(n, codes, kind, seed):
    """Sparse operands without code have one term an element here, since they reserve one atom for each."""
    rng = np.random.default_rng(seed)
    shape = (3, 5)
    records = [random_record(rng, shape, sparse, rng.random() < codes) for sparse in rng.random(n) < 0.5]
    for record in records:
        if record.hassp and not record.ncodeatom:
            record.ptr = np.arange(record.nelem + 1)
            record.nidxs, record.cof = rng.integers(0, 9, record.nelem), np.ones(record.nelem)
    w, common, expected = operand_tables(rng, records, kind)
    atoms, terms = call(513, common)
    r = Stack("r", rng, [Room(shape, 15, terms, atoms)], kind)
    call(515, common, r.arrays, pos=r.fields(0)["shape"])
    rptr, flag = r.fields(0)["ptr"], {"n": 15, "flag": int(common["hascode"])}
    x = {"xi32": layout(np.full(30, SENTINELS["i32"]), kind), "xpos": 4, "pos": 4}
    call(516, r.arrays, n=15, pos=rptr)
    call(517, x, flag)
    both = [common, r.arrays, r.fields(0, "r"), x]
    for k, record in enumerate(records):
        call(518 if record.hassp else 519, *both, k=k)
    call(520, r.arrays, n=15, pos=rptr)
    call(521, x, flag)
    for k, record in enumerate(records):
        call(522 if record.hassp else 523, *both, k=k)
    call(524, r.arrays, n=15, pos=rptr)
    r.slots(0, "ptr")[0] = 0
    np.testing.assert_array_equal(evaluate(r.read(0)), expected)
    assert np.all(x["xi32"][20:] == SENTINELS["i32"]) and np.all(x["xi32"][:4] == SENTINELS["i32"])
    r.assert_only_written(0)


def test_atoms_counted_for_an_operand_without_code():
    """In a sum with code: one an element of a sparse operand, one a term of a dense operand."""
    tables = {"ptr_base": i32([0]), "sp_base": i32([0]), "nelem": i32([2]), "ncodeatom": i32([0]), "k": 0}
    stack = {"wi32": i32([0, 2, 5]), "wi64": i64([0, 1]), "rptr": 0, "xpos": 0}
    for number, expected in ((518, [0, 1, 1]), (519, [0, 2, 3])):
        for hascode in (False, True):
            counts = {"ri32": i32([0, 0, 0]), "xi32": i32([0, 0, 0])}
            call(number, tables, stack, counts, hascode=hascode)
            assert counts["ri32"].tolist() == [0, 2, 3]
            assert counts["xi32"].tolist() == (expected if hascode else [0, 0, 0])


@pytest.mark.parametrize("change", [{"nd": i32([2, 1])}, {"wi32": i32([2, 3, 2, 4])}])
def test_operands_of_different_shapes(change):
    tables = {"n": 2, "nd": i32([2, 2]), "shape_base": i32([0, 2]), "wi32": i32([2, 3, 2, 3])}
    assert call(511, tables, ok=True) and call(511, {**tables, "n": 1}, change, ok=True)
    assert not call(511, {**tables, **change}, ok=True)


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("blk", [1, 2, 4, 12])
def test_block_sum(blk, kind):
    """Only the pattern is written, here in two calls; the terms are the operand's own."""
    rng = np.random.default_rng(blk)
    record = random_record(rng, (12,), sparse=True, code=True)
    w = Stack("w", rng, [record], kind)
    groups = call(496, w.arrays, w.fields(0), blk=blk, n=record.nelem)
    r = Stack("r", rng, [Room((), groups, hassp=True)], kind)
    fields, half = r.fields(0, "r"), groups // 2
    common = [w.arrays, w.fields(0), r.arrays, {"blk": blk, "n": record.nelem, "rhassp": True}]
    cur = call(499, fields, *common, ng=half)
    rest = {"rptr": fields["rptr"] + half, "rsp": fields["rsp"] + half}
    assert call(499, rest, *common, ng=groups - half, cur=cur) == record.nelem
    merged = Record((12 // blk,), r.slots(0, "sp"), r.slots(0, "ptr"), record.nidxs, coefficients(record))
    np.testing.assert_array_equal(evaluate(merged), evaluate(record).reshape(12 // blk, blk, -1).sum(axis=1))
    r.assert_only_written(0)
