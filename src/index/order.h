// The order of a list: whether it ascends, and how often. The tests stop at the first pair that is out of order.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Whether the first n entries ascend strictly.
inline bool is_ascending(CI64 list, i64 n)
{
  for (i64 k = 1; k < n; ++k) {
    if (list[k - 1] >= list[k]) return false;
  }
  return true;
}

// Whether no entry of the first n is below the one before; repeats are in order.
inline bool is_sorted(CI64 list, i64 n)
{
  for (i64 k = 1; k < n; ++k) {
    if (list[k - 1] > list[k]) return false;
  }
  return true;
}

// The number of strict ascents between neighbours in the order entry(0), entry(1), ... of n entries: in a sorted one,
// the number of distinct values less 1.
template <class Entry>
i32 count_ascents(CI64 list, i64 n, Entry entry)
{
  i64 ascents = 0;
  for (i64 k = 1; k < n; ++k) ascents += list[entry(k - 1)] < list[entry(k)];
  return static_cast<i32>(ascents);
}

}  // namespace fragments
