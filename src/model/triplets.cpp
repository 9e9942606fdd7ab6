// Assembly of sparse triplets (subi, subj, val): sorting by row, then column, and merging repeated entries.
//
// `rptrb` and `cptrb` are buckets, one a row or a column, one slot longer than a pointer array: entry index+2 is
// counted, summed from place 1 on, and index+1 is the moving cursor while placing. Afterwards index+1 is where a row or
// column ends and index where it starts.
//
//     sort        count 113 (or 121 and 124), add up 114 and 115, place by column 123, by row 126
//     merge       measure 127, write 128
//     transpose   count 113, add up 114 and 115, then 116 or 120
//
// All passes are stable, so repeated entries stand in the order in which they came.
//
// - rptrb (array; rows + 2): the buckets of rows; they come in as zeros
// - cptrb (array; columns + 2): the buckets of columns; they come in as zeros
// - cols (array; entries): the numbers of the entries, sorted by column
// - rows (array; entries): the numbers of the entries, sorted by row, then column
// - tsubi, tsubj, tval (array; entries of the result): the row, the column and the value of each entry of the result

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
void transpose(I64 cptrb, i32 n, CI64 rptrb, CI32 subj, StridedArray<T> tsubi, StridedArray<T> tsubj, F64 tval,
               CF64 val)
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

// Counts the entries by row and by column, in one pass: the two increments don't wait for each other.
KERNEL((113, 117), (), count_rows_and_columns, I64 cptrb, i64 nnz, I64 rptrb, CI32 subi, CI32 subj)
{
  const Run<i64> rows = buckets_of(rptrb), columns = buckets_of(cptrb);
  for (i64 k = 0; k < nnz; ++k) {
    ++rows[i64{subi[k]} + 1];
    ++columns[i64{subj[k]} + 1];
  }
}

// Counts the entries by column.
KERNEL((121), (), count_columns, I64 cptrb, i64 nnz, CI32 subj)
{
  count_buckets(buckets_of(cptrb), nnz, [&](i64 k) -> i64 { return subj[k]; });
}

// Counts the entries by row.
KERNEL((124), (), count_rows, i64 nnz, I64 rptrb, CI32 subi)
{
  count_buckets(buckets_of(rptrb), nnz, [&](i64 k) -> i64 { return subi[k]; });
}

// Adds up the counts of n rows: slot i+1 grows by slot i for i from 1 to n-1.
KERNEL((114, 118, 125), (), add_up_rows, i32 n, I64 rptrb)
{
  add_up(buckets_of(rptrb), i64{n} - 1);
}

// Adds up the counts of n columns: slot i+1 grows by slot i for i from 1 to n-1.
KERNEL((115, 119, 122), (), add_up_columns, I64 cptrb, i32 n)
{
  add_up(buckets_of(cptrb), i64{n} - 1);
}

// Transposes n rows of entries stored by rows, those of row r from rptrb[r] to rptrb[r+1]-1: lists them by column, in a
// column by row. Both bucket arrays are passed from their place 1 on, so that the cursor of a column is cptrb[c]
// itself.
//
// - rptrb (array; n + 1): where the entries of each row begin
// - cptrb (array; columns): where the entries of each column go; moves to where they end
KERNEL((116), (), transpose_rows, I64 cptrb, i32 n, CI64 rptrb, CI32 subj, I64 tsubi, I64 tsubj, F64 tval, CF64 val)
{
  transpose(cptrb, n, rptrb, subj, tsubi, tsubj, tval, val);
}

// Transposes n rows of entries stored by rows into 32-bit indices: lists the entries of row r, from rptrb[r] to
// rptrb[r+1]-1, by column, in a column by row. Both bucket arrays are passed from their place 1 on, so that the cursor
// of a column is cptrb[c] itself.
//
// - rptrb (array; n + 1): where the entries of each row begin
// - cptrb (array; columns): where the entries of each column go; moves to where they end
KERNEL((120), (), transpose_rows_32, I64 cptrb, i32 n, CI64 rptrb, CI32 subj, I32 tsubi, I32 tsubj, F64 tval, CF64 val)
{
  transpose(cptrb, n, rptrb, subj, tsubi, tsubj, tval, val);
}

// Places the entries by column, in their order as they came.
//
// - cptrb (array; columns + 1): the buckets of columns, added up; the cursors move to where the columns end
KERNEL((123), (), place_by_column, I32 cols, I64 cptrb, i64 nnz, CI32 subj)
{
  place_items(buckets_of(cptrb), cols, nnz, [&](i64 k) { return subj[k]; });
}

// Places the entries of n columns by row, in the order of `cols`: sorted by row, then column.
//
// - cptrb (array; n + 1): where the entries of each column begin in `cols`
// - rptrb (array; rows + 1): the buckets of rows, added up; the cursors move to where the rows end
KERNEL((126), (), place_by_row, CI32 cols, CI64 cptrb, i32 n, I32 rows, I64 rptrb, CI32 subi)
{
  for (i64 c = 0; c < n; ++c) {
    // Columns one behind the other are one list of entries: a loop for each takes three times as long if it is short.
    const i64 start = cptrb[c];
    while (c < n && cptrb[c] <= cptrb[c + 1]) ++c;
    reorder_items(buckets_of(rptrb), Run{cols, start}, rows, cptrb[c] - start, [&](i32 k) { return subi[k]; });
  }
}

// Counts the steps along `rows` at which (subi, subj) changes: started at 1, the entries left after merging.
//
// - c (cursor): the steps; started at 1, the entries
KERNEL((127), (i32 c), count_merged, i64 nnz, i32 c, CI32 rows, CI32 subi, CI32 subj)
{
  for (i64 k = 1; k < nnz; ++k) {
    const i32 u = rows[k - 1], v = rows[k];
    // Both are compared: a branch on the rows is foretold wrongly too often.
    c += i32{subi[u] != subi[v]} | i32{subj[u] != subj[v]};
  }
  return c;
}

// Merges the entries in the order of `rows`: an entry at the place of target c-1 is added to it, any other becomes
// target c. Target 0 is the caller's, so that c comes in as 1 and the walk begins with the second entry.
//
// - c (cursor): the targets so far
KERNEL((128), (i32 c), merge_repeated, i32 c, i64 nnz, CI32 rows, CI32 subi, CI32 subj, I32 tsubi, I32 tsubj, F64 tval,
       CF64 val)
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
