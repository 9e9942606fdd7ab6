// Leaf expressions, pushed as records.
//
//     constant array         count the terms 401, extents 402, pattern 403, terms and `ptr` 404
//     constant matrix        492
//     variable               493
//     array of parameters    313
//
// The constant part of an element is a term on variable 0. A constant array leaves its zeros out.

#include <algorithm>

#include "index/slots.h"
#include "stack/record.h"

namespace fragments {

// Adds the number of nonzero entries of a constant array to n; NaN is one.
//
// - n (start): what the number is added to
KERNEL((401), (i32 n), count_nonzeros, CF64 bfix, i32 n)
{
  for (i64 k = 0; k < bfix.count; ++k) n += bfix[k] != 0.0;
  return n;
}

// Writes the terms and the `ptr` of a constant array of n elements. A zero, of either sign, leaves its element empty;
// NaN is a term. `rptr[0]` is the caller's.
//
// - k (cursor): the terms of the result so far
KERNEL((404), (i32 k), write_constants, CF64 bfix, i32 n, i32 k, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs,
       i32 rptr)
{
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, {.terms = k});
  // Up to the last term every value is written, and the next one lies over it if it is a zero: nothing branches on
  // what data decides, a third of the time where half are zeros.
  i64 end = n;
  while (end > 0 && bfix[end - 1] == 0.0) --end;
  for (i64 i = 0; i < end; ++i) {
    result.append_term(0, bfix[i]);
    result.terms -= bfix[i] == 0.0;
    result.close_element();
  }
  for (i64 i = end; i < n; ++i) result.close_element();
  return result.terms;
}

// Pushes a constant matrix as a record of one term an element.
//
// - n (count): the values of the matrix
// - mnnz (count): the elements; `ptr` and, with `hassp`, `sp` are written for so many
// - cvar (index): the variable of all terms
// - cof (position in f64; n): the coefficient of each term of the record
// - nidxs (position in i64; n): the variable of each term of the record
// - ptr (position in i32; mnnz + 1): where the terms of each element of the record begin
// - sp (position in i64; mnnz): the flat positions of the record's elements
KERNEL((492), (), push_matrix, i32 cof, F64 f64_arg, bool hassp, I32 i32_arg, I64 i64_arg, CF64 mcof, i32 mdimj,
       CI32 msubi, CI32 msubj, i32 mnnz, i32 nidxs, i32 n, i32 ptr, i32 sp, i64 cvar)
{
  copy_slots(Run{f64_arg, cof}, Run{mcof, 0}, n);
  fill_slots(Run{i64_arg, nidxs}, n, cvar);
  if (hassp) {
    const Run pattern{i64_arg, sp};
    for (i64 k = 0; k < mnnz; ++k) pattern[k] = msubj[k] + i64{mdimj} * msubi[k];
  }
  fill_multiples(Run{i32_arg, ptr}, 0, mnnz, 1);
}

// Pushes the shape, the `ptr` and the unit coefficients of a variable, one term an element. The caller copies its
// numbers.
//
// - n (count): the elements of the record
// - nnz (count): the terms of the record
// - ptr (position in i32; n + 1): where the terms of each element of the record begin
// - cof (position in f64; nnz): the coefficient of each term of the record
KERNEL((493), (), push_variable, i32 cof, F64 f64_arg, I32 i32_arg, i32 nd, i32 n, i32 nnz, i32 ptr, i32 rshape,
       CI32 shape)
{
  copy_slots(Run{i32_arg, rshape}, Run{shape, 0}, nd);
  fill_multiples(Run{i32_arg, ptr}, 0, n, 1);
  fill_slots(Run{f64_arg, cof}, nnz, 1.0);
}

// Pushes an array of parameters: one constant term an element, its coefficient 0 plus the parameter's value by one atom
// of code. `sp` is copied only with `hassp`. Of a record without elements there is no code: only its shape and
// `rptr[0]` are written, not `rcodeptr[0]`.
//
// - n (count): the elements
// - nidxs (array; n): the number of each element's parameter
KERNEL((313), (), push_parameters, bool hassp, i32 nd, i32 n, CI32 nidxs, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, CI32 shape, CI64 sp)
{
  copy_slots(Run{ri32, rshape}, Run{shape, 0}, nd);
  fill_multiples(Run{ri32, rptr}, 0, std::max(n, 0), 1);
  if (n <= 0) return;
  if (hassp) copy_slots(Run{ri64, rsp}, Run{sp, 0}, n);
  fill_slots(Run{ri64, rnidxs}, n, i64{0});
  fill_slots(Run{rf64, rcof}, n, 0.0);
  fill_multiples(Run{ri32, rcodeptr}, 0, n, 1);
  fill_slots(Run{ri32, rcode}, n, push_parameter);
  const Run operands{rf64, rcconst};
  for (i64 k = 0; k < n; ++k) operands[k] = nidxs[k];
}

}  // namespace fragments
