// The two sides of a model: an entry of `conidxs` at or above 0 is the number of a linear row, below 0 the complement
// of the number of a conic row.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Calls conic(k, row) or linear(k, row) for each of the first n entries, in order.
template <class Conic, class Linear>
void for_each_row(CI32 conidxs, i32 n, Conic conic, Linear linear)
{
  for (i64 k = 0; k < n; ++k) {
    const i32 row = conidxs[k];
    if (row < 0)
      conic(k, ~row);
    else
      linear(k, row);
  }
}

}  // namespace fragments
