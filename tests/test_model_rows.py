"""Evaluated rows split by kind of term and by side of the model, and picked into dense blocks."""

import numpy as np
import pytest
from support import LAYOUTS, blank, f64, i32, i64, kernel, kinds, layout, placed

ORDERS = (3, 1, 2)  # of the semidefinite variables that rows refer to
POSITIONS = {"ppos": 3, "ipos": 2, "fpos": 1}


def elements():
    """Variable, row and column of all elements, as the kernel that makes new variables lists them."""
    barj, i, j = (np.zeros(sum(d * (d + 1) // 2 for d in ORDERS), np.int32) for _ in range(3))
    start = 0
    for variable, d in enumerate(ORDERS):
        numbers = np.zeros(d * (d + 1) // 2, np.int64)
        kernel(8)(barj, i, j, i32([start]), np.zeros(3, np.int32), 0, d, variable, numbers, 1)
        assert np.array_equal(numbers, start + np.arange(len(numbers)))
        start += len(numbers)
    return barj, i, j


@pytest.fixture(params=LAYOUTS)
def rows(request):
    """A dict of 12 random rows: `terms`, a list of (number, coefficient) pairs a row, and the stack arrays of them."""
    rng = np.random.default_rng(8)
    terms = []
    for r in range(12):
        numbers = np.r_[np.sort(rng.integers(-10, 0, r % 4)), [0] * (r % 3), rng.integers(0, 7, r % 5)]
        terms.append([(int(v), rng.choice([0.0, -0.0, *rng.normal(size=4)])) for v in numbers])
    flat = [term for row in terms for term in row]
    ptr = np.r_[0, np.cumsum([len(row) for row in terms])]
    return {
        "terms": terms,
        "nnz": len(flat),
        "i32": layout(i32(np.r_[[-9] * POSITIONS["ppos"], ptr]), request.param),
        "i64": layout(i64([-9] * POSITIONS["ipos"] + [v for v, _ in flat]), request.param),
        "f64": layout(f64([-9] * POSITIONS["fpos"] + [c for _, c in flat]), request.param),
    }


@pytest.mark.parametrize("separate", (True, False), ids=("constants apart", "constants among terms"))
def test_split_rows_have_the_measured_sizes_and_the_value_of_the_rows(rows, separate):
    rng = np.random.default_rng(1)
    barj, i, j = elements()
    n, ppos, ipos, fpos = 12, *POSITIONS.values()
    stack32, stack64, stackf = rows["i32"], rows["i64"], rows["f64"]
    if separate:
        nblk, nlin, nbar = kernel(75)(5, barj, 6, n, ipos, ppos, stack32, stack64, 7)
    else:
        nblk, nlin, nbar = kernel(78)(5, barj, fpos, 6, n, ipos, ppos, stackf, stack32, stack64, 7)
    nblk, nlin, nbar = nblk - 5, nlin - 6, nbar - 7
    assert nbar == sum(v < 0 for row in rows["terms"] for v, _ in row)
    runs = [[barj[~v] for v, _ in row if v < 0] for row in rows["terms"]]
    assert nblk == sum(np.count_nonzero(np.diff(run, prepend=-1)) for run in runs)  # a matrix for each run

    # Exactly the measured room and some slots that must stay. 75 also counts constants behind linear terms.
    bfix, subj, cof = np.ones(n), blank(nlin + 2), np.full(nlin + 2, -7.5)
    ptrb = np.zeros(n + 1, np.int32 if separate else np.int64)
    if separate:
        kernel(76)(bfix, cof, fpos, n, ipos, ppos, ptrb, stackf, stack32, stack64, subj)
        assert ptrb[n] <= nlin
    else:
        kernel(79)(cof, fpos, n, ipos, ppos, ptrb, stackf, stack32, stack64, subj)
        assert ptrb[n] == nlin
    assert (subj[ptrb[n] :] == -7).all() and (cof[ptrb[n] :] == -7.5).all()

    barsubj, matdim, matnnz = (blank(nblk) for _ in range(3))
    matsubi, matsubj, matcof = blank(nbar), blank(nbar), np.zeros(nbar)
    ptr = np.zeros(n + 1, ptrb.dtype)
    arguments = [0, 0, barsubj, barj, i, j, i32(ORDERS), fpos, matcof, matdim, matnnz, matsubi, matsubj, ipos, n, ptr]
    assert kernel(77 if separate else 80)(*arguments, ppos, stackf, stack32, stack64) == (nbar, nblk) == (nbar, ptr[n])
    assert np.array_equal(matdim, i32(ORDERS)[barsubj])

    x = np.r_[1, rng.normal(size=7)]
    bars = [(lambda m: m + m.T)(rng.normal(size=(d, d))) for d in ORDERS]
    ends = np.cumsum(matnnz)
    for r, row in enumerate(rows["terms"]):
        direct = sum(c * (x[v] if v >= 0 else bars[barj[~v]][i[~v], j[~v]]) for v, c in row)
        value = (bfix[r] - 1 if separate else 0) + cof[ptrb[r] : ptrb[r + 1]] @ x[subj[ptrb[r] : ptrb[r + 1]]]
        for m in range(ptr[r], ptr[r + 1]):
            matrix = np.zeros((matdim[m], matdim[m]))
            entries = slice(ends[m] - matnnz[m], ends[m])
            np.add.at(matrix, (matsubi[entries], matsubj[entries]), matcof[entries])
            value += ((matrix + np.tril(matrix, -1).T) * bars[barsubj[m]]).sum()
        assert value == pytest.approx(direct)


def test_what_counts_as_a_linear_term():
    """Only constants at the head are left out by 75; 78 looks at coefficients, and a NaN is not 0."""
    ptr, nidxs, cof = i32([0, 6]), i64([-1, 0, 0, 3, 0, 4]), f64([1, 2, 0, np.nan, 5, -0.0])
    barj = i32([0])
    assert kernel(75)(0, barj, 0, 1, 0, 0, ptr, nidxs, 0) == (1, 3, 1)
    assert kernel(78)(0, barj, 0, 0, 1, 0, 0, cof, ptr, nidxs, 0) == (1, 3, 1)
    subj, kept, ptrb = blank(3), np.zeros(3), i64([0, -7])
    kernel(79)(kept, 0, 1, 0, 0, ptrb, cof, ptr, nidxs, subj)
    assert subj.tolist() == [0, 3, 0] and np.array_equal(kept, [2, np.nan, 5], equal_nan=True) and ptrb[1] == 3
    # Rows without such a term write nothing, whatever stands in front of them.
    subj, kept, ptrb = blank(3), blank(3, make=f64), i64([1, -7, -7])
    kernel(79)(kept, 0, 2, 0, 0, ptrb, f64([5, 0.0, 4, -0.0]), i32([1, 3, 4]), i64([6, 0, -1, 2]), subj)
    assert subj.tolist() == kept.tolist() == [-7] * 3 and ptrb.tolist() == [1, 1, 1]


def test_single_row():
    barj, i, j = elements()
    nidxs, cof = i64([-9, 3, -2, 0, -1, 5]), f64([7, -9, 1, 8, 2, 6, 4])  # the row begins at 1 and at 2
    assert kernel(46)(10, 1, 5, 20, nidxs) == (13, 22)
    assert kernel(46)(10, 1, 0, 20, nidxs) == kernel(46)(10, 1, -3, 20, None) == (10, 20)
    subj, linear = blank(4), np.full(4, -7.5)
    kernel(47)(linear, 2, 1, 5, cof, nidxs, subj)
    assert subj.tolist() == [3, 0, 5, -7] and linear.tolist() == [1, 2, 4, -7.5]
    *triplets, val = *(blank(3) for _ in range(3)), np.full(3, -7.5)
    kernel(48)(barj, i, j, 0, 0, 2, f64([6, 8]), i64([-1, -5]), *triplets, val)
    assert [t.tolist() for t in triplets] == [[0, 0, -7], [0, 2, -7], [0, 1, -7]] and val.tolist() == [6, 4, -7.5]


@kinds
def test_picked_coefficients(kind):
    rng = np.random.default_rng(5)
    dense = np.where(rng.random((9, 8)) < 0.5, rng.normal(size=(9, 8)), np.nan)
    r, v = np.nonzero(~np.isnan(dense))
    stack32 = layout(i32(np.r_[[-9] * 3, 0, np.cumsum(np.bincount(r, minlength=9))]), kind)
    stack64, stackf = layout(i64(np.r_[[-9] * 2, 2**32 * v]), kind), layout(np.r_[[-9] * 4, dense[r, v]], kind)
    varidxs = layout(i64([2**32 * v for v in (1, 2, 4, 7, 11)]), kind)
    picked = np.c_[dense[:, [1, 2, 4, 7]], np.full(9, np.nan)]
    conidxs = layout(i32([4, -1, 0, -3, -3, 2, 1, -9, 5]), kind)

    block, other = np.full(47, np.nan), np.full(47, np.nan)
    assert kernel(32)(block, 4, 9, 2, 1, 3, varidxs, stackf, stack32, stack64) == 46
    assert kernel(41)(other, 4, 1, 9, 2, 3, varidxs, stackf, stack32, stack64) == 46
    assert np.array_equal(block, placed(47, 1, picked.ravel(), np.nan), equal_nan=True)
    assert np.array_equal(block, other, equal_nan=True)

    ccof, lcof, csubi, lsubi = np.full(27, np.nan), np.full(27, np.nan), blank(27), blank(27)
    ends = kernel(33)(ccof, 1, 4, conidxs, csubi, lcof, 2, lsubi, 9, 2, 3, varidxs, stackf, stack32, stack64)
    assert ends == (21, 27)
    for cof, subi, start, side in [(ccof, csubi, 1, conidxs < 0), (lcof, lsubi, 2, conidxs >= 0)]:
        numbers = np.where(conidxs < 0, ~conidxs, conidxs)[side]
        assert np.array_equal(cof, placed(27, start, picked[side].ravel(), np.nan), equal_nan=True)
        assert np.array_equal(subi, placed(27, start, np.repeat(numbers, 5)))


def test_few_coefficients_picked_among_many():
    many, few = i64(range(7, 307, 3)), i64([0, 7, 178, 10**6])
    for terms, varidxs in ((many, few), (few, many)):
        block = np.full(len(varidxs), np.nan)
        kernel(32)(block, 0, 1, 0, 0, 0, varidxs, 2.0 * terms, i32([0, len(terms)]), terms)
        assert np.array_equal(block, np.where(np.isin(varidxs, terms), 2.0 * varidxs, np.nan), equal_nan=True)


@pytest.mark.parametrize("others", (0, 40))
def test_a_coefficient_is_picked_once(others):
    """Of a variable that is listed again and again each term goes to one place, also among many others."""
    behind = np.arange(10, 10 + others)
    for listed, terms, picked in ([4, 4], [4], [1, -7]), ([4], [4, 4], [1]), ([3, 4, 4], [4, 4, 4], [-7, 1, 2]):
        varidxs, nidxs, block = i64(np.r_[listed, behind]), i64(np.r_[terms, behind]), blank(3 + others, make=f64)
        cof = np.arange(1.0, 1 + len(nidxs))
        kernel(32)(block, 0, 1, 0, 0, 0, varidxs, cof, i32([0, len(nidxs)]), nidxs)
        assert np.array_equal(block, placed(3 + others, 0, np.r_[picked, cof[len(terms) :]]))


@kinds
def test_rows_by_side(kind):
    rng = np.random.default_rng(6)
    conidxs, lengths = rng.integers(-9, 9, 30), rng.integers(0, 4, 30)
    atoms = rng.integers(1, 4, lengths.sum())
    # Two terms with five atoms stand in front of the rows.
    ptr, codeptr = 2 + np.r_[0, np.cumsum(lengths)], np.r_[0, 1, 5 + np.r_[0, np.cumsum(atoms)]]
    stack = layout(i32(np.r_[-9, ptr, -9, codeptr]), kind)
    conidxs, off, conic = layout(i32(conidxs), kind), len(ptr) + 2, conidxs < 0
    atoms_by_row = codeptr[ptr[1:]] - codeptr[ptr[:-1]]
    assert kernel(26)(conidxs, 30, 4) == 4 + (~conic).sum()
    for number, position, counts in (27, (), lengths), (28, (off,), atoms_by_row):
        sums = kernel(number)(3, *position, conidxs, 4, 30, 1, stack)
        assert sums == (3 + counts[conic].sum(), 4 + counts[~conic].sum())

    cn, ln = conic.sum(), (~conic).sum()
    crow, lrow, crow_only, lrow_only = (blank(40) for _ in range(4))
    xi32 = blank(80)
    sums = kernel(35)(1, 10, conidxs, 2, crow, 0, 20, 40, lrow, 30, 1, stack, xi32)
    assert sums == (1 + cn, 10 + lengths[conic].sum(), ln, 20 + lengths[~conic].sum())
    assert kernel(39)(1, conidxs, crow_only, 0, lrow_only, 30) == (1 + cn, ln)
    assert np.array_equal(crow, placed(40, 1, ~conidxs[conic])) and np.array_equal(crow, crow_only)
    assert np.array_equal(lrow, placed(40, 0, conidxs[~conic])) and np.array_equal(lrow, lrow_only)
    assert np.array_equal(xi32[:40], placed(40, 4, 10 + np.cumsum(lengths[conic])))
    assert np.array_equal(xi32[40:], placed(40, 1, 20 + np.cumsum(lengths[~conic])))


@kinds
@pytest.mark.parametrize("n", (1, 2, 3, 8, 31, 33, 100))
def test_run_lengths_are_appended(kind, n):
    pointers = 40 + np.cumsum(np.random.default_rng(n).integers(0, 5, n + 3))
    for number, scalars in (29, (1, 5, 1, 2, 1, n + 1)), (30, (5, 1, 2, 1, 1, n + 1)):
        xi32 = blank(n + 5, kind)
        appended = 5 + pointers[2 : n + 2] - pointers[1]
        assert kernel(number)(*scalars, layout(i32([-9, *pointers]), kind), xi32) == (appended[-1], n + 2)
        assert np.array_equal(xi32, placed(n + 5, 4, appended))


@pytest.mark.parametrize("numbers, ascending", [([], 1), ([5], 1), ([-3, 0, 2], 1), ([1, 1], 0), ([1, 3, 2], 0)])
def test_order_of_lists(numbers, ascending):
    longer = i64(numbers + [-99])
    assert kernel(40)(len(numbers), longer, True) is kernel(42)(True, i64(numbers)) is bool(ascending)
    assert kernel(40)(len(numbers), longer, False) is kernel(42)(0, i64(numbers)) is False
