// The intersection of one list with many others.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "index/merge.h"

namespace fragments {

// A list with strictly ascending keys, whose places stand in a table by key. So an item of another list is looked up at
// once, a sixth of the time of a merge. The table is part of the object, 16 KiB on the stack; a list whose keys spread
// wider is merged.
template <class Key>
class LookupList {
 public:
  // Makes the items begin .. end-1 the list, to be intersected with other lists of `others` items in all.
  [[gnu::noinline]] void take(Key key, i32 begin, i32 end, i64 others)
  {
    key_ = key;
    begin_ = begin;
    end_ = end;
    has_table_ = false;
    if (begin >= end || others <= 0) return;
    low_ = key_(begin);
    spread_ = key_(end - 1) - low_ + 1;
    // Clearing the table costs less than the merges only if those are long enough.
    has_table_ = spread_ >= end - begin && spread_ <= std::min(longest_table, 16 * others);
    if (!has_table_) return;
    std::memset(table_.data(), 0, static_cast<std::size_t>(spread_) * sizeof table_[0]);
    for (i32 k = begin; k < end; ++k) slot(key_(k)) = static_cast<std::int16_t>(k - begin + 1);
    table_[static_cast<std::size_t>(spread_)] = 0;
  }

  // match(a, b) for every item a of the list and item b among b .. b_end-1 with the same key, ascending. Returns
  // whether there was a match.
  template <class KeyB, class Match>
  bool intersect(i32 b, i32 b_end, KeyB key_b, Match match)
  {
    Matches<i32> matches;
    bool met = false;
    for (i32 a = begin_; a < end_ && b < b_end;) {
      const i64 n = note_matches(matches, a, b, b_end, key_b);
      met |= for_each_match(matches, n, match);
    }
    return met;
  }

 private:
  static constexpr i64 longest_table = 8192;

  // Notes matches, as many as there is room for, and moves the cursors behind what is done; returns the number noted.
  // Like take() a function of its own, so that all copies of a kernel share it.
  template <class KeyB>
  [[gnu::noinline]] i64 note_matches(Matches<i32>& matches, i32& a, i32& b, i32 b_end, KeyB key_b)
  {
    if (end_ - begin_ < (b_end - b) / 8) return search(matches, a, b, b_end, key_b);
    if (has_table_) return look_up(matches, b, b_end, key_b);
    return fragments::note_matches(matches, are_alike(end_ - a, b_end - b), a, end_, b, b_end, key_, key_b);
  }

  // Looks items from b on up.
  template <class KeyB>
  i64 look_up(Matches<i32>& matches, i32& b, i32 b_end, KeyB key_b)
  {
    const i32 before = begin_ - 1, end = static_cast<i32>(std::min<i64>(b_end, b + most_matches));
    i64 n = 0;
    for (i32 k = b; k < end; ++k) {
      const i32 place = slot(key_b(k));
      matches[static_cast<std::size_t>(n)] = {before + place, k};
      n += place != 0;
    }
    b = end;
    return n;
  }

  // The other way round where the list is much the shorter one: searches its items from a on in b .. b_end-1, by halves
  // and each for itself, so that no search waits for another.
  template <class KeyB>
  i64 search(Matches<i32>& matches, i32& a, i32 b, i32 b_end, KeyB key_b)
  {
    const i32 end = static_cast<i32>(std::min<i64>(end_, a + most_matches));
    i64 n = 0;
    for (; a < end; ++a) {
      const i64 key = key_(a);
      i32 found = b;
      for (i32 rest = b_end - b; rest > 1;) {
        const i32 half = rest / 2;
        found += half * (key_b(found + half) <= key);
        rest -= half;
      }
      matches[static_cast<std::size_t>(n)] = {a, found};
      n += key_b(found) == key;
    }
    return n;
  }

  // The slot of a key, 1 + its place in the list or 0. Keys outside all share one behind the others.
  std::int16_t& slot(i64 key)
  {
    return table_[static_cast<std::size_t>(
        std::min(static_cast<std::uint64_t>(key - low_), static_cast<std::uint64_t>(spread_)))];
  }

  Key key_{};
  i32 begin_ = 0, end_ = 0;
  i64 low_ = 0, spread_ = 0;
  bool has_table_ = false;
  std::array<std::int16_t, longest_table + 1> table_;
};

}  // namespace fragments
