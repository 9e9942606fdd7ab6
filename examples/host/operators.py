"""Operators on expression records: each takes its operands off the w stack and leaves its result there.

All of them work alike. They check their arguments, measure the result with a kernel, reserve exactly that room on r,
let the writing kernels fill it, and move the finished record to w; those without operands write on w at once. Terms
are merged by `sums.merge_terms` alone: in all others a variable that is met twice gives two terms.

Coefficient code passes through every operator, but none here makes it: the products in `parameters` do. What does not
fit is refused by ValueError, a wrong type by TypeError, a result of 2^31 terms or more by OverflowError, with the w
stack as it was before the call. Numbers come in as arrays or lists; NaN and inf are no coefficients.

Here are the leaves, products with a constant matrix, sums of two operands and of blocks, picks and slices. `structure`
stacks, repeats and permutes axes, `sums` has the other sums, `products` products with constant arrays and diagonals of
matrix products, `axis_pairs` what treats two axes as the sides of a matrix. The kernels of `structure`, `sums` and
`axis_pairs` multiply extents in 32 bits: they are for arrays of fewer than 2^31 elements.
"""

from __future__ import annotations

import math
from dataclasses import dataclass, replace
from typing import Optional, Sequence, Tuple, Union

import numpy as np
from scipy.sparse import csr_matrix, issparse

import fragments_kernels as kernels
from .checks import count, extents, floats, integers, number
from .stacks import MOST_SLOTS, Record, Stacks, int32_array


@dataclass(frozen=True)
class SparseMatrix:
    """A constant matrix of `rows` x `cols` by its entries, sorted by row, then column, without repetitions.

    subi, subj: int32, row and column of each entry; val: float64, its value. A stored zero stays an entry. Arrays of
    these types are kept, not copied. Raises ValueError unless they are of one length, in order and finite.
    """

    rows: int
    cols: int
    subi: np.ndarray
    subj: np.ndarray
    val: np.ndarray

    def __post_init__(self) -> None:
        rows, cols = extents((self.rows, self.cols), "the shape of a matrix")
        subi, subj = (integers(a, f"the {name} of a matrix", np.int32)
                      for a, name in ((self.subi, "rows"), (self.subj, "columns")))
        val = floats(self.val, "the entries of a matrix")
        if not subi.ndim == subj.ndim == val.ndim == 1 or not len(subi) == len(subj) == len(val):
            raise ValueError("a matrix has as many rows and columns as entries, not arrays of the shapes "
                             f"{subi.shape}, {subj.shape} and {val.shape}")
        for name, value in zip(("rows", "cols", "subi", "subj", "val"), (rows, cols, subi, subj, val)):
            object.__setattr__(self, name, value)
        matrix_arguments(self)

    @classmethod
    def of(cls, matrix) -> SparseMatrix:
        """The entries of a SciPy matrix, those of one place added up, or of a two-dimensional array that are not 0."""
        if not issparse(matrix):
            matrix = floats(matrix, "a matrix")
            if matrix.ndim != 2:
                raise ValueError(f"a matrix has two axes, not the shape {matrix.shape}")
        entries = csr_matrix(matrix, copy=True)
        entries.sum_duplicates()
        entries = entries.tocoo()
        return cls(*entries.shape, entries.row, entries.col, entries.data)


Matrix = Union[SparseMatrix, np.ndarray]


# ---- Leaves


def variable(s: Stacks, shape: Sequence[int], nidxs: np.ndarray, sp: Optional[np.ndarray] = None) -> Record:
    """Pushes an array of variables.

    nidxs: int64, the number of each stored element, not 0; sp: int64, their flat positions, ascending, for an
    array that stores some elements only; without it all elements are stored.
    """
    nidxs = integers(nidxs, "the numbers of variables").reshape(-1)
    shape, sp = check_pattern(shape, sp, len(nidxs))
    _check_numbers(nidxs)
    n = len(nidxs)
    w, record = s.w, s.w.reserve_record(len(shape), n, n, hassp=sp is not None)
    kernels.push_variable(record.cof, w.f64, w.i32, len(shape), n, n, record.ptr, record.shape, int32_array(shape))
    w.i64[record.nidxs:record.nidxs + n] = nidxs
    kernels.push_pattern(record.hassp, n, w.i64, record.sp, sp)
    return s.push(record)


