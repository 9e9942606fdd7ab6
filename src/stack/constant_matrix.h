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

// Whether entry k lies outside the matrix; without branches, so that loops over entries are vectorised.
inline bool is_entry_outside(CI32 msubi, CI32 msubj, i32 mdimi, i32 mdimj, i64 k)
{
  const i32 i = msubi[k], j = msubj[k];
  return (i < 0) | (i >= mdimi) | (j < 0) | (j >= mdimj);
}

// Whether entry k does not come strictly before entry k+1; a duplicate doesn't.
inline bool is_unordered(CI32 msubi, CI32 msubj, i64 k)
{
  return msubi[k] > msubi[k + 1] || (msubi[k] == msubi[k + 1] && msubj[k] >= msubj[k + 1]);
}

}  // namespace fragments
