"""Terms that drop, terms of one variable that merge, and the sorts for that."""

import numpy as np
import pytest

from records import SENTINELS, Record, Room, Stack, elements, evaluate, random_record
from support import LAYOUTS, call, f64, i32, i64, layout

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


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("sparse, rhassp", [(False, False), (False, True), (True, True)])
def test_compaction(sparse, rhassp, kind):
    rng = np.random.default_rng(3)
    runs = [[(10, 0.0)], [(10, 0.0)], [(2, 0.0)], [(1, 3.0)], [(1, 2.0), (2, 4.0), (5, SENTINELS["f64"])]]
    record = with_code(random_record(rng, (4, 6), sparse), rng, runs)
    w = Stack("w", rng, [record], kind)
    x = Stack("x", rng, [record], kind)
    folded = {name: x.fields(0)[name] for name in ("code", "codeptr")} | {"xcconst": x.fields(0)["cconst"]}
    operand = {**w.arrays, **w.fields(0), **x.arrays, **folded}
    c, e, k = call(386, operand, c=0, e=0, k=0)

    expected = elements(record)
    for f, element in np.ndenumerate(expected):
        if element is not None:
            left = tuple(kept(element))
            expected[f] = left if left or not rhassp else None
    assert e < sum(element is not None for element in elements(record).flat) and k < record.nnz
    assert e == sum(bool(element) for element in expected.flat)
    assert call(387, operand, nelem=e, flag=not sparse) is True and call(387, operand, nelem=24, flag=True) is False
    nelem = e if rhassp else record.nelem
    r = Stack("r", rng, [Room(expected.shape, nelem, k, c, rhassp)], kind)
    r.slots(0, "shape")[:] = expected.shape
    assert call(390, operand, r.arrays, r.fields(0, "r"), c=0, e=0, k=0, rhassp=rhassp) == (c, nelem, k)
    assert np.array_equal(elements(r.read(0)), expected)
    for stack, number in ((r, 0), (w, None), (x, None)):
        stack.assert_only_written(number)


