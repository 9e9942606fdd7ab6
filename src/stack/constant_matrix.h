// Constant matrices: dense (`mval`, row-major) or sparse (`msubi`, `msubj`, `mval`, sorted by row, then column,
// strictly ascending). An entry is a stored value: a zero is not skipped anywhere.
#pragma once

#include "frame/frame.h"

namespace fragments {

// The end of the row group of entry k: the first entry behind k with another row, or `count`.
inline i32 group_end(I32 msubi, i32 k, i32 count)
{
  const i32 row = msubi[k];
  do ++k;
  while (k < count && msubi[k] == row);
  return k;
}

// Whether entry k lies outside the matrix; without branches, so that loops over entries are vectorised.
inline bool is_outside(I32 msubi, I32 msubj, i32 mdimi, i32 mdimj, i64 k)
{
  const i32 i = msubi[k], j = msubj[k];
  return (i < 0) | (i >= mdimi) | (j < 0) | (j >= mdimj);
}

// Whether entry k does not come strictly before entry k+1; a duplicate doesn't.
inline bool is_unordered(I32 msubi, I32 msubj, i64 k)
{
  return msubi[k] > msubi[k + 1] || (msubi[k] == msubi[k + 1] && msubj[k] >= msubj[k + 1]);
}

}  // namespace fragments
