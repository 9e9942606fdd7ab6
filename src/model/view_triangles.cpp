// Triangles of views of variables that are square in two axes: the lower triangle taken out, and a packed triangle
// mirrored to the whole. Extents `dim` and strides are those of the five-axis fold around the two axes.

#include "index/five_axis_fold.h"

namespace fragments {

// Dense: appends the lower triangle, numbers to `idxs` and flat positions to `sp`, from slot c on. Returns the slot
// behind it.
KERNEL((151), (i32), lower_triangle_of_view, I64 basevar_nativeidxs, I32 dim, i32 c, I64 idxs, I64 sp, I64 stride)
{
  for_each_run_in_triangle(dim, stride, false, [&](Positions flat, Positions, i64 n) {
    for (i64 j = 0; j < n; ++j, ++c) {
      idxs[c] = basevar_nativeidxs[flat[j]];
      sp[c] = flat[j];
    }
  });
  return c;
}

// Sparse: appends the elements of the pattern that are in the lower triangle.
KERNEL((159), (i32), lower_triangle_of_sparse_view, I64 basevar_nativeidxs, i32 c, I64 idxs, I64 sp, I64 sparsity,
       I64 stride)
{
  if (sparsity.count < 1) return c;
  const FoldStrides strides(stride);
  for (i64 k = 0; k < sparsity.count; ++k) {
    const i64 flat = sparsity[k];
    const i64 i1 = strides.stride1.quotient(strides.stride0.remainder(flat));
    const i64 i3 = strides.stride3.quotient(strides.stride2.remainder(flat));
    if (i1 < i3) continue;
    idxs[c] = basevar_nativeidxs[k];
    sp[c] = flat;
    ++c;
  }
  return c;
}

// The packed lower triangle `basevar_nativeidxs`, from entry k on, to both halves of `residxs`. Returns the k behind
// it.
KERNEL((163), (i32), mirror_lower_triangle, CI64 basevar_nativeidxs, CI32 dim, i32 k, I64 residxs, CI64 stride)
{
  return scatter_packed_triangle(dim, stride, false, k, basevar_nativeidxs, residxs);
}

// The same from the packed upper triangle.
KERNEL((164), (i32), mirror_upper_triangle, CI64 basevar_nativeidxs, CI32 dim, i32 k, I64 residxs, CI64 stride)
{
  return scatter_packed_triangle(dim, stride, true, k, basevar_nativeidxs, residxs);
}

// Takes the native indices of the triangle in order, from `nativeidxs[k]` on, each to its element in `nidxs` and to the
// mirror. `upper` tells which triangle they are of. Returns the k behind them.
KERNEL((267), (i32), scatter_triangle, CI32 dim, i32 k, CI32 nativeidxs, I32 nidxs, CI32 stride, bool upper)
{
  return scatter_packed_triangle(dim, stride, upper, k, nativeidxs, nidxs);
}

}  // namespace fragments
