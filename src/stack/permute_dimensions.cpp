// Transposition: axis d of the result is axis dperm[d] of the operand. Elements move with their terms, which keep their
// order inside an element.
//
//     shape            418
//     dense operand    write 421, or 423 for two axes
//     sparse operand   flat positions in the result 419, which the caller sorts into `perm`, write 420; or, for two
//                      axes, all of it 422
//
// - from (position in wi64; nelem): the flat positions of the operand's stored elements
// - sp (array; nelem): the flat position in the result of each stored element of the operand
// - rows, cols (extent): the rows and columns of the operand

#include "index/counting_sort.h"
#include "index/divisor.h"
#include "index/pattern_runs.h"
#include "stack/record.h"

namespace fragments {

// Writes the extents of the result: extent d is extent dperm[d] of the operand.
KERNEL((418), (), write_permuted_shape, CI32 dperm, i32 nd, I32 ri32, i32 rshape, i32 shape, CI32 wi32)
{
  const Run extents{wi32, shape};
  const Run rextents{ri32, rshape};
  for (i64 d = 0; d < nd; ++d) rextents[d] = extents[dperm[d]];
}

// Computes the flat position in the result of each stored element, into `sp`. A record without axes has the one
// position 0. Along the last axis of the operand positions in the result are one step apart: divided is where a row
// begins, or always if rows are too short for a branch on that. Allocates `nd` axes.
//
// - stride (array; nd): the row-major strides of the operand
KERNEL((419), (), write_permuted_positions, CI32 dperm, i32 from, i32 nd, i32 nelem, CI32 ri32, i32 rshape, I64 sp,
       CI64 stride, CI64 wi64)
{
  const Run pattern{wi64, from};
  const Run rextents{ri32, rshape};
  if (nelem <= 0) return;
  if (nd <= 0) {
    for (i64 i = 0; i < nelem; ++i) sp[i] = 0;
    return;
  }
  // The steps along an axis of the operand, there and in the result.
  struct Axis {
    Divisor stride;
    i64 step;
  };
  const Scratch<Axis> axes{nd};
  for (i64 d = 0; d < nd; ++d) axes[d] = {Divisor(divisor("stride", stride[d])), 0};
  i64 step = 1;
  for (i64 d = nd - 1; d >= 0; --d) {
    axes[dperm[d]].step = wrapping_add(axes[dperm[d]].step, step);
    step = wrapping_mul<i64>(step, rextents[d]);
  }
  const Axis last = axes[nd - 1];
  constexpr i64 worth_a_branch = 8;
  bool are_rows_kept = nd > 1 && stride[nd - 2] >= worth_a_branch;
  for (i64 d = 2; d < nd; ++d) are_rows_kept &= stride[d - 2] % stride[d - 1] == 0;  // else rows cross periods
  const i64 row_length = are_rows_kept ? stride[nd - 2] : 0;
  i64 row = 0, row_place = 0;
  for (i64 i = 0; i < nelem; ++i) {
    const i64 flat = pattern[i];
    if (flat < row || flat - row >= row_length) {
      i64 rest = flat;
      row_place = 0;
      for (i64 d = 0; d < nd - 1; ++d) {
        const auto [quotient, remainder] = axes[d].stride.divide(rest);
        row_place = wrapping_add(row_place, wrapping_mul(quotient, axes[d].step));
        rest = remainder;
      }
      row = flat - rest;
    }
    const i64 x = last.stride.value() == 1 ? flat - row : last.stride.quotient(flat - row);
    sp[i] = wrapping_add(row_place, wrapping_mul(x, last.step));
  }
}

// Writes the elements of a sparse operand in the order of `perm`, with their flat positions from `sp`; stretches of
// neighbours move as one run of terms. `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - perm (array; nelem): the numbers of the operand's elements, ascending by `sp`
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far
KERNEL((420), (i32 c, i32 e, i32 k), write_permuted, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 nidxs,
       i32 ptr, i32 e, i32 k, i32 ncodeatom, i32 nelem, CI64 perm, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CI64 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for_each_neighbour_run(perm, 0, nelem, [&](i64 first, i64 last) {
      copy_run(result.sp.from(result.elements), Run{sp, first}, last - first);
      result.append_elements(operand, first, last, hascode);
    });
  });
  return {result.atoms, result.elements, result.terms};
}

