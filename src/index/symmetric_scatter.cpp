// The full array of a symmetric one, from one triangle of two of its axes.

#include "index/five_axis_fold.h"

namespace fragments {

// Takes the native indices of the triangle in order, from `nativeidxs[k]` on, each to its element in `nidxs` and to the
// mirror. `upper` tells which triangle they are of. Returns the k behind them.
KERNEL((267), (i32), scatter_triangle, CI32 dim, i32 k, CI32 nativeidxs, I32 nidxs, CI32 stride, bool upper)
{
  return scatter_packed_triangle(dim, stride, upper, k, nativeidxs, nidxs);
}

}  // namespace fragments
