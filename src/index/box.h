// Boxes in an array: the flat positions with first[d] <= x[d] < last[d] for every axis, the coordinate x[d] being
// flat / stride[d] % shape[d], whatever the strides.
#pragma once

#include <algorithm>
#include <limits>

#include "frame/scratch.h"
#include "index/divisor.h"
#include "index/shape.h"

namespace fragments {

template <class Shape, class Strides>
struct Box {
  i64 nd;
  Shape shape;
  Strides stride;
  CI32 first;
  CI32 last;

  // The stride of an axis. The walks go forward by it, so that the checked build refuses a given one of 0 or below.
  i64 step(i64 d) const
  {
    const i64 step = stride[d];
    if constexpr (requires { stride.bounds; }) stride.bounds.check_positive(d, step);
    return step;
  }
};

// Strides of a row-major array of this shape.
struct RowMajorStrides {
  CI32 shape;
  i64 nd;
  i64 operator[](i64 d) const { return product<i64>(1, shape, d + 1, nd); }
};

// A shape without an end along axis 0, for coordinates that are not reduced by this extent.
struct OpenShape {
  CI32 shape;
  RowMajorStrides stride;
  i64 operator[](i64 d) const
  {
    return d > 0 ? i64{shape[d]} : std::numeric_limits<i64>::max() / 2 / std::max<i64>(stride[0], 1);
  }
};

// The test whether flat positions lie in a box: a comparison for each position, a division for each row, and more for
// each region of rows alone. Along an axis on which a row lies outside, it tells how far on they all do, and else, up
// to where the box reaches and where it begins again. Where the strides are not those of rows in rows, each position is
// a row of its own. There is at least one axis.
template <class Shape, class Strides>
class BoxFilter {
 public:
  // With `places`, only the coordinate of one axis changes in a region.
  BoxFilter(const Box<Shape, Strides>& box, bool places) : box_(box), places_(places)
  {
    bool is_nested = box.nd > 0 && box.stride[box.nd - 1] == 1;
    for (i64 d = 1; d < box.nd; ++d) is_nested &= box.stride[d] * box.shape[d] == box.stride[d - 1];
    if (is_nested) {
      outer_axes_ = box.nd - 1;
      const Axis inner = make_axis(outer_axes_, 1);
      row_ = inner.extent;
      row_first_ = inner.first;
      row_last_ = inner.last;
    } else {
      outer_axes_ = box.nd;
    }
    for (i64 d = 0; d < outer_axes_ && d < fast_axes; ++d) axes_[d] = make_axis(d, row_.value());
  }

  // No array of practice has more axes; further ones are made anew each time.
  static constexpr i64 fast_axes = 8;

  // Rows begin .. end-1, of which those in lo .. hi-1 are in the box as far as their coordinates tell.
  struct Region {
    i64 begin = 0, end = 0;
    i64 lo = 0, hi = 0;
    bool is_located = false;
    i64 place = 0, step = 0;  // the place of row `begin`, and the distance to that of the next one
    i64 coordinate[fast_axes];
  };

  // Calls inside(b, e) for the stretches b .. e-1 of n flat positions, in any order, that are in the box. A stretch may
  // have no position.
  template <class Positions, class Inside>
  void for_each(const Positions& sp, i64 n, Inside inside) const
  {
    walk(sp, n, [&](i64 b, i64 e, Region&, i64, i64) { inside(b, e); });
  }

  // The same with the places in another array: inside(b, e, place), place(k) being that of position number k. It is
  // made by place = advance(place, d, x[d] - first[d]) for axis after axis, advance() being linear in place and x.
  template <class Positions, class Advance, class Inside>
  void for_each_with_place(const Positions& sp, i64 n, Advance advance, Inside inside) const
  {
    if (n < 1) return;
    if ((sp[n - 1] - sp[0]) / row_.value() > n / 2) {
      // Hardly two positions share a row: each is divided by all strides, in half the time of a search of its region.
      for (i64 k = 0; k < n; ++k) {
        const auto [row, x] = row_.divide(sp[k]);
        bool is_inside = true;
        i64 place = 0;
        for (i64 d = 0; d < outer_axes_; ++d) {
          const auto& [stride, extent, first, last] = axis(d);
          const i64 y = extent.remainder(stride.quotient(row));
          is_inside &= is_between(first, y, last);
          place = advance(place, d, y - box_.first[d]);
        }
        if (outer_axes_ < box_.nd) {
          is_inside &= is_between(row_first_, x, row_last_);
          place = advance(place, outer_axes_, x - box_.first[outer_axes_]);
        }
        inside(k, k + is_inside, [place](i64) { return place; });
      }
      return;
    }
    walk(sp, n, [&](i64 b, i64 e, Region& region, i64 row, i64 row_begin) {
      if (b == e) return;
      if (!region.is_located) locate(region, advance);
      i64 place = region.place + (row - region.begin) * region.step, step = 0;
      if (outer_axes_ < box_.nd) {
        place = advance(place, outer_axes_, -i64{box_.first[outer_axes_]});
        step = advance(i64{0}, outer_axes_, i64{1});
      }
      inside(b, e, [&sp, place, step, row_begin](i64 k) { return place + (sp[k] - row_begin) * step; });
    });
  }

