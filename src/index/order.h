// Whether a list is in order. Both tests stop at the first pair that isn't, and a list of less than two entries is.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Whether the first n entries ascend strictly.
inline bool is_ascending(I64 list, i64 n)
{
  for (i64 k = 1; k < n; ++k) {
    if (list[k - 1] >= list[k]) return false;
  }
  return true;
}

// Whether no entry of the first n is below the one before; repeats are in order.
inline bool is_sorted(I64 list, i64 n)
{
  for (i64 k = 1; k < n; ++k) {
    if (list[k - 1] > list[k]) return false;
  }
  return true;
}

}  // namespace fragments
