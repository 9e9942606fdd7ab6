"""Operators that treat two axes, a before b and of one extent, as the sides of square matrices.

The other axes number the matrices. The extents before a, between a and b and behind b are folded to one each: an array
of five axes, of which 1 and 3 are the sides.
"""

from __future__ import annotations

from typing import Tuple

import numpy as np

import fragments_kernels as kernels
from .checks import count, number
from .stacks import Record, Stacks, int32_array


def triangle(s: Stacks, a: int, b: int, upper: bool = False) -> Record:
    """Replaces an array by its lower (or upper) triangles, diagonals included: a sparse array of its shape."""
    w, r, e = s.w, s.r, s.small_operands(1)[0]
    dim, _ = _fold(s, e, a, b)
    stride = np.ones(5, dtype=np.int32)
    kernels.fold_strides(dim, stride)
    side = int(dim[1])
    nelem = int(dim[0]) * int(dim[2]) * int(dim[4]) * side * (side + 1) // 2
    ncodeatom, nnz = kernels.measure_triangle(
        e.codeptr, dim, e.hassp, e.ncodeatom, e.nelem, e.ptr, 0, 0, e.sp, stride, upper, w.i32, w.i64)
    result = r.reserve_record(e.nd, nelem, nnz, ncodeatom, hassp=True)
    kernels.copy_record_extents(e.nd, r.i32, result.shape, e.shape, w.i32)
    write_positions = kernels.write_upper_triangle_positions if upper else kernels.write_lower_triangle_positions
    write_positions(dim, 0, r.i64, result.sp, stride)
    kernels.write_triangle(
        e.cconst, e.code, 0, e.codeptr, e.cof, nelem, e.hassp, 0, e.nelem, e.nidxs, e.ptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
        result.nidxs, result.ptr, result.sp, e.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def scale_off_diagonal(s: Stacks, a: int, b: int, factor: float) -> Record:
    """Multiplies the elements off the diagonals by `factor`."""
    w, r, e = s.w, s.r, s.small_operands(1)[0]
    factor = number(factor, "a factor")
    dim, _ = _fold(s, e, a, b)
    ncodeatom = e.ncodeatom + 2 * e.nnz if e.ncodeatom else 0
    result = r.reserve_record(e.nd, e.nelem, e.nnz, ncodeatom, hassp=e.hassp)
    kernels.copy_record(  # without code, which is written anew
        e.cconst, e.code, e.codeptr, e.cof, e.hassp, 0, e.nd, e.nelem, e.nidxs, e.nnz, e.ptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
        result.nidxs, result.ptr, result.shape, result.sp, e.shape, e.sp, w.f64, w.i32, w.i64)
    if ncodeatom:
        kernels.scale_off_diagonal_with_code(
            e.cconst, e.code, e.codeptr, *dim.tolist(), e.hassp, e.nelem, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, factor, e.sp, w.f64, w.i32, w.i64)
    else:
        kernels.scale_off_diagonal(
            *dim.tolist(), e.hassp, e.nelem, result.cof, r.f64, r.i32, result.ptr, factor, e.sp, w.i64)
    return s.finish(1, result)


def symmetrise(s: Stacks, a: int, b: int) -> Record:
    """Replaces an array by the mean of itself and its transpose in the two axes."""
    w, r, x, e = s.w, s.r, s.x, s.small_operands(1)[0]
    dim, stride = _fold(s, e, a, b)
    nelem = e.nelem
    if e.hassp:
        order, key = _sort_by_mirror(s, e, dim, stride)
        ncodeatom, nnz = kernels.measure_sparse_mean(
            e.codeptr, e.ncodeatom, e.nelem, e.ptr, 0, 0, e.sp, stride, w.i32, w.i64)
        nelem = kernels.count_mean_elements(e.nelem, e.sp, 0, stride, w.i64, x.i64, key)
    else:
        ncodeatom, nnz = kernels.measure_dense_mean(0, dim, e.codeptr, e.ncodeatom, e.ptr, 0, stride, w.i32)
    result = r.reserve_record(e.nd, nelem, nnz, ncodeatom, hassp=e.hassp)
    kernels.copy_record_extents(e.nd, r.i32, result.shape, e.shape, w.i32)
    if e.hassp:
        kernels.write_sparse_mean(
            e.cconst, e.code, 0, e.codeptr, e.cof, 0, 0, 0, e.ncodeatom, e.nelem, e.nidxs, 0, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            result.nidxs, result.ptr, result.sp, e.sp, key, stride, w.f64, w.i32, w.i64, x.i32, x.i64, order)
    else:
        kernels.write_dense_mean(
            e.cconst, e.code, 0, e.codeptr, e.cof, 0, dim, 0, e.ncodeatom, e.nidxs, 0, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
            result.nidxs, result.ptr, stride, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def _sort_by_mirror(s: Stacks, e: Record, dim: np.ndarray, stride: np.ndarray) -> Tuple[int, int]:
    """Where the elements' mirror keys, ascending, and the permutation that sorts them stand on x.

    A mirror key is the position of an element in the transpose. The sorting kernel adds up no more buckets than the
    sides have; where another folded axis is longer, the keys are sorted here.
    """
    w, x, n, side = s.w, s.x, e.nelem, int(dim[3])
    order, key, _ = x.reserve(n32=2 * n + side + 1, n64=n)
    kernels.write_identity_permutation(order, n, x.i32)
    if max(dim[0], dim[2]) <= side:
        order, _ = kernels.sort_by_mirror(
            order, dim, n, int32_array((1, 2, 3, 0)), e.sp, stride, order + n, w.i64, x.i32, order + 2 * n)
    else:
        kernels.write_mirror_keys(key, n, order, stride, w.i64, x.i32, x.i64, e.sp)
        x.i32[order:order + n] = np.argsort(x.i64[key:key + n], kind="stable")
    kernels.write_mirror_keys(key, n, order, stride, w.i64, x.i32, x.i64, e.sp)
    return order, key


def _fold(s: Stacks, e: Record, a: int, b: int) -> Tuple[np.ndarray, np.ndarray]:
    """The five extents of the folded shape (int32) and their row-major strides (int64)."""
    w = s.w
    extents, a, b = w.extents(e), count(a, "an axis"), count(b, "an axis")
    if not a < b < e.nd or extents[a] != extents[b]:
        raise ValueError(f"axes {a} and {b} of an array of shape {extents} are not the sides of square matrices")
    dim, stride = int32_array((1, extents[a], 1, extents[b], 1)), np.ones(5, dtype=np.int64)
    kernels.fold_leading_dim_shape_wi32_n(dim, e.shape, w.i32, a)
    kernels.fold_inner_dim_shape_wi32_lo_hi(dim, e.shape, w.i32, a, b)
    kernels.fold_trailing_dim_hi_shape_wi32_lo(dim, e.nd, e.shape, w.i32, b)
    kernels.fold_strides64(dim, stride)
    return dim, stride
