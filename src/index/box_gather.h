// What stands in a box of an array, by an odometer: no division, and one addition an element.
#pragma once

#include <algorithm>
#include <type_traits>

#include "index/shape.h"
#include "index/slots.h"

namespace fragments {

// to[e] = from[flat] for the first n flat positions of the box from `first`, inclusive, up to `last`, exclusive, in
// row-major order. There is at least one axis; an array's flat positions are given by its `strides`.
//
// n is trusted. An axis takes at least one step, also where the box has no extent, and a walk past the end of the box
// goes on along axis 0. Scratch: a flat position and a coordinate for each axis.
template <class T, class Strides>
void gather_box(StridedArray<T> to, std::type_identity_t<StridedArray<const T>> from, CI32 first, CI32 last,
                const Strides& strides, i64 nd, i64 n)
{
  if (n < 1) return;
  const auto extent = [&](i64 d) { return std::max<i64>(i64{last[d]} - first[d], 1); };
  i64 inner = nd - 1;
  const i64 step = strides[inner];
  i64 row_length = extent(inner);
  // Rows that follow each other without a gap are one.
  while (inner > 0 && strides[inner - 1] == step * row_length) {
    --inner;
    row_length *= extent(inner);
  }
  if (inner == 0) row_length = n;
  // start[d] is the flat position of the coordinates index[0 .. d], with those behind them at their first.
  const Scratch<i64> start(nd), index(nd);
  const i64 corner = flat_position(first, strides, nd);
  for (i64 d = 0; d < nd; ++d) {
    start[d] = corner;
    index[d] = first[d];
  }

  for (i64 e = 0;;) {
    const i64 row_end = std::min(e + row_length, n);
    i64 flat = start[inner];
    if (step == 1) {
      copy_slots(Run{to, e}, Run{from, flat}, row_end - e);
      e = row_end;
    } else {
      for (; e < row_end; ++e, flat += step) to[e] = from[flat];
    }
    if (e == n) return;

    // The row is at its end: on along the innermost axis that isn't.
    i64 d = inner;
    do {
      index[d] = first[d];
      --d;
      ++index[d];
    } while (d > 0 && index[d] >= last[d]);
    start[d] += strides[d];
    for (i64 deeper = d + 1; deeper < nd; ++deeper) start[deeper] = start[d];
  }
}

// The same for an array of this shape. Scratch: its strides, too.
template <class T>
void gather_box_by_shape(StridedArray<T> to, std::type_identity_t<StridedArray<const T>> from, CI32 first, CI32 last,
                         CI32 shape, i64 nd, i64 n)
{
  if (n < 1) return;
  const Scratch<i32> strides(nd);
  strides[nd - 1] = 1;
  row_major_strides(strides, shape, nd);
  gather_box(to, from, first, last, strides, nd, n);
}

}  // namespace fragments
