// The five-axis fold of a shape around two of its axes, in steps: the extents before, between and behind the two axes.

#include "index/five_axis_fold.h"

namespace fragments {

// The five-axis fold of a shape around two axes: the extents before the first into dim[0].
KERNEL((263), (), fold_leading_axes, i32 n, I32 dim, CI32 shape)
{
  fold_axes(dim, 0, shape, 0, n);
}

// The extents strictly between the two axes into dim[2].
KERNEL((264), (), fold_axes_between, i32 lo, i32 hi, I32 dim, CI32 shape)
{
  fold_axes(dim, 2, shape, i64{lo} + 1, hi);
}

// The extents behind the second axis `lo` into dim[4]; `hi` is the number of axes.
KERNEL((265), (), fold_trailing_axes, i32 lo, I32 dim, i32 hi, CI32 shape)
{
  fold_axes(dim, 4, shape, i64{lo} + 1, hi);
}

// The five-axis fold of the operand's shape: the first n extents into dim[0].
KERNEL((547), (), fold_triangle_leading_axes, I32 dim, i32 shape, I32 wi32, i32 n)
{
  fold_axes(dim, 0, Run{wi32, shape}, 0, n);
}

// The extents strictly between the two axes into dim[2].
KERNEL((548), (), fold_triangle_axes_between, I32 dim, i32 shape, I32 wi32, i32 lo, i32 hi)
{
  fold_axes(dim, 2, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The extents behind the second axis `lo` into dim[4]; `hi` is the number of axes.
KERNEL((549), (), fold_triangle_trailing_axes, I32 dim, i32 hi, i32 shape, I32 wi32, i32 lo)
{
  fold_axes(dim, 4, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The five-axis fold of the operand's shape: the first n extents into dim[0].
KERNEL((559), (), fold_mirror_leading_axes, I32 dim, i32 n, i32 shape, CI32 wi32)
{
  fold_axes(dim, 0, Run{wi32, shape}, 0, n);
}

// The extents strictly between the two axes into dim[2].
KERNEL((560), (), fold_mirror_axes_between, I32 dim, i32 lo, i32 hi, i32 shape, CI32 wi32)
{
  fold_axes(dim, 2, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The extents behind the second axis `lo` into dim[4]; `hi` is the number of axes.
KERNEL((561), (), fold_mirror_trailing_axes, I32 dim, i32 lo, i32 hi, i32 shape, CI32 wi32)
{
  fold_axes(dim, 4, Run{wi32, shape}, i64{lo} + 1, hi);
}

// The strides of the fold; stride[4] is the caller's.
KERNEL((562), (), write_fold_strides, CI32 dim, I64 stride)
{
  row_major_strides(stride, dim, 5);
}

// The row-major strides of a five-axis fold, in 32 bits.
KERNEL((266, 550), (), row_major_strides_of_fold, CI32 dim, I32 stride)
{
  row_major_strides(stride, dim, 5);
}

}  // namespace fragments
