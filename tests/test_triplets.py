"""Sparse triplets: sorted by row and column, repeated entries merged, transposed."""

import numpy as np
import pytest
from support import UNTOUCHED, blank, call, f64, i32, i64, kinds, layout

ROWS, COLUMNS = 5, 7


@pytest.fixture(params=(0, 1, 60))
def triplets(request):
    """Entries in no order, places repeated."""
    rng = np.random.default_rng(84)
    n = request.param
    return rng.integers(0, ROWS, n), rng.integers(0, COLUMNS, n), rng.normal(size=n)


def ends(sub, n):
    return [0, *np.cumsum(np.bincount(sub, minlength=n))]


@kinds
@pytest.mark.parametrize("together", (True, False), ids=("counted together", "counted apart"))
def test_sort_and_merge(kind, triplets, together):
    subi, subj, val = triplets
    nnz = len(val)
    entries = {"subi": layout(i32(subi), kind), "subj": layout(i32(subj), kind)}
    rptrb, cptrb = layout(i64([0] * (ROWS + 2)), kind), layout(i64([0] * (COLUMNS + 2)), kind)
    cols, rows = (blank(nnz + 1, kind) for _ in range(2))
    if together:
        call(113, cptrb=cptrb, nnz=nnz, rptrb=rptrb, **entries)
    else:
        call(121, cptrb=cptrb, nnz=nnz, subj=entries["subj"])
        call(124, rptrb=rptrb, nnz=nnz, subi=entries["subi"])
    call(114, n=ROWS + 1, rptrb=rptrb)
    call(115, n=COLUMNS + 1, cptrb=cptrb)
    assert rptrb.tolist() == [0, *ends(subi, ROWS)] and cptrb.tolist() == [0, *ends(subj, COLUMNS)]
    call(123, cols=cols, cptrb=cptrb, nnz=nnz, subj=entries["subj"])
    assert cols.tolist() == [*np.argsort(subj, kind="stable"), UNTOUCHED]
    call(126, cols=cols, cptrb=cptrb, n=COLUMNS, rows=rows, rptrb=rptrb, subi=entries["subi"])
    assert rows.tolist() == [*np.lexsort((subj, subi)), UNTOUCHED]
    # Every slot has moved from the start of its bucket to its end.
    assert rptrb.tolist() == [*ends(subi, ROWS), nnz] and cptrb.tolist() == [*ends(subj, COLUMNS), nnz]

    merged = {}
    for k in rows[:nnz]:
        place = subi[k], subj[k]
        merged[place] = merged[place] + val[k] if place in merged else val[k]
    size = call(127, nnz=nnz, c=1, rows=rows, **entries)
    assert size == max(len(merged), 1)
    tsubi, tsubj = (blank(size + 1, kind) for _ in range(2))
    tval = blank(size + 1, kind, f64)
    if nnz:
        tsubi[0], tsubj[0], tval[0] = subi[rows[0]], subj[rows[0]], val[rows[0]]
    targets = {"tsubi": tsubi, "tsubj": tsubj, "tval": tval}
    assert call(128, c=1, nnz=nnz, rows=rows, val=layout(val, kind), **entries, **targets) == size
    if nnz:
        assert list(zip(tsubi[:size], tsubj[:size])) == list(merged)
        assert tval[:size].tolist() == list(merged.values())
    assert tsubi[size] == tsubj[size] == tval[size] == UNTOUCHED


@kinds
@pytest.mark.parametrize("number, integers", ((116, i64), (120, i32)))
def test_transpose(kind, triplets, number, integers):
    subi, subj, val = triplets
    by_row = np.argsort(subi, kind="stable")
    subi, subj, val = subi[by_row], subj[by_row], val[by_row]
    nnz = len(val)
    # Both pointer arrays begin at the second slot of the sort's bucket arrays.
    rptrb, cptrb = (layout(i64([UNTOUCHED, *ends(*of)]), kind) for of in ((subi, ROWS), (subj, COLUMNS)))
    tsubi, tsubj = (blank(nnz + 1, kind, integers) for _ in range(2))
    tval = blank(nnz + 1, kind, f64)
    call(number, cptrb=cptrb[1:], n=ROWS, rptrb=rptrb[1:], subj=layout(i32(subj), kind), tsubi=tsubi, tsubj=tsubj,
         tval=tval, val=layout(val, kind))  # fmt: skip
    order = np.argsort(subj, kind="stable")
    assert tsubi.tolist() == [*subi[order], UNTOUCHED] and tsubj.tolist() == [*subj[order], UNTOUCHED]
    assert tval.tolist() == [*val[order], UNTOUCHED]
    assert cptrb.tolist() == [UNTOUCHED, *ends(subj, COLUMNS)[1:], nnz]
    assert rptrb.tolist() == [UNTOUCHED, *ends(subi, ROWS)]


def test_merging_adds_to_the_target_in_front():
    """The first entry of a call may go on where an earlier call has ended."""
    tsubi, tsubj, tval = i32([3, 3, 0]), i32([1, 2, 0]), f64([1, 2, 9])
    entries = {"rows": i32([0, 2, 1]), "subi": i32([9, 4, 3]), "subj": i32([9, 2, 2]), "val": f64([100, 5, np.inf])}
    assert call(128, c=2, nnz=3, tsubi=tsubi, tsubj=tsubj, tval=tval, **entries) == 3
    assert tsubi.tolist() == [3, 3, 4] and tsubj.tolist() == [1, 2, 2] and tval.tolist() == [1, np.inf, 5]


@pytest.mark.parametrize("cptrb", ([2, 0, 3, 1, 4], [0, 3, 3, 1, 1], [3, 2, 1, 0, 4]))
def test_columns_may_overlap_or_be_empty(cptrb):
    """Each column is taken as its two ends tell, from 0 entries to all, and none if they are the wrong way round."""
    cols, subi = i32([3, 1, 0, 2]), i32([1, 0, 1, 0])
    placed, rptrb, rows = [k for b, e in zip(cptrb, cptrb[1:]) for k in cols[b:e]], i64([0, 0, 9, 0]), blank(20)
    call(126, cols=cols, cptrb=i64(cptrb), n=4, rows=rows, rptrb=rptrb, subi=subi)
    for start, row in (0, 0), (9, 1):
        mine = [k for k in placed if subi[k] == row]
        assert rows[start : start + 9].tolist() == mine + [UNTOUCHED] * (9 - len(mine))
        assert rptrb[row + 1] == start + len(mine)
