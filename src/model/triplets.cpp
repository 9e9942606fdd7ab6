// Assembly of sparse triplets (subi, subj, val): sorting by row, then column, and merging repeated entries.
//
// `rptrb` and `cptrb` are buckets, one a row or a column, one slot longer than a pointer array: entry index+2 is
// counted, summed from place 1 on, and index+1 is the moving cursor while placing. Afterwards index+1 is where a row or
// column ends and index where it starts. `cols` and `rows` are orders of triplet numbers: sorted by column, sorted by
// row and within a row by column.
//
//     sort    count 113 (or 121 and 124), add up 114 and 115, place by column 123, by row 126
//     merge   measure 127, write 128
//
// All passes are stable, so repeated entries stand in the order in which they came.

#include "index/counting_sort.h"

namespace fragments {
namespace {

// The buckets as the counting sort wants them: bucket b is counted in slot b+1 of the run.
Run<i64> buckets_of(I64 ptrb)
{
  return {ptrb, 1};
}

// The transposition of a matrix stored by rows: entry (r, c) goes to the cursor cptrb[c]. Rows are rptrb[r] ..
// rptrb[r+1]-1.
template <class T>
void transpose(I64 cptrb, i32 n, I64 rptrb, I32 subj, StridedArray<T> tsubi, StridedArray<T> tsubj, F64 tval, F64 val)
{
  for (i32 r = 0; r < n; ++r) {
    const i64 end = rptrb[i64{r} + 1];
    for (i64 p = rptrb[r]; p < end; ++p) {
      const i32 c = subj[p];
      const i64 q = cptrb[c]++;
      tsubi[q] = r;
      tsubj[q] = c;
      tval[q] = val[p];
    }
  }
}

}  // namespace

// Counts `nnz` entries by row and by column, in one pass: the two increments don't wait for each other.
KERNEL((113, 117), (), count_rows_and_columns, I64 cptrb, i64 nnz, I64 rptrb, I32 subi, I32 subj)
{
  const Run<i64> rows = buckets_of(rptrb), columns = buckets_of(cptrb);
  for (i64 k = 0; k < nnz; ++k) {
    ++rows[i64{subi[k]} + 1];
    ++columns[i64{subj[k]} + 1];
  }
}

// Counts them by column.
KERNEL((121), (), count_columns, I64 cptrb, i64 nnz, I32 subj)
{
  count_buckets(buckets_of(cptrb), nnz, [&](i64 k) { return subj[k]; });
}

// Counts them by row.
KERNEL((124), (), count_rows, i64 nnz, I64 rptrb, I32 subi)
{
  count_buckets(buckets_of(rptrb), nnz, [&](i64 k) { return subi[k]; });
}

// Adds up the counts of rows from place 1 on: slot i+1 grows by slot i for i from 1 to n-1.
KERNEL((114, 118, 125), (), add_up_rows, i32 n, I64 rptrb)
{
  add_up(buckets_of(rptrb), i64{n} - 1);
}

// The same for the counts of columns.
KERNEL((115, 119, 122), (), add_up_columns, I64 cptrb, i32 n)
{
  add_up(buckets_of(cptrb), i64{n} - 1);
}

// The transpose of n rows stored by rows. The cursor of a column is cptrb[c] itself: both bucket arrays are passed from
// their place 1 on.
KERNEL((116), (), transpose_rows, I64 cptrb, i32 n, I64 rptrb, I32 subj, I64 tsubi, I64 tsubj, F64 tval, F64 val)
{
  transpose(cptrb, n, rptrb, subj, tsubi, tsubj, tval, val);
}

// The same into 32-bit indices.
KERNEL((120), (), transpose_rows_32, I64 cptrb, i32 n, I64 rptrb, I32 subj, I32 tsubi, I32 tsubj, F64 tval, F64 val)
{
  transpose(cptrb, n, rptrb, subj, tsubi, tsubj, tval, val);
}

// The entries in their order by column, into `cols`.
KERNEL((123), (), place_by_column, I32 cols, I64 cptrb, i64 nnz, I32 subj)
{
  place_items(buckets_of(cptrb), cols, nnz, [&](i64 k) { return subj[k]; });
}

// The entries of n columns in the order of `cols` by row, into `rows`: sorted by row, then column.
KERNEL((126), (), place_by_row, I32 cols, I64 cptrb, i32 n, I32 rows, I64 rptrb, I32 subi)
{
  for (i64 c = 0; c < n; ++c) {
    const i64 start = cptrb[c];
    reorder_items(buckets_of(rptrb), Run{cols, start}, rows, cptrb[c + 1] - start, [&](i32 k) { return subi[k]; });
  }
}

// c plus the number of steps along `rows` at which (subi, subj) changes: with c of 1, the entries left after merging.
KERNEL((127), (i32), count_merged, i64 nnz, i32 c, I32 rows, I32 subi, I32 subj)
{
  for (i64 k = 1; k < nnz; ++k) {
    const i32 u = rows[k - 1], v = rows[k];
    c += subi[u] != subi[v] || subj[u] != subj[v];
  }
  return c;
}

// Merges the entries in the order of `rows`: an entry at the place of target c-1 is added to it, any other becomes
// target c. Target 0 is the caller's, so that c comes in as 1 and the walk begins with the second entry; returns the
// new c.
KERNEL((128), (i32), merge_repeated, i32 c, i64 nnz, I32 rows, I32 subi, I32 subj, I32 tsubi, I32 tsubj, F64 tval,
       F64 val)
{
  i64 last = i64{c} - 1;
  for (i64 k = 1; k < nnz; ++k) {
    const i32 v = rows[k];
    if (subi[v] == tsubi[last] && subj[v] == tsubj[last]) {
      tval[last] += val[v];
    } else {
      ++last;
      tsubi[last] = subi[v];
      tsubj[last] = subj[v];
      tval[last] = val[v];
    }
  }
  return static_cast<i32>(last + 1);
}

}  // namespace fragments
