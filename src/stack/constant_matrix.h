// Constant matrices: dense (`mval`, row-major) or sparse (`msubi`, `msubj`, `mval`, sorted by row, then column,
// strictly ascending). An entry is a stored value: a zero is not skipped anywhere.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Walks the entries 0 .. count-1 in row groups, the stretches of entries of one row: group(row, b, e) for the entries
// b .. e-1.
template <class Group>
void for_each_row_group(CI32 msubi, i32 count, Group group)
{
  for (i32 b = 0, e; b < count; b = e) {
    const i32 row = msubi[b];
    e = b + 1;
    while (e < count && msubi[e] == row) ++e;
    group(row, b, e);
  }
}

// The checks look at all entries without branches and collect 32-bit numbers, so that their loops are vectorised.

// Whether any of the first `count` entries lies outside the matrix.
inline bool any_entry_outside(CI32 msubi, CI32 msubj, i32 mdimi, i32 mdimj, i64 count)
{
  i32 outside = 0;
  for (i64 k = 0; k < count; ++k) {
    const i32 i = msubi[k], j = msubj[k];
    outside |= (i < 0) | (i >= mdimi) | (j < 0) | (j >= mdimj);
  }
  return outside != 0;
}

// Whether any of the first `count` entries does not come strictly before the next; a duplicate doesn't.
inline bool any_entry_unordered(CI32 msubi, CI32 msubj, i64 count)
{
  i32 unordered = 0;
  for (i64 k = 0; k < count - 1; ++k) {
    const i32 i = msubi[k], next = msubi[k + 1];
    unordered |= (i > next) | ((i == next) & (msubj[k] >= msubj[k + 1]));
  }
  return unordered != 0;
}

}  // namespace fragments
