// The five-axis fold of a shape around two of its axes, a step a kernel. The caller sets dim[1] and dim[3] to the
// extents of the two axes and dim[0], dim[2], dim[4] to 1, then multiplies the extents of the other axes in:
//
//                              array of extents    shape on the w stack
//     before the first axis          263               547   559
//     between the two                264               548   560
//     behind the second              265               549   561
//     strides of the fold            266               550   562
//
// Names say which axes are folded, and the parameters in their order. All is computed in 32 bits and wraps around, but
// for the strides of 562. An empty range of axes reads nothing.
//
// - dim (array; 5): the extents of the fold
// - n (count): the axes before the first of the two, which is axis n
// - lo, hi (axis): the first and the second of the two axes
// - stride (array; 5): the row-major strides of the fold; stride[4] is the caller's, 1

#include "index/five_axis_fold.h"

namespace fragments {

// The first n extents into dim[0].
KERNEL((263), (), fold_leading_n_dim_shape, i32 n, I32 dim, CI32 shape)
{
  fold_axes(dim, 0, shape, 0, n);
}

// The extents strictly between axes `lo` and `hi` into dim[2].
KERNEL((264), (), fold_inner_lo_hi_dim_shape, i32 lo, i32 hi, I32 dim, CI32 shape)
{
  fold_axes(dim, 2, shape, i64{lo} + 1, hi);
}

// The extents behind axis `lo` into dim[4].
//
// - lo (axis): the second of the two axes
// - hi (count): the axes of the array
KERNEL((265), (), fold_trailing_lo_dim_hi_shape, i32 lo, I32 dim, i32 hi, CI32 shape)
{
  fold_axes(dim, 4, shape, i64{lo} + 1, hi);
}

// The first n extents of the operand's shape into dim[0].
KERNEL((547), (), fold_leading_dim_shape_wi32_n, I32 dim, i32 shape, CI32 wi32, i32 n)
{
  fold_axes(dim, 0, Run{wi32, shape}, 0, n);
}

// The extents of the operand's shape strictly between axes `lo` and `hi` into dim[2].
KERNEL((548), (), fold_inner_dim_shape_wi32_lo_hi, I32 dim, i32 shape, CI32 wi32, i32 lo, i32 hi)
{
  fold_axes(dim, 2, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The extents of the operand's shape behind axis `lo` into dim[4].
//
// - lo (axis): the second of the two axes
// - hi (count): the axes of the operand
KERNEL((549), (), fold_trailing_dim_hi_shape_wi32_lo, I32 dim, i32 hi, i32 shape, CI32 wi32, i32 lo)
{
  fold_axes(dim, 4, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The first n extents of the operand's shape into dim[0].
KERNEL((559), (), fold_leading_dim_n_shape_wi32, I32 dim, i32 n, i32 shape, CI32 wi32)
{
  fold_axes(dim, 0, Run{wi32, shape}, 0, n);
}

// The extents of the operand's shape strictly between axes `lo` and `hi` into dim[2].
KERNEL((560), (), fold_inner_dim_lo_hi_shape_wi32, I32 dim, i32 lo, i32 hi, i32 shape, CI32 wi32)
{
  fold_axes(dim, 2, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The extents of the operand's shape behind axis `lo` into dim[4].
//
// - lo (axis): the second of the two axes
// - hi (count): the axes of the operand
KERNEL((561), (), fold_trailing_dim_lo_hi_shape_wi32, I32 dim, i32 lo, i32 hi, i32 shape, CI32 wi32)
{
  fold_axes(dim, 4, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The row-major strides of a five-axis fold.
KERNEL((266, 550), (), fold_strides, CI32 dim, I32 stride)
{
  row_major_strides(stride, dim, 5);
}

// The row-major strides of a five-axis fold, in 64 bits.
KERNEL((562), (), fold_strides64, CI32 dim, I64 stride)
{
  row_major_strides(stride, dim, 5);
}

}  // namespace fragments
