// Slices and picks of views of variables: the part of a map inside a box, from `first`, inclusive, up to `last`,
// exclusive, along every axis, or at regular distances, or at picked multi-indices.
//
//     dense, by its shape      187
//     dense, by its strides    170
//     dense, n at a distance   183, from 181 and 182
//     sparse                   count 185, write 186
//     picks                    multi-indices 171 to 173, gather 176

#include "index/box_gather.h"

namespace fragments {
namespace {

// Walks the elements of a pattern that lie in a box: inside(k) for element k, its coordinates standing in `key`. `key`
// takes the coordinates of every element, and keeps those of the last one. There is at least one axis. Elements of one
// row, equal in all coordinates but the last, share what was found of these: it takes nd-1 divisions a row.
template <class Inside>
void for_each_in_box(I32 first, I32 last, I32 key, i64 nd, I32 shape, I64 sparsity, Inside inside)
{
  const i64 inner = nd - 1;
  const auto is_within = [&](i64 d) { return first[d] <= key[d] && key[d] < last[d]; };
  i64 row_begin = 0, row_end = 0;
  bool is_row_inside = false;
  for (i64 k = 0; k < sparsity.count; ++k) {
    const i64 flat = sparsity[k];
    if (flat >= row_begin && flat < row_end) {
      key[inner] = static_cast<i32>(flat - row_begin);
    } else {
      key[0] = static_cast<i32>(split_position(flat, key, shape, nd));
      if (inner > 0) {
        row_begin = flat - key[inner];
        row_end = row_begin + shape[inner];
      }
      is_row_inside = true;
      for (i64 d = 0; d < inner; ++d) is_row_inside = is_row_inside && is_within(d);
    }
    if (is_row_inside && is_within(inner)) inside(k);
  }
}

}  // namespace

// The n numbers of a box of a dense view, in row-major order, by its strides. At least one axis; n is trusted. Scratch:
// a position and a coordinate for each axis.
KERNEL((170), (), slice_view_by_strides, I64 basevar_nativeidxs, I32 first, I32 last, i32 nd, i32 n, I64 residxs,
       I64 strides)
{
  gather_box(residxs, basevar_nativeidxs, first, last, strides, nd, n);
}

// The same by its shape. Scratch: the row-major strides, too.
KERNEL((187), (), slice_view_by_shape, I64 basevar_nativeidxs, I32 first, I64 idxs, I32 last, i32 nd, i32 n, I32 shape)
{
  gather_box_by_shape(idxs, basevar_nativeidxs, first, last, shape, nd, n);
}

// n numbers of a dense view, `step` apart, from position `first` on.
KERNEL((183), (), slice_view_by_step, I64 basevar_nativeidxs, i32 n, I64 residxs, i64 first, i64 step)
{
  for (i64 k = 0; k < n; ++k) residxs[k] = basevar_nativeidxs[first + step * k];
}

// c plus the number of elements of a pattern inside a box. `key` is scratch of one slot for each axis, at least one; it
// is left with the coordinates of the last element.
KERNEL((185), (i32), count_slice_of_pattern, I32 first, I32 key, I32 last, i32 nd, i32 c, I32 shape, I64 sparsity)
{
  for_each_in_box(first, last, key, nd, shape, sparsity, [&](i64) { ++c; });
  return c;
}

// Appends the elements of a sparse view inside a box: their numbers to `idxs` and their flat positions in the slice, of
// the shape `sliceshape`, to `sp`, from slot c on. Returns the slot behind them. `key` as above.
KERNEL((186), (i32), slice_sparse_view, I64 basevar_nativeidxs, I32 first, i32 c, I64 idxs, I32 key, I32 last, i32 nd,
       I32 shape, I32 sliceshape, I64 sp, I64 sparsity)
{
  for_each_in_box(first, last, key, nd, shape, sparsity, [&](i64 k) {
    i64 position = 0;
    for (i64 d = 0; d < nd; ++d) position = position * sliceshape[d] + key[d] - first[d];
    idxs[c] = basevar_nativeidxs[k];
    sp[c] = position;
    ++c;
  });
  return c;
}

// One multi-index, `index`, as row 0 of a table.
KERNEL((171), (), enter_pick, I32 index, I32x2 midx)
{
  copy_extents(Row{midx, 0}, 0, index, 0, index.count);
}

// Multi-indices of three axes from the coordinates along each, a row for each entry of `i0`.
KERNEL((172), (), enter_picks_of_3_axes, I32 i0, I32 i1, I32 i2, I32x2 midxs)
{
  for (i64 k = 0; k < i0.count; ++k) {
    midxs(k, 0) = i0[k];
    midxs(k, 1) = i1[k];
    midxs(k, 2) = i2[k];
  }
}

// The same for two axes.
KERNEL((173), (), enter_picks_of_2_axes, I32 i0, I32 i1, I32x2 midxs)
{
  for (i64 k = 0; k < i0.count; ++k) {
    midxs(k, 0) = i0[k];
    midxs(k, 1) = i1[k];
  }
}

}  // namespace fragments
