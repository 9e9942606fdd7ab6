"""Terms that drop, terms of one variable that merge, and the sorts for that."""

import numpy as np
import pytest

from records import (
    ONE_ATOM, SENTINELS, Record, Stack, check, codes, elements, evaluate, every_operand, random_operand,
    random_record, result,
)  # fmt: skip
from support import blank, call, f64, i32, i64, kinds, layout

ZEROS_AND_OTHERS = [0.0, 0.0, -0.0, np.nan, 2.0, -3.0]


def with_code(record, rng, runs):
    """The record with a random one of these runs of atoms for each term, and random zeros among its coefficients."""
    code = [runs[k] for k in rng.integers(0, len(runs), record.nnz)]
    atoms = [atom for run in code for atom in run]
    record.cof = rng.choice(ZEROS_AND_OTHERS, record.nnz)
    record.codeptr = np.r_[0, np.cumsum([len(run) for run in code])].astype(int)
    record.code, record.cconst = i32([atom[0] for atom in atoms]), f64([atom[1] for atom in atoms])
    return record


def kept(element):
    """The terms of an element that compaction keeps. NaN counts as zero."""
    for variable, value, code in element:
        if value < 0 or value > 0:
            yield variable, value, code[:1]
        elif code != ((10, 0.0),):
            yield variable, 0.0, code


@kinds
@pytest.mark.parametrize("sparse, rhassp", [(False, False), (False, True), (True, True)])
def test_compaction(sparse, rhassp, kind):
    rng = np.random.default_rng(3)
    runs = [[(10, 0.0)], [(10, 0.0)], [(2, 0.0)], [(1, 3.0)], [(1, 2.0), (2, 4.0), (5, SENTINELS["f64"])]]
    record = with_code(random_record(rng, (4, 6), sparse), rng, runs)
    w, x = (Stack(name, rng, [record], kind) for name in "wx")
    folded = {name: x.fields(0)[name] for name in ("code", "codeptr")} | {"xcconst": x.fields(0)["cconst"]}
    operand = {**w.arguments, **x.arrays, **folded}
    c, e, k = call(386, operand)

    expected = elements(record)
    for f, element in np.ndenumerate(expected):
        if element is not None:
            left = tuple(kept(element))
            expected[f] = left if left or not rhassp else None
    assert e < sum(element is not None for element in elements(record).flat) and k < record.nnz
    assert e == sum(bool(element) for element in expected.flat)
    assert call(387, operand, nelem=e, flag=not sparse) is True and call(387, operand, nelem=24, flag=True) is False
    nelem = e if rhassp else record.nelem
    r = result(rng, expected.shape, (c, nelem, k), kind, rhassp)
    assert call(390, operand, r.arguments) == (c, nelem, k)
    check(r, expected, w, x, meaning=elements)


@pytest.mark.parametrize(
    "value, code, alive",
    [
        (1.0, None, True), (np.nan, None, True), (-0.0, None, False), (2.0, [(10, 0.0)], True),
        (0.0, [(10, 5.0)], False), (0.0, [(2, -0.0)], False), (0.0, [(2, np.nan)], True),
        (0.0, [(1, 0.0)], True), (0.0, [(2, 0.0)] * 2, True),
    ],
)  # fmt: skip
def test_dead_terms(value, code, alive):
    """A term is dead if its coefficient is zero and its code no more than a zero; NaN is alive."""
    rng = np.random.default_rng(0)
    record = Record((1,), None, i32([0, 2]), i64([1, 2]), f64([0.0, 0.0]))
    if code:
        record = with_code(record, rng, [code])
    record.cof = f64([2.0, value])
    w = Stack("w", rng, [record])
    assert call(395, w.arguments, ok=True) is alive and call(395, w.arguments, ok=False) is False

    single = random_record(rng, (1,), code=ONE_ATOM)
    single.cof[:] = 0
    assert call(395, Stack("w", rng, [single]).arguments, ok=True) is True
    assert merge(single, "contiguous", rng)[0].read(0).nnz == 1


@every_operand
@pytest.mark.parametrize("number", [396, 557])
def test_copy_of_a_record(number, code, sparse, kind):
    rng = np.random.default_rng(1)
    record, w = random_operand(rng, (3, 4), sparse, code, kind=kind)
    r = result(rng, (3, 4), (record.ncodeatom, record.nelem, record.nnz), kind, sparse, preset=())
    call(number, w.arguments, r.arguments)
    check(r, elements(record), w, meaning=elements)


@pytest.mark.parametrize("hassp", [False, True])
def test_a_move_on_r_ascends(hassp):
    """Where source and target overlap, slots that were written already are read again."""
    ri32, ri64 = i32([0, 1, 2, 3, 4, 5]), i64([10, 11, 12, 13, 14, 15])
    arrays = {"ri32": ri32, "ri64": ri64, "rf64": f64([9, 9, 9]), "wi64": i64([7, 8]), "wf64": f64([0.5, 1.5])}
    call(389, arrays, hassp=hassp, nelem=3, nnz=2, ptr=0, rptr=1, sp=2, rsp=1, rnidxs=4, rcof=1)
    assert ri32.tolist() == [0, 0, 0, 0, 0, 5]
    assert ri64.tolist() == ([10, 11, 12, 13, 7, 8] if not hassp else [10, 12, 13, 7, 7, 8])
    assert arrays["rf64"].tolist() == [9, 0.5, 1.5]


