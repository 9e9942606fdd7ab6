// Products over parts of a shape on the w stack: numbers of elements and block sizes. `acc` or `init` times the
// product, in its own width with wrap-around; an empty range gives it back.

#include "index/shape.h"

namespace fragments {

// The n extents from `top` or `base` on.
KERNEL((356), (i64), product_of_inner_product_extents, i32 n, i64 init, i32 top, I32 wi32)
{
  return product(init, Run<i32>{wi32, top}, 0, n);
}
KERNEL((360), (i64), product_of_elementwise_product_extents, i32 n, i64 init, i32 top, I32 wi32)
{
  return product(init, Run<i32>{wi32, top}, 0, n);
}
KERNEL((462), (i64), product_of_factor_extents, i32 n, i64 acc, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, n);
}
KERNEL((507), (i64), product_of_summand_extents, i32 n, i32 base, i64 acc, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, n);
}

// The hi-lo extents from `base` on.
KERNEL((494), (i64), product_of_extent_range, i64 acc, i32 hi, i32 lo, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, static_cast<i64>(hi) - lo);
}
KERNEL((497), (i64), product_of_block_extents, i32 hi, i32 lo, i64 acc, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, static_cast<i64>(hi) - lo);
}

// The n extents before an axis, and those behind the axis `dim`.
KERNEL((424, 431, 529, 535), (i32), extents_before, i32 init, i32 n, i32 top, I32 wi32)
{
  return product(init, Run<i32>{wi32, top}, 0, n);
}
KERNEL((437), (i32), stacked_extents_before, i32 n, i32 init, i32 top, I32 wi32)
{
  return product(init, Run<i32>{wi32, top}, 0, n);
}
KERNEL((425, 434, 530, 536), (i32), extents_behind, i32 init, i32 dim, i32 nd, i32 top, I32 wi32)
{
  return product_between(init, Run<i32>{wi32, top}, dim, nd);
}
KERNEL((438), (i32), stacked_extents_behind, i32 dim, i32 nd, i32 init, i32 top, I32 wi32)
{
  return product_between(init, Run<i32>{wi32, top}, dim, nd);
}

// The last n extents before base+hi.
KERNEL((495), (i64), product_of_last_extents, i64 acc, i32 hi, i32 n, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, static_cast<i64>(base) + hi - n}, 0, n);
}

}  // namespace fragments
