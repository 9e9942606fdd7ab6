// Searches in ascending lists: scans, a count, bisections; the merge step of a sort; the check of a pattern's order.

#include "index/order.h"

namespace fragments {
namespace {

// The first position from `pos` on whose entry is at or above `key`, or the list's length; `pos` itself if it is past
// that. Linear: a sweep over ascending keys passes through the list once.
i32 scan_to(i64 key, i32 pos, CI64 sp)
{
  const auto are_eight_below = [&](i64 k) {
    bool all = true;
    for (i64 e = k; e < k + 8; ++e) all &= sp[e] < key;
    return all;
  };
  i64 place = pos;
  while (place + 8 <= sp.count && are_eight_below(place)) place += 8;
  while (place < sp.count && sp[place] < key) ++place;
  return static_cast<i32>(place);
}

// Halves lo..hi while there is something between them: is_above(m) tells whether hi goes there, or lo.
template <class IsAbove>
std::tuple<i32, i32> bisect(i32 lo, i32 hi, IsAbove is_above)
{
  while (lo < i64{hi} - 1) {
    const i32 middle = static_cast<i32>((i64{lo} + hi) / 2);
    (is_above(middle) ? hi : lo) = middle;
  }
  return {lo, hi};
}

}  // namespace

// The first entry from `pos` on that is at or above `key`: its number, the list's length if there is none, `pos` itself
// if it is past that. Linear: a sweep over ascending keys passes through the list once.
//
// - pos (index): the entry at which the search starts
KERNEL((311), (i32 pos), scan_to_key, i64 key, i32 pos, CI64 sp)
{
  return scan_to(key, pos, sp);
}

// The first entry from `pos` on that is at or above the 32-bit `key`: its number, the list's length if there is none,
// `pos` itself if it is past that. Linear: a sweep over ascending keys passes through the list once.
//
// - key (value): the entry that is looked for
// - pos (index): the entry at which the search starts
KERNEL((312), (i32 pos), scan_to_key_32, i32 key, i32 pos, CI64 sp)
{
  return scan_to(key, pos, sp);
}

// `acc` plus the number of entries from `lo` up to hi-1. Scans all of the list, which need not be sorted.
//
// - lo (value): the least entry that counts
// - hi (value): the end of those that count, exclusive
KERNEL((324), (i32 acc), count_in_range, i32 acc, CI64 sp, i32 lo, i32 hi)
{
  if (lo >= hi) return acc;
  // One of the differences is below 0 for an entry outside, whether they wrap around or not; no branch on it.
  i64 inside = sp.count;
  for (i64 m = 0; m < sp.count; ++m) {
    inside += (wrapping_sub<i64>(sp[m], lo) | wrapping_sub<i64>(i64{hi} - 1, sp[m])) >> 63;
  }
  return static_cast<i32>(acc + inside);
}

// Bisects `lo`, `hi` to neighbours around the end of the entries that equal `key`: with values[lo] at or below and
// values[hi] above `key` at the start, the result is so too. Neither of the two entries is read: they may be -1 and the
// list's length.
//
// - lo, hi (index): entries of the list
// - values (array; entries): the list, ascending
KERNEL((110), (i32 lo, i32 hi), bisect_behind_key, i32 lo, i32 hi, i64 key, CI64 values)
{
  return bisect(lo, hi, [&](i64 m) { return key < values[m]; });
}

// Bisects `lo`, `hi` to neighbours around the start of the entries that equal `key`: with values[lo] below and
// values[hi] at or above `key` at the start, the result is so too. Neither of the two entries is read: they may be -1
// and the list's length.
//
// - lo, hi (index): entries of the list
// - values (array; entries): the list, ascending
KERNEL((111), (i32 lo, i32 hi), bisect_before_key, i32 lo, i32 hi, i64 key, CI64 values)
{
  return bisect(lo, hi, [&](i64 m) { return values[m] >= key; });
}

// Merges two runs of items, each ascending by vals[item], into one. The left item goes first only if it is strictly
// smaller: of equal items the right one comes first. This is intended.
//
// - i (index): where the left run begins in `src`, and the merged one in `tgt`
// - m (index): where the left run ends and the right one begins
// - e (index): the end of the right run, exclusive
// - src (array; e): the items in the order reached
// - tgt (array; e): the items in the order that the merge makes
// - vals (array; one an item): the value by which items are compared
KERNEL((129), (), merge_sorted_runs, i32 i, i32 m, i32 e, CI32 src, I32 tgt, CI64 vals)
{
  i64 left = i, right = m, to = i;
  while (left < m && right < e) {
    tgt[to++] = vals[src[left]] < vals[src[right]] ? src[left++] : src[right++];
  }
  while (left < m) tgt[to++] = src[left++];
  while (right < e) tgt[to++] = src[right++];
}

// Clears `ok` unless the flat positions of a pattern ascend strictly. Not read if `ok` comes in cleared.
KERNEL((42), (bool ok), check_pattern_order, bool ok, CI64 sp)
{
  return ok && is_ascending(sp, sp.count);
}

}  // namespace fragments
