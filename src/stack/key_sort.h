// Stable sort of neighbouring numbers by 64-bit keys. Whether one key is above another is a matter of chance, so
// nothing but the sort of keys that lie very far apart branches on it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "frame/copy_run.h"
#include "index/counting_sort.h"

namespace fragments {

struct KeyRange {
  i64 least, greatest;

  // What a key, or the greatest one, has over the least.
  std::uint64_t above_least(i64 key) const { return static_cast<std::uint64_t>(wrapping_sub(key, least)); }
  std::uint64_t distance() const { return above_least(greatest); }
};

// The least and the greatest of n keys, at least one. Up to four are looked at without a loop, whose end would be
// foretold wrongly for every other element.
inline KeyRange range_of(Run<const i64> keys, i64 n)
{
  KeyRange range{keys[0], keys[0]};
  const auto include = [&](i64 key) { range = {std::min(range.least, key), std::max(range.greatest, key)}; };
  if (n <= 4) {
    for (i64 k = 1; k < 4; ++k) include(keys[k < n ? k : 0]);
  } else {
    for (i64 k = 1; k < n; ++k) include(keys[k]);
  }
  return range;
}

// Sorts 2 to 4 numbers: each goes to the place that all comparisons tell. Missing ones come behind the others; they are
// written to slot 0 before the number that belongs there.
inline void sort_few(Run<i32> perm, i32 first, i64 n, Run<const i64> keys)
{
  const bool has2 = n > 2, has3 = n > 3;
  const i64 key0 = keys[0], key1 = keys[1], key2 = keys[has2 ? 2 : 0], key3 = keys[has3 ? 3 : 0];
  const i32 swap01 = key0 > key1, swap02 = has2 & (key0 > key2), swap12 = has2 & (key1 > key2),
            swap03 = has3 & (key0 > key3), swap13 = has3 & (key1 > key3), swap23 = has3 & (key2 > key3);
  perm[has3 ? 3 - swap03 - swap13 - swap23 : 0] = first + 3;
  perm[has2 ? 2 - swap02 - swap12 + swap23 : 0] = first + 2;
  perm[1 - swap01 + swap12 + swap13] = first + 1;
  perm[swap01 + swap02 + swap03] = first;
}

constexpr i64 most_ranked = 64;
constexpr std::uint64_t ranked_distance = std::uint64_t{1} << 25;

// Sorts up to `most_ranked` numbers whose keys are less than `ranked_distance` apart: the place of each is the number
// of those before it. With its own place in the low bits, every key is another. Comparing all with all takes n*n steps,
// but short ones: the loop over 32-bit keys, a multiple of four of them, is vectorised.
inline void sort_by_rank(Run<i32> perm, i32 first, i64 n, Run<const i64> keys, KeyRange range)
{
  i32 ranked[most_ranked];
  const i64 fours = (n + 3) / 4;
  for (i64 k = 0; k < n; ++k) {
    stay_scalar(k);
    ranked[k] = static_cast<i32>(range.above_least(keys[k]) * most_ranked) + static_cast<i32>(k);
  }
  for (i64 k = n; k < 4 * fours; ++k) ranked[k] = std::numeric_limits<i32>::max();
  for (i64 k = 0; k < n; ++k) {
    const i32 key = ranked[k];
    i32 before = 0;
    for (i64 j = 0; j < 4 * fours; ++j) before += ranked[j] < key;
    perm[before] = static_cast<i32>(first + k);
  }
}

inline void sort_by_insertion(Run<i32> perm, i32 first, i64 n, Run<const i64> keys)
{
  for (i64 k = 0; k < n; ++k) {
    i64 place = k;
    for (; place > 0 && keys[perm[place - 1] - first] > keys[k]; --place) perm[place] = perm[place - 1];
    perm[place] = static_cast<i32>(first + k);
  }
}

// Sorts any number of them by radix, 8 bits of the keys at a time. It needs n slots of `buffer` and leaves anything
// there. O(n) for each 8 bits of the distance between the least and the greatest key.
inline void sort_by_radix(Run<i32> perm, Run<i32> buffer, i32 first, i64 n, Run<const i64> keys, KeyRange range)
{
  constexpr i64 digits = 256;
  i32 slots[digits + 1];
  i32* const buckets = slots;
  Run<i32> from = perm, to = buffer;
  const auto has_pass = [&](int shift) { return shift < 64 && range.distance() >> shift > 0; };
  for (int shift = 0; has_pass(shift); shift += 8) std::swap(from, to);  // so that the last pass ends in `perm`

  for (i64 k = 0; k < n; ++k) from[k] = static_cast<i32>(first + k);
  for (int shift = 0; has_pass(shift); shift += 8) {
    const auto digit = [&](i64 k) { return static_cast<i64>(range.above_least(keys[k]) >> shift & (digits - 1)); };
    clear_buckets(buckets, digits);
    count_buckets(buckets, n, digit);
    add_up(buckets, digits);
    reorder_items(buckets, from, to, n, [&](i32 item) { return digit(item - first); });
    std::swap(from, to);
  }
}

// Writes the numbers first .. first+n-1 to perm[0 .. n-1] by ascending key, those of one key in ascending order; number
// first + k has keys[k], and `range` is that of all n keys, which are 2 at least. It may leave anything in n slots of
// `buffer`. Against merging it takes half the time for few numbers, a quarter for a dozen and for hundreds.
inline void sort_by_key(Run<i32> perm, Run<i32> buffer, i32 first, i64 n, Run<const i64> keys, KeyRange range)
{
  if (n <= 4) {
    sort_few(perm, first, n, keys);
  } else if (n > most_ranked) {
    sort_by_radix(perm, buffer, first, n, keys, range);
  } else if (range.distance() < ranked_distance) {
    sort_by_rank(perm, first, n, keys, range);
  } else {
    sort_by_insertion(perm, first, n, keys);
  }
}

}  // namespace fragments
