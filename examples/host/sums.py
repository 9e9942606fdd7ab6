"""Sums: of an array along one axis, of many arrays with weights, of terms on the same variable."""

from __future__ import annotations

from dataclasses import replace
from typing import Sequence

import numpy as np

import fragments_kernels as kernels
from .checks import count, floats
from .operators import add
from .stacks import OperandTables, Record, Stacks


def sum_axis(s: Stacks, axis: int) -> Record:
    """Replaces an array by its sum along one axis, which the result no longer has."""
    w, r, x, e = s.w, s.r, s.x, s.small_operands(1)[0]
    axis = count(axis, "an axis")
    if axis >= e.nd:
        raise ValueError(f"an array of shape {w.extents(e)} has no axis {axis} to sum along")
    outer = kernels.leading_size_init_n_top_wi32(1, axis, e.shape, w.i32)
    extent = w.extents(e)[axis]
    inner = kernels.trailing_size_init_dim_nd_top_wi32(1, axis, e.nd, e.shape, w.i32)

    nelem, order = outer * inner, 0
    if e.hassp:
        buckets = kernels.greatest_extent(0, e.nd, e.shape, w.i32) + 1
        bucket, _, _ = x.reserve(n32=buckets + 2 * e.nelem)
        order = bucket + buckets
        kernels.write_identity_permutation(order, e.nelem, x.i32)
        order, _ = kernels.sort_by_group(
            axis, e.nd, e.nelem, bucket, e.sp, order, order + e.nelem, e.shape, w.i32, w.i64, x.i32)
        _, _, nelem = kernels.count_groups(
            extent * inner, inner, e.nelem, 0, -1, -1, outer, order, e.sp, w.i64, x.i32)
    result = r.reserve_record(e.nd - 1, nelem, e.nnz, e.ncodeatom, hassp=e.hassp)
    kernels.copy_record_extents(axis, r.i32, result.shape, e.shape, w.i32)
    kernels.copy_extents_behind_axis(axis, e.nd, r.i32, result.shape, e.shape, w.i32)
    if e.hassp:
        kernels.write_sparse_sum_along_axis(
            e.cconst, e.code, 0, e.codeptr, e.cof, 0, 0, extent * inner, inner, e.ncodeatom, e.nelem, e.nidxs, 0, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            result.nidxs, result.ptr, result.sp, outer, order, e.sp, w.f64, w.i32, w.i64, x.i32)
    else:
        kernels.write_dense_sum_along_axis(
            e.cconst, e.code, e.codeptr, e.cof, extent, extent * inner, inner, inner, e.ncodeatom, e.nidxs, outer,
            e.ptr, result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            0, 0, result.nidxs, 0, result.ptr, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def weighted_sum(s: Stacks, weights: Sequence[float]) -> Record:
    """Replaces the last len(weights) records, of one shape, by their weighted sum; it is sparse if all of them are.

    In a dense sum with code the kernels make room for one term only in each element of a sparse operand without code.
    Where such an operand has elements of more terms or none, the operands are added two at a time instead.
    """
    values = floats(weights, "the weights of a sum").reshape(-1)
    n = len(values)
    if n < 1:
        raise ValueError("a weighted sum needs one weight at least")
    w, r, operands = s.w, s.r, s.operands(n)
    t = OperandTables.of(operands)
    if not kernels.have_equal_shapes(n, t.nd, True, t.shape, w.i32):
        raise ValueError(f"arrays of the shapes {', '.join(str(w.extents(e)) for e in operands)} cannot be added")
    hascode = kernels.has_code(False, n, t.ncodeatom)
    r.check_counts(sum(e.nnz for e in operands), sum(e.ncodeatom + 2 * e.nnz for e in operands) * hascode)
    sparse = all(e.hassp for e in operands)
    nelem = next((e.nelem for e in operands if not e.hassp), 0)
    if sparse:
        ncodeatom, nelem, nnz = kernels.measure_sparse_sum_of_operands(
            hascode, n, t.ncodeatom, t.nelem, t.nnz, 0, 0, 0, t.sp, w.i64)
    else:
        if hascode and not all(_has_atom_room(s, e) for e in operands):
            return _sum_by_twos(s, values)
        ncodeatom, nnz = kernels.measure_dense_sum_of_operands(hascode, n, t.ncodeatom, t.nnz, 0, 0)
    result = r.reserve_record(operands[0].nd, nelem, nnz, ncodeatom, hassp=sparse)
    kernels.copy_first_extents(t.nd, r.i32, result.shape, t.shape, w.i32)
    if sparse:
        kernels.write_sparse_sum_of_operands(
            hascode, t.cconst, t.code, t.codeptr, t.cof, n, t.ncodeatom, t.nelem, t.nidxs, t.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64,
            result.nidxs, result.ptr, result.sp, t.sp, values, w.f64, w.i32, w.i64)
    else:
        _write_dense_sum_of_operands(s, operands, t, values, result, hascode)
    return s.finish(n, result)


def _has_atom_room(s: Stacks, e: Record) -> bool:
    """Whether an operand of a dense sum with code has as many terms in each element as it gets atoms for."""
    return e.ncodeatom > 0 or not e.hassp or bool(np.all(np.diff(s.w.i32[e.ptr:e.ptr + e.nelem + 1]) == 1))


def _sum_by_twos(s: Stacks, weights: np.ndarray) -> Record:
    """Replaces the last len(weights) records by their weighted sum, adding two at a time, the last ones first."""
    record = add(s, *weights[-2:])  # a sum of one operand always has room
    for weight in weights[-3::-1]:
        record = add(s, weight, 1.0)
    return record


def _write_dense_sum_of_operands(
        s: Stacks, operands: Sequence[Record], t: OperandTables, weights: np.ndarray, result: Record,
        hascode: bool) -> None:
    """Counts the terms and atoms of every element, adds them up to cursors, and writes one operand after the other."""
    w, r, x, n = s.w, s.r, s.x, result.nelem
    atoms, _, _ = x.reserve(n32=n + 1)
    kernels.zero_ptr_on_r(r.i32, n, result.ptr)
    kernels.zero_ptr_on_x(hascode, n, atoms, x.i32)
    for k, e in enumerate(operands):
        if e.hassp:
            kernels.count_sparse_operand(
                hascode, t.codeptr, k, t.ncodeatom, t.nelem, t.ptr, r.i32, result.ptr, t.sp, w.i32, w.i64,
                atoms, x.i32)
        else:
            kernels.count_dense_operand(
                hascode, t.codeptr, k, t.ncodeatom, t.nelem, t.ptr, r.i32, result.ptr, w.i32, atoms, x.i32)
    kernels.add_up_ptr_on_r(r.i32, n, result.ptr)
    kernels.add_up_ptr_on_x(hascode, n, atoms, x.i32)
    for k, e in enumerate(operands):
        source = (hascode, t.cconst, t.code, t.codeptr, t.cof, k, t.ncodeatom, t.nelem, t.nidxs, t.ptr,
                  result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs, result.ptr)
        if e.hassp:
            kernels.write_sparse_operand(*source, t.sp, weights, w.f64, w.i32, w.i64, atoms, x.i32)
        else:
            kernels.write_dense_operand(*source, weights, w.f64, w.i32, w.i64, atoms, x.i32)
    kernels.shift_ptr_up(r.i32, n, result.ptr)
    r.i32[result.ptr] = 0


def merge_terms(s: Stacks) -> Record:
    """Adds up the terms of each element on the same variable, and sorts its terms by variable.

    Without code, terms that add up to nothing but zeros are left out; their elements stay. A record in which variables
    ascend already stays as it is. Code is joined, not evaluated: a constant of code stays an atom.
    """
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    if kernels.are_variables_ascending(True, e.nelem, e.nidxs, e.ptr, w.i32, w.i64):
        return e
    longest = kernels.longest_element(0, e.nelem, e.ptr, w.i32)
    order, _, _ = x.reserve(n32=e.nnz + longest + 1)
    kernels.sort_terms(e.nelem, e.nidxs, order, e.ptr, w.i32, w.i64, order + e.nnz, x.i32)
    nnz, _ = kernels.measure_merged_terms(
        e.cof, e.ncodeatom, e.nelem, e.nidxs, order, e.ptr, 0, 0, w.f64, w.i32, w.i64, x.i32)
    # Each term that is merged into another costs one more atom at most; the kernel tells how many there are.
    most = e.ncodeatom + e.nnz - nnz if e.ncodeatom else 0
    result = r.reserve_record(e.nd, e.nelem, nnz, most, hassp=e.hassp)
    kernels.copy_record_extents(e.nd, r.i32, result.shape, e.shape, w.i32)
    kernels.copy_pattern(e.hassp, e.nelem, r.i64, result.sp, e.sp, w.i64)
    ncodeatom, _ = kernels.write_merged_terms(
        e.cconst, e.code, 0, e.codeptr, e.cof, e.ncodeatom, e.nelem, e.nidxs, 0, order, e.ptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, most,
        result.nidxs, result.ptr, w.f64, w.i32, w.i64, x.i32)
    return s.finish(1, replace(result, ncodeatom=ncodeatom))
