// The weighted sum of two expressions of one shape, R = c1*A + c2*B, the fields of A and B having the endings 1 and 2.
// Terms are not merged: a variable of both operands occurs twice, A's term first.
//
//     A dense,  B dense    write 504
//     A dense,  B sparse   write 506
//     A sparse, B sparse   count the elements 508, write 510
//
// Cursors of the result come in and go back: `nzi` terms, `elmi` elements, `codei` atoms. In a result with code
// (`rncodeatom` above 0) a term of an operand with code has its atoms and (2, c), (5); a term of an operand without has
// the one atom (2, 0.0).

#include "stack/merge.h"
#include "stack/record.h"

namespace fragments {
namespace {

// Appends the terms of element f times `weight`.
void add_element(Writer& result, const Operand& operand, i64 f, f64 weight, bool hascode)
{
  result.append_weighted(operand, operand.ptr[f], operand.ptr[f + 1], weight, hascode);
}

}  // namespace

// Both dense.
KERNEL((504), (i32, i32), write_dense_sum, i32 cconst1, i32 cconst2, i32 code1, i32 code2, i32 codei, i32 codeptr1,
       i32 codeptr2, i32 cof1, i32 cof2, i32 nzi, f64 c1, f64 c2, i32 ncodeatom1, i32 ncodeatom2, i32 nidxs1,
       i32 nidxs2, i32 ptr1, i32 ptr2, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64,
       i32 rncodeatom, i32 rnelem, i32 rnidxs, i32 rptr, F64 wf64, I32 wi32, I64 wi64)
{
  const Operand a{.ptr{wi32, ptr1},
                  .nidxs{wi64, nidxs1},
                  .cof{wf64, cof1},
                  .codeptr{wi32, codeptr1},
                  .code{wi32, code1},
                  .cconst{wf64, cconst1},
                  .hascode = ncodeatom1 > 0};
  const Operand b{.ptr{wi32, ptr2},
                  .nidxs{wi64, nidxs2},
                  .cof{wf64, cof2},
                  .codeptr{wi32, codeptr2},
                  .code{wi32, code2},
                  .cconst{wf64, cconst2},
                  .hascode = ncodeatom2 > 0};
  Writer result{.ptr{ri32, rptr},
                .nidxs{ri64, rnidxs},
                .cof{rf64, rcof},
                .codeptr{ri32, rcodeptr},
                .code{ri32, rcode},
                .cconst{rf64, rcconst},
                .terms = nzi,
                .atoms = codei};
  const bool hascode = rncodeatom > 0;
  for (i64 k = 0; k < rnelem; ++k) {
    add_element(result, a, k, c1, hascode);
    add_element(result, b, k, c2, hascode);
    result.close_element();
  }
  return {result.atoms, result.terms};
}

// A dense, B sparse: a dense result. `i2` is the cursor in B's elements; it comes back as the number of those met,
// which is below `nelem2` if B has elements behind A's last.
KERNEL((506), (i32, i32, i32, i32), write_dense_sparse_sum, i32 cconst1, i32 cconst2, i32 code1, i32 code2, i32 codei,
       i32 codeptr1, i32 codeptr2, i32 cof1, i32 cof2, i32 elmi, i32 i2, f64 c1, f64 c2, i32 ncodeatom1, i32 ncodeatom2,
       i32 nelem1, i32 nelem2, i32 nidxs1, i32 nidxs2, i32 nzi, i32 ptr1, i32 ptr2, i32 rcconst, i32 rcode,
       i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rncodeatom, i32 rnidxs, i32 rptr, i32 sp2, F64 wf64,
       I32 wi32, I64 wi64)
{
  const Operand a{.ptr{wi32, ptr1},
                  .nidxs{wi64, nidxs1},
                  .cof{wf64, cof1},
                  .codeptr{wi32, codeptr1},
                  .code{wi32, code1},
                  .cconst{wf64, cconst1},
                  .hascode = ncodeatom1 > 0};
  const Operand b{.ptr{wi32, ptr2},
                  .nidxs{wi64, nidxs2},
                  .cof{wf64, cof2},
                  .codeptr{wi32, codeptr2},
                  .code{wi32, code2},
                  .cconst{wf64, cconst2},
                  .hascode = ncodeatom2 > 0};
  Writer result{.ptr{ri32, rptr},
                .nidxs{ri64, rnidxs},
                .cof{rf64, rcof},
                .codeptr{ri32, rcodeptr},
                .code{ri32, rcode},
                .cconst{rf64, rcconst},
                .elements = elmi,
                .terms = nzi,
                .atoms = codei};
  const Run<i64> pattern{wi64, sp2};
  const bool hascode = rncodeatom > 0;
  for (i64 f = 0; f < nelem1; ++f) {
    add_element(result, a, f, c1, hascode);
    if (i2 < nelem2 && pattern[i2] == f) add_element(result, b, i2++, c2, hascode);
    result.close_element();
  }
  return {result.atoms, result.elements, i2, result.terms};
}

// acc plus the number of elements of the sum of two sparse operands: the union of their patterns.
KERNEL((508), (i32), count_union, i32 n1, i32 n2, i32 acc, i32 sp1, i32 sp2, I64 wi64)
{
  const Run<i64> pattern1{wi64, sp1}, pattern2{wi64, sp2};
  i32 i1 = 0, i2 = 0, common = 0;
  intersect(
      i1, n1, i2, n2, [&](i32 k) { return pattern1[k]; }, [&](i32 k) { return pattern2[k]; },
      [&](i32, i32) { ++common; });
  return acc + n1 + n2 - common;
}

// Both sparse: all of the sum, by a merge of the patterns. Cursors start at 0; sets `rptr[0]` and, in a result with
// code, `rcodeptr[0]`.
KERNEL((510), (), write_sparse_sum, i32 cconst1, i32 cconst2, i32 code1, i32 code2, i32 codeptr1, i32 codeptr2,
       i32 cof1, i32 cof2, f64 c1, f64 c2, i32 ncodeatom1, i32 ncodeatom2, i32 nelem1, i32 nelem2, i32 nidxs1,
       i32 nidxs2, i32 ptr1, i32 ptr2, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64,
       i32 rncodeatom, i32 rnidxs, i32 rptr, i32 rsp, i32 sp1, i32 sp2, F64 wf64, I32 wi32, I64 wi64)
{
  const Operand a{.ptr{wi32, ptr1},
                  .nidxs{wi64, nidxs1},
                  .cof{wf64, cof1},
                  .codeptr{wi32, codeptr1},
                  .code{wi32, code1},
                  .cconst{wf64, cconst1},
                  .hascode = ncodeatom1 > 0};
  const Operand b{.ptr{wi32, ptr2},
                  .nidxs{wi64, nidxs2},
                  .cof{wf64, cof2},
                  .codeptr{wi32, codeptr2},
                  .code{wi32, code2},
                  .cconst{wf64, cconst2},
                  .hascode = ncodeatom2 > 0};
  Writer result{.ptr{ri32, rptr},
                .sp{ri64, rsp},
                .nidxs{ri64, rnidxs},
                .cof{rf64, rcof},
                .codeptr{ri32, rcodeptr},
                .code{ri32, rcode},
                .cconst{rf64, rcconst}};
  const Run<i64> pattern1{wi64, sp1}, pattern2{wi64, sp2};
  const bool hascode = rncodeatom > 0;
  result.ptr[0] = 0;
  if (hascode) result.codeptr[0] = 0;

  i32 i1 = 0, i2 = 0;
  while (i1 < nelem1 || i2 < nelem2) {
    const bool from_a = i1 < nelem1 && (i2 >= nelem2 || pattern1[i1] <= pattern2[i2]);
    const bool from_b = i2 < nelem2 && (i1 >= nelem1 || pattern2[i2] <= pattern1[i1]);
    const i64 flat = from_a ? pattern1[i1] : pattern2[i2];
    if (from_a) add_element(result, a, i1++, c1, hascode);
    if (from_b) add_element(result, b, i2++, c2, hascode);
    result.close_element(flat);
  }
}

}  // namespace fragments
