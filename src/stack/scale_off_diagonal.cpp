// Scaling by a number of the elements off the diagonal of two axes, which are the sides of square matrices, one for
// every combination of the other axes. The record is copied to r first and then scaled there; its code, if it has any,
// is written anew with the factor's atoms, two a term.
//
//     dim0, dim2, dim4   products 542, 543, 544; dim1 and dim3, the sides, are extents
//     no code            copy 557, scale 545
//     code               copy all but the code 557, scale and write the code 546
//
// - nelem (count): the elements of a sparse record; not read for a dense one
// - sp (position in wi64; nelem): the flat positions of a sparse operand's elements, strictly ascending

#include "index/five_axis_fold.h"
#include "stack/record.h"

namespace fragments {
namespace {

// The stretches of all elements, by the pattern in a sparse record.
template <class Stretch>
void for_each_stretch(const FoldExtents& dim, bool hassp, Run<const i64> sp, i32 nelem, Stretch stretch)
{
  if (hassp) {
    i64 stride[5] = {0, 0, 0, 0, 1};
    row_major_strides(&stride[0], dim, 5);
    for_each_stored_stretch(FoldStrides(stride), sp, nelem, stretch);
  } else {
    for_each_stretch(dim, stretch);
  }
}

void scale(Run<f64> cof, Terms terms, f64 factor)
{
  for (i64 t = terms.begin; t < terms.end; ++t) cof[t] *= factor;
}

}  // namespace

// Multiplies the coefficients off the diagonal by `factor`, in place, in a record without code.
KERNEL((545), (), scale_off_diagonal, i64 dim0, i64 dim1, i64 dim2, i64 dim3, i64 dim4, bool hassp, i32 nelem, i32 rcof,
       F64 rf64, CI32 ri32, i32 rptr, f64 factor, i32 sp, CI64 wi64)
{
  const Run ptr{ri32, rptr};
  const Run cof{rf64, rcof};
  for_each_stretch({{dim0, dim1, dim2, dim3, dim4}}, hassp, Run{wi64, sp}, nelem, [&](i64 b, i64 e, DiagonalSide side) {
    if (side != on_diagonal && b < e) scale(cof, {ptr[b], ptr[e]}, factor);
  });
}

// Multiplies the coefficients off the diagonal by `factor`, in place, in a record with code, and writes the code of all
// terms from atom 0 on: their own atoms and (2, factor), (5). On the diagonal a term gets the two atoms (2, 1.0), (5)
// all the same; this is intended. `rcodeptr[0]` is the caller's.
KERNEL((546), (), scale_off_diagonal_with_code, i32 cconst, i32 code, i32 codeptr, i64 dim0, i64 dim1, i64 dim2,
       i64 dim3, i64 dim4, bool hassp, i32 nelem, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, f64 factor, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coded(ptr, codeptr, code, cconst);
  const ResultArrays r{ri32, {}, rf64};
  Writer result = r.code_writer(rcodeptr, rcode, rcconst);
  const Run cof{rf64, rcof};
  for_each_stretch({{dim0, dim1, dim2, dim3, dim4}}, hassp, Run{wi64, sp}, nelem, [&](i64 b, i64 e, DiagonalSide side) {
    if (b >= e) return;
    const Terms terms = operand.terms(b, e);
    if (side != on_diagonal) scale(cof, terms, factor);
    result.append_scaled_code(operand, terms, side == on_diagonal ? 1.0 : factor);
  });
}

}  // namespace fragments
