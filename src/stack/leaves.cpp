// Leaf expressions, pushed as records: constant arrays, constant matrices, plain variables and arrays of parameters.
// Extents and patterns are pushed by the copies of slots.cpp.
//
// The constant part of an element is a term on variable 0. A constant array leaves its zeros out: 401 counts its terms,
// 404 writes them.

#include <algorithm>

#include "index/slots.h"
#include "stack/constant_matrix.h"
#include "stack/record.h"

namespace fragments {

// n plus the number of nonzero entries; NaN is one.
KERNEL((401), (i32), count_nonzeros, CF64 bfix, i32 n)
{
  for (i64 k = 0; k < bfix.count; ++k) n += bfix[k] != 0.0;
  return n;
}

// The terms and the `ptr` of a constant array of n elements; `k` terms are there already. A zero, of either sign,
// leaves its element empty; NaN is a term.
KERNEL((404), (i32), write_constants, CF64 bfix, i32 n, i32 k, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs,
       i32 rptr)
{
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, {.terms = k});
  for (i64 i = 0; i < n; ++i) {
    if (bfix[i] != 0.0) result.append_term(0, bfix[i]);
    result.close_element();
  }
  return result.terms;
}

// A constant matrix of n values as a record of one term an element, on the variable `cvar`. `ptr` is written for mnnz
// elements, `sp` only with `hassp`.
KERNEL((492), (), push_matrix, i32 cof, F64 f64_arg, bool hassp, I32 i32_arg, I64 i64_arg, CF64 mcof, i32 mdimj,
       CI32 msubi, CI32 msubj, i32 mnnz, i32 nidxs, i32 n, i32 ptr, i32 sp, i64 cvar)
{
  copy_slots(Run{f64_arg, cof}, Run{mcof, 0}, n);
  fill_slots(Run{i64_arg, nidxs}, n, cvar);
  if (hassp) {
    const Run pattern{i64_arg, sp};
    for (i64 k = 0; k < mnnz; ++k) pattern[k] = msubj[k] + static_cast<i64>(mdimj) * msubi[k];
  }
  fill_multiples(Run{i32_arg, ptr}, 0, mnnz, 1);
}

// The shape, the `ptr` of n elements of one term and the unit coefficients of a variable; the caller copies its
// numbers.
KERNEL((493), (), push_variable, i32 cof, F64 f64_arg, I32 i32_arg, i32 nd, i32 n, i32 nnz, i32 ptr, i32 rshape,
       CI32 shape)
{
  copy_slots(Run{i32_arg, rshape}, Run{shape, 0}, nd);
  fill_multiples(Run{i32_arg, ptr}, 0, n, 1);
  fill_slots(Run{f64_arg, cof}, nnz, 1.0);
}

// An array of n parameters: one constant term an element, its coefficient 0 plus the value of parameter nidxs[k], by
// one atom of code. `sp` is copied only with `hassp`. Of a record without elements there is no code: only its shape and
// rptr[0] are written, not rcodeptr[0].
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
