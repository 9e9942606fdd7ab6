// One triangle of two axes of an expression: the elements with i1 >= i3, the lower one, or with i1 <= i3, the upper
// one, for every combination of the other axes. i1 and i3 are the coordinates along the two axes, the sides of a square
// matrix. The result has the operand's shape and is sparse, its pattern being all positions of the triangle.
//
//     fold 547, 548, 549 and strides 550; measure 551, shape 552
//     write `rsp` 553 (lower) or 554 (upper), then the terms 555
//
// The five-axis fold multiplies into `dim`, which the caller presets to 1 but for the sides, dim[1] and dim[3]. The
// result has dim[0] * dim[2] * dim[4] times side * (side + 1) / 2 elements.

#include "index/five_axis_fold.h"
#include "index/pattern_runs.h"
#include "index/slots.h"
#include "stack/record.h"

namespace fragments {
namespace {

i32 write_triangle_positions(CI32 dim, i32 k, Run<i64> sp, CI32 stride, bool upper)
{
  for_each_row_in_triangle(dim, stride, upper, [&](Positions flat, i64 n) {
    fill_progression(sp.from(k), n, flat.first, flat.step);
    k += static_cast<i32>(n);
  });
  return k;
}

}  // namespace

// Measures a triangle: adds the atoms and terms of the operand's elements in it to `nc` and `nnz`.
//
// - nelem (count): the stored elements of a sparse operand; not read for a dense one
// - nnz (cursor): the terms of the result
KERNEL((551), (i32 nc, i32 nnz), measure_triangle, i32 codeptr, CI32 dim, bool hassp, i32 ncodeatom, i32 nelem, i32 ptr,
       i32 nc, i32 nnz, i32 sp, CI32 stride, bool upper, CI32 wi32, CI64 wi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size triangle(operand, ncodeatom > 0, {.terms = nnz, .atoms = nc});
  if (!hassp) {
    for_each_row_in_triangle(dim, stride, upper, [&](Positions flat, i64 n) {
      if (flat.step == 1) {
        triangle.append(operand.terms(flat[0], flat[n]));
      } else {
        for (i64 k = 0; k < n; ++k) triangle.append(flat[k]);
      }
    });
  } else if (nelem > 0) {
    const DiagonalSide outside = upper ? before_diagonal : behind_diagonal;
    for_each_stored_stretch(FoldStrides(stride), Run{wi64, sp}, nelem, [&](i64 b, i64 e, DiagonalSide side) {
      if (side != outside) triangle.append(operand.terms(b, e));
    });
  }
  return {triangle.atoms, triangle.terms};
}

// Writes the flat positions of the lower triangle, ascending, from slot k of `rsp` on.
//
// - k (cursor): the elements of the result so far
KERNEL((553), (i32 k), write_lower_triangle_positions, CI32 dim, i32 k, I64 ri64, i32 rsp, CI32 stride)
{
  return write_triangle_positions(dim, k, Run{ri64, rsp}, stride, false);
}

// Writes the flat positions of the upper triangle, ascending, from slot k of `rsp` on.
//
// - k (cursor): the elements of the result so far
KERNEL((554), (i32 k), write_upper_triangle_positions, CI32 dim, i32 k, I64 ri64, i32 rsp, CI32 stride)
{
  return write_triangle_positions(dim, k, Run{ri64, rsp}, stride, true);
}

// Writes the elements at the positions that 553 or 554 has put into `rsp`, from element 0 on: the operand's terms
// there, none where a sparse operand stores nothing. `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - count (count): the elements of the result
// - nelem (count): the stored elements of a sparse operand; not read for a dense one
// - rhascode (flag): above 0 if the operand has code, which is copied then
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far
KERNEL((555), (i32 c, i32 k), write_triangle, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 count, bool hassp,
       i32 k, i32 nelem, i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  const Run pattern{wi64, sp};
  const Run<i64> positions = result.sp;
  with_constant(rhascode > 0, [&](auto hascode) {
    if (!hassp) {
      // Neighbours in the triangle are neighbours in the operand, and move as one run.
      for_each_neighbour_run(positions, 0, count,
                             [&](i64 b, i64 e) { result.append_elements(operand, b, e, hascode); });
      return;
    }
    i64 f = 0;
    for (i64 i = 0; i < count; ++i) {
      const i64 position = positions[i];
      while (f < nelem && pattern[f] < position) ++f;
      if (f < nelem && pattern[f] == position) result.append(operand, f, hascode);
      result.close_element();
    }
  });
  return {result.atoms, result.terms};
}

}  // namespace fragments
