// The order of a two-dimensional pattern by column, as products with a parameter matrix need it: a stable counting sort
// of flat positions by their remainder modulo the number of columns. The positions ascend, so that the entries of a
// column come by row.
//
//     clear the buckets 339, count 340 or 348, add up 341 or 349, place 342 or 350; or all at once 375
//
// Once all is placed slot c of the buckets is the end of column c.
//
// - d (extent): the columns
// - n (count): the columns where buckets are cleared and added up, the entries where they are counted and placed
// - bucket (position in xi32; columns + 1): the buckets
// - perm (position in xi32; one an entry): the numbers of the entries by column

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

// Counts n entries of a pattern on w, each in the slot behind its column's.
KERNEL((340), (), count_columns_on_w, i32 d, i32 bucket, i32 n, i32 from, CI64 wi64, I32 xi32)
{
  count_columns({xi32, bucket}, d, n, {wi64, from});
}

// Counts n entries of a pattern on x, each in the slot behind its column's.
KERNEL((348, 365), (), count_columns_on_x, i32 bucket, i32 d, i32 from, i32 n, I32 xi32, CI64 xi64)
{
  count_columns({xi32, bucket}, d, n, {xi64, from});
}

// Adds up the counts of n columns, so that slot c becomes the start of column c and slot n the number of entries.
KERNEL((341, 366), (), add_up_column_buckets, i32 n, i32 bucket, I32 xi32)
{
  add_up(Run{xi32, bucket}, n);
}

// Adds up the counts in n slots, the first among them, so that slot c becomes the start of column c.
//
// - n (count): the slots
KERNEL((349), (), add_up_column_slots, i32 n, i32 bucket, I32 xi32)
{
  add_up(Run{xi32, bucket}, n - i64{1});
}

// Places n entries of a pattern on w, each at the cursor of its column, which advances.
KERNEL((342), (), place_by_column_from_w, i32 d, i32 perm, i32 bucket, i32 n, i32 from, CI64 wi64, I32 xi32)
{
  place_by_column({xi32, bucket}, {xi32, perm}, d, n, {wi64, from});
}

// Places n entries of a pattern on x, each at the cursor of its column, which advances.
KERNEL((350, 367), (), place_by_column_from_x, i32 d, i32 n, i32 perm, i32 bucket, i32 from, I32 xi32, CI64 xi64)
{
  place_by_column({xi32, bucket}, {xi32, perm}, d, n, {xi64, from});
}

// Sorts the pattern of an expression, whose columns are extent 1 of its shape: clears, counts, adds up and places.
KERNEL((375), (), sort_elements_by_column, i32 nelem, i32 shape, i32 sp, CI32 wi32, CI64 wi64, I32 xi32, i32 perm,
       i32 bucket)
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
