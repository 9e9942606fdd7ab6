// Slices: the box first[d] <= x[d] < last[d] of an operand's coordinates, in its order. A slice of a dense operand is
// dense, one of a sparse operand sparse.
//
//     strides of the operand 413 and, for a sparse one, of the result 416; measure 414; write 417
//
// For a dense operand with more than eight axes 414 and 417 allocate a table of the axes.
//
// - st (array; nd): the operand's strides, in elements, row-major
// - first (array; nd): where the box begins along each axis, inclusive
// - last (array; nd): where the box ends along each axis, exclusive
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far

#include "index/box.h"
#include "stack/record.h"

namespace fragments {
namespace {

using OperandBox = Box<Run<const i32>, CI64>;

}  // namespace

// The operand's row-major strides; the last, st[nd-1], is the caller's.
KERNEL((413), (), write_operand_strides, i32 nd, i32 shape, I64 st, CI32 wi32)
{
  row_major_strides(st, Run{wi32, shape}, nd);
}

// The result's row-major strides; the last, rst[nd-1], is the caller's.
KERNEL((416), (), write_slice_strides, i32 nd, CI32 rshape, I64 rst)
{
  row_major_strides(rst, rshape, nd);
}

// Measures a slice, on top of what comes in.
//
// - e (cursor): the elements of the result; for a dense operand the volume of the box, whatever comes in
KERNEL((414), (i32 c, i32 e, i32 k), measure_slice, i32 codeptr, CI32 first, bool hassp, CI32 last, i32 ncodeatom,
       i32 nd, i32 nelem, i32 ptr, i32 c, i32 e, i32 k, i32 shape, i32 sp, CI64 st, CI32 wi32, CI64 wi64)
{
  const OperandBox box{nd, {wi32, shape}, st, first, last};
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const Run pattern{wi64, sp};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});

  if (nelem <= 0 && hassp) return {size.atoms, size.elements, size.terms};
  if (hassp && nd > 0) {
    BoxFilter(box, false).for_each(pattern, nelem, [&](i64 begin, i64 end) {
      size.append(operand.terms(begin, end));
      size.elements += static_cast<i32>(end - begin);
    });
  } else {
    size.elements = hassp ? size.elements + nelem : 1;
    for (i64 d = 0; d < nd; ++d) size.elements = wrapping_mul(size.elements, wrapping_sub(last[d], first[d]));
    for_each_box_stretch(box, nelem, [&](i64 begin, i64 end) { size.append(operand.terms(begin, end)); });
  }
  return {size.atoms, size.elements, size.terms};
}

// Writes a slice. `rsp` and `rst` are used for a sparse operand alone. `rptr[0]` and `rcodeptr[0]` are the caller's.
KERNEL((417), (i32 c, i32 e, i32 k), write_slice, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, CI32 first,
       bool hassp, i32 e, i32 k, CI32 last, i32 nd, i32 nelem, i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rsp, CI64 rst, i32 shape, i32 sp,
       CI64 st, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const OperandBox box{nd, {wi32, shape}, st, first, last};
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const Run pattern{wi64, sp};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(rhascode > 0, [&](auto hascode) {
    if (hassp && nd > 0) {
      if (nelem <= 0) return;
      BoxFilter(box, true).for_each_with_place(
          pattern, nelem, [&](i64 place, i64 d, i64 x) { return place + x * rst[d]; },
          [&](i64 begin, i64 end, auto place) {
            for (i64 i = begin; i < end; ++i) {
              result.append(operand, i, hascode);
              result.close_element(place(i));
            }
          });
    } else {
      for_each_box_stretch(box, nelem, [&](i64 begin, i64 end) {
        if (hassp) result.sp[result.elements] = 0;  // without axes: the one element that there is
        result.append_elements(operand, begin, end, hascode);
      });
    }
  });
  return {result.atoms, result.elements, result.terms};
}

}  // namespace fragments