// Writes the transpose of a dense record of any number of axes. Axes at the end that stay where they are make a block
// that moves as one run. The two axes before it are walked by steps, and the coordinates on all others divided once for
// each pair of them. Sets `rptr[0]` and, with code, `rcodeptr[0]`.
//
// - nelem (count): the elements of the record
// - stride (array; nd): the row-major strides of the operand
// - dstride (array; nd): the row-major strides of the result
KERNEL((421), (), write_dense_permuted, i32 cconst, i32 code, i32 codeptr, CI32 dperm, CI64 dstride, i32 cof, i32 nidxs,
       i32 ptr, i32 ncodeatom, i32 nd, i32 nelem, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rnidxs, i32 rptr, CI64 stride, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (ncodeatom > 0) result.codeptr[0] = 0;
  if (nelem <= 0) return;

  i64 last = nd - 1;
  while (last >= 0 && dperm[last] == last) --last;
  // Elements of the result in one step on the axis d, and the way of that step in the operand.
  const auto size = [&](i64 d) { return d >= 0 ? dstride[d] : nelem; };
  const auto step = [&](i64 d) { return d >= 0 ? stride[dperm[d]] : 0; };
  const i64 block = size(last), row = size(last - 1), plane = size(last - 2);
  const i64 block_step = step(last), row_step = step(last - 1);
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 f = 0; f < nelem; f += plane) {
      i64 plane_source = 0, rest = f;
      for (i64 d = 0; d < last - 1; ++d) {
        plane_source += rest / divisor("dstride", dstride[d]) * step(d);
        rest %= dstride[d];
      }
      for (i64 a = 0; a < plane; a += row, plane_source += row_step) {
        i64 source = plane_source;
        if (block == 1) {
          for (i64 b = 0; b < row; ++b, source += block_step) {
            result.append(operand, source, hascode);
            result.close_element();
          }
        } else {
          for (i64 b = 0; b < row; b += block, source += block_step) {
            result.append_elements(operand, source, source + block, hascode);
          }
        }
      }
    }
  });
}

// Writes the transpose of a sparse matrix: sorts its elements by column into `perm`, by counting, and writes them in
// that order. Sets `rptr[0]`; `rcodeptr[0]` is the caller's.
//
// - perm (position in xi32; nelem): the numbers of the elements, by column
// - bucket (position in xi32; cols + 1): the buckets of the sort
KERNEL((422), (), write_sparse_transpose, i32 cconst, i32 code, i32 codeptr, i32 rows, i32 cols, i32 cof, i32 nidxs,
       i32 ptr, i32 from, i32 ncodeatom, i32 nelem, i32 perm, i32 bucket, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CF64 wf64, CI32 wi32, CI64 wi64, I32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  const Run pattern{wi64, from};
  const Run buckets{xi32, bucket}, sorted{xi32, perm};
  const Divisor columns{cols};
  const auto column_of = [&](i64 i) { return columns.remainder(pattern[i]); };
  clear_buckets(buckets, cols);
  count_buckets(buckets, nelem, column_of);
  add_up(buckets, cols);
  place_items(buckets, sorted, nelem, column_of);

  result.ptr[0] = 0;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 i = 0; i < nelem; ++i) {
      const i64 source = sorted[i];
      const auto [row, column] = columns.divide(pattern[source]);
      result.append(operand, source, hascode);
      result.close_element(rows * column + row);
    }
  });
}

// Writes the transpose of a dense matrix; a single column moves as one run. Sets `rptr[0]`; `rcodeptr[0]` is the
// caller's.
KERNEL((423), (), write_dense_transpose, i32 cconst, i32 code, i32 codeptr, i32 cols, i32 rows, i32 cof, i32 nidxs,
       i32 ptr, i32 ncodeatom, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs,
       i32 rptr, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    if (cols == 1) {
      result.append_elements(operand, 0, rows, hascode);
      return;
    }
    for (i64 a = 0; a < cols; ++a) {
      for (i64 b = 0; b < rows; ++b) {
        const i64 source = cols * b + a;
        result.append(operand, source, hascode);
        result.close_element();
      }
    }
  });
}

}  // namespace fragments
