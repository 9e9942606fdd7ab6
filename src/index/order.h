// The order of a list: whether it ascends, and how often. The tests stop at the first pair that is out of order.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Whether in_order(list[k - 1], list[k]) holds for k from 1 to n-1. Tests eight pairs at a time, with a branch for all
// of them: half the time of one for each.
template <class InOrder>
[[gnu::noinline]] bool are_neighbours(CI64 list, i64 n, InOrder in_order)
{
  i64 k = 1;
  for (; k + 8 <= n; k += 8) {
    bool all = true;
    for (i64 e = k; e < k + 8; ++e) all &= in_order(list[e - 1], list[e]);
    if (!all) return false;
  }
  for (; k < n; ++k) {
    if (!in_order(list[k - 1], list[k])) return false;
  }
  return true;
}

// Whether the first n entries ascend strictly.
inline bool is_ascending(CI64 list, i64 n)
{
  return are_neighbours(list, n, [](i64 before, i64 entry) { return before < entry; });
}

// Whether no entry of the first n is below the one before; repeats are in order.
inline bool is_sorted(CI64 list, i64 n)
{
  return are_neighbours(list, n, [](i64 before, i64 entry) { return before <= entry; });
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
