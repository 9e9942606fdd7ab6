// Merges of strictly ascending lists.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Walks two lists in step until one of them is exhausted: match(a, b) for every pair of equal keys. The cursors are
// left where the walk ended. Returns whether there was a match.
template <class KeyA, class KeyB, class Match>
bool intersect(i32& a, i32 a_end, i32& b, i32 b_end, KeyA key_a, KeyB key_b, Match match)
{
  bool met = false;
  while (a < a_end && b < b_end) {
    const auto x = key_a(a);
    const auto y = key_b(b);
    if (x < y)
      ++a;
    else if (x > y)
      ++b;
    else {
      match(a, b);
      met = true;
      ++a;
      ++b;
    }
  }
  return met;
}

// The stored elements of an operand among the flat positions wanted[0], wanted[1], ...: found(k, f) if the operand
// stores position wanted[k] as its element f. A dense operand stores all, a sparse one those of the pattern `sp`.
template <class Found>
void find_stored(I64 wanted, bool hassp, Run<i64> sp, i32 nelem, Found found)
{
  const i32 count = static_cast<i32>(wanted.count);
  i32 k = 0, f = 0;
  if (hassp)
    intersect(
        k, count, f, nelem, [&](i32 place) { return wanted[place]; }, [&](i32 element) { return sp[element]; }, found);
  else
    for (; k < count; ++k) found(k, wanted[k]);
}

}  // namespace fragments
