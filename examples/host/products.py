"""Products with constants: by one number, by element, summed over chosen elements, diagonals of matrix products.

The constants that are applied here are not expressions; a product of two expressions would not be linear.
"""

from __future__ import annotations

import math
from typing import Optional

import numpy as np

from . import kernels
from .checks import floats, integers, number
from .operators import SparseMatrix, check_pattern, sparse_matrix_arguments
from .stacks import Record, Stacks, int32_array


def scale(s: Stacks, c: float) -> Record:
    """Replaces an array by c times it."""
    c = number(c, "a factor")
    w, r, e = s.w, s.r, s.operands(1)[0]
    result = r.reserve_record(e.nd, e.nelem, e.nnz, _scaled_atoms(e, e.ncodeatom, e.nnz), hassp=e.hassp)
    kernels.write_scalar_product(
        c, e.cconst, e.code, e.codeptr, e.cof, e.hassp, e.ncodeatom, e.nd, e.nelem, e.nidxs, e.nnz, e.ptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
        result.nidxs, result.ptr, result.shape, result.sp, e.shape, e.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def scale_elements(s: Stacks, values: np.ndarray, sp: Optional[np.ndarray] = None) -> Record:
    """Replaces an array by its product, element by element, with a constant array of its shape.

    values: float64, the constants, row-major; or, with `sp`, those at the flat positions `sp` (int64, ascending), all
    others being zero. The result stores the elements that both arrays store.
    """
    w, r, e = s.w, s.r, s.operands(1)[0]
    values = floats(values, "a constant array").reshape(-1)
    extents, sp = check_pattern(w.extents(e), sp, len(values))
    sp = np.arange(len(values), dtype=np.int64) if sp is None else sp
    ncodeatom, nelem, nnz = kernels.measure_elementwise_product(
        e.codeptr, e.hassp, sp, e.ncodeatom, e.nelem, e.ptr, 0, 0, 0, e.sp, w.i32, w.i64)
    result = r.reserve_record(e.nd, nelem, nnz, ncodeatom, hassp=True)
    # The kernel sets `codeptr[0]` by the operand's atoms; told the result's, it leaves it where no term is.
    kernels.write_elementwise_product(
        e.cconst, e.code, e.codeptr, e.cof, e.hassp, values, sp, ncodeatom, e.nelem, e.nidxs, e.ptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom, e.nd,
        result.nidxs, result.ptr, result.shape, result.sp, e.shape, e.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result, without_pattern=nelem == math.prod(extents))


def weighted_pick(s: Stacks, indices: np.ndarray, weights: np.ndarray) -> Record:
    """Replaces an array by one element, of shape (): the sum of weights[k] times the element at flat indices[k].

    indices: int64, ascending strictly; weights: float64.
    """
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    size = math.prod(w.extents(e))
    indices, weights = integers(indices, "positions").reshape(-1), floats(weights, "weights").reshape(-1)
    # The kernel lets pass a last index that is equal to the size it is told.
    if len(indices) != len(weights) or any(kernels.check_picked_elements(False, False, size - 1, indices)):
        raise ValueError(f"{len(weights)} weights need as many positions, ascending strictly, from 0 up to {size - 1}")
    nnz = kernels.count_terms_of_picks(e.hassp, e.nelem, e.ptr, 0, e.sp, indices, w.i32, w.i64)
    ncodeatom = 0
    if e.ncodeatom and e.hassp:
        slots, _, _ = x.reserve(n32=len(indices))
        ncodeatom, _ = kernels.find_pick(
            e.codeptr, indices, e.ncodeatom, e.nelem, e.ptr, 0, 0, e.sp, slots, w.i32, w.i64, x.i32)
    elif e.ncodeatom:
        ncodeatom, _ = kernels.measure_pick(e.codeptr, indices, e.ncodeatom, e.ptr, 0, 0, w.i32)
    ncodeatom = _scaled_atoms(e, ncodeatom, nnz)
    result = r.reserve_record(0, 1, nnz, ncodeatom)
    kernels.write_sum_of_picks(
        e.cconst, e.code, 0, e.codeptr, e.cof, e.hassp, e.nelem, e.nidxs, 0, e.ptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
        result.nidxs, e.sp, weights, indices, w.f64, w.i32, w.i64)
    r.i32[result.ptr + 1] = nnz
    return s.finish(1, result)


def diagonal_right(s: Stacks, matrix: SparseMatrix) -> Record:
    """Replaces E of shape (k, m) by the diagonal of E @ matrix, for a matrix of m x k: shape (k,).

    It stores the elements for which the matrix has an entry in that column and, if E is sparse, E one that meets it.
    """
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    d1, mnnz, msubi, msubj, mval = _diagonal_arguments(s, e, matrix)
    size = matrix.cols
    columns, _, _ = x.reserve(n32=size + 1 + mnnz)
    order = columns + size + 1
    kernels.sort_matrix_by_column(size, mnnz, msubj, x.i32, columns, order)
    ncodeatom, nelem, nnz = kernels.measure_right_diagonal(
        e.codeptr, d1, e.hassp, size, mnnz, msubi, msubj, e.ncodeatom, e.nelem, e.ptr, 0, 0, 0, e.sp,
        w.i32, w.i64, x.i32, order)
    result = r.reserve_record(1, nelem, nnz, ncodeatom, hassp=True)
    kernels.push_extents(1, r.i32, result.shape, int32_array((size,)))
    kernels.write_right_diagonal(
        e.cconst, e.code, 0, e.codeptr, e.cof, d1, 0, e.hassp, size, mnnz, msubi, msubj, mval,
        e.ncodeatom, e.nelem, e.nidxs, 0, e.ptr, result.cconst, result.code, result.codeptr, result.cof,
        r.f64, r.i32, r.i64, result.nidxs, result.ptr, result.sp, e.sp, w.f64, w.i32, w.i64, x.i32, order)
    return s.finish(1, result, without_pattern=nelem == size)


def diagonal_left(s: Stacks, matrix: SparseMatrix) -> Record:
    """Replaces E of shape (k, m) by the diagonal of matrix @ E, for a matrix of m x k: shape (m,).

    It stores the elements for which the matrix has an entry in that row and, if E is sparse, E one that meets it.
    """
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    d1, _, msubi, msubj, mval = _diagonal_arguments(s, e, matrix)
    size = matrix.rows
    if e.hassp:
        columns, _, _ = x.reserve(n32=d1 + 1 + e.nelem)
        order = columns + d1 + 1
        ncodeatom, nelem, nnz = kernels.measure_sparse_left_diagonal(
            e.codeptr, d1, msubi, msubj, e.ncodeatom, e.nelem, e.ptr, 0, 0, 0, e.sp, w.i32, w.i64,
            columns, order, x.i32)
    else:
        _, ncodeatom, nelem, nnz = kernels.measure_left_diagonal(
            e.codeptr, d1, 0, msubi, msubj, e.ncodeatom, e.ptr, 0, 0, 0, w.i32)
    result = r.reserve_record(1, nelem, nnz, ncodeatom, hassp=True)
    if e.hassp:
        kernels.push_extents(1, r.i32, result.shape, int32_array((size,)))
        kernels.write_sparse_left_diagonal(
            e.cconst, e.code, 0, e.codeptr, e.cof, d1, 0, 0, 0, msubi, msubj, mval, e.ncodeatom, e.nelem,
            e.nidxs, 0, e.ptr, result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            result.nidxs, result.ptr, result.sp, e.sp, w.f64, w.i32, w.i64, order, x.i32)
    else:
        kernels.write_left_diagonal(
            e.cconst, e.code, e.codeptr, e.cof, d1, size, msubi, msubj, mval, ncodeatom, e.nidxs, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
            result.nidxs, result.ptr, result.shape, result.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result, without_pattern=nelem == size)


def _diagonal_arguments(s: Stacks, e: Record, matrix: SparseMatrix):
    """(columns of E, entries, msubi, msubj, mval), once the products of E and matrix are known to be square."""
    rows, cols, mnnz, msubi, msubj, mval = sparse_matrix_arguments(matrix)
    extents = s.w.extents(e)
    if extents != (cols, rows):
        raise ValueError(f"the product of {rows} x {cols} and an array of shape {extents} has no diagonal")
    return rows, mnnz, msubi, msubj, mval


def _scaled_atoms(e: Record, ncodeatom: int, nnz: int) -> int:
    """The atoms of nnz terms of E with ncodeatom atoms, once they have been scaled: two more for each term."""
    return ncodeatom + 2 * nnz if e.ncodeatom else 0
