// Arithmetic on shapes.
//
// A shape has one extent an axis, axis 0 first. A flat position is the row-major rank of an element, the last axis
// moving fastest: the sum of index[d] * strides[d]. Arrays of extents, coordinates and strides may be arrays, runs of
// an array, or rows of a table. Products and sums wrap around in the width that they are computed in.
#pragma once

#include <algorithm>
#include <type_traits>

#include "frame/copy_run.h"
#include "frame/frame.h"

namespace fragments {

// Row r of a table of shapes or multi-indices, read and written like an array.
template <class T>
struct Row {
  const StridedMatrix<T>& table;
  i64 r;

  T& operator[](i64 d) const { return table(r, d); }
};
template <class T>
Row(const StridedMatrix<T>&, i64) -> Row<T>;

// The product of the extents lo .. hi-1, many of them: several products side by side, since each multiplication waits
// for the one before. Wrapping products are exact in any order.
template <class T, class Extents>
[[gnu::noinline]] T product_of_many(const Extents& extents, i64 lo, i64 hi)
{
  T lanes[4] = {1, 1, 1, 1};
  i64 d = lo;
  for (; d + 4 <= hi; d += 4) {
    for (i64 lane = 0; lane < 4; ++lane) lanes[lane] = wrapping_mul(lanes[lane], static_cast<T>(extents[d + lane]));
  }
  for (; d < hi; ++d) lanes[0] = wrapping_mul(lanes[0], static_cast<T>(extents[d]));
  return wrapping_mul(wrapping_mul(lanes[0], lanes[1]), wrapping_mul(lanes[2], lanes[3]));
}

// `init` times the extents lo .. hi-1.
template <class T, class Extents>
T product(T init, const Extents& extents, i64 lo, i64 hi)
{
  if (hi - lo >= 16) [[unlikely]]
    return wrapping_mul(init, product_of_many<T>(extents, lo, hi));
  for (i64 d = lo; d < hi; ++d) {
    stay_scalar(d);
    init = wrapping_mul(init, static_cast<T>(extents[d]));
  }
  return init;
}

// `init` times the extents strictly between the axes lo and hi; with the number of axes for hi, of all axes behind lo.
template <class T, class Extents>
T product_between(T init, const Extents& extents, i64 lo, i64 hi)
{
  return product(init, extents, lo + 1, hi);
}

// The greatest of `start` and the extents lo .. hi-1.
template <class Extents>
i32 greatest(i32 start, const Extents& extents, i64 lo, i64 hi)
{
  for (i64 d = lo; d < hi; ++d) start = std::max(start, extents[d]);
  return start;
}

// to[d + shift] = extents[d] for d from lo to hi-1, ascending.
template <class To, class Extents>
void copy_extents(const To& to, i64 shift, const Extents& extents, i64 lo, i64 hi)
{
  for (i64 d = lo; d < hi; ++d) to[d + shift] = extents[d];
}

// Extent 1 for the axes lo .. hi-1.
template <class To>
void fill_ones(const To& to, i64 lo, i64 hi)
{
  for (i64 d = lo; d < hi; ++d) to[d] = 1;
}

// strides[d] = strides[d+1] * extent(d+1) for d from n-2 down to 0, in the width of the strides. The last stride is the
// caller's.
template <class Strides, class Extent>
void fill_strides(const Strides& strides, i64 n, Extent extent)
{
  using T = std::remove_reference_t<decltype(strides[0])>;
  for (i64 d = n - 2; d >= 0; --d) strides[d] = wrapping_mul(strides[d + 1], static_cast<T>(extent(d + 1)));
}

template <class Strides, class Extents>
void row_major_strides(const Strides& strides, const Extents& extents, i64 n)
{
  fill_strides(strides, n, [&](i64 d) { return extents[d]; });
}

// `init` plus the sum of index[d] * strides[d], d below n.
template <class Index, class Strides>
i64 flat_position(const Index& index, const Strides& strides, i64 n, i64 init = 0)
{
  for (i64 d = 0; d < n; ++d) init = wrapping_add(init, wrapping_mul<i64>(index[d], strides[d]));
  return init;
}

// The same in a loop over rows, which stays without vectors: a product of 64 bits takes three of 32 there.
template <class Index, class Strides, class Axes>
i64 scalar_position(const Index& index, const Strides& strides, Axes n, i64 init = 0)
{
  i64 position = flat_position(index, strides, n, init);
  stay_scalar(position);
  return position;
}

// The coordinates of a flat position: index[d] for d from n-1 down to 1. Returns coordinate 0, which isn't reduced by
// its extent.
template <class Index, class Extents>
i64 split_position(i64 pos, const Index& index, const Extents& extents, i64 n)
{
  for (i64 d = n - 1; d > 0; --d) {
    const i64 extent = divisor("shape", extents[d]);
    index[d] = static_cast<i32>(pos % extent);
    pos /= extent;
  }
  return pos;
}

// Calls walk(n) for n axes, n being a constant for up to 4 of them, so that loops over the axes have none left.
template <class Walk>
void with_axis_count(i64 n, Walk walk)
{
  if (n == 1) {
    walk(std::integral_constant<i64, 1>{});
  } else if (n == 2) {
    walk(std::integral_constant<i64, 2>{});
  } else if (n == 3) {
    walk(std::integral_constant<i64, 3>{});
  } else if (n == 4) {
    walk(std::integral_constant<i64, 4>{});
  } else {
    walk(n);
  }
}

inline bool is_outside(i32 index, i32 extent)
{
  return index < 0 || index >= extent;
}

// Below 0 if a coordinate lies outside its extent, for loops that test many: such numbers can be united by |, without a
// comparison of each. The difference doesn't overflow for a coordinate from 0 on.
inline i32 sign_of_outside(i32 index, i32 extent)
{
  return index | wrapping_sub(std::max(extent, 0) - 1, index);
}

// Whether any of the first n coordinates lies outside its extent.
template <class Index, class Extents>
bool is_any_outside(const Index& index, const Extents& extents, i64 n)
{
  bool outside = false;
  for (i64 d = 0; d < n; ++d) outside |= is_outside(index[d], extents[d]);
  return outside;
}

// Whether a coordinate of any of the first n rows lies outside its extent. Rows without gaps between them are tested by
// vectors.
[[gnu::noinline]] inline bool is_any_row_outside(CI32x2 table, i64 n, CI32 extents)
{
  if (n < 1 || table.cols < 1) return false;
  table.bounds.check(n - 1, table.cols - 1);
  i32 outside = 0;
  with_axis_count(table.cols, [&](auto axes) {
    const auto test_rows = [&](auto row_step, auto step) {
      for (i64 r = 0; r < n; ++r) {
        for (i64 d = 0; d < axes; ++d) {
          outside |= sign_of_outside(table.data[r * row_step + d * step], extents[d]);
        }
      }
    };
    if (table.rowstride == axes && table.colstride == 1) {
      test_rows(axes, std::integral_constant<i64, 1>{});
    } else {
      test_rows(table.rowstride, table.colstride);
    }
  });
  return outside < 0;
}

}  // namespace fragments
