"""Operators that move elements: stacking records along an axis, repeating one along an axis, permuting its axes.

The terms of each element stay as they are and in their order.
"""

from __future__ import annotations

import math
from typing import Sequence

import numpy as np

import fragments_kernels as kernels
from .checks import count as checked_count
from .checks import integers
from .stacks import MOST_SLOTS, OperandTables, Record, Stacks, int32_array


def stack(s: Stacks, count: int, axis: int = 0) -> Record:
    """Replaces the last `count` records by one with their elements side by side along `axis`.

    They agree in all other extents. For arrays of nd axes, `axis` nd puts them side by side along a new last axis; a
    new axis elsewhere takes `permute` after that. The result is sparse if one of them is.
    """
    count, axis = checked_count(count, "the number of stacked arrays", 1), checked_count(axis, "an axis")
    w, r, x, operands = s.w, s.r, s.x, s.small_operands(count)
    first, t = operands[0], OperandTables.of(operands)
    extents = w.extents(first)
    # The kernel leaves out the number of axes of the operand whose own number is `axis`.
    agree = axis <= first.nd and all(e.nd == first.nd for e in operands)
    dense, bad = kernels.check_operands(
        not first.hassp, axis, t.hassp, not agree, count, first.nd, t.nd, first.shape, t.shape, w.i32)
    if bad:
        shapes = ", ".join(str(w.extents(e)) for e in operands)
        raise ValueError(f"arrays of the shapes {shapes} cannot be stacked along axis {axis}")

    r.check_counts(sum(e.nnz for e in operands), sum(e.ncodeatom for e in operands))
    if sum(math.prod(w.extents(e)) for e in operands) > MOST_SLOTS:
        raise ValueError(f"{count} arrays like the first, of shape {extents}, make one of 2^31 elements or more")
    extent = kernels.stacked_extent(axis, count, first.nd, 0, t.shape, w.i32)
    shape = (*extents[:axis], extent, *extents[axis + 1:])
    hascode, ncodeatom, nelem, nnz = kernels.measure_stack(count, t.ncodeatom, t.nelem, t.nnz, False, 0, 0, 0)
    result = r.reserve_record(len(shape), nelem, nnz, ncodeatom, hassp=not dense)
    kernels.push_extents(len(shape), r.i32, result.shape, int32_array(shape))
    d0 = kernels.leading_size_init_n_top_wi32(1, axis, first.shape, w.i32)
    d1s = int32_array([w.extents(e)[axis] if axis < e.nd else 1 for e in operands])
    d2 = kernels.trailing_size_init_dim_nd_top_wi32(1, axis, first.nd, first.shape, w.i32)

    if dense:
        kernels.write_dense_stack(
            t.cconst, t.code, t.codeptr, t.cof, d0, d1s, d2, count, t.ncodeatom, t.nidxs, hascode, t.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs, result.ptr,
            w.f64, w.i32, w.i64)
    elif axis == 0:
        kernels.write_first_axis_stack(
            t.cconst, t.code, t.codeptr, t.cof, t.hassp, count, t.ncodeatom, first.nd, t.nelem, t.nidxs, t.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, ncodeatom,
            result.nidxs, result.ptr, result.sp, t.shape, t.sp, w.f64, w.i32, w.i64)
    else:  # the elements of the operands interleave
        offset = np.zeros(count, dtype=np.int32)
        kernels.write_offsets(d1s, count, offset)
        buckets = kernels.largest_extent(0, r.i32, len(shape), result.shape) + 1
        opnum, key, _ = x.reserve(n32=4 * nelem + buckets, n64=nelem)
        elnum, order, other, bucket = (opnum + k * nelem for k in range(1, 5))
        kernels.write_stack_keys(
            d1s, d2, t.hassp, count, t.nelem, offset, extent, t.sp, opnum, elnum, key, w.i64, x.i32, x.i64)
        order, other = kernels.sort_stack_keys(
            order, r.i32, len(shape), nelem, result.shape, other, key, x.i32, x.i64, bucket)
        kernels.write_sorted_stack(
            t.cconst, t.code, t.codeptr, t.cof, order, t.ncodeatom, t.nidxs, hascode, t.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, hascode, nelem,
            result.nidxs, result.ptr, result.sp, opnum, elnum, key, w.f64, w.i32, w.i64, x.i32, x.i64)
    return s.finish(count, result)