def _check_numbers(nidxs: np.ndarray) -> None:
    """Raises ValueError for a number that is no variable's."""
    if not np.all(nidxs):
        raise ValueError("the number 0 stands for the constant and is no variable")


def constant(s: Stacks, shape: Sequence[int], values: np.ndarray, sp: Optional[np.ndarray] = None) -> Record:
    """Pushes an array of constants: float64 `values` of the stored elements, which `sp` names as in `variable`."""
    values = floats(values, "a constant array").reshape(-1)
    shape, sp = check_pattern(shape, sp, len(values))
    n = len(values)
    nnz = kernels.count_nonzeros(values, 0)
    w, record = s.w, s.w.reserve_record(len(shape), n, nnz, hassp=sp is not None)
    kernels.push_extents(len(shape), w.i32, record.shape, int32_array(shape))
    kernels.push_pattern(record.hassp, n, w.i64, record.sp, sp)
    kernels.write_constants(values, n, 0, record.cof, w.f64, w.i32, w.i64, record.nidxs, record.ptr)
    return s.push(record)


def check_pattern(shape: Sequence[int], sp: Optional[np.ndarray], count: int) -> Tuple:
    """The shape and the positions `sp` as kernels take them.

    Raises ValueError unless `count` values fit an array of this shape, stored in full or at these positions.
    """
    shape = extents(shape)
    size = math.prod(shape)
    if sp is None:
        if count != size:
            raise ValueError(f"{count} values for the {size} elements of shape {shape}")
        return shape, None
    sp = integers(sp, "positions")
    if size > np.iinfo(np.int64).max:
        raise ValueError(f"an array of shape {shape} has 2^63 elements or more")
    if sp.shape != (count,):
        raise ValueError(f"{count} values for positions of shape {sp.shape}")
    if any(kernels.check_pattern(False, False, sp, size)):
        raise ValueError(f"positions must ascend strictly, from 0 on and below {size}")
    return shape, sp


# ---- Products with a constant matrix


