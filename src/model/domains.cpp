// Bound vectors from domains. A domain's bounds are one pair for all elements, one for each element, or sparse: row r
// of the table `domsp` is the multi-index of the element that entry r bounds.

#include "index/shape.h"

namespace fragments {

// The bounds of n elements: `scalar` takes the one pair for all, `dense` a pair for each; else the sparse bounds go to
// their elements in an array of nd axes, whose extents stand at `pos`, and the other elements keep what they hold.
// Scratch: nd strides.
KERNEL((82), (), write_bounds, F64 bl, F64 bu, bool dense, CF64 domlb, bool scalar, CI32x2 domsp, CF64 domub, i32 nd,
       i32 n, CI32 ri32, i32 pos)
{
  if (scalar) {
    if (n < 1) return;
    const f64 lower = domlb[0], upper = domub[0];
    for (i64 k = 0; k < n; ++k) {
      bl[k] = lower;
      bu[k] = upper;
    }
  } else if (dense) {
    for (i64 k = 0; k < n; ++k) {
      bl[k] = domlb[k];
      bu[k] = domub[k];
    }
  } else if (nd > 0) {
    const Scratch<i64> strides(nd);
    strides[i64{nd} - 1] = 1;
    row_major_strides(strides, Run{ri32, pos}, nd);
    for (i64 r = 0; r < domsp.rows; ++r) {
      const i64 position = flat_position(Row{domsp, r}, strides, nd);
      bl[position] = domlb[r];
      bu[position] = domub[r];
    }
  }
}

// Sparse bounds of one side, with the strides given.
KERNEL((100), (), scatter_bounds_of_side, F64 b, CF64 dombnd, CI32x2 domsp, i32 nd, CI32 stride)
{
  for (i64 r = 0; r < domsp.rows; ++r) b[flat_position(Row{domsp, r}, stride, nd)] = dombnd[r];
}

}  // namespace fragments
