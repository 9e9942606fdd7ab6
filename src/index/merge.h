// The union of two ascending lists, by a merge: equal keys advance both.
#pragma once

#include "frame/frame.h"

namespace fragments {

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

// The number of elements of the union of lists of a_end and b_end entries.
template <class Cursor, class KeyA, class KeyB>
Cursor union_size(Cursor a_end, Cursor b_end, KeyA key_a, KeyB key_b)
{
  Cursor a = 0, b = 0, common = 0;
  while (a < a_end && b < b_end) {
    const i64 x = key_a(a), y = key_b(b);
    if (x < y) {
      ++a;
    } else if (y < x) {
      ++b;
    } else {
      ++a, ++b, ++common;
    }
  }
  return a_end + b_end - common;
}

}  // namespace fragments
