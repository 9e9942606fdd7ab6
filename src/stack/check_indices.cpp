// Checks of the index lists that come from a user: flat positions and rows of coordinates. A check sets its flags and
// clears none; it always looks at the whole list.

#include "index/shape.h"

namespace fragments {
namespace {

bool any_outside(CI64 indices, i64 size)
{
  bool outside = false;
  for (i64 k = 0; k < indices.count; ++k) outside |= indices[k] < 0 || indices[k] >= size;
  return outside;
}

// Whether the list does not strictly ascend.
bool any_unordered(CI64 indices)
{
  bool unordered = false;
  for (i64 k = 0; k < indices.count - 1; ++k) unordered |= indices[k] >= indices[k + 1];
  return unordered;
}

}  // namespace

// The pattern of a constant array.
KERNEL((405), (bool), has_position_outside, bool bad, CI64 sparsity, i64 size)
{
  return bad | any_outside(sparsity, size);
}

// The flat indices of a pick.
KERNEL((408), (bool), has_index_outside, CI64 idxs, i64 size, bool bad)
{
  return bad | any_outside(idxs, size);
}

// The coordinates of a pick, n rows of one coordinate an axis.
KERNEL((406), (bool), has_coordinate_outside, CI32x2 idxs, i32 n, CI32 shape, bool bad)
{
  for (i64 i = 0; i < n; ++i) bad |= is_any_outside(Row{idxs, i}, shape, idxs.cols);
  return bad;
}

// The pattern of a constant factor.
KERNEL((460), (bool, bool), check_pattern, bool bad_order, bool bad_range, CI64 msp, i64 size)
{
  return {bad_order | any_unordered(msp), bad_range | any_outside(msp, size)};
}

// The elements of a weighted pick. They ascend, so that only the first and the last can be out of range; a last index
// equal to `size` passes, intended so.
KERNEL((446), (bool, bool), check_picked_elements, bool bad_order, bool bad_range, i64 size, CI64 vsub3)
{
  if (vsub3.count < 1) return {bad_order, bad_range};
  return {bad_order | any_unordered(vsub3), bad_range | (vsub3[0] < 0 || vsub3[vsub3.count - 1] > size)};
}

}  // namespace fragments
