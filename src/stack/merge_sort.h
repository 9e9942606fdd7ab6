// Stable merge sort of neighbouring numbers by a key.
#pragma once

#include <utility>

#include "frame/frame.h"

namespace fragments {

// Merges the sorted runs from[b .. middle-1] and from[middle .. e-1] into to[b .. e-1]. The right item is taken only if
// the left one's key is greater.
template <class Key>
void merge_runs(Run<i32> from, Run<i32> to, i64 b, i64 middle, i64 e, Key key)
{
  i64 left = b, right = middle;
  while (left < middle && right < e) {
    const bool takes_right = key(from[left]) > key(from[right]);
    to[b++] = from[takes_right ? right : left];
    right += takes_right;
    left += !takes_right;
  }
  while (left < middle) to[b++] = from[left++];
  while (right < e) to[b++] = from[right++];
}

// Writes the numbers first .. first+n-1 to perm[0 .. n-1] by ascending key, those of one key in ascending order. It
// needs n slots of `buffer` and leaves anything there. Short stretches are sorted by insertion, then merged bottom-up.
template <class Key>
void merge_sort(Run<i32> perm, Run<i32> buffer, i32 first, i64 n, Key key)
{
  constexpr i64 short_stretch = 8;
  Run<i32> from = perm, to = buffer;
  for (i64 width = short_stretch; width < n; width *= 2) std::swap(from, to);  // so that the last pass ends in `perm`

  for (i64 b = 0; b < n; b += short_stretch) {
    const i64 e = b + short_stretch < n ? b + short_stretch : n;
    for (i64 i = b; i < e; ++i) {
      const i32 item = static_cast<i32>(first + i);
      i64 place = i;
      for (; place > b && key(from[place - 1]) > key(item); --place) from[place] = from[place - 1];
      from[place] = item;
    }
  }
  for (i64 width = short_stretch; width < n; width *= 2) {
    for (i64 b = 0; b < n; b += 2 * width) {
      merge_runs(from, to, b, b + width < n ? b + width : n, b + 2 * width < n ? b + 2 * width : n, key);
    }
    std::swap(from, to);
  }
}

}  // namespace fragments
