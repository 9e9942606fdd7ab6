// Products over parts of a shape on the w stack: numbers of elements and block sizes. `acc` times the product, in 64
// bits with wrap-around; an empty range gives `acc`.

#include "index/shape.h"

namespace fragments {

// acc times the n extents from `base` on: elements of a factor.
KERNEL((462), (i64), product_of_factor_extents, i32 n, i64 acc, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, n);
}

// acc times the n extents from `base` on: elements of a summand.
KERNEL((507), (i64), product_of_summand_extents, i32 n, i32 base, i64 acc, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, n);
}

// acc times the hi-lo extents from `base` on: axes lo to hi-1.
KERNEL((494), (i64), product_of_extent_range, i64 acc, i32 hi, i32 lo, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, static_cast<i64>(hi) - lo);
}

// acc times the hi-lo extents from `base` on: the size of a block.
KERNEL((497), (i64), product_of_block_extents, i32 hi, i32 lo, i64 acc, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, base}, 0, static_cast<i64>(hi) - lo);
}

// acc times the last n extents before base+hi.
KERNEL((495), (i64), product_of_last_extents, i64 acc, i32 hi, i32 n, i32 base, I32 wi32)
{
  return product(acc, Run<i32>{wi32, static_cast<i64>(base) + hi - n}, 0, n);
}

}  // namespace fragments