 private:
  struct Axis {
    Divisor stride{1}, extent{1};
    i64 first = 0, last = 0;  // inside the extent
  };

  // This and the search of a region are rare, and kept out of the loop over positions.
  [[gnu::noinline]] Axis make_axis(i64 d, i64 row_length) const
  {
    const i64 extent = box_.shape[d], first = std::clamp<i64>(box_.first[d], 0, std::max<i64>(extent, 0));
    return {.stride = Divisor(box_.step(d) / divisor("shape", row_length)),
            .extent = Divisor(extent),
            .first = first,
            .last = std::clamp<i64>(box_.last[d], first, std::max(extent, first))};
  }
  Axis axis(i64 d) const { return d < fast_axes ? axes_[d] : make_axis(d, row_.value()); }

  // One comparison, as of numbers that wrap around; `to` is not below `from`.
  static bool is_between(i64 from, i64 k, i64 to)
  {
    return static_cast<std::uint64_t>(k - from) < static_cast<std::uint64_t>(to - from);
  }

  // The end of the stretch of positions from number k on that are between two. Eight at a time are tested without a
  // branch on each.
  template <class Positions>
  static i64 stretch_between(i64 from, const Positions& sp, i64 k, i64 n, i64 to)
  {
    while (n - k >= 8) {
      bool all = true;
      for (i64 j = k; j < k + 8; ++j) all &= is_between(from, sp[j], to);
      if (!all) break;
      k += 8;
    }
    while (k < n && is_between(from, sp[k], to)) ++k;
    return k;
  }

  // Where many positions share a row, the end of a stretch is looked for. Where few do, each is tested by itself and
  // without a branch, which would be foretold wrongly at every end: inside() then gets stretches without a position
  // too.
  template <class Positions, class Inside>
  void walk(const Positions& sp, i64 n, Inside inside) const
  {
    if (n < 1) return;
    const bool are_rows_long = (sp[n - 1] - sp[0]) / row_.value() < n / 4;
    Region region;
    i64 row = 0, begin = 0, end = 0, lo = 0, hi = 0;  // as those of a region, but flat positions, of one row
    for (i64 k = 0; k < n;) {
      const i64 flat = sp[k];
      if (!is_between(begin, flat, end)) {
        const auto [quotient, x] = row_.divide(flat);
        row = quotient;
        if (!is_between(region.begin, row, region.end)) region = region_at(row);
        begin = flat - x;
        if (is_between(region.lo, row, region.hi)) {
          end = begin + row_.value();
          lo = begin + row_first_;
          hi = begin + row_last_;
        } else {
          end = begin + ((row < region.lo ? region.lo : region.end) - row) * row_.value();
          lo = hi = begin;
          k = stretch_between(begin, sp, k + 1, n, end);
          continue;
        }
      }
      const i64 b = k;
      if (are_rows_long) {
        const bool is_inside = is_between(lo, flat, hi);
        k = stretch_between(flat, sp, k + 1, n, is_inside ? hi : flat < lo ? lo : end);
        if (!is_inside) continue;
      } else {
        ++k;
      }
      inside(b, are_rows_long ? k : b + is_between(lo, flat, hi), region, row, begin);
    }
  }

  [[gnu::noinline]] Region region_at(i64 row) const
  {
    constexpr i64 no_end = std::numeric_limits<i64>::max();
    Region region;
    region.begin = region.lo = row;
    region.end = region.hi = no_end;
    for (i64 d = 0; d < outer_axes_; ++d) {
      const auto [stride, extent, first, last] = axis(d);
      const auto [block, behind] = stride.divide(row);
      const i64 x = extent.remainder(block);
      if (d < fast_axes) region.coordinate[d] = x;
      const i64 period = row - behind - x * stride.value();
      const i64 lo = period + first * stride.value(), hi = period + last * stride.value();
      const i64 next = lo + extent.value() * stride.value();
      if (row < lo || row >= hi) {
        region.end = std::max(row < lo ? lo : next, row + 1);
        region.hi = row;
        return region;
      }
      if (places_ && stride.value() != 1) {
        region.end = std::min(region.end, row - behind + stride.value());
      } else if (first > 0 || last < extent.value() || places_) {
        region.hi = std::min(region.hi, hi);
        region.end = std::min(region.end, next);
      }
    }
    region.end = std::max(region.end, row + 1);
    return region;
  }

  template <class Advance>
  void locate(Region& region, Advance advance) const
  {
    for (i64 d = 0; d < outer_axes_; ++d) {
      const auto [stride, extent, first, last] = axis(d);
      const i64 x = d < fast_axes ? region.coordinate[d] : extent.remainder(stride.quotient(region.begin));
      region.place = advance(region.place, d, x - box_.first[d]);
      region.step = advance(region.step, d, i64{stride.value() == 1 && extent.value() > 1});
    }
    region.is_located = true;
  }

