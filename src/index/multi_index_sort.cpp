// A sparsity pattern from a table of multi-indices, a row for each element: the flat positions in the order of the
// rows, or sorted. To sort, the host layer numbers the rows, runs one counting pass for each axis, the last axis first,
// with `curperm` and `tgtperm` swapped in between, and writes the positions in the order reached.
//
// Flat positions are 64 bits wide, also where the strides have 32.

#include "index/counting_sort.h"
#include "index/shape.h"

namespace fragments {
namespace {

// The flat positions of n rows up to the first one with an index outside; that row and those behind it are left out.
bool check_and_flatten(bool bad, i32 n, CI32 shape, CI32x2 sp, I64 sparsity, CI32 strides)
{
  for (i64 r = 0; r < n && !bad; ++r) {
    const Row index{sp, r};
    bad = is_any_outside(index, shape, sp.cols);
    if (!bad) sparsity[r] = flat_position(index, strides, sp.cols);
  }
  return bad;
}

void flatten_in_order(CI32 curperm, CI32x2 midxs, i32 n, i32 nd, I64 sparsity, CI32 strides)
{
  for (i64 r = 0; r < n; ++r) sparsity[r] = flat_position(Row{midxs, curperm[r]}, strides, nd);
}

}  // namespace

// The flat positions of n rows of `sparsity`.
KERNEL((44), (), flatten_rows, i32 nd, i32 n, I64 sp, CI32x2 sparsity, CI64 strides)
{
  for (i64 r = 0; r < n; ++r) sp[r] = flat_position(Row{sparsity, r}, strides, nd);
}

// The flat positions of n rows of the table `sp`, into `sparsity`. The first row with an index below 0 or at or above
// its extent sets `bad`; from that row on nothing is written, and nothing at all if `bad` comes in set.
KERNEL((51), (bool), check_and_flatten_rows_a, bool bad, i32 n, CI32 shape, CI32x2 sp, I64 sparsity, CI32 strides)
{
  return check_and_flatten(bad, n, shape, sp, sparsity, strides);
}

// The same for another call site.
KERNEL((64), (bool), check_and_flatten_rows_b, bool bad, i32 n, CI32 shape, CI32x2 sp, I64 sparsity, CI32 strides)
{
  return check_and_flatten(bad, n, shape, sp, sparsity, strides);
}

// The rows in the order in which they stand.
KERNEL((53, 66, 219, 237), (), number_rows, I32 curperm, i32 n)
{
  number_items(curperm, n);
}

// One stable pass, by axis d = nd-1-pass: the n rows in the order of `curperm` go to `tgtperm`, sorted by their
// coordinate. Buckets are ptr[0 .. shape[d]]; each is left at its end.
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

// The flat positions of n rows in the order of `curperm`.
KERNEL((55), (), flatten_sorted_rows_a, CI32 curperm, CI32x2 midxs, i32 n, i32 nd, I64 sparsity, CI32 strides)
{
  flatten_in_order(curperm, midxs, n, nd, sparsity, strides);
}

// The same for another call site.
KERNEL((68), (), flatten_sorted_rows_b, CI32 curperm, CI32x2 midxs, i32 n, i32 nd, I64 sparsity, CI32 strides)
{
  flatten_in_order(curperm, midxs, n, nd, sparsity, strides);
}

}  // namespace fragments