def multiply(s: Stacks, matrix: Matrix) -> Record:
    """Replaces E by matrix @ E, for E of shape (k,) or (k, t) and a matrix of m x k: shape (m,) or (m, t)."""
    dense, rows, cols, mnnz, msubi, msubj, mval = matrix_arguments(matrix)
    e = s.operands(1)[0]
    shape = s.w.extents(e)
    if len(shape) not in (1, 2) or shape[0] != cols:
        raise ValueError(f"a matrix of {rows} x {cols} cannot be applied to an array of shape {shape}")
    d0 = shape[1] if len(shape) == 2 else 1
    if dense:
        s.r.check_counts(rows * e.nnz, rows * (e.ncodeatom + 2 * e.nnz) if e.ncodeatom else 0)
    else:
        _check_copies(s, e, mnnz * d0, lambda at: np.bincount(msubj, minlength=cols)[at // d0])
    if d0 != 1:
        transpose(s)  # the kernels apply the matrix to each row of their operand
    w, r, e = s.w, s.r, s.operands(1)[0]

    ncodeatom, nelem, nnz = kernels.measure_product(
        e.codeptr, d0, cols, e.hassp, rows, mnnz, msubi, msubj, e.ncodeatom, e.nelem, e.nnz, e.ptr,
        0, 0, 0, e.sp, w.i32, w.i64)
    result = r.reserve_record(len(shape), nelem, nnz, ncodeatom, hassp=nelem < rows * d0)
    kernels.push_extents(len(shape), r.i32, result.shape, int32_array((rows, *shape[1:])))

    if dense:
        _write_dense_product(s, e, result, rows, cols, d0, mval)
    elif not e.hassp:
        kernels.write_sparse_product(
            e.cconst, e.code, 0, e.codeptr, e.cof, d0, cols, 0, mnnz, msubi, msubj, mval, e.nidxs, 0, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, result.hassp, r.i32, r.i64, ncodeatom,
            result.nidxs, result.ptr, result.sp, w.f64, w.i32, w.i64)
    else:
        kernels.write_sparse_sparse_product(
            e.cof, d0, cols, 0, mnnz, msubi, msubj, mval, e.nelem, e.nidxs, 0, e.ptr,
            result.cof, r.f64, result.hassp, r.i32, r.i64, result.nidxs, result.ptr, result.sp,
            e.sp, w.f64, w.i32, w.i64)
        if ncodeatom:
            kernels.write_sparse_sparse_product_code(
                e.cconst, e.code, 0, e.codeptr, cols, mnnz, msubi, msubj, mval, e.nelem, 0, e.ptr,
                result.cconst, result.code, result.codeptr, r.f64, r.i32, e.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def _write_dense_product(s: Stacks, e: Record, result: Record, rows: int, cols: int, d0: int, mval: np.ndarray) -> None:
    """The product of a dense matrix: coefficients one matrix row at a time, then variables and code of all rows."""
    w, r = s.w, s.r
    wi32, wi64, wf64, ri32, ri64, rf64, values = map(  # memoryviews, which bind faster: the calls are many and short
        memoryview, (w.i32, w.i64, w.f64, r.i32, r.i64, r.f64, mval))
    elmi = nzi = 0
    for i in range(rows):
        if e.hassp:
            elmi, nzi = kernels.write_dense_sparse_product_row(
                e.cof, d0, cols, elmi, i, cols, values, e.nelem, nzi, e.ptr,
                result.cof, rf64, result.hassp, ri32, ri64, result.ptr, result.sp, e.sp, wf64, wi32, wi64)
        else:
            _, elmi, nzi = kernels.write_dense_product_row(
                e.cof, d0, 0, elmi, i, cols, values, nzi, e.ptr, result.cof, rf64, ri32, result.ptr, wf64, wi32)
    kernels.repeat_variables(e.nidxs, e.nnz, r.i64, rows, result.nidxs, w.i64)
    if result.ncodeatom and e.hassp:
        kernels.write_dense_sparse_product_code(
            e.cconst, e.code, e.codeptr, cols, cols, rows, mval, e.nelem, e.ptr,
            result.cconst, result.code, result.codeptr, r.f64, r.i32, result.ncodeatom, e.sp, w.f64, w.i32, w.i64)
    elif result.ncodeatom:
        kernels.write_dense_product_code(
            e.cconst, e.code, e.codeptr, d0, rows, cols, mval, e.ptr,
            result.cconst, result.code, result.codeptr, r.f64, r.i32, result.ncodeatom, w.f64, w.i32)


def scale_matrix(s: Stacks, matrix: SparseMatrix) -> Record:
    """Replaces a record E of one stored element by the matrix with every entry times E, a sparse array."""
    rows, cols, mnnz, msubi, msubj, mval = sparse_matrix_arguments(matrix)
    w, r, e = s.w, s.r, s.operands(1)[0]
    if math.prod(w.extents(e)) != 1 or e.nelem != 1:
        raise ValueError(f"only a single expression can scale a matrix, not an array of shape {w.extents(e)}")
    ncodeatom = mnnz * (e.ncodeatom + 2 * e.nnz) if e.ncodeatom else 0
    result = r.reserve_record(2, mnnz, mnnz * e.nnz, ncodeatom, hassp=True)
    kernels.push_extents(2, r.i32, result.shape, int32_array((rows, cols)))
    # The kernel sets `codeptr[0]` by the operand's atoms; told the result's, it leaves it where no entry is.
    kernels.write_matrix_times_element(
        e.cconst, e.code, 0, e.codeptr, e.cof, cols, mnnz, msubi, msubj, mval, ncodeatom, e.nidxs, e.nnz, 0,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
        result.nidxs, result.ptr, result.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def multiply_variable(s: Stacks, matrix: SparseMatrix, shape: Sequence[int], nidxs: np.ndarray) -> Record:
    """Pushes matrix @ X for a dense array X of variables: what `variable` and `multiply` give, without a record for X.

    shape: (k,) or (k, t) for a matrix of m x k; nidxs: int64, the numbers of all elements of X. The result is sparse.
    """
    rows, cols, mnnz, msubi, msubj, mval = sparse_matrix_arguments(matrix)
    shape, nidxs = extents(shape), integers(nidxs, "the numbers of variables").reshape(-1)
    _check_numbers(nidxs)
    d1 = math.prod(shape[1:])
    if len(shape) not in (1, 2) or shape[0] != cols or len(nidxs) != cols * d1:
        raise ValueError(f"a matrix of {rows} x {cols} cannot be applied to {len(nidxs)} variables of {tuple(shape)}")
    s.w.check_counts(mnnz * d1)
    nelem, nnz = kernels.measure_left_dense_product(mnnz, msubi, 0, 0, d1)
    w, result = s.w, s.w.reserve_record(len(shape), nelem, nnz, hassp=True)
    kernels.push_extents(len(shape), w.i32, result.shape, int32_array((rows, *shape[1:])))
    kernels.write_sparse_left_product(
        mval, mnnz, msubi, msubj, 0, result.cof, w.f64, w.i32, w.i64, result.nidxs, result.ptr, result.sp, d1, nidxs)
    return s.push(result, without_pattern=nelem == rows * d1)


def multiply_variable_right(s: Stacks, matrix: SparseMatrix, shape: Sequence[int], nidxs: np.ndarray) -> Record:
    """Pushes X @ matrix for a dense array X of variables of shape (t, k) and a matrix of k x c: (t, c), sparse."""
    rows, cols, mnnz, msubi, msubj, mval = sparse_matrix_arguments(matrix)
    shape, nidxs = extents(shape), integers(nidxs, "the numbers of variables").reshape(-1)
    _check_numbers(nidxs)
    if len(shape) != 2 or shape[1] != rows or len(nidxs) != shape[0] * rows:
        raise ValueError(f"{len(nidxs)} variables of {tuple(shape)} cannot be multiplied by {rows} x {cols}")
    w, x = s.w, s.x
    column_ptr, _, _ = x.reserve(n32=cols + 1 + mnnz)
    by_column = column_ptr + cols + 1
    kernels.sort_entries_by_column(cols, cols, column_ptr, msubj, mnnz, by_column, x.i32)
    nelem = shape[0] * kernels.count_used_columns(msubj, 0, mnnz, by_column, x.i32)
    result = w.reserve_record(2, nelem, shape[0] * mnnz, hassp=True)
    kernels.push_extents(2, w.i32, result.shape, int32_array((shape[0], cols)))
    kernels.write_sparse_right_product(
        0, 0, mval, cols, msubi, msubj, 0, mnnz, by_column, result.cof, w.f64, w.i32, w.i64,
        result.nidxs, result.ptr, result.sp, x.i32, nidxs, *shape)
    return s.push(result, without_pattern=nelem == shape[0] * cols)


def matrix_arguments(matrix: Matrix) -> Tuple:
    """(dense, rows, cols, entries, msubi, msubj, mval) for the kernels; a dense matrix has None for msubi and msubj.

    A dense matrix is a two-dimensional array or a list of rows.
    """
    if not isinstance(matrix, SparseMatrix):
        if issparse(matrix):
            raise TypeError(f"a {type(matrix).__name__} is no matrix of this layer: make one with SparseMatrix.of")
        values = floats(matrix, "a matrix")
        if values.ndim != 2:
            raise ValueError(f"a matrix has two axes, not the shape {values.shape}")
        return True, *values.shape, 0, None, None, np.ascontiguousarray(values).reshape(-1)
    m = matrix
    badidx, badorder = kernels.check_matrix_to_first_fault(False, False, m.rows, m.cols, len(m.val), m.subi, m.subj)
    if badidx:
        raise ValueError(f"an entry of the matrix lies outside its {m.rows} rows and {m.cols} columns")
    if badorder:
        raise ValueError("the entries of the matrix are not in ascending order of row, then column")
    return False, m.rows, m.cols, len(m.val), m.subi, m.subj, m.val


def sparse_matrix_arguments(matrix: SparseMatrix) -> Tuple:
    """(rows, cols, entries, msubi, msubj, mval) for the kernels that know sparse matrices only."""
    if not isinstance(matrix, SparseMatrix):
        raise TypeError(f"a SparseMatrix is wanted, not a {type(matrix).__name__}: make one with SparseMatrix.of")
    return matrix_arguments(matrix)[1:]


def _check_copies(s: Stacks, e: Record, count: int, uses) -> None:
    """Raises OverflowError if a record of `count` copies of elements of E, with two atoms more for each of their terms
    if there is code, does not fit the r stack.

    uses(at): how many copies there are of each of the elements at the flat positions `at`.
    """
    w = s.w
    if count * (e.nnz + e.ncodeatom) < MOST_SLOTS // 4:
        return
    longest = kernels.longest_element(0, e.nelem, e.ptr, w.i32)
    if e.ncodeatom:
        longest *= 3 + kernels.longest_element(0, e.nnz, e.codeptr, w.i32)
    if count * longest > MOST_SLOTS:
        ptr = w.i32[e.ptr:e.ptr + e.nelem + 1]
        sizes = np.diff(ptr).astype(np.int64)
        if e.ncodeatom:
            sizes = 3 * sizes + np.diff(w.i32[e.codeptr:e.codeptr + e.nnz + 1][ptr])
        s.r.check_counts(int(sizes @ uses(s.positions(e))))


def transpose(s: Stacks) -> Record:
    """Replaces a two-dimensional array by its transpose; the terms of each element stay in their order."""
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    if e.nd != 2:
        raise ValueError(f"only a two-dimensional array can be transposed, not one of shape {w.extents(e)}")
    rows, cols = w.extents(e)
    result = r.reserve_record(2, e.nelem, e.nnz, e.ncodeatom, hassp=e.hassp)
    kernels.push_extents(2, r.i32, result.shape, int32_array((cols, rows)))
    if e.hassp:
        order, _, _ = x.reserve(n32=e.nelem + cols + 1)
        kernels.write_sparse_transpose(
            e.cconst, e.code, e.codeptr, rows, cols, e.cof, e.nidxs, e.ptr, e.sp, e.ncodeatom, e.nelem,
            order, order + e.nelem, result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            result.nidxs, result.ptr, result.sp, w.f64, w.i32, w.i64, x.i32)
    else:
        kernels.write_dense_transpose(
            e.cconst, e.code, e.codeptr, cols, rows, e.cof, e.nidxs, e.ptr, e.ncodeatom,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs, result.ptr,
            w.f64, w.i32, w.i64)
    return s.finish(1, result)


# ---- Sums


def add(s: Stacks, c1: float = 1.0, c2: float = 1.0) -> Record:
    """Replaces A and B, pushed in this order and of one shape, by c1*A + c2*B; it is sparse if both are."""
    w, r = s.w, s.r
    c1, c2 = number(c1, "the weight of the first summand"), number(c2, "the weight of the second summand")
    a, b = s.operands(2)
    shape = w.extents(a)
    if shape != w.extents(b):
        raise ValueError(f"arrays of the shapes {shape} and {w.extents(b)} cannot be added")
    if a.hassp and not b.hassp:
        a, b, c1, c2 = b, a, c2, c1  # the kernel for a mixed pair takes the dense one first
    ncodeatom = 0
    if a.ncodeatom or b.ncodeatom:  # a term costs its atoms and two for the weight, or one if only the other has code
        ncodeatom = sum(e.ncodeatom + 2 * e.nnz if e.ncodeatom else e.nnz for e in (a, b))
    nelem = kernels.count_union(a.nelem, b.nelem, 0, a.sp, b.sp, w.i64) if a.hassp else a.nelem
    result = r.reserve_record(a.nd, nelem, a.nnz + b.nnz, ncodeatom, hassp=a.hassp)
    kernels.copy_summand_extents(r.i32, a.nd, result.shape, a.shape, w.i32)
    if a.hassp:
        kernels.write_sparse_sum(
            a.cconst, b.cconst, a.code, b.code, a.codeptr, b.codeptr, a.cof, b.cof, c1, c2,
            a.ncodeatom, b.ncodeatom, a.nelem, b.nelem, a.nidxs, b.nidxs, a.ptr, b.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
            result.nidxs, result.ptr, result.sp, a.sp, b.sp, w.f64, w.i32, w.i64)
    elif b.hassp:
        kernels.write_dense_sparse_sum(
            a.cconst, b.cconst, a.code, b.code, 0, a.codeptr, b.codeptr, a.cof, b.cof, 0, 0, c1, c2,
            a.ncodeatom, b.ncodeatom, a.nelem, b.nelem, a.nidxs, b.nidxs, 0, a.ptr, b.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
            result.nidxs, result.ptr, b.sp, w.f64, w.i32, w.i64)
    else:
        kernels.write_dense_sum(
            a.cconst, b.cconst, a.code, b.code, 0, a.codeptr, b.codeptr, a.cof, b.cof, 0, c1, c2,
            a.ncodeatom, b.ncodeatom, a.nidxs, b.nidxs, a.ptr, b.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom, nelem,
            result.nidxs, result.ptr, w.f64, w.i32, w.i64)
    return s.finish(2, result)


def sum_blocks(s: Stacks, naxes: int = 1) -> Record:
    """Sums an array over its last `naxes` axes, 0 < naxes <= nd. Only `ptr` and the pattern are written, again on w."""
    w, e = s.w, s.operands(1)[0]
    naxes = count(naxes, "the number of axes")
    if not 0 < naxes <= e.nd:
        raise ValueError(f"an array of shape {w.extents(e)} has no {naxes} last axes to sum over")
    nd = e.nd - naxes
    block = kernels.range_size64_hi_lo_acc_base_wi32(e.nd, nd, 1, e.shape + nd, w.i32)
    if block == 0:
        raise ValueError(f"an array of shape {w.extents(e)} has an empty axis among its last {naxes}")
    groups = kernels.range_size64_hi_lo_acc_base_wi32(nd, 0, 1, e.shape, w.i32)
    nelem = kernels.count_blocks(block, 0, e.nelem, e.sp, w.i64) if e.hassp else groups
    ptr, sp, _ = w.reserve(n32=nelem + 1, n64=nelem if e.hassp else 0)  # extents and terms stay in place
    if e.hassp:
        w.i32[ptr] = 0
        kernels.write_blocks(block, e.nelem, e.ptr, True, w.i32, w.i64, nelem, ptr, sp, 0, e.sp, w.i32, w.i64)
    else:
        # Every block-th entry of ptr, which a strided view of the stack's array picks out.
        kernels.copy_ptr(nelem, 0, w.i32, ptr, w.i32[e.ptr:e.ptr + e.nelem + 1:block])
    s.records.pop()
    return s.push(replace(e, nd=nd, nelem=nelem, ptr=ptr, sp=sp))


# ---- Choosing elements


def pick(s: Stacks, indices: np.ndarray) -> Record:
    """Replaces an array by the vector of the chosen elements, in the given order, repetitions allowed; a dense record.

    indices: integers, flat positions of shape (k,) or coordinates of shape (k, nd).
    """
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    shape, indices = w.extents(e), integers(indices, "positions")
    if indices.ndim not in (1, 2):
        raise ValueError(f"positions have the shape (k,), or (k, {e.nd}) as coordinates, not {indices.shape}")
    if indices.ndim == 2:
        indices = integers(indices, "coordinates", np.int32)
        if indices.shape[1] != e.nd or kernels.has_coordinate_outside(indices, len(indices), int32_array(shape), False):
            raise ValueError(f"coordinates lie outside an array of shape {shape}")
        coordinates, indices = indices, np.empty(len(indices), dtype=np.int64)
        kernels.flatten_coordinates(coordinates, e.nd, int32_array(shape), indices)
    elif kernels.has_index_outside(indices, math.prod(shape), False):
        raise ValueError(f"flat positions lie outside an array of shape {shape}")

    n = len(indices)
    _check_copies(s, e, n, lambda at: np.bincount(
        np.searchsorted(at, indices[np.isin(indices, at)]), minlength=len(at)))
    if e.hassp:
        slots, _, _ = x.reserve(n32=n)
        ncodeatom, nnz = kernels.find_pick(
            e.codeptr, indices, e.ncodeatom, e.nelem, e.ptr, 0, 0, e.sp, slots, w.i32, w.i64, x.i32)
    else:
        ncodeatom, nnz = kernels.measure_pick(e.codeptr, indices, e.ncodeatom, e.ptr, 0, 0, w.i32)
    result = r.reserve_record(1, n, nnz, ncodeatom)
    kernels.push_extents(1, r.i32, result.shape, int32_array((n,)))
    common = (e.cconst, e.code, 0, e.codeptr, e.cof, indices, 0, e.nidxs, e.ptr,
              result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
              result.nidxs, result.ptr)
    if e.hassp:
        kernels.write_found_pick(*common, slots, w.f64, w.i32, w.i64, x.i32)
    else:
        kernels.write_pick(*common, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def slice_box(s: Stacks, first: Sequence[int], last: Sequence[int]) -> Record:
    """Replaces an array by the box first[d] <= index < last[d], one pair of bounds for each of its axes."""
    w, r, e = s.w, s.r, s.operands(1)[0]
    shape = w.extents(e)
    first, last = (integers(ends, "the ends of a box").reshape(-1).tolist() for ends in (first, last))
    if not len(first) == len(last) == e.nd > 0 or not all(0 <= f <= l <= n for f, l, n in zip(first, last, shape)):
        raise ValueError(f"the box from {tuple(first)} to {tuple(last)} does not lie in an array of shape {shape}")
    box = int32_array([l - f for f, l in zip(first, last)])
    strides, box_strides = np.ones(e.nd, dtype=np.int64), np.ones(e.nd, dtype=np.int64)
    kernels.write_operand_strides(e.nd, e.shape, strides, w.i32)
    ncodeatom, nelem, nnz = kernels.measure_slice(
        e.codeptr, int32_array(first), e.hassp, int32_array(last), e.ncodeatom, e.nd, e.nelem, e.ptr,
        0, 0, 0, e.shape, e.sp, strides, w.i32, w.i64)
    result = r.reserve_record(e.nd, nelem, nnz, ncodeatom, hassp=e.hassp)
    kernels.push_slice_extents(e.nd, r.i32, box, result.shape)
    kernels.write_slice_strides(e.nd, box, box_strides)
    kernels.write_slice(
        e.cconst, e.code, 0, e.codeptr, e.cof, int32_array(first), e.hassp, 0, 0, int32_array(last), e.nd, e.nelem,
        e.nidxs, e.ptr, result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
        result.nidxs, result.ptr, result.sp, box_strides, e.shape, e.sp, strides, w.f64, w.i32, w.i64)
    return s.finish(1, result)
