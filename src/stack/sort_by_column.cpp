// The order of a two-dimensional pattern by column, as products with a parameter matrix need it: a stable counting sort
// of flat positions by their remainder modulo `d`, the number of columns. The positions ascend, so that the entries of
// a column come by row.
//
//     clear the buckets 339, count 340 or 348, add up 341 or 349, place 342, 350 or 367; or all at once 375
//
// The keys are the flat positions from `from` on. Afterwards slot b of the buckets is the end of column b.

#include "index/counting_sort.h"
#include "index/divisor.h"

namespace fragments {
namespace {

void count_columns(Run<i32> buckets, i32 d, i32 n, Run<const i64> sp)
{
  const Divisor cols(d);
  count_buckets(buckets, n, [&](i64 i) { return cols.remainder(sp[i]); });
}

void place_by_column(Run<i32> buckets, Run<i32> perm, i32 d, i32 n, Run<const i64> sp)
{
  const Divisor cols(d);
  place_items(buckets, perm, n, [&](i64 i) { return cols.remainder(sp[i]); });
}

}  // namespace

// Clears n buckets and the slot behind them.
KERNEL((339, 347, 364), (), clear_column_buckets, i32 n, i32 bucket, I32 xi32)
{
  clear_buckets(Run{xi32, bucket}, n);
}

// Counts n entries, each in the slot behind its bucket's.
KERNEL((340), (), count_columns_on_w, i32 d, i32 bucket, i32 n, i32 from, CI64 wi64, I32 xi32)
{
  count_columns({xi32, bucket}, d, n, {wi64, from});
}

// The same for entries on the x stack.
KERNEL((348, 365), (), count_columns_on_x, i32 bucket, i32 d, i32 from, i32 n, I32 xi32, CI64 xi64)
{
  count_columns({xi32, bucket}, d, n, {xi64, from});
}

// Adds up the counts to starts, in the n slots behind the first.
KERNEL((341, 366), (), add_up_column_buckets, i32 n, i32 bucket, I32 xi32)
{
  add_up(Run{xi32, bucket}, n);
}

// The same for n slots altogether, one less.
KERNEL((349), (), add_up_column_slots, i32 n, i32 bucket, I32 xi32)
{
  add_up(Run{xi32, bucket}, static_cast<i64>(n) - 1);
}

// Places n entries in `perm`, each at the cursor of its bucket.
KERNEL((342), (), place_by_column_from_w, i32 d, i32 perm, i32 bucket, i32 n, i32 from, CI64 wi64, I32 xi32)
{
  place_by_column({xi32, bucket}, {xi32, perm}, d, n, {wi64, from});
}

// The same for entries on the x stack.
KERNEL((350), (), place_by_column_from_x, i32 d, i32 n, i32 perm, i32 bucket, i32 from, I32 xi32, CI64 xi64)
{
  place_by_column({xi32, bucket}, {xi32, perm}, d, n, {xi64, from});
}

// The same once more, for the other operators.
KERNEL((367), (), place_factor_by_column_from_x, i32 d, i32 n, i32 perm, i32 bucket, i32 from, I32 xi32, CI64 xi64)
{
  place_by_column({xi32, bucket}, {xi32, perm}, d, n, {xi64, from});
}

// The whole sort of an expression's pattern, whose columns are counted by extent 1 of its shape.
KERNEL((375), (), sort_by_column, i32 nelem, i32 shape, i32 sp, CI32 wi32, CI64 wi64, I32 xi32, i32 perm, i32 bucket)
{
  const i32 d = Run{wi32, shape}[1];
  const Run buckets{xi32, bucket};
  const Run pattern{wi64, sp};
  clear_buckets(buckets, d);
  count_columns(buckets, d, nelem, pattern);
  add_up(buckets, d);
  place_by_column(buckets, {xi32, perm}, d, nelem, pattern);
}

}  // namespace fragments
