// Flat positions from multi-indices, multi-indices from flat positions, what stands at a position, and whether indices
// lie outside.
//
// Tables hold a multi-index a row, one coordinate a column. Sums and products wrap around in 64 bits. No extent may be
// 0 where a flat position is split.
//
// - n (count): the axes
// - flag (flag): whether there is an index outside; one that comes in set stays so

#include <algorithm>

#include "index/shape.h"

namespace fragments {
namespace {

// idxs[r] = nidxs[p] for every row r of midxs, p being its flat position over the first n axes.
template <class T>
void gather_rows(StridedArray<T> idxs, CI32x2 midxs, i32 n, std::type_identity_t<StridedArray<const T>> nidxs,
                 CI64 strides)
{
  with_axis_count(n, [&](auto axes) {
    for (i64 r = 0; r < midxs.rows; ++r) idxs[r] = nidxs[scalar_position(Row{midxs, r}, strides, axes)];
  });
}

// Horner's rule over the coordinates lo .. hi-1.
template <class Index>
i64 continue_position(i64 position, const Index& index, CI32 shape, i64 lo, i64 hi)
{
  for (i64 d = lo; d < hi; ++d) position = wrapping_add<i64>(index[d], wrapping_mul<i64>(shape[d], position));
  return position;
}

// Whether the slots of two arrays share memory.
bool overlap(CI64 a, CI64 b)
{
  if (a.count < 1 || b.count < 1) return false;
  const auto [a_low, a_high] = std::minmax({a.data, a.data + (a.count - 1) * a.stride});
  const auto [b_low, b_high] = std::minmax({b.data, b.data + (b.count - 1) * b.stride});
  return a_low <= b_high && b_low <= a_high;
}

}  // namespace

// `init` plus the flat position of a multi-index, cut to 32 bits.
//
// - idxa (array; n): the multi-index
KERNEL((258), (i32 init), position_of_index, CI32 idxa, i32 init, i32 n, CI64 strides)
{
  return static_cast<i32>(flat_position(idxa, strides, n, init));
}

// `init` plus the flat position of row `row` of a table.
KERNEL((177, 178, 306, 307), (i64 init), position_of_row, i32 row, i64 init, CI32x2 midxs, i32 n, CI64 strides)
{
  return flat_position(Row{midxs, row}, strides, n, init);
}

// `acc` plus the flat position of the first index of a slice.
//
// - firstidx (array; axes): the first index along each axis
// - step (array; axes): gives only the number of axes
KERNEL((181), (i64 acc), position_of_first, CI32 firstidx, i64 acc, CI32 step, CI64 strides)
{
  return flat_position(firstidx, strides, step.count, acc);
}

// `acc` plus the distance in flat positions that one step of a slice takes.
KERNEL((182), (i64 acc), distance_of_step, CI32 step, i64 acc, CI64 strides)
{
  return flat_position(step, strides, step.count, acc);
}

// The flat position of a multi-index by Horner's rule: for d from 1 on it is key[d] + shape[d] * the one before.
//
// - key (array; axes): the multi-index
// - init (start): key[0]; with fewer than two coordinates it is the result, and nothing is read
KERNEL((269), (i64 init), position_of_key, CI32 key, i64 init, CI32 shape)
{
  return continue_position(init, key, shape, 1, key.count);
}

// The rank of a multi-index by Horner's rule from the last axis, axis 0 moving fastest and extents shifted by one axis:
// for d from n-2 down to 0 it is indexes[d] + shape[d+1] * the one before.
//
// - indexes (array; n): the multi-index
// - init (start): indexes[n-1]; with fewer than two coordinates it is the result, and nothing is read
KERNEL((309, 310), (i64 init), position_from_last_axis, CI32 indexes, i64 init, i32 n, CI32 shape)
{
  for (i64 d = i64{n} - 2; d >= 0; --d) {
    init = wrapping_add<i64>(indexes[d], wrapping_mul<i64>(shape[d + 1], init));
  }
  return init;
}

// The flat positions of all rows of `sub`, by Horner's rule: inst_[r] is that of row r.
//
// - dims_ (array; axes): the extents, one a column of `sub`
// - inst_ (array; rows): the flat position of each row
KERNEL((619), (), positions_of_rows, CI32 dims_, I64 inst_, CI32x2 sub)
{
  with_axis_count(sub.cols, [&](auto axes) {
    for (i64 r = 0; r < sub.rows; ++r) inst_[r] = continue_position(0, Row{sub, r}, dims_, 0, axes);
  });
}

// Adds to sp[r] the flat position of row r of a table. Where `sp` and the strides share memory, a sum is stored at
// every column, so that the next stride is read behind it; this is intended.
//
// - n (count): the rows
// - m (count): the columns, which are the axes
// - sp (array; n): zeros or a base each; takes the flat positions
// - sparsity (array; n x m): the multi-index of each element, one a row
KERNEL((578, 580), (), add_positions_of_rows, i32 n, i32 m, CI64 s, I64 sp, CI32x2 sparsity)
{
  if (m < 1) return;
  if (overlap(sp, s)) {
    for (i64 r = 0; r < n; ++r) {
      for (i64 c = 0; c < m; ++c) sp[r] = wrapping_add(sp[r], wrapping_mul<i64>(sparsity(r, c), s[c]));
    }
  } else {
    with_axis_count(m, [&](auto axes) {
      for (i64 r = 0; r < n; ++r) sp[r] = scalar_position(Row{sparsity, r}, s, axes, sp[r]);
    });
  }
}

// The multi-index of a flat position. The coordinate along axis 0 isn't reduced by its extent.
//
// - dest (array; axes): the multi-index
KERNEL((270), (), index_of_position_to_dest, I32 dest, i64 pos, CI32 shape)
{
  const i64 leading = split_position(pos, dest, shape, shape.count);
  if (shape.count > 0) dest[0] = static_cast<i32>(leading);
}

// The multi-index of a flat position. The coordinate along axis 0 isn't reduced by its extent.
//
// - res (array; axes): the multi-index
KERNEL((272), (), index_of_position_to_res, i64 pos, I32 res, CI32 shape)
{
  const i64 leading = split_position(pos, res, shape, shape.count);
  if (shape.count > 0) res[0] = static_cast<i32>(leading);
}

// The multi-index of a flat position but for the coordinate along axis 0, which is the result.
//
// - k (array; n): the multi-index; k[0] isn't written
// - leading (index): the coordinate along axis 0, not reduced by its extent
KERNEL((271), (i64 leading), index_behind_leading, I32 k, i32 n, i64 pos, CI32 shape)
{
  return split_position(pos, k, shape, n);
}

// The native number that stands at each multi-index of a dense array: idxs[r] = nidxs[flat position of row r].
//
// - idxs (array; rows): the native number at each row
// - nidxs (array; up to the last position): the native number of each element
KERNEL((305), (), gather_native_indices, I32 idxs, CI32x2 midxs, i32 n, CI32 nidxs, CI64 strides)
{
  gather_rows(idxs, midxs, n, nidxs, strides);
}

// The native number that stands at each multi-index of a dense view: idxs[r] = that of the flat position of row r.
//
// - basevar_nativeidxs (array; up to the last position): the native number of each element
// - idxs (array; rows): the native number at each row
KERNEL((176), (), gather_base_indices, CI64 basevar_nativeidxs, I64 idxs, CI32x2 midxs, i32 nd, CI64 strides)
{
  gather_rows(idxs, midxs, nd, basevar_nativeidxs, strides);
}

// Whether a multi-index lies outside: sets `flag` for any coordinate of a row below 0 or at or above its extent.
KERNEL((174, 303), (bool flag), check_rows, bool flag, CI32x2 midxs, CI32 shape)
{
  return flag | is_any_row_outside(midxs, midxs.rows, shape);
}

// Whether a multi-index lies outside: sets `flag` for any coordinate of a row below 0 or at or above its extent.
//
// - dims_ (array; axes): the extents, one a column of `sub`
KERNEL((618), (bool flag), check_rows_of_stored, CI32 dims_, bool flag, CI32x2 sub)
{
  return flag | is_any_row_outside(sub, sub.rows, dims_);
}

// Whether an index into a one-dimensional array lies outside: sets `flag` for any below 0 or at or above shape[0].
//
// - idxs (array; elements): the indices
KERNEL((179, 308), (bool flag), check_indices, CI32 idxs, bool flag, CI32 shape)
{
  i32 outside = flag;
  for (i64 k = 0; k < idxs.count; ++k) outside |= is_outside(idxs[k], shape[0]);
  return outside != 0;
}

}  // namespace fragments
