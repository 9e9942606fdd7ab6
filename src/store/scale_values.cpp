// Scaled copies of the values of two vectors, u 615 and v 616.
//
// - uval, vval (array; n): the values
// - new_uval, new_vval (array; n): the values times `scale`

#include "frame/frame.h"

namespace fragments {
namespace {

void scale_values(F64 to, f64 scale, i64 n, CF64 from)
{
  for (i64 i = 0; i < n; ++i) to[i] = scale * from[i];
}

}  // namespace

// Scales the first n values of u.
KERNEL((615), (), scale_u, F64 new_uval, f64 scale, i32 n, CF64 uval)
{
  scale_values(new_uval, scale, n, uval);
}

// Scales the first n values of v.
KERNEL((616), (), scale_v, F64 new_vval, f64 scale, i32 n, CF64 vval)
{
  scale_values(new_vval, scale, n, vval);
}

}  // namespace fragments
