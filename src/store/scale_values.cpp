// Scaled copies of the values of two vectors.

#include "frame/frame.h"

namespace fragments {
namespace {

void scale_values(F64 to, f64 scale, i64 n, F64 from)
{
  for (i64 i = 0; i < n; ++i) to[i] = scale * from[i];
}

}  // namespace

// The first n values of u times `scale`.
KERNEL((615), (), scale_u, F64 new_uval, f64 scale, i32 n, F64 uval)
{
  scale_values(new_uval, scale, n, uval);
}

// The first n values of v times `scale`.
KERNEL((616), (), scale_v, F64 new_vval, f64 scale, i32 n, F64 vval)
{
  scale_values(new_vval, scale, n, vval);
}

}  // namespace fragments
