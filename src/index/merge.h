// Merges of two strictly ascending lists: their intersection and their union.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Walks the two in step until one of them is exhausted: match(a, b) for every pair of equal keys. The cursors are left
// where the walk ended. Returns whether there was a match.
template <class Cursor, class KeyA, class KeyB, class Match>
bool intersect(Cursor& a, Cursor a_end, Cursor& b, Cursor b_end, KeyA key_a, KeyB key_b, Match match)
{
  bool met = false;
  while (a < a_end && b < b_end) {
    const auto x = key_a(a);
    const auto y = key_b(b);
    if (x < y) {
      ++a;
    } else if (y < x) {
      ++b;
    } else {
      match(a, b);
      met = true;
      ++a;
      ++b;
    }
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
