// The five-axis fold: a shape folded around two of its axes, which are the sides of a square matrix for every
// combination of the other axes. Loops over it have a depth of five, whatever the rank.
//
//     dim[0]  product of the extents before the first of the two axes   coordinate i0
//     dim[1]  extent of the first axis                                  i1
//     dim[2]  product of the extents between the two                    i2
//     dim[3]  extent of the second axis, equal to dim[1]                i3
//     dim[4]  product of the extents behind it                          i4
//
// stride[0..4] are the row-major strides, stride[4] is 1. The mirror of an element has i1 and i3 exchanged; an element
// is on the diagonal if they are equal. The elements of one i0, i1, i2 are a row: neighbours, and in the midst of them
// so are the dim[4] elements on the diagonal.
#pragma once

#include <algorithm>

#include "frame/frame.h"
#include "index/divisor.h"
#include "index/shape.h"

namespace fragments {

// Multiplies dim[slot] by the extents lo .. hi-1.
template <class Extents>
void fold_axes(I32 dim, i64 slot, const Extents& extents, i64 lo, i64 hi)
{
  if (lo < hi) dim[slot] = product(dim[slot], extents, lo, hi);
}

// The extents of a fold that come in one by one.
struct FoldExtents {
  i64 extent[5];
  i64 operator[](i64 d) const { return extent[d]; }
};

// The strides of a fold, to divide flat positions by.
struct FoldStrides {
  Divisor stride0, stride1, stride2, stride3;

  template <class Strides>
  explicit FoldStrides(const Strides& stride)
      : stride0(stride[0]), stride1(stride[1]), stride2(stride[2]), stride3(stride[3])
  {
  }

  i64 mirror(i64 flat) const
  {
    const i64 u = stride0.remainder(flat);
    const auto [i1, v] = stride1.divide(u);
    const i64 w = stride2.remainder(v);
    const auto [i3, i4] = stride3.divide(w);
    return (flat - u) + (v - w) + stride1.value() * i3 + stride3.value() * i1 + i4;
  }
};

// Where an element stands in its row: in front of the diagonal, i3 < i1, on it, or behind it.
enum DiagonalSide { before_diagonal, on_diagonal, behind_diagonal };

// The flat positions of a row: bound[side] to, not including, bound[side + 1].
struct FoldRow {
  i64 bound[4] = {0, 0, 0, 0};

  FoldRow() = default;
  FoldRow(i64 begin, i64 i1, i64 stride2, i64 stride3)
  {
    const i64 end = begin + stride2, diagonal = std::min(begin + i1 * stride3, end);
    bound[before_diagonal] = begin;
    bound[on_diagonal] = diagonal;
    bound[behind_diagonal] = std::min(diagonal + stride3, end);
    bound[3] = end;
  }
  bool contains(i64 flat) const { return bound[0] <= flat && flat < bound[3]; }
  DiagonalSide side(i64 flat) const
  {
    return flat < bound[on_diagonal] ? before_diagonal : flat < bound[behind_diagonal] ? on_diagonal : behind_diagonal;
  }
};

// The row around a flat position. Divides when it moves on to another row only.
class RowCursor {
 public:
  explicit RowCursor(const FoldStrides& strides) : strides_(strides) {}

  const FoldRow& around(i64 flat)
  {
    if (!row_.contains(flat)) {
      const auto& [stride0, stride1, stride2, stride3] = strides_;
      const i64 i1 = stride1.quotient(stride0.remainder(flat));
      row_ = FoldRow(flat - stride2.remainder(flat), i1, stride2.value(), stride3.value());
    }
    return row_;
  }

