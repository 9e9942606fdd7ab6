"""Sparse matrices as triplets and their dense forms, against SciPy."""

import numpy as np
from scipy import sparse
from support import blank, call, f64, i32, i64, kinds, layout, placed

ROWS, COLS, SIZE = 6, 5, 30


@kinds
def test_from_dense_to_compressed_rows_and_back(kind):
    rng = np.random.default_rng(6)
    values = np.where(rng.random(SIZE) < 0.4, rng.normal(size=SIZE), rng.choice([0.0, -0.0], SIZE))
    dense = layout(values, kind).reshape(ROWS, COLS)
    expected = sparse.csr_matrix(dense)
    subi, subj, val = (blank(SIZE + 3, kind, make) for make in (i32, i32, f64))
    assert call(635, data=dense, rows=ROWS, cols=COLS, k=2, subi=subi, subj=subj, val=val) == SIZE + 2
    for listed, entries in zip((subi, subj, val), (*np.indices(dense.shape, np.int32), values)):
        assert np.array_equal(listed, placed(SIZE + 3, 2, entries.ravel()))
    pattern, flat = (blank(SIZE + 3), blank(SIZE + 3)), blank(SIZE + 1, make=f64)
    assert call(639, rows=ROWS, cols=COLS, k=2, subi=pattern[0], subj=pattern[1]) == SIZE + 2
    assert np.array_equal(pattern, (subi, subj))
    call(584, rows=ROWS, cols=COLS, msubi=pattern[0], msubj=pattern[1], mval=flat, mx=dense)  # the same from 0 on
    assert np.array_equal(pattern[0][:-3], subi[2:-1]) and np.array_equal(pattern[1][:-3], subj[2:-1])
    assert np.array_equal(flat, placed(SIZE + 1, 0, values))
    call(585, rows=ROWS, cols=COLS, mval=(flat := blank(SIZE + 1, make=f64)), mx=dense)
    assert np.array_equal(flat, placed(SIZE + 1, 0, values))

    source = {"subi_": subi[2:-1], "subj_": subj[2:-1], "val_": val[2:-1]}
    assert call(641, init=5, val_=source["val_"]) == 5 + expected.nnz
    stored = {f: blank(expected.nnz + 2, kind, make) for f, make in (("subi", i32), ("subj", i32), ("val", f64))}
    assert call(642, k=1, **source, **stored) == expected.nnz + 1
    assert np.array_equal(stored["subj"], placed(expected.nnz + 2, 1, expected.indices))
    assert np.array_equal(stored["val"], placed(expected.nnz + 2, 1, expected.data))
    ptrb = blank(ROWS + 1, make=i64)
    assert call(643, n=ROWS, lo=1, hi=expected.nnz + 1, ptrb=ptrb, subi=stored["subi"]) == expected.nnz + 1
    assert np.array_equal(ptrb, placed(ROWS + 1, 0, 1 + expected.indptr[:ROWS]))
    target = blank(SIZE, kind, f64)
    call(644, ncols=COLS, r=target, **{field: entries[1:-1] for field, entries in stored.items()})
    assert np.array_equal(target, np.where(values == 0, -7, values))


def test_zeros_are_dropped_in_place_and_with_them_nan():
    subi, subj, val = i32([3, 1, 4, 1, 5]), i32([2, 7, 1, 8, 2]), f64([np.nan, 0.5, -0.0, -np.inf, 5e-324])
    assert call(641, init=1, val_=val) == 4 and call(641, val_=val[1:]) == 3
    assert call(642, k=0, subi=subi, subi_=subi, subj=subj, subj_=subj, val=val, val_=val) == 3
    assert subi.tolist() == [1, 1, 5, 1, 5] and subj.tolist() == [7, 8, 2, 8, 2]
    assert val.tolist() == [0.5, -np.inf, 5e-324, -np.inf, 5e-324]


def test_row_starts_stop_at_the_range_and_scattering_at_the_last_repeat():
    ptrb, target = blank(5, make=i64), np.zeros(6)
    assert call(643, n=4, lo=1, hi=5, ptrb=ptrb, subi=i32([9, 0, 0, 2, 3, 3, 3])) == 5
    assert ptrb.tolist() == [1, 3, 3, 4, -7]
    call(644, ncols=3, r=target, subi=i32([1, 0, 1]), subj=i32([2, 1, 2]), val=f64([4, 5, 6]))
    assert target.tolist() == [0, 5, 0, 0, 0, 6]


def test_extent_of_the_entries():
    subi, subj = i32([3, -1, 2, 90]), i32([0, 6, 5, 90])
    assert call(636, n=3, subi=subi, subj=subj) == (3, 6)
    assert call(637, maxi=5, maxj=9, n=3, subi=subi, subj=subj) == (5, 9)
    for n, nrows, ncols, outside in (1, 4, 1, 0), (1, 3, 1, 1), (1, 4, 0, 1), (2, 4, 7, 1), (0, 0, 0, 0):
        assert call(640, nrows=nrows, ncols=ncols, n=n, flag=False, subi_=subi, subj_=subj) is bool(outside)
        assert call(640, nrows=nrows, ncols=ncols, n=n, flag=True, subi_=subi, subj_=subj) is True
    assert call(640, nrows=9, ncols=9, n=1, subi_=i32([0]), subj_=i32([-1])) is True


@kinds
def test_dense_block_is_transposed_into_wider_columns(kind):
    block = np.arange(1.0, 13).reshape(4, 3)
    data, target = layout(f64([0, 0, *block.ravel(), 0]), kind), blank(18, kind, f64)
    assert call(638, data=data, rows=4, cols=3, newdata=target, base=2, m=6) == 14
    assert np.array_equal(target.reshape(3, 6), np.c_[block.T, np.full((3, 2), -7)])


def test_diagonal_block_takes_rows_and_columns_from_one_array():
    subi, subj = blank(6), blank(6)
    call(632, n=3, base=2, msubi=i32([0, 4, 2**31 - 1]), rowoff=10, coloff=-20, subi=subi, subj=subj)
    assert subi.tolist() == [-7, -7, 10, 14, 9 - 2**31, -7] and subj.tolist() == [-7, -7, -20, -16, 2**31 - 21, -7]
