// Products over parts of a shape on the w stack: numbers of elements and block sizes. `acc` or `init` times the
// product, in its own width with wrap-around; an empty range gives it back.

#include "index/shape.h"

namespace fragments {

// init times the n extents from `top` on: elements of an operand of an inner product.
KERNEL((356), (i64), product_of_inner_product_extents, i32 n, i64 init, i32 top, I32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// init times the n extents from `top` on: elements of an operand of an element-wise product.
KERNEL((360), (i64), product_of_elementwise_product_extents, i32 n, i64 init, i32 top, I32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// acc times the n extents from `base` on: elements of a factor.
KERNEL((462), (i64), product_of_factor_extents, i32 n, i64 acc, i32 base, I32 wi32)
{
  return product(acc, Run{wi32, base}, 0, n);
}

// acc times the n extents from `base` on: elements of a summand.
KERNEL((507), (i64), product_of_summand_extents, i32 n, i32 base, i64 acc, I32 wi32)
{
  return product(acc, Run{wi32, base}, 0, n);
}

// acc times the hi-lo extents from `base` on: axes lo to hi-1.
KERNEL((494), (i64), product_of_extent_range, i64 acc, i32 hi, i32 lo, i32 base, I32 wi32)
{
  return product(acc, Run{wi32, base}, 0, static_cast<i64>(hi) - lo);
}

// acc times the hi-lo extents from `base` on: the size of a block.
KERNEL((497), (i64), product_of_block_extents, i32 hi, i32 lo, i64 acc, i32 base, I32 wi32)
{
  return product(acc, Run{wi32, base}, 0, static_cast<i64>(hi) - lo);
}

// init times the first n extents of the shape at `top`: those before an axis.
KERNEL((424, 431, 529, 535), (i32), extents_before, i32 init, i32 n, i32 top, I32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// The same with its scalars in another order.
KERNEL((437), (i32), stacked_extents_before, i32 n, i32 init, i32 top, I32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// init times the extents behind the axis `dim` of the shape at `top`.
KERNEL((425, 434, 530, 536), (i32), extents_behind, i32 init, i32 dim, i32 nd, i32 top, I32 wi32)
{
  return product_between(init, Run{wi32, top}, dim, nd);
}

// The same with its scalars in another order.
KERNEL((438), (i32), stacked_extents_behind, i32 dim, i32 nd, i32 init, i32 top, I32 wi32)
{
  return product_between(init, Run{wi32, top}, dim, nd);
}

// acc times the last n extents before base+hi.
KERNEL((495), (i64), product_of_last_extents, i64 acc, i32 hi, i32 n, i32 base, I32 wi32)
{
  return product(acc, Run{wi32, static_cast<i64>(base) + hi - n}, 0, n);
}

}  // namespace fragments
