// Slices and picks of views of variables: the part of a map inside a box, from `first`, inclusive, up to `last`,
// exclusive, along every axis, or at regular distances, or at picked multi-indices.
//
//     dense, by its shape      187
//     dense, by its strides    170
//     dense, n at a distance   183, from 181 and 182
//     sparse                   count 185, write 186
//     picks                    multi-indices 171 to 173, gather 176
//
// - idxs (array; elements of the slice): the native number of each element of the slice
// - i0, i1, i2 (array; picks): the coordinate of each pick along the first, second and third axis

#include "index/box.h"
#include "index/box_gather.h"

namespace fragments {
namespace {

// The coordinates of the last element of a pattern, the first of them not reduced by its extent.
void split_last(CI64 sparsity, I32 key, CI32 shape, i64 nd)
{
  key[0] = static_cast<i32>(split_position(sparsity[sparsity.count - 1], key, shape, nd));
}

Box<OpenShape, RowMajorStrides> row_major_box(i64 nd, CI32 shape, CI32 first, CI32 last)
{
  const RowMajorStrides strides{shape, nd};
  return {nd, {shape, strides}, strides, first, last};
}

}  // namespace

// Gathers the n numbers of a box of a dense view, in row-major order, by its strides. At least one axis; n is trusted.
// Scratch: a position and a coordinate for each axis.
KERNEL((170), (), slice_view_by_strides, CI64 basevar_nativeidxs, CI32 first, CI32 last, i32 nd, i32 n, I64 residxs,
       CI64 strides)
{
  gather_box(residxs, basevar_nativeidxs, first, last, strides, nd, n);
}

// Gathers the n numbers of a box of a dense view, in row-major order, by its shape. At least one axis; n is trusted.
// Scratch: a position, a coordinate and a stride for each axis.
KERNEL((187), (), slice_view_by_shape, CI64 basevar_nativeidxs, CI32 first, I64 idxs, CI32 last, i32 nd, i32 n,
       CI32 shape)
{
  gather_box_by_shape(idxs, basevar_nativeidxs, first, last, shape, nd, n);
}

// Gathers n numbers of a dense view, `step` apart.
//
// - first (index): the flat position of the first
KERNEL((183), (), slice_view_by_step, CI64 basevar_nativeidxs, i32 n, I64 residxs, i64 first, i64 step)
{
  for (i64 k = 0; k < n; ++k) residxs[k] = basevar_nativeidxs[first + step * k];
}

// Counts the elements of a pattern inside a box. There is at least one axis.
//
// - key (array; nd): scratch, left with the coordinates of the last element of the pattern
// - c (cursor): the elements inside
KERNEL((185), (i32 c), count_slice_of_pattern, CI32 first, I32 key, CI32 last, i32 nd, i32 c, CI32 shape, CI64 sparsity)
{
  if (sparsity.count <= 0) return c;
  BoxFilter(row_major_box(nd, shape, first, last), false).for_each(sparsity, sparsity.count, [&](i64 b, i64 e) {
    c += static_cast<i32>(e - b);
  });
  split_last(sparsity, key, shape, nd);
  return c;
}

// Appends the elements of a sparse view inside a box, in their order. There is at least one axis.
//
// - key (array; nd): scratch, left with the coordinates of the last element of the view
// - c (cursor): the elements of the slice so far
// - sliceshape (array; nd): the extents of the slice
// - sp (array; elements of the slice): the flat position of each element in the slice
KERNEL((186), (i32 c), slice_sparse_view, CI64 basevar_nativeidxs, CI32 first, i32 c, I64 idxs, I32 key, CI32 last,
       i32 nd, CI32 shape, CI32 sliceshape, I64 sp, CI64 sparsity)
{
  if (sparsity.count <= 0) return c;
  BoxFilter(row_major_box(nd, shape, first, last), true)
      .for_each_with_place(
          sparsity, sparsity.count, [&](i64 place, i64 d, i64 x) { return place * sliceshape[d] + x; },
          [&](i64 b, i64 e, auto place) {
            const Run to_idxs{idxs, c};
            const Run to_sp{sp, c};
            for (i64 k = b; k < e; ++k) {
              stay_scalar(k);
              to_idxs[k - b] = basevar_nativeidxs[k];
              to_sp[k - b] = place(k);
            }
            c += static_cast<i32>(e - b);
          });
  split_last(sparsity, key, shape, nd);
  return c;
}

// Enters one multi-index as row 0 of a table.
KERNEL((171), (), enter_pick, CI32 index, I32x2 midx)
{
  copy_extents(Row{midx, 0}, 0, index, 0, index.count);
}

// Enters multi-indices of three axes from the coordinates along each, a row for each entry of `i0`.
KERNEL((172), (), enter_picks_of_3_axes, CI32 i0, CI32 i1, CI32 i2, I32x2 midxs)
{
  for (i64 k = 0; k < i0.count; ++k) {
    midxs(k, 0) = i0[k];
    midxs(k, 1) = i1[k];
    midxs(k, 2) = i2[k];
  }
}

// Enters multi-indices of two axes from the coordinates along each, a row for each entry of `i0`.
KERNEL((173), (), enter_picks_of_2_axes, CI32 i0, CI32 i1, I32x2 midxs)
{
  for (i64 k = 0; k < i0.count; ++k) {
    midxs(k, 0) = i0[k];
    midxs(k, 1) = i1[k];
  }
}

}  // namespace fragments
