// The weighted sum of two expressions of one shape, R = c1*A + c2*B, the fields of A and B having the endings 1 and 2.
// Terms are not merged: a variable of both operands occurs twice, A's term first.
//
//     A dense,  B dense    shape 503, write 504
//     A dense,  B sparse   shape 505, write 506
//     A sparse, B sparse   count the elements 508, shape 509, write 510
//
// In a result with code a term of an operand with code has its atoms and (2, c), (5), c being the operand's factor; a
// term of an operand without has the one atom (2, 0.0). The result has as many terms as both operands together.
//
// - rncodeatom (size): atoms of the result; above 0 it has code

#include <algorithm>

#include "index/merge.h"
#include "stack/record.h"

namespace fragments {
namespace {

// Calls body(add_element), where add_element(operand, f, weight) appends the terms of element f times `weight`. In a
// sum without any code it has no trace of it.
template <class Body>
void with_adder(Writer& result, const Operand& a, const Operand& b, bool hascode, Body body)
{
  with_constant(hascode || a.hascode || b.hascode, [&](auto anycode) {
    body([&](const Operand& operand, i64 f, f64 weight) {
      if (anycode) {
        result.append_weighted(operand, f, weight, hascode);
      } else {
        result.append_scaled(operand, f, weight, anycode);
      }
    });
  });
}

// Appends the elements b .. e-1 times `weight` to a result without code, as one run of terms.
void append_scaled_elements(Writer& result, const Operand& from, i64 b, i64 e, f64 weight)
{
  result.append_ends(from.ptr, b, e);
  result.append_scaled(from, from.terms(b, e), weight, std::false_type{});
}

}  // namespace

// Writes the sum c1*A + c2*B of two dense operands, a dense result, from element 0 on. `rptr[0]` and `rcodeptr[0]` are
// the caller's.
//
// - rnelem (count): the elements of each operand and of the result
KERNEL((504), (i32 codei, i32 nzi), write_dense_sum, i32 cconst1, i32 cconst2, i32 code1, i32 code2, i32 codei,
       i32 codeptr1, i32 codeptr2, i32 cof1, i32 cof2, i32 nzi, f64 c1, f64 c2, i32 ncodeatom1, i32 ncodeatom2,
       i32 nidxs1, i32 nidxs2, i32 ptr1, i32 ptr2, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rncodeatom, i32 rnelem, i32 rnidxs, i32 rptr, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand a = w.operand(ptr1, nidxs1, cof1, codeptr1, code1, cconst1, ncodeatom1 > 0);
  const Operand b = w.operand(ptr2, nidxs2, cof2, codeptr2, code2, cconst2, ncodeatom2 > 0);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = nzi, .atoms = codei});
  with_adder(result, a, b, rncodeatom > 0, [&](auto add_element) {
    for (i64 k = 0; k < rnelem; ++k) {
      add_element(a, k, c1);
      add_element(b, k, c2);
      result.close_element();
    }
  });
  return {result.atoms, result.terms};
}

// Writes the sum c1*A + c2*B of dense A and sparse B, a dense result: an element for each of A's, whose flat positions
// run from 0 on, with the terms of B's element at this position, if there is one, behind A's. `rptr[0]` and
// `rcodeptr[0]` are the caller's.
//
// - i2 (cursor): the next element of B; comes back below `nelem2` if B has elements behind A's last
KERNEL((506), (i32 codei, i32 elmi, i32 i2, i32 nzi), write_dense_sparse_sum, i32 cconst1, i32 cconst2, i32 code1,
       i32 code2, i32 codei, i32 codeptr1, i32 codeptr2, i32 cof1, i32 cof2, i32 elmi, i32 i2, f64 c1, f64 c2,
       i32 ncodeatom1, i32 ncodeatom2, i32 nelem1, i32 nelem2, i32 nidxs1, i32 nidxs2, i32 nzi, i32 ptr1, i32 ptr2,
       i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rncodeatom, i32 rnidxs,
       i32 rptr, i32 sp2, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand a = w.operand(ptr1, nidxs1, cof1, codeptr1, code1, cconst1, ncodeatom1 > 0);
  const Operand b = w.operand(ptr2, nidxs2, cof2, codeptr2, code2, cconst2, ncodeatom2 > 0);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = elmi, .terms = nzi, .atoms = codei});
  const Run pattern{wi64, sp2};
  const bool anycode = rncodeatom > 0 || a.hascode || b.hascode;
  constexpr i64 worth_a_run = 4;
  with_adder(result, a, b, rncodeatom > 0, [&](auto add_element) {
    for (i64 f = 0; f < nelem1; ++f) {
      // Up to B's next element.
      const i64 next = i2 < nelem2 && pattern[i2] >= f ? std::min<i64>(pattern[i2], nelem1) : nelem1;
      if (!anycode && next - f >= worth_a_run) {
        append_scaled_elements(result, a, f, next, c1);
        f = next;
      } else {
        for (; f < next; ++f) {
          add_element(a, f, c1);
          result.close_element();
        }
      }
      if (f == nelem1) break;
      add_element(a, f, c1);
      add_element(b, i2++, c2);
      result.close_element();
    }
  });
  return {result.atoms, result.elements, i2, result.terms};
}

// Counts the elements of the sum of two sparse operands, the union of their patterns, and adds them to `acc`.
//
// - n1 (count): the stored elements of the first operand
// - n2 (count): the stored elements of the second operand
KERNEL((508), (i32 acc), count_union, i32 n1, i32 n2, i32 acc, i32 sp1, i32 sp2, CI64 wi64)
{
  const Run pattern1{wi64, sp1}, pattern2{wi64, sp2};
  return acc + union_size(
                   n1, n2, [&](i32 k) { return pattern1[k]; }, [&](i32 k) { return pattern2[k]; });
}

// Writes the sum c1*A + c2*B of two sparse operands, a sparse result, from its first element on: an element for each
// flat position in either pattern, with A's terms in front of B's where it is in both. Sets `rptr[0]` and, in a result
// with code, `rcodeptr[0]`.
KERNEL((510), (), write_sparse_sum, i32 cconst1, i32 cconst2, i32 code1, i32 code2, i32 codeptr1, i32 codeptr2,
       i32 cof1, i32 cof2, f64 c1, f64 c2, i32 ncodeatom1, i32 ncodeatom2, i32 nelem1, i32 nelem2, i32 nidxs1,
       i32 nidxs2, i32 ptr1, i32 ptr2, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64,
       i32 rncodeatom, i32 rnidxs, i32 rptr, i32 rsp, i32 sp1, i32 sp2, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand a = w.operand(ptr1, nidxs1, cof1, codeptr1, code1, cconst1, ncodeatom1 > 0);
  const Operand b = w.operand(ptr2, nidxs2, cof2, codeptr2, code2, cconst2, ncodeatom2 > 0);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  const Run pattern1{wi64, sp1}, pattern2{wi64, sp2};
  result.ptr[0] = 0;
  if (rncodeatom > 0) result.codeptr[0] = 0;
  with_adder(result, a, b, rncodeatom > 0, [&](auto add_element) {
    i32 i1 = 0, i2 = 0;
    unite(
        i1, nelem1, i2, nelem2, [&](i32 k) { return pattern1[k]; }, [&](i32 k) { return pattern2[k]; },
        [&](i64 flat, bool in_a, bool in_b) {
          if (in_a) add_element(a, i1, c1);
          if (in_b) add_element(b, i2, c2);
          result.close_element(flat);
        });
  });
}

}  // namespace fragments
