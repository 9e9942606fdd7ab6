// One triangle of two axes of an expression: the elements with i1 >= i3, or with i1 <= i3, for every combination of the
// other axes. The result has the operand's shape and is sparse, its pattern being all positions of the triangle.
//
//     fold 547, 548, 549 and strides 550; measure 551, shape 552
//     write `rsp` 553 (lower) or 554 (upper), then the terms 555

#include "index/five_axis_fold.h"
#include "index/slots.h"
#include "stack/record.h"

namespace fragments {
namespace {

i32 write_triangle_positions(I32 dim, i32 k, Run<i64> sp, I32 stride, bool upper)
{
  for_each_run_in_triangle(dim, stride, upper, [&](Positions flat, Positions, i64 n) {
    const Run<i64> to = sp.from(k);
    for (i64 j = 0; j < n; ++j) to[j] = flat[j];
    k += static_cast<i32>(n);
  });
  return k;
}

}  // namespace

// Adds the atoms and terms of the triangle to `nc` and `nnz`.
KERNEL((551), (i32, i32), measure_triangle, i32 codeptr, I32 dim, bool hassp, i32 ncodeatom, i32 nelem, i32 ptr, i32 nc,
       i32 nnz, i32 sp, I32 stride, bool upper, I32 wi32, I64 wi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size triangle(operand, ncodeatom > 0, {.terms = nnz, .atoms = nc});
  if (!hassp) {
    for_each_run_in_triangle(dim, stride, upper, [&](Positions flat, Positions, i64 n) {
      if (flat.step == 1) {
        triangle.append(operand.terms(flat[0], flat[n]));
      } else {
        for (i64 k = 0; k < n; ++k) triangle.append(flat[k]);
      }
    });
  } else if (nelem > 0) {
    const Side outside = upper ? front : behind;
    for_each_stored_stretch(FoldStrides(stride), Run{wi64, sp}, nelem, [&](i64 b, i64 e, Side side) {
      if (side != outside) triangle.append(operand.terms(b, e));
    });
  }
  return {triangle.atoms, triangle.terms};
}

// The flat positions of the lower triangle, ascending, from slot k of `rsp` on; returns the k behind them.
KERNEL((553), (i32), write_lower_triangle_positions, I32 dim, i32 k, I64 ri64, i32 rsp, I32 stride)
{
  return write_triangle_positions(dim, k, Run{ri64, rsp}, stride, false);
}

// The same of the upper triangle.
KERNEL((554), (i32), write_upper_triangle_positions, I32 dim, i32 k, I64 ri64, i32 rsp, I32 stride)
{
  return write_triangle_positions(dim, k, Run{ri64, rsp}, stride, true);
}

// Writes the elements at the `count` positions in `rsp`, which ascend: the operand's terms there, none where a sparse
// operand stores nothing. Atoms are copied if `rhascode` is above 0. Cursors of the result: `c` atoms, `k` terms.
KERNEL((555), (i32, i32), write_triangle, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 count, bool hassp,
       i32 k, i32 nelem, i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, F64 wf64, I32 wi32, I64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  const Run pattern{wi64, sp};
  const Run<i64> positions = result.sp;
  with_constant(rhascode > 0, [&](auto hascode) {
    i64 f = 0;
    for (i32 i = 0; i < count;) {
      if (hassp) {
        const i64 position = positions[i];
        while (f < nelem && pattern[f] < position) ++f;
        if (f < nelem && pattern[f] == position) {
          result.append(operand, f, hascode);
        }
        result.close_element();
        ++i;
      } else {
        // Neighbours in the triangle are neighbours in the operand, and move as one run.
        const i64 b = positions[i];
        i64 e = b;
        do ++e, ++i;
        while (i < count && positions[i] == e);
        result.append_elements(operand, b, e, hascode);
      }
    }
  });
  return {result.atoms, result.terms};
}

}  // namespace fragments
