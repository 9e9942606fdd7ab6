// Merges of two strictly ascending lists: their intersection and their union.
#pragma once

#include <array>
#include <cstddef>

#include "index/pattern_runs.h"

namespace fragments {

// Keys that stand in an array or a run, counted from `start` on.
template <class Keys>
struct KeysOf {
  Keys keys{};
  i64 start = 0;

  i64 operator()(i64 k) const { return keys[k] - start; }
};
template <class Keys>
KeysOf(Keys, i64 = 0) -> KeysOf<Keys>;

// The same in the order of `order`.
template <class Keys>
struct OrderedKeysOf {
  Keys keys{};
  Run<const i32> order{};

  i64 operator()(i64 k) const { return keys[order[k]]; }
};
template <class Keys>
OrderedKeysOf(Keys, Run<const i32>) -> OrderedKeysOf<Keys>;

// Pairs of places with equal keys, noted during a walk and handled behind it: a walk that branches on each is foretold
// wrongly where the data decide.
template <class Cursor>
struct Match {
  Cursor a, b;
};
constexpr i64 most_matches = 128;
template <class Cursor>
using Matches = std::array<Match<Cursor>, most_matches>;

// handle(a, b) for the first n matches in order. Returns whether there are any.
template <class Cursor, class Handle>
bool for_each_match(const Matches<Cursor>& matches, i64 n, Handle handle)
{
  for (i64 k = 0; k < n; ++k) handle(matches[static_cast<std::size_t>(k)].a, matches[static_cast<std::size_t>(k)].b);
  return n > 0;
}

// Walks two lists in step until one is exhausted or no more matches can be noted, and returns the number noted. Keys
// are flat positions, columns, variables: the difference of any two stays within 64 bits.
//
// Lists of like lengths are walked without a branch on their keys, up to the last item of one: half the time of the
// plain loop. A cursor advances by adding the sign of a difference, and the keys come from loads one step ahead. In a
// list that is much longer than the other nearly all items are passed over, and one in eight is looked at.
//
// It is a function of its own, so that kernels whose keys are of the same type share it.
template <class Cursor, class KeyA, class KeyB>
[[gnu::noinline]] i64 note_matches(Matches<Cursor>& matches, bool alike, Cursor& a, Cursor a_end, Cursor& b,
                                   Cursor b_end, KeyA key_a, KeyB key_b)
{
  Cursor p = a, q = b;
  i64 n = 0;
  if (alike && p < a_end - 1 && q < b_end - 1) {
    i64 x = key_a(p), y = key_b(q);
    do {
      const i64 next_x = key_a(p + 1), next_y = key_b(q + 1);
      const i64 less = (x - y) >> 63, greater = (y - x) >> 63;  // -1 or 0
      matches[static_cast<std::size_t>(n)] = {p, q};
      n += 1 + less + greater;
      p += static_cast<Cursor>(1 + greater);
      q += static_cast<Cursor>(1 + less);
      x = next_x ^ ((next_x ^ x) & greater);
      y = next_y ^ ((next_y ^ y) & less);
    } while (p < a_end - 1 && q < b_end - 1 && n < most_matches);
  } else {
    while (p < a_end && q < b_end && n < most_matches) {
      const i64 x = key_a(p), y = key_b(q);
      if (x < y) {
        p = stretch_end(p + 1, a_end, [&](Cursor k) { return key_a(k) < y; });
      } else if (y < x) {
        q = stretch_end(q + 1, b_end, [&](Cursor k) { return key_b(k) < x; });
      } else {
        matches[static_cast<std::size_t>(n++)] = {p++, q++};
      }
    }
  }
  a = p;
  b = q;
  return n;
}

// Whether neither of two lists is much longer than the other.
inline bool are_alike(i64 a, i64 b)
{
  return a < 8 * b && b < 8 * a;
}

// Walks the two in step until one of them is exhausted: match(a, b) for every pair of equal keys. The cursors are left
// where the walk ended. Returns whether there was a match.
template <class Cursor, class KeyA, class KeyB, class Match>
bool intersect(Cursor& a, Cursor a_end, Cursor& b, Cursor b_end, KeyA key_a, KeyB key_b, Match match)
{
  const bool alike = are_alike(a_end - a, b_end - b);
  Matches<Cursor> matches;
  bool met = false;
  while (a < a_end && b < b_end) {
    const i64 n = note_matches(matches, alike, a, a_end, b, b_end, key_a, key_b);
    met |= for_each_match(matches, n, match);
  }
  return met;
}

// Walks the union, ascending: element(key, in_a, in_b), the cursors a and b standing at the entries with this key as
// far as there are any; they advance behind it.
template <class Cursor, class KeyA, class KeyB, class Element>
void unite(Cursor& a, Cursor a_end, Cursor& b, Cursor b_end, KeyA key_a, KeyB key_b, Element element)
{
  while (a < a_end || b < b_end) {
    const bool in_a = a < a_end && (b >= b_end || key_a(a) <= key_b(b));
    const bool in_b = b < b_end && (a >= a_end || key_b(b) <= key_a(a));
    element(in_a ? key_a(a) : key_b(b), in_a, in_b);
    a += in_a;
    b += in_b;
  }
}

// The number of elements of the union of lists of a_end and b_end entries. In lists of like lengths, which cursor moves
// on is a matter of chance, and nothing branches on it, which takes half the time; the next keys are loaded before it
// is known.
template <class Cursor, class KeyA, class KeyB>
Cursor union_size(Cursor a_end, Cursor b_end, KeyA key_a, KeyB key_b)
{
  Cursor a = 0, b = 0, common = 0;
  if (a_end > b_end / 4 && b_end > a_end / 4) {
    i64 x = key_a(0), y = key_b(0);
    while (a < a_end - 1 && b < b_end - 1) {
      const i64 next_x = key_a(a + 1), next_y = key_b(b + 1);
      const i64 moves_a = x <= y, moves_b = y <= x;
      common += static_cast<Cursor>(moves_a & moves_b);
      a += static_cast<Cursor>(moves_a);
      b += static_cast<Cursor>(moves_b);
      x ^= (x ^ next_x) & -moves_a;
      y ^= (y ^ next_y) & -moves_b;
    }
  }
  intersect(a, a_end, b, b_end, key_a, key_b, [&](Cursor, Cursor) { ++common; });
  return a_end + b_end - common;
}

}  // namespace fragments