  Box<Shape, Strides> box_;
  bool places_;
  i64 outer_axes_;
  Divisor row_{1};
  i64 row_first_ = 0, row_last_ = 1;
  Axis axes_[fast_axes];
};

// A stretch of flat positions that is cut into those that a box holds along one axis, in ascending order.
struct AxisCut {
  i64 period = 0, box_begin = 0, box_end = 0;  // the box repeats after `period`
  bool is_nested = false;                      // so are the strides up to here: a stretch begins with a period
  i64 begin = 0, end = 0, start = 0;           // the stretch, and the period that comes next

  template <class Shape, class Strides>
  static AxisCut along(const Box<Shape, Strides>& box, i64 d, bool is_outer_nested)
  {
    const i64 extent = box.shape[d], step = box.step(d), period = std::max<i64>(step * extent, 1);
    return {.period = period,
            .box_begin = std::max<i64>(box.first[d], 0) * step,
            .box_end = std::min<i64>(box.last[d], extent) * step,
            .is_nested = is_outer_nested && (d == 0 || box.stride[d - 1] == period)};
  }
  void cut(i64 from, i64 to)
  {
    begin = from;
    end = to;
    start = is_nested ? from : from / period * period;
  }
  // The positions from..to-1 of the next period, maybe none, and on to so many periods behind it; false at the end.
  bool next(i64 periods, i64& from, i64& to)
  {
    if (start >= end) return false;
    from = std::max(begin, start + box_begin);
    to = std::min(end, start + box_end);
    start += periods * period;
    return true;
  }
};

// Goes on to the next stretch of all axes but the last, from axis d on; false at the end.
[[gnu::noinline]] inline bool next_of_outer_axes(AxisCut* cuts, i64 nd, i64& d, i64& begin, i64& end)
{
  while (d >= 0) {
    if (!cuts[d].next(1, begin, end)) {
      --d;
    } else if (begin < end) {
      if (d == nd - 2) return true;
      cuts[++d].cut(begin, end);
    }
  }
  return false;
}

// Calls block(b, length, step, rows) for blocks of rows of equal length and distance, row r being the flat positions
// from b + r * step on, that together are those below n in the box, in ascending order: whole blocks of inner axes are
// skipped. There is one place that calls block(), and no recursion, so that what it works on stays in registers: half
// the time for short rows. Allocates a table of the axes if there are more than eight.
template <class Shape, class Strides, class Block>
void for_each_box_block(Box<Shape, Strides> box, i64 n, const Block& block)
{
  if (n < 1) return;
  // The last axes bound nothing where the box has all of their extent.
  const auto is_whole = [&](i64 d) {
    return box.first[d] <= 0 && box.last[d] >= box.shape[d] && box.shape[d] > 0 && box.step(d) > 0;
  };
  while (box.nd > 1 && is_whole(box.nd - 1)) --box.nd;

  const i64 nd = box.nd;
  constexpr i64 near = 8;
  AxisCut of_few_axes[near];
  const Scratch<AxisCut> of_many_axes{nd > near ? nd : 0};
  AxisCut* const cuts = nd > near ? &of_many_axes[0] : of_few_axes;
  for (i64 d = 0; d < nd; ++d) {
    cuts[d] = AxisCut::along(box, d, d == 0 || cuts[d - 1].is_nested);
    if (cuts[d].box_begin >= cuts[d].box_end) return;
  }
  AxisCut last{.period = n, .box_end = n, .is_nested = true};
  i64 whole = 0, periods = 1;  // the length of stretches that no end cuts, and the periods of the last axis in them
  if (nd > 0) last = cuts[nd - 1];
  if (nd > 1 && last.is_nested) {
    whole = cuts[nd - 2].box_end - cuts[nd - 2].box_begin;
    periods = whole / last.period;
  }
  if (nd > 1) cuts[0].cut(0, n);
  i64 d = nd > 1 ? 0 : -1, begin = 0, end = n;
  for (bool more = nd < 2 || next_of_outer_axes(cuts, nd, d, begin, end); more;
       more = next_of_outer_axes(cuts, nd, d, begin, end)) {
    const i64 rows = end - begin == whole ? periods : 1;
    last.cut(begin, end);
    for (i64 b = 0, e = 0; last.next(rows, b, e);) {
      if (b < e) block(b, e - b, last.period, rows);
    }
  }
}

// Calls stretch(b, e) for the stretches b .. e-1 of flat positions below n in the box, in ascending order.
template <class Shape, class Strides, class Stretch>
void for_each_box_stretch(const Box<Shape, Strides>& box, i64 n, const Stretch& stretch)
{
  for_each_box_block(box, n, [&](i64 b, i64 length, i64 step, i64 rows) {
    for (i64 r = 0; r < rows; ++r, b += step) stretch(b, b + length);
  });
}

}  // namespace fragments