def sort(w, kind):
    """The permutation of record 0's terms, on the x stack."""
    longest = call(391, w.arguments, n=w.contents[0].nelem)
    assert longest == np.diff(w.contents[0].ptr, prepend=0).max()
    bucket = 1 + w.contents[0].nnz + 1
    xi32 = blank(bucket + longest + 2, kind)
    call(392, w.arguments, perm=1, bucket=bucket, xi32=xi32)
    assert xi32[0] == xi32[bucket - 1] == xi32[-1] == -7
    return {"perm": 1, "xi32": xi32}


def stable_order(record):
    return [b + t for b, e in zip(record.ptr, record.ptr[1:]) for t in np.argsort(record.nidxs[b:e], kind="stable")]


@kinds
@pytest.mark.parametrize("spread", [1, 5, 300, 10**12])
def test_sorts_of_terms(spread, kind):
    """Elements of every length up to 40 and of some far above, so that runs end and merge in all ways."""
    rng = np.random.default_rng(spread % 97)
    lengths = np.r_[1, rng.permutation(41), 65, 257]
    ptr = np.r_[0, np.cumsum(lengths)]
    nnz = int(ptr[-1])
    record = Record((len(lengths),), None, ptr, rng.integers(-spread, spread, nnz), np.zeros(nnz))
    w = Stack("w", rng, [record], kind)
    assert sort(w, kind)["xi32"][1 : nnz + 1].tolist() == stable_order(record)

    old = w.arrays["wi32"]
    perm = len(old) + 1
    wi32 = layout(np.r_[old, blank(nnz + 2 + 257 + 1)], kind)
    call(393, w.arguments, wi32=wi32, perm=perm, tmp=perm + nnz + 1)
    assert wi32[perm : perm + nnz].tolist() == stable_order(record)
    assert np.array_equal(wi32[: perm - 1], old) and wi32[perm - 1] == wi32[perm + nnz] == wi32[-1] == -7


def test_a_sort_by_counting_leaves_where_the_buckets_end():
    xi32, arrays = blank(12), {"wi32": i32([0, 5]), "wi64": i64([12, 10, 12, 10, 12])}
    call(392, arrays, nelem=1, perm=0, bucket=6, xi32=xi32)
    assert xi32.tolist() == [1, 3, 0, 2, 4, -7, 2, 2, 5, 5, -7, -7]


def merged(element, hascode):
    """The terms of an element, those of one variable merged."""
    for variable in sorted({term[0] for term in element}):
        parts = [term for term in element if term[0] == variable]
        values = [value for _, value, _ in parts]
        code = sum((run for _, _, run in parts), ()) if hascode else ()
        if hascode and len(parts) > 1:
            code += ((8, float(len(parts))),)
        if hascode or any(value != 0 for value in values):
            yield variable, sum(values, 0.0), code


def merge(record, kind, rng):
    """The merged record on r, and its operand, by the kernels in their order; all but the atoms is measured."""
    w = Stack("w", rng, [record], kind)
    operand = {**w.arguments, **sort(w, kind)}
    e, k = call(397, operand, e=100)
    assert e == 100 + k
    parts = [np.unique(record.nidxs[b:e], return_counts=True)[1] for b, e in zip(record.ptr, record.ptr[1:])]
    atoms = record.ncodeatom and record.ncodeatom + sum(np.count_nonzero(counts > 1) for counts in parts)
    r = result(rng, record.shape, (atoms, record.nelem, k), kind, hassp=False, preset=("shape",))
    assert call(400, operand, r.arguments, rhascode=int(atoms > 0)) == (atoms, k)
    return r, w


@kinds
@codes
@pytest.mark.parametrize("terms", [3, 30])
def test_merging(terms, code, kind):
    rng = np.random.default_rng(terms)
    record = random_record(rng, (9,), code=code, terms=terms)
    r, w = merge(record, kind, rng)
    expected = [tuple(merged(element, code)) for element in elements(record)]
    after = check(r, np.array([*expected, None], object)[:-1], w, meaning=elements)
    assert np.array_equal(evaluate(after), evaluate(record))
    for tested, ascends in ((record, record.nnz < 2), (after, True)):
        w = Stack("w", rng, [tested], kind)
        assert call(394, w.arguments, ok=True) is ascends and call(394, w.arguments, ok=False) is False


def test_what_merging_does_with_zeros():
    """Without code a term goes if all its parts are zero, not if they only add up to zero; with code none goes. Sums
    begin at 0.0, so that -0.0 alone becomes 0.0; NaN is not zero."""
    far = 2**32 + 2  # which is 2 in 32 bits
    nidxs, cof = i64([1, 2, 2, far, far, 2 * far]), f64([-0.0, 0.0, -0.0, 1.0, -1.0, np.nan])
    record = Record((1,), None, i32([0, 6]), nidxs, cof)
    rng = np.random.default_rng(0)
    plain = merge(record, "contiguous", rng)[0].read(0)
    assert plain.nidxs.tolist() == [far, 2 * far] and plain.cof[0] == 0.0 and np.isnan(plain.cof[1])
    record.codeptr, record.code, record.cconst = i32(range(7)), i32([2] * 6), np.zeros(6)
    coded = merge(record, "contiguous", rng)[0].read(0)
    assert coded.nidxs.tolist() == [1, 2, far, 2 * far] and not np.signbit(coded.cof).any()