@pytest.mark.parametrize(
    "value, code, alive",
    [
        (1.0, None, True), (np.nan, None, True), (-0.0, None, False), (2.0, [(10, 0.0)], True), (0.0, [(10, 5.0)], False),
        (0.0, [(2, -0.0)], False), (0.0, [(2, np.nan)], True), (0.0, [(1, 0.0)], True), (0.0, [(2, 0.0)] * 2, True),
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
    assert call(395, w.arrays, w.fields(0), ok=True) is alive
    assert call(395, w.arrays, w.fields(0), ok=False) is False


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("sparse", [False, True], ids=["dense", "sparse"])
@pytest.mark.parametrize("code", [False, True], ids=["plain", "code"])
def test_copy_of_a_record(code, sparse, kind):
    rng = np.random.default_rng(1)
    record = random_record(rng, (3, 4), sparse, code)
    w = Stack("w", rng, [record], kind)
    room = Room(record.shape, record.nelem, record.nnz, record.ncodeatom, sparse, preset=False)
    r = Stack("r", rng, [room], kind)
    call(396, w.arrays, w.fields(0), r.arrays, r.fields(0, "r"))
    assert np.array_equal(elements(r.read(0)), elements(record))
    r.assert_only_written(0)


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
    operand = {**w.arrays, **w.fields(0)}
    longest = call(391, operand, init=0, n=w.contents[0].nelem)
    assert longest == np.diff(w.contents[0].ptr, prepend=0).max()
    bucket = 1 + w.contents[0].nnz + 1
    xi32 = layout(i32([-7] * (bucket + longest + 2)), kind)
    call(392, operand, perm=1, bucket=bucket, xi32=xi32)
    assert xi32[0] == xi32[bucket - 1] == xi32[-1] == -7
    return {"perm": 1, "xi32": xi32}


def stable_order(record):
    return [b + t for b, e in zip(record.ptr, record.ptr[1:]) for t in np.argsort(record.nidxs[b:e], kind="stable")]


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("spread", [1, 5, 300, 10**12])
def test_sorts_of_terms(spread, kind):
    """Elements of every length up to 40 and of some far above, so that runs end and merge in all ways."""
    rng = np.random.default_rng(spread % 97)
    lengths = np.r_[rng.permutation(41), 65, 257]
    ptr = np.r_[0, np.cumsum(lengths)]
    nnz = int(ptr[-1])
    record = Record((len(lengths),), None, ptr, rng.integers(-spread, spread, nnz), np.zeros(nnz))
    w = Stack("w", rng, [record], kind)
    assert sort(w, kind)["xi32"][1 : nnz + 1].tolist() == stable_order(record)

    operand = w.fields(0)
    old = w.arrays["wi32"]
    perm = len(old) + 1
    wi32 = layout(np.r_[old, [-7] * (nnz + 2 + 257 + 1)].astype("i4"), kind)
    call(393, operand, wi64=w.arrays["wi64"], wi32=wi32, perm=perm, tmp=perm + nnz + 1)
    assert wi32[perm : perm + nnz].tolist() == stable_order(record)
    assert np.array_equal(wi32[: perm - 1], old) and wi32[perm - 1] == wi32[perm + nnz] == wi32[-1] == -7


def test_a_sort_by_counting_leaves_where_the_buckets_end():
    xi32, arrays = i32([-7] * 12), {"wi32": i32([0, 5]), "wi64": i64([12, 10, 12, 10, 12])}
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


def merge(record, kind, rng, rhascode):
    """The merged record by the kernels in their order, of the measured sizes but for the atoms."""
    w = Stack("w", rng, [record], kind)
    operand = {**w.arrays, **w.fields(0), **sort(w, kind)}
    e, k = call(397, operand, e=100, k=0)
    assert e == 100 + k
    parts = [np.unique(record.nidxs[b:e], return_counts=True)[1] for b, e in zip(record.ptr, record.ptr[1:])]
    atoms = record.ncodeatom and record.ncodeatom + sum(np.count_nonzero(counts > 1) for counts in parts)
    r = Stack("r", rng, [Room(record.shape, record.nelem, k, atoms, preset=False)], kind)
    r.slots(0, "shape")[:] = record.shape
    c, written = call(400, operand, r.arrays, r.fields(0, "r"), c=0, k=0, rhascode=rhascode)
    assert (c, written) == (atoms, k)
    w.assert_only_written()
    r.assert_only_written(0)
    return r


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("code", [False, True], ids=["plain", "code"])
@pytest.mark.parametrize("terms", [3, 30])
def test_merging(terms, code, kind):
    rng = np.random.default_rng(terms)
    record = random_record(rng, (9,), code=code, terms=terms)
    result = merge(record, kind, rng, rhascode=int(code)).read(0)
    for tested, ascends in ((record, False), (result, True)):
        w = Stack("w", rng, [tested], kind)
        assert call(394, w.arrays, w.fields(0), ok=True) is ascends
        assert call(394, w.arrays, w.fields(0), ok=False) is False
    assert elements(result).tolist() == [tuple(merged(element, code)) for element in elements(record)]
    np.testing.assert_array_equal(evaluate(result), evaluate(record))


def test_what_merging_does_with_zeros():
    """Without code a term goes if all its parts are zero, not if they only add up to zero; with code none goes. Sums
    begin at 0.0, so that -0.0 alone becomes 0.0; NaN is not zero."""
    nidxs, cof = i64([1, 2, 2, 3, 3, 4]), f64([-0.0, 0.0, -0.0, 1.0, -1.0, np.nan])
    record = Record((1,), None, i32([0, 6]), nidxs, cof)
    rng = np.random.default_rng(0)
    plain = merge(record, "contiguous", rng, rhascode=0).read(0)
    assert plain.nidxs.tolist() == [3, 4] and plain.cof[0] == 0.0 and np.isnan(plain.cof[1])
    record.codeptr, record.code, record.cconst = i32(range(7)), i32([2] * 6), np.zeros(6)
    coded = merge(record, "contiguous", rng, rhascode=1).read(0)
    assert coded.nidxs.tolist() == [1, 2, 3, 4] and not np.signbit(coded.cof).any()
