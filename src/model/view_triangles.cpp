// Triangles of views of variables that are square in two axes: the lower triangle taken out, and a packed triangle
// mirrored to the whole. Extents `dim` and strides are those of the five-axis fold around the two axes. The order of a
// packed triangle is that of its elements in the whole.
//
//     take out   the lower triangle of a dense view 151, of a sparse one 159
//     mirror     a packed lower triangle 163, an upper one 164, either in 32-bit numbers 267
//
// - c (cursor): the elements of the triangle so far
// - idxs, sp (array; elements of the triangle): the native number and the flat position of each element
// - k (cursor): the entries of the packed triangle so far

#include "index/five_axis_fold.h"
#include "index/slots.h"
#include "model/select.h"

namespace fragments {

// Dense: appends the lower triangle, in row-major order.
KERNEL((151), (i32 c), lower_triangle_of_view, CI64 basevar_nativeidxs, CI32 dim, i32 c, I64 idxs, I64 sp, CI64 stride)
{
  for_each_row_in_triangle(dim, stride, false, [&](Positions flat, i64 n) {
    const Run numbers{idxs, c};
    if (flat.step == 1) {
      copy_slots(numbers, Run{basevar_nativeidxs, flat.first}, n);
    } else {
      for (i64 j = 0; j < n; ++j) numbers[j] = basevar_nativeidxs[flat[j]];
    }
    fill_progression(Run{sp, c}, n, flat.first, flat.step);
    c += static_cast<i32>(n);
  });
  return c;
}

// Sparse: appends the stored elements that are in the lower triangle, in their order.
KERNEL((159), (i32 c), lower_triangle_of_sparse_view, CI64 basevar_nativeidxs, i32 c, I64 idxs, I64 sp, CI64 sparsity,
       CI64 stride)
{
  if (sparsity.count < 1) return c;
  RowCursor row{FoldStrides(stride)};
  return select(
      sparsity.count, c,
      [&](i64 k) {
        const i64 flat = sparsity[k];
        return flat < row.around(flat).bound[behind_diagonal];
      },
      [&](i64 slot, i64 k) {
        idxs[slot] = basevar_nativeidxs[k];
        sp[slot] = sparsity[k];
      });
}

// Writes the entries of a packed lower triangle, from entry k on, to their elements and to the mirrors of these.
//
// - basevar_nativeidxs (array; entries): the native number of each entry of the triangle
KERNEL((163), (i32 k), mirror_lower_triangle, CI64 basevar_nativeidxs, CI32 dim, i32 k, I64 residxs, CI64 stride)
{
  return scatter_packed_triangle(dim, stride, false, k, basevar_nativeidxs, residxs);
}

// Writes the entries of a packed upper triangle, from entry k on, to their elements and to the mirrors of these.
//
// - basevar_nativeidxs (array; entries): the native number of each entry of the triangle
KERNEL((164), (i32 k), mirror_upper_triangle, CI64 basevar_nativeidxs, CI32 dim, i32 k, I64 residxs, CI64 stride)
{
  return scatter_packed_triangle(dim, stride, true, k, basevar_nativeidxs, residxs);
}

// Writes the entries of a packed triangle in 32-bit numbers, from entry k on, to their elements and to the mirrors of
// these.
//
// - nativeidxs (array; entries): the native number of each entry of the triangle
// - nidxs (array; elements): the native number of each element
// - stride (array; 5): the strides of the fold
KERNEL((267), (i32 k), scatter_triangle, CI32 dim, i32 k, CI32 nativeidxs, I32 nidxs, CI32 stride, bool upper)
{
  return scatter_packed_triangle(dim, stride, upper, k, nativeidxs, nidxs);
}

}  // namespace fragments