def repeat(s: Stacks, count: int, axis: int = 0) -> Record:
    """Replaces an array by `count` copies of it side by side along one of its axes."""
    w, r, e = s.w, s.r, s.small_operands(1)[0]
    count, axis = checked_count(count, "the number of copies", 1), checked_count(axis, "an axis")
    if axis >= e.nd:
        raise ValueError(f"an array of shape {w.extents(e)} cannot be repeated {count} times along axis {axis}")
    if count * math.prod(w.extents(e)) > MOST_SLOTS:
        raise ValueError(f"{count} copies of an array of shape {w.extents(e)} make one of 2^31 elements or more")
    d0 = kernels.leading_size_init_n_top_wi32(1, axis, e.shape, w.i32)
    d1 = w.extents(e)[axis]
    d2 = kernels.trailing_size_init_dim_nd_top_wi32(1, axis, e.nd, e.shape, w.i32)
    result = r.reserve_record(e.nd, count * e.nelem, count * e.nnz, count * e.ncodeatom, hassp=e.hassp)
    kernels.repeat(
        e.cconst, e.code, e.codeptr, e.cof, d0, d1, d2, axis, e.hassp, count, e.ncodeatom, e.nd, e.nelem,
        e.nidxs, e.ptr, result.cconst, result.code, result.codeptr, result.cof, count * d1, r.f64, r.i32, r.i64,
        result.ncodeatom, result.nidxs, result.ptr, result.shape, result.sp, e.shape, e.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def permute(s: Stacks, axes: Sequence[int]) -> Record:
    """Replaces an array by the one whose axis d is its axis axes[d], for `axes` a permutation of all its axes."""
    w, r, e = s.w, s.r, s.small_operands(1)[0]
    axes = integers(axes, "axes").reshape(-1).tolist()
    if sorted(axes) != list(range(e.nd)):
        raise ValueError(f"{tuple(axes)} is not a permutation of the axes of an array of shape {w.extents(e)}")
    if e.nd < 2:
        return e
    dperm, strides = int32_array(axes), np.ones(e.nd, dtype=np.int64)
    kernels.write_operand_strides(e.nd, e.shape, strides, w.i32)
    result = r.reserve_record(e.nd, e.nelem, e.nnz, e.ncodeatom, hassp=e.hassp)
    kernels.write_permuted_shape(dperm, e.nd, r.i32, result.shape, e.shape, w.i32)
    if e.hassp:
        positions = np.zeros(e.nelem, dtype=np.int64)
        kernels.write_permuted_positions(
            dperm, e.sp, e.nd, e.nelem, r.i32, result.shape, positions, strides, w.i64)
        order = np.argsort(positions, kind="stable")  # sorting is left to the host layer
        kernels.write_permuted(
            e.cconst, e.code, 0, e.codeptr, e.cof, e.nidxs, e.ptr, 0, 0, e.ncodeatom, e.nelem, order,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            result.nidxs, result.ptr, result.sp, positions, w.f64, w.i32, w.i64)
    else:
        result_strides = np.ones(e.nd, dtype=np.int64)
        kernels.write_slice_strides(e.nd, int32_array(r.extents(result)), result_strides)
        kernels.write_dense_permuted(
            e.cconst, e.code, e.codeptr, dperm, result_strides, e.cof, e.nidxs, e.ptr, e.ncodeatom, e.nd, e.nelem,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs, result.ptr,
            strides, w.f64, w.i32, w.i64)
    return s.finish(1, result)
