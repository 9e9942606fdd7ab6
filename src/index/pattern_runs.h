// Runs in a sparse pattern and in an order of elements.
#pragma once

#include <type_traits>

#include "index/divisor.h"

namespace fragments {

// The end of a stretch: `inside` holds from k on up to a place before n, or up to n, and nowhere behind it. Looks at
// one in eight of a long stretch.
template <class Cursor, class Inside>
Cursor stretch_end(Cursor k, std::type_identity_t<Cursor> n, Inside inside)
{
  while (n - k >= 8 && inside(k + 7)) k += 8;
  while (k < n && inside(k)) ++k;
  return k;
}

// Whether n ascending flat positions are few in each row, if they are spread evenly. There it is better to divide each
// than to branch on where a row ends.
inline bool has_short_rows(Run<const i64> sp, i32 n, i64 width)
{
  constexpr i64 few = 12;
  return n > 0 && Divisor(width).quotient(sp[n - 1] - sp[0]) >= n / few;
}

// Walks n flat positions in row runs, the maximal stretches with the same row t = sp / width. run(t, b, e) is called
// for the positions b .. e-1.
template <class EachRun>
void for_each_row_run(Run<const i64> sp, i32 n, i64 width, EachRun run)
{
  const Divisor divisor(width);
  for (i32 b = 0; b < n;) {
    const i64 t = divisor.quotient(sp[b]);
    const i64 row_end = (t + 1) * width;
    const i32 e = stretch_end(b + 1, n, [&](i32 k) { return sp[k] < row_end; });
    run(t, b, e);
    b = e;
  }
}

// The number of row runs. In short rows without branches: half the time.
inline i32 count_row_runs(Run<const i64> sp, i32 n, i64 width)
{
  i32 count = 0;
  if (!has_short_rows(sp, n, width)) {
    for_each_row_run(sp, n, width, [&](i64, i32, i32) { ++count; });
    return count;
  }
  const Divisor divisor(width);
  i64 row = -1;
  for (i64 k = 0; k < n; ++k) {
    const i64 t = divisor.quotient(sp[k]);
    count += t != row;
    row = t;
  }
  return count;
}

// Walks the numbers order[b], order[b+1], ... order[e-1] in runs of neighbours: run(first, last) for each maximal
// stretch of the numbers first, first+1, ... last-1.
template <class Order, class EachRun>
void for_each_neighbour_run(const Order& order, i64 b, i64 e, EachRun run)
{
  while (b < e) {
    const i64 first = order[b];
    i64 last = first + 1;
    ++b;
    while (b < e && order[b] == last) {
      ++b;
      ++last;
    }
    run(first, last);
  }
}

// The column of item k of a pattern, sp[k] % width. It divides only where the row changes, so that it is cheap to call
// in the order of the items.
struct ColumnOf {
  Run<const i64> sp;
  Divisor width;
  i64 row_start = 0;

  i64 operator()(i64 k)
  {
    const i64 flat = sp[k];
    if (flat < row_start || flat - row_start >= width.value()) row_start = flat - width.remainder(flat);
    return flat - row_start;
  }
};

}  // namespace fragments
