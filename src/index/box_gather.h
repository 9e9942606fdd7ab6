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
  i64 step = strides[inner];
  i64 row_length = extent(inner);
  // Rows that follow each other without a gap are one, and so are rows of one element.
  while (inner > 0 && (row_length == 1 || strides[inner - 1] == step * row_length)) {
    --inner;
    if (row_length == 1) step = strides[inner];
    row_length *= extent(inner);
  }
  if (inner == 0) row_length = n;
  // Rows of the axis in front have equal distances.
  const i64 middle = inner - 1, row_step = inner > 0 ? i64{strides[middle]} : 0;
  const i64 rows = middle > 0 ? extent(middle) : n;
  // start[d] is the flat position of the coordinates index[0 .. d], with those behind them at their first.
  const Scratch<i64> start(nd), index(nd);
  const i64 corner = flat_position(first, strides, nd);
  for (i64 d = 0; d < nd; ++d) {
    start[d] = corner;
    index[d] = first[d];
  }

  for (i64 e = 0;;) {
    i64 row = 0, row_start = start[inner];
    if (step == 1) {
      row = std::min(rows, (n - e) / row_length);
      copy_rows(Run{to, e}, Run{from, row_start}, row_length, row_step, row);
      e += row * row_length;
      row_start += row * row_step;
    }
    for (; row < rows && e < n; ++row, row_start += row_step) {
      const i64 row_end = std::min(e + row_length, n);
      for (i64 flat = row_start; e < row_end; ++e, flat += step) to[e] = from[flat];
    }
    if (e == n) return;

    // These rows are at their end: on along the innermost axis that isn't.
    i64 d = middle;
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
