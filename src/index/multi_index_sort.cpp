// A sparsity pattern from a table of multi-indices, a row for each element: the flat positions in the order of the
// rows, or sorted. To sort, the host layer numbers the rows, runs one counting pass for each axis, the last axis first,
// with `curperm` and `tgtperm` swapped in between, and writes the positions in the order reached.
//
// Flat positions are 64 bits wide, also where the strides have 32.
//
//     positions in the order of the rows       44, checked 51 64
//     room for the buckets                     the greatest extent, 52 65, and 1 more
//     number the rows                          53 66 219 237
//     a pass for each axis                     54 67
//     positions in the order reached           55 68
//
// - n (count): the rows, which are the elements
// - midxs (array; n x nd): the multi-index of each element, one a row
// - curperm (array; n): the numbers of the rows in the order reached
// - tgtperm (array; n): the numbers of the rows in the order that the pass makes

#include "index/counting_sort.h"
#include "index/shape.h"
#include "index/slots.h"

namespace fragments {
// The flat positions of n rows.
//
// - sp (array; n): the flat position of each row
// - sparsity (array; n x nd): the multi-index of each element, one a row
KERNEL((44), (), flatten_rows, i32 nd, i32 n, I64 sp, CI32x2 sparsity, CI64 strides)
{
  with_axis_count(nd, [&](auto axes) {
    for (i64 r = 0; r < n; ++r) sp[r] = scalar_position(Row{sparsity, r}, strides, axes);
  });
}

// The flat positions of n rows up to the first that is outside. The first row with an index below 0 or at or above
// its extent sets `bad`; from that row on nothing is written, and nothing at all if `bad` comes in set.
//
// - sp (array; n x axes): the multi-index of each element, one a row; its columns are the number of axes
// - sparsity (array; n): the flat position of each row
KERNEL((51, 64), (bool bad), check_and_flatten_rows, bool bad, i32 n, CI32 shape, CI32x2 sp, I64 sparsity, CI32 strides)
{
  with_axis_count(sp.cols, [&](auto axes) {
    for (i64 r = 0; r < n && !bad; ++r) {
      const Row index{sp, r};
      bad = is_any_outside(index, shape, axes);
      if (!bad) sparsity[r] = scalar_position(index, strides, axes);
    }
  });
  return bad;
}

// Rows or elements in the order in which they stand: curperm[k] = k for k below n.
KERNEL((53, 66, 219, 237), (), number_rows, I32 curperm, i32 n)
{
  number_items(curperm, n);
}

// One stable pass, by axis nd-1-pass: the n rows in the order of `curperm` go to `tgtperm`, sorted by their coordinate,
// which lies inside the extent. O(n + shape[d]).
//
// - pass (index): the number of the pass, from 0 on
// - ptr (array; shape[d] + 1): room for the buckets, one a coordinate; each is left at its end
KERNEL((54, 67), (), sort_rows_by_axis, CI32 curperm, i32 pass, CI32x2 midxs, i32 nd, i32 n, I32 ptr, CI32 shape,
       I32 tgtperm)
{
  const i64 d = i64{nd} - 1 - pass;
  const auto coordinate = [&](i64 r) { return midxs(r, d); };
  clear_buckets(ptr, shape[d]);
  count_buckets(ptr, n, coordinate);
  add_up(ptr, shape[d]);
  reorder_items(ptr, curperm, tgtperm, n, coordinate);
}

// The flat positions of n rows in the order of `curperm`: ascending after a pass for each axis.
//
// - sparsity (array; n): the flat positions
KERNEL((55, 68), (), flatten_sorted_rows, CI32 curperm, CI32x2 midxs, i32 n, i32 nd, I64 sparsity, CI32 strides)
{
  if (nd < 1) return fill_slots(Run{sparsity, 0}, n, i64{0});
  with_axis_count(nd, [&](auto axes) {
    for (i64 r = 0; r < n; ++r) sparsity[r] = scalar_position(Row{midxs, curperm[r]}, strides, axes);
  });
}

}  // namespace fragments
