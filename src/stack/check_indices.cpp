// Checks of the index lists that come from a user: flat positions and rows of coordinates. A check sets its flags and
// clears none; it always looks at the whole list.

#include <algorithm>

#include "index/shape.h"

namespace fragments {
namespace {

// The oldest machines don't compare 64-bit vectors, but the sign bits that tell the same come from plain arithmetic: a
// third of the time.

bool any_outside(CI64 indices, i64 size)
{
  const i64 last = std::max<i64>(size, 0) - 1;
  i64 signs = 0;
  for (i64 k = 0; k < indices.count; ++k) signs |= indices[k] | wrapping_sub(last, indices[k]);
  return signs < 0;
}

// Whether the list does not strictly ascend.
bool any_unordered(CI64 indices)
{
  i64 signs = -1;
  for (i64 k = 0; k < indices.count - 1; ++k) {
    const i64 a = indices[k], b = indices[k + 1];
    signs &= (a & ~b) | (~(a ^ b) & wrapping_sub(a, b));  // below 0 if a < b
  }
  return signs >= 0;
}

}  // namespace

// Checks the pattern of a constant array: sets `bad` if a position lies outside 0 .. size-1.
KERNEL((405), (bool bad), has_position_outside, bool bad, CI64 sparsity, i64 size)
{
  return bad | any_outside(sparsity, size);
}

// Checks the flat indices of a pick: sets `bad` if one lies outside 0 .. size-1.
//
// - idxs (array; picks): the flat position of each picked element
KERNEL((408), (bool bad), has_index_outside, CI64 idxs, i64 size, bool bad)
{
  return bad | any_outside(idxs, size);
}

// Checks the coordinates of a pick: sets `bad` if one lies outside the extent of its axis.
//
// - idxs (array; picks x axes): the coordinates of the picked elements, one element a row
// - n (count): the picks
KERNEL((406), (bool bad), has_coordinate_outside, CI32x2 idxs, i32 n, CI32 shape, bool bad)
{
  return bad | is_any_row_outside(idxs, n, shape);
}

// Checks the pattern of a constant factor: sets `bad_order` if it does not strictly ascend, `bad_range` if a position
// lies outside 0 .. size-1.
KERNEL((460), (bool bad_order, bool bad_range), check_pattern, bool bad_order, bool bad_range, CI64 msp, i64 size)
{
  return {bad_order | any_unordered(msp), bad_range | any_outside(msp, size)};
}

// Checks the elements of a weighted pick: sets `bad_order` if they do not strictly ascend, `bad_range` if the first is
// below 0 or the last above `size`; those between need no test, since they ascend. A last one equal to `size` passes,
// intended so.
//
// - vsub3 (array; elements chosen): the flat position of each chosen element
KERNEL((446), (bool bad_order, bool bad_range), check_picked_elements, bool bad_order, bool bad_range, i64 size,
       CI64 vsub3)
{
  if (vsub3.count < 1) return {bad_order, bad_range};
  return {bad_order | any_unordered(vsub3), bad_range | (vsub3[0] < 0 || vsub3[vsub3.count - 1] > size)};
}

}  // namespace fragments
