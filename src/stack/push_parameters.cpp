// An array of parameters, pushed as an expression record.

#include <algorithm>

#include "stack/record.h"
#include "stack/slots.h"

namespace fragments {

// Writes a record of n elements with one term each, on the constant variable: its coefficient is 0 plus the value of
// parameter nidxs[k], by one atom of code. `rsp` is written only if `hassp`. A record without elements has no code: of
// it the shape and rptr[0] are written, and not rcodeptr[0].
KERNEL((313), (), push_parameters, bool hassp, i32 nd, i32 n, I32 nidxs, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, I32 shape, I64 sp)
{
  copy_slots(Run<i32>{ri32, rshape}, Run<i32>{shape, 0}, nd);
  fill_multiples(Run<i32>{ri32, rptr}, 0, std::max(n, 0), 1);
  if (n <= 0) return;
  if (hassp) copy_slots(Run<i64>{ri64, rsp}, Run<i64>{sp, 0}, n);
  fill_slots(Run<i64>{ri64, rnidxs}, n, i64{0});
  fill_slots(Run<f64>{rf64, rcof}, n, 0.0);
  fill_multiples(Run<i32>{ri32, rcodeptr}, 0, n, 1);
  fill_slots(Run<i32>{ri32, rcode}, n, push_parameter);
  const Run<f64> operands{rf64, rcconst};
  for (i64 k = 0; k < n; ++k) operands[k] = nidxs[k];
}

}  // namespace fragments