 private:
  FoldStrides strides_;
  FoldRow row_;
};

// Walks the stored elements of a pattern in stretches of neighbours on one side of one row: stretch(b, e, side) for the
// elements b .. e-1.
template <class Stretch>
void for_each_stored_stretch(const FoldStrides& strides, Run<const i64> sp, i64 nelem, Stretch stretch)
{
  RowCursor cursor(strides);
  for (i64 b = 0, e; b < nelem; b = e) {
    const FoldRow& row = cursor.around(sp[b]);
    const DiagonalSide side = row.side(sp[b]);
    const i64 bound = row.bound[side + 1];
    e = b + 1;
    while (e + 8 <= nelem && sp[e + 7] < bound) e += 8;  // looks at one in eight of a long stretch
    while (e < nelem && sp[e] < bound) ++e;
    stretch(b, e, side);
  }
}

// Walks all elements of a dense record in stretches of neighbours on one side of one row: stretch(b, e, side) for the
// elements b .. e-1.
template <class Stretch>
void for_each_stretch(const FoldExtents& dim, Stretch stretch)
{
  i64 begin = 0;
  for (i64 i0 = 0; i0 < dim[0]; ++i0) {
    for (i64 i1 = 0; i1 < dim[1]; ++i1) {
      for (i64 i2 = 0; i2 < dim[2]; ++i2) {
        const FoldRow row(begin, i1, dim[3] * dim[4], dim[4]);
        for (const DiagonalSide side : {before_diagonal, on_diagonal, behind_diagonal}) {
          stretch(row.bound[side], row.bound[side + 1], side);
        }
        begin = row.bound[3];
      }
    }
  }
}

// Walks all elements in ascending order: element_on_diagonal() for each one there, element_off_diagonal(mirror) for all
// others, with the flat position of the mirror.
template <class OnDiagonal, class OffDiagonal>
void for_each_mirror(CI32 dim, CI64 stride, OnDiagonal element_on_diagonal, OffDiagonal element_off_diagonal)
{
  if (dim[4] <= 0) return;
  for (i64 i0 = 0; i0 < dim[0]; ++i0) {
    for (i64 i1 = 0; i1 < dim[1]; ++i1) {
      for (i64 i2 = 0; i2 < dim[2]; ++i2) {
        const i64 dim3 = dim[3], dim4 = dim[4], diagonal = std::min(i1, dim3);
        const auto stretch_off_diagonal = [&](i64 begin, i64 end) {
          if (begin >= end) return;
          const i64 step = stride[1];
          i64 mirror = stride[0] * i0 + step * begin + stride[2] * i2 + stride[3] * i1;
          for (i64 i3 = begin; i3 < end; ++i3, mirror += step) {
            for (i64 i4 = 0; i4 < dim4; ++i4) element_off_diagonal(mirror + i4);
          }
        };
        stretch_off_diagonal(0, diagonal);
        if (diagonal == i1 && i1 < dim3) {
          for (i64 i4 = 0; i4 < dim4; ++i4) element_on_diagonal();
        }
        stretch_off_diagonal(i1 + 1, dim3);
      }
    }
  }
}

// Flat positions at equal distances.
struct Positions {
  i64 first, step;
  i64 operator[](i64 k) const { return first + k * step; }
};

// Walks one triangle, i3 from 0 to i1 or, if `upper`, from i1 to dim[1]-1, in runs of elements at equal distances:
// run(flat, n), flat Positions. A row is one run with dim[4] 1 or where its elements are neighbours; no run is empty.
template <class T, class EachRun>
void for_each_row_in_triangle(CI32 dim, StridedArray<T> stride, bool upper, EachRun run)
{
  if (dim[4] <= 0) return;
  for (i64 i0 = 0; i0 < dim[0]; ++i0) {
    for (i64 i1 = 0; i1 < dim[1]; ++i1) {
      for (i64 i2 = 0; i2 < dim[2]; ++i2) {
        const i64 begin = upper ? i1 : 0, count = upper ? dim[1] - i1 : i1 + 1;
        const i64 first = i0 * stride[0] + i1 * stride[1] + i2 * stride[2] + begin * stride[3];
        const i64 n = dim[4];
        if (n == 1) {
          run(Positions{first, stride[3]}, count);
        } else if (const i64 step = stride[4]; stride[3] == n * step) {
          run(Positions{first, step}, count * n);
        } else {
          for (i64 k = 0; k < count; ++k) run(Positions{first + k * stride[3], step}, n);
        }
      }
    }
  }
}

// Walks one triangle, i3 from 0 to i1 or, if `upper`, from i1 to dim[1]-1, in runs of elements and their mirrors:
// run(flat, mirror, n), both Positions. With dim[4] 1 a run goes along i3, else along i4. No run is empty.
template <class T, class EachRun>
void for_each_run_in_triangle(CI32 dim, StridedArray<T> stride, bool upper, EachRun run)
{
  if (dim[4] <= 0) return;
  for (i64 i0 = 0; i0 < dim[0]; ++i0) {
    for (i64 i1 = 0; i1 < dim[1]; ++i1) {
      for (i64 i2 = 0; i2 < dim[2]; ++i2) {
        const i64 begin = upper ? i1 : 0, end = upper ? dim[1] : i1 + 1;
        const i64 others = i0 * stride[0] + i2 * stride[2];
        const Positions flat{others + i1 * stride[1], stride[3]}, mirror{others + i1 * stride[3], stride[1]};
        if (dim[4] == 1) {
          run(Positions{flat[begin], flat.step}, Positions{mirror[begin], mirror.step}, end - begin);
        } else {
          const i64 step = stride[4], n = dim[4];
          for (i64 i3 = begin; i3 < end; ++i3) run(Positions{flat[i3], step}, Positions{mirror[i3], step}, n);
        }
      }
    }
  }
}

// Takes the entries of a packed triangle in order, from `packed[k]` on, each to its element of `whole` and to the
// mirror. Returns the k behind them.
template <class T, class S>
i32 scatter_packed_triangle(CI32 dim, StridedArray<S> stride, bool upper, i32 k, StridedArray<const T> packed,
                            StridedArray<T> whole)
{
  for_each_run_in_triangle(dim, stride, upper, [&](Positions flat, Positions mirror, i64 n) {
    if (flat.step == 1 && mirror.step == 1) {
      copy_run(Run{whole, flat.first}, Run{packed, k}, n);
      copy_run(Run{whole, mirror.first}, Run{packed, k}, n);
      k += static_cast<i32>(n);
      return;
    }
    for (i64 j = 0; j < n; ++j, ++k) {
      const T entry = packed[k];
      whole[flat[j]] = entry;
      whole[mirror[j]] = entry;
    }
  });
  return k;
}

}  // namespace fragments
