// Strides of an array, in elements, from its shape: row-major ones, those of a permuted array, mirrored ones. The last
// stride is the caller's, 1 for a plain array, unless the kernel is said to set it; with fewer than two axes the others
// write nothing.
//
// One loop under the names of several call sites. Strides are computed in 64 bits unless told, and wrap around.
//
// - n (count): the axes
// - st (array; axes): the strides of the array, in elements

#include "index/shape.h"

namespace fragments {

// Row-major strides of a variable or constraint.
KERNEL((175, 180, 257, 304), (), row_major_strides_of_view, i32 n, CI32 shape, I64 strides)
{
  row_major_strides(strides, shape, n);
}

// Row-major strides of a domain.
KERNEL((43), (), row_major_strides_of_domain, i32 nd, CI32 shape, I64 strides)
{
  row_major_strides(strides, shape, nd);
}

// Row-major strides of an array that is read by multi-index.
KERNEL((273), (), row_major_strides_of_array, i32 n, CI32 shape, I64 st)
{
  row_major_strides(st, shape, n);
}

// Row-major strides of a pattern that is sorted by axes.
//
// - rshape, rstrides (array; n): the extents and the strides of the pattern's array
KERNEL((297), (), row_major_strides_of_pattern, i32 n, CI32 rshape, I64 rstrides)
{
  row_major_strides(rstrides, rshape, n);
}

// Row-major strides of a view that is made.
KERNEL((218, 240), (), row_major_strides_of_result, i32 n, CI32 rshape, I64 s)
{
  row_major_strides(s, rshape, n);
}

// Row-major strides of a stored expression.
KERNEL((577, 579), (), row_major_strides_of_stored, i32 n, I64 s, CI32 shp)
{
  row_major_strides(s, shp, n);
}

// Row-major strides in 32 bits.
KERNEL((99), (), row_major_strides_32, i32 nd, CI32 shape, I32 stride)
{
  row_major_strides(stride, shape, nd);
}

// Row-major strides in 32 bits, the last one set to 1.
KERNEL((49, 62), (), row_major_strides_32_from_one, i32 nd, CI32 shape, I32 strides)
{
  if (nd > 0) strides[i64{nd} - 1] = 1;
  row_major_strides(strides, shape, nd);
}

// The row-major strides of the array that has axis perm[d] of another as its axis d.
//
// - perm (array; axes): the axis of `shape` that becomes each axis
KERNEL((207), (), row_major_strides_permuted, i32 nd, CI32 perm, I64 pstrides, CI32 shape)
{
  fill_strides(pstrides, nd, [&](i64 d) { return shape[perm[d]]; });
}

// Mirrored strides of an array, which the filters by a box take, 317 318 320: they grow from the last axis as row-major
// ones do, but the extents come from the front: stride[d] = shape[n-1-d] * stride[d+1]. This is intended.
KERNEL((315), (), mirrored_strides_of_array, i32 n, CI32 shape, I64 stride)
{
  fill_strides(stride, n, [&](i64 d) { return shape[n - d]; });
}

// Mirrored strides of a slice, which the filter by a box takes, 320: they grow from the last axis as row-major ones do,
// but the extents come from the front: rstride[d] = rshape[n-1-d] * rstride[d+1]. This is intended.
KERNEL((319), (), mirrored_strides_of_result, i32 n, CI32 rshape, I64 rstride)
{
  fill_strides(rstride, n, [&](i64 d) { return rshape[n - d]; });
}

}  // namespace fragments
