// Flat positions from multi-indices, multi-indices from flat positions, and what stands at a position.
//
// `midxs` and `sub` hold a multi-index a row, one coordinate a column.

#include <algorithm>

#include "index/shape.h"

namespace fragments {
namespace {

// idxs[r] = nidxs[p] for every row r of midxs, p being its flat position over the first n axes.
template <class T>
void gather_rows(StridedArray<T> idxs, CI32x2 midxs, i32 n, StridedArray<T> nidxs, CI64 strides)
{
  for (i64 r = 0; r < midxs.rows; ++r) idxs[r] = nidxs[flat_position(Row{midxs, r}, strides, n)];
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

// Adds to sp[r] the flat position of row r, for n rows of m columns. Where `sp` and the strides `s` share memory, a sum
// is stored at every column, so that the next stride is read behind it; this is intended.
void add_positions(i32 n, i32 m, CI64 s, I64 sp, CI32x2 sparsity)
{
  if (overlap(sp, s)) {
    for (i64 r = 0; r < n; ++r) {
      for (i64 c = 0; c < m; ++c) sp[r] = wrapping_add(sp[r], wrapping_mul<i64>(sparsity(r, c), s[c]));
    }
  } else {
    for (i64 r = 0; r < n; ++r) sp[r] = flat_position(Row{sparsity, r}, s, m, sp[r]);
  }
}

}  // namespace

// `init` plus the flat position of `idxa`, cut to 32 bits.
KERNEL((258), (i32), position_of_index, CI32 idxa, i32 init, i32 n, CI64 strides)
{
  return static_cast<i32>(flat_position(idxa, strides, n, init));
}

// `init` plus the flat position of row `row`.
KERNEL((177, 178, 306, 307), (i64), position_of_row, i32 row, i64 init, CI32x2 midxs, i32 n, CI64 strides)
{
  return flat_position(Row{midxs, row}, strides, n, init);
}

// `acc` plus the flat position of `firstidx`, over as many axes as `step` has entries; nothing else of `step` is read.
KERNEL((181), (i64), position_of_first, CI32 firstidx, i64 acc, CI32 step, CI64 strides)
{
  return flat_position(firstidx, strides, step.count, acc);
}

// `acc` plus the distance in flat positions that one step takes.
KERNEL((182), (i64), distance_of_step, CI32 step, i64 acc, CI64 strides)
{
  return flat_position(step, strides, step.count, acc);
}

// The flat position of `key` by Horner's rule. `init` is key[0]; with fewer than two coordinates it is the result.
KERNEL((269), (i64), position_of_key, CI32 key, i64 init, CI32 shape)
{
  return continue_position(init, key, shape, 1, key.count);
}

// Horner's rule from the other end: the rank with axis 0 moving fastest and extents shifted by one axis. `init` is
// indexes[n-1]; then for d from n-2 down to 0 the rank is indexes[d] + shape[d+1] * rank.
KERNEL((309, 310), (i64), position_from_last_axis, CI32 indexes, i64 init, i32 n, CI32 shape)
{
  for (i64 d = i64{n} - 2; d >= 0; --d) {
    init = wrapping_add<i64>(indexes[d], wrapping_mul<i64>(shape[d + 1], init));
  }
  return init;
}

// inst_[r] = the flat position of row r of `sub`, by Horner's rule.
KERNEL((619), (), positions_of_rows, CI32 dims_, I64 inst_, CI32x2 sub)
{
  for (i64 r = 0; r < sub.rows; ++r) inst_[r] = continue_position(0, Row{sub, r}, dims_, 0, sub.cols);
}

// Adds to sp[r] the flat position of row r of `sparsity`, for n rows of m columns. `sp` holds zeros or a base.
KERNEL((578), (), add_positions_of_rows_a, i32 n, i32 m, CI64 s, I64 sp, CI32x2 sparsity)
{
  add_positions(n, m, s, sp, sparsity);
}

// The same for another call site.
KERNEL((580), (), add_positions_of_rows_b, i32 n, i32 m, CI64 s, I64 sp, CI32x2 sparsity)
{
  add_positions(n, m, s, sp, sparsity);
}

// The multi-index of a flat position. The leading coordinate isn't reduced by its extent.
KERNEL((270), (), index_of_position_to_dest, I32 dest, i64 pos, CI32 shape)
{
  const i64 leading = split_position(pos, dest, shape, shape.count);
  if (shape.count > 0) dest[0] = static_cast<i32>(leading);
}

// The same into `res`.
KERNEL((272), (), index_of_position_to_res, i64 pos, I32 res, CI32 shape)
{
  const i64 leading = split_position(pos, res, shape, shape.count);
  if (shape.count > 0) res[0] = static_cast<i32>(leading);
}

// The multi-index of a flat position without its leading coordinate, which is returned: k[0] isn't written.
KERNEL((271), (i64), index_behind_leading, I32 k, i32 n, i64 pos, CI32 shape)
{
  return split_position(pos, k, shape, n);
}

// The native index that stands at each multi-index: idxs[r] = nidxs[flat position of row r], for all rows.
KERNEL((305), (), gather_native_indices, I32 idxs, CI32x2 midxs, i32 n, I32 nidxs, CI64 strides)
{
  gather_rows(idxs, midxs, n, nidxs, strides);
}

// The same for a view of a variable.
KERNEL((176), (), gather_base_indices, I64 basevar_nativeidxs, I64 idxs, CI32x2 midxs, i32 nd, CI64 strides)
{
  gather_rows(idxs, midxs, nd, basevar_nativeidxs, strides);
}

// Whether an index lies outside: sets `flag` for any coordinate of a row below 0 or at or above its extent. A flag that
// is set stays set.
KERNEL((174, 303), (bool), check_rows, bool flag, CI32x2 midxs, CI32 shape)
{
  for (i64 r = 0; r < midxs.rows; ++r) flag |= is_any_outside(Row{midxs, r}, shape, midxs.cols);
  return flag;
}

// The same for the rows of `sub` against `dims_`.
KERNEL((618), (bool), check_rows_of_stored, CI32 dims_, bool flag, CI32x2 sub)
{
  for (i64 r = 0; r < sub.rows; ++r) flag |= is_any_outside(Row{sub, r}, dims_, sub.cols);
  return flag;
}

// The same for the indices of a one-dimensional array: only shape[0] counts.
KERNEL((179, 308), (bool), check_indices, CI32 idxs, bool flag, CI32 shape)
{
  i32 outside = flag;
  for (i64 k = 0; k < idxs.count; ++k) outside |= is_outside(idxs[k], shape[0]);
  return outside != 0;
}

}  // namespace fragments
