// Fills and copies of whole fields, as if slot by slot in ascending order: source and target of a copy may overlap in
// one array. A count of 0 or less does nothing.
#pragma once

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "frame/copy_run.h"
#include "frame/frame.h"

namespace fragments {

template <class T>
void fill_slots(Run<T> to, i64 n, T value)
{
  for (i64 k = 0; k < n; ++k) to[k] = value;
}

// A loop of stores takes longer than memset, whose vectors are wider.
template <class T>
void clear_slots(Run<T> to, i64 n)
{
  if (n < 1) return;
  if (to.stride != 1) return fill_slots(to, n, T{0});
  to.bounds.check_run(n);
  std::memset(to.data, 0, static_cast<std::size_t>(n) * sizeof(T));
}

// Whether these slots are neighbours in memory and lie apart from the others, so that the order of a copy doesn't show.
template <class T>
bool are_apart(Run<T> to, i64 to_count, std::type_identity_t<Run<const T>> from, i64 from_count)
{
  return to.stride == 1 && from.stride == 1 && (to.data + to_count <= from.data || from.data + from_count <= to.data);
}

template <class T>
void copy_slots(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n)
{
  if (n < 1) return;
  if (!are_apart(to, n, from, n)) {
    for (i64 k = 0; k < n; ++k) to[k] = from[k];
  } else if (n < long_run) {
    copy_run(to, from, n);
  } else {
    // Three quarters of the time of a loop, whose vectors are those of the oldest machines.
    to.bounds.check_run(n);
    from.bounds.check_run(n);
    std::memcpy(to.data, from.data, static_cast<std::size_t>(n) * sizeof(T));
  }
}

// Copies rows of `length` slots, whose starts are `step` apart, one behind the other.
template <class T>
void copy_rows(Run<T> to, std::type_identity_t<Run<const T>> from, i64 length, i64 step, i64 rows)
{
  if (length == 1) {
    for (i64 r = 0; r < rows; ++r) to[r] = from[r * step];
  } else {
    for (i64 r = 0; r < rows; ++r) copy_slots(to.from(r * length), from.from(r * step), length);
  }
}

// `times` copies of n slots, one behind the other.
template <class T>
void repeat_slots(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n, i64 times)
{
  if (n < 1 || times < 1) return;
  if (!are_apart(to, n * times, from, n)) {
    for (i64 copy = 0; copy < times; ++copy) copy_slots(to.from(copy * n), from, n);
    return;
  }
  if (n == 1 && times < long_run) {
    const T value = from[0];
    for (i64 k = 0; k < times; ++k) to[k] = value;
    return;
  }
  if (n * times < long_run) {
    for (i64 copy = 0; copy < times; ++copy) copy_run(to.from(copy * n), from, n);
    return;
  }
  // What is there is copied behind itself, twice as much each time, as long as it stays in the nearest cache.
  constexpr i64 near_slots = 2048;
  copy_slots(to, from, n);
  for (i64 done = n, piece = n; done < n * times; done += piece) {
    if (done <= near_slots) piece = done;
    copy_slots(to.from(done), to, std::min(piece, n * times - done));
  }
}

// to[r * columns + c] = from(r, c), row by row.
template <class T>
void copy_matrix(Run<T> to, std::type_identity_t<StridedMatrix<const T>> from, i64 rows, i64 columns)
{
  if (rows < 1 || columns < 1) return;
  const i64 n = rows * columns;
  Run<const T> source;
  source.data = from.data;
  source.stride = from.colstride;
  const auto copy_rows_of = [&](i64 count, i64 length) {
    from.bounds.check(rows - 1, columns - 1);
    to.bounds.check_run(n);
    for (i64 r = 0; r < count; ++r) {
      std::memcpy(to.data + r * length, from.data + r * from.rowstride, static_cast<std::size_t>(length) * sizeof(T));
    }
  };
  if (from.rowstride == columns && are_apart(to, n, source, n)) return copy_rows_of(1, n);
  if (from.rowstride > columns && columns >= long_run &&
      are_apart(to, n, source, (rows - 1) * from.rowstride + columns)) {
    return copy_rows_of(rows, columns);
  }
  for (i64 r = 0; r < rows; ++r) {
    for (i64 c = 0; c < columns; ++c) to[r * columns + c] = from(r, c);
  }
}

// to[c * step + r] = from[r * columns + c] for all rows and columns. In strips of 8 rows, so that a cache line of the
// target is filled at once; of 64 in a large matrix, whose columns lie in as many pages, in half the time; and of 512,
// which stay near, where a row of the source takes less than a line itself.
template <class T>
void transpose_slots(Run<T> to, std::type_identity_t<Run<const T>> from, i64 rows, i64 columns, i64 step)
{
  i64 strip = 0;
  const auto transpose_strip = [&](auto height) {
    for (i64 c = 0; c < columns; ++c) {
      for (i64 r = strip; r < strip + height; ++r) to[c * step + r] = from[r * columns + c];
    }
  };
  if (columns >= 64 && rows * columns >= 65536) {
    for (; rows - strip >= 64; strip += 64) transpose_strip(std::integral_constant<i64, 64>{});
  }
  if (columns >= 8) {
    for (; rows - strip >= 8; strip += 8) transpose_strip(std::integral_constant<i64, 8>{});
  }
  for (; strip < rows; strip += 512) {
    const i64 height = std::min<i64>(rows - strip, 512);
    // Two and three rows are frequent: they are those of small cones.
    if (height == 2) {
      transpose_strip(std::integral_constant<i64, 2>{});
    } else if (height == 3) {
      transpose_strip(std::integral_constant<i64, 3>{});
    } else {
      transpose_strip(height);
    }
  }
}

template <class T>
void scale_slots(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n, T factor)
{
  for (i64 k = 0; k < n; ++k) to[k] = from[k] * factor;
}

// to[k] = first + k * step. The loop over many is a function of its own, see copy_long_run(); a few go in pairs.
template <class T>
[[gnu::noinline]] void fill_long_progression(T* to, i64 n, T first, T step)
{
  for (i64 k = 0; k < n; ++k, first += step) to[k] = first;
}
template <class T>
void fill_progression(Run<T> to, i64 n, T first, std::type_identity_t<T> step)
{
  if (to.stride == 1 && n >= long_run) {
    to.bounds.check_run(n);
    fill_long_progression(to.data, n, first, step);
  } else if (to.stride == 1 && n > 1) {
    to.bounds.check_run(n);
    using Pair = typename PairOf<T>::type;
    Pair pair{first, first + step};
    const i64 last = n - 2;
    const Pair last_pair = pair + step * static_cast<T>(last);
    for (i64 k = 0; k < last; k += 2, pair += 2 * step) store_pair(to.data + k, pair);
    store_pair(to.data + last, last_pair);
  } else {
    for (i64 k = 0; k < n; ++k, first += step) to[k] = first;
  }
}

// to[m] = step * m for m from `first` to `last`, wrapping around: with first 0 and last n, the `ptr` of n elements of
// `step` terms each.
inline void fill_multiples(Run<i32> to, i64 first, i64 last, i32 step)
{
  i32 multiple = wrapping_mul(static_cast<i32>(first), step);
  for (i64 m = first; m <= last; ++m, multiple = wrapping_add(multiple, step)) to[m] = multiple;
}

}  // namespace fragments
