// The full array of a symmetric one, from one triangle of two of its axes.

#include "index/five_axis_fold.h"

namespace fragments {

// Takes the native indices of the triangle in order, from `nativeidxs[k]` on, each to its element in `nidxs` and to the
// mirror. `upper` tells which triangle they are of. Returns the k behind them.
KERNEL((267), (i32), scatter_triangle, I32 dim, i32 k, I32 nativeidxs, I32 nidxs, I32 stride, bool upper)
{
  for_each_run_in_triangle(dim, stride, upper, [&](Positions flat, Positions mirror, i64 n) {
    for (i64 j = 0; j < n; ++j) {
      const i32 native = nativeidxs[k++];
      nidxs[flat[j]] = native;
      nidxs[mirror[j]] = native;
    }
  });
  return k;
}

}  // namespace fragments
