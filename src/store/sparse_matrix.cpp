// Sparse matrices as three parallel arrays of triplets, row, column and value of each entry, and their dense forms.
// Entries stand in any order and repeats are kept, unless a kernel says otherwise.
//
//     from a dense matrix   triplets 584, appended 635, rows and columns alone 639; values alone 585, transposed 638
//     into one              644
//     entries               in range 640, greatest row and column 636, not zero 641 and 642, starts of rows 643,
//                           diagonal of a block 632
//
// - rows, cols (extent): the rows and the columns of the dense matrix
// - mx (array; rows x cols): the dense matrix
// - k (cursor): the entries so far

#include <algorithm>
#include <cmath>
#include <functional>

#include "index/slots.h"
#include "stack/constant_matrix.h"

namespace fragments {
namespace {

// The row and the column of every element of a dense matrix, row by row, from entry k on; returns the new k.
i64 list_places(i32 rows, i32 cols, i64 k, I32 subi, I32 subj)
{
  if (rows < 1 || cols < 1) return k;
  for (i32 i = 0; i < rows; ++i) fill_slots(Run{subi, k + i64{i} * cols}, cols, i);
  const Run columns{subj, k};
  for (i32 j = 0; j < cols; ++j) columns[j] = j;
  repeat_slots(columns.from(cols), columns, cols, i64{rows} - 1);
  return k + i64{rows} * cols;
}

// Every element of a dense matrix as a triplet from entry k on, zeros included; returns the new k.
i64 list_elements(CF64x2 dense, i32 rows, i32 cols, i64 k, I32 subi, I32 subj, F64 val)
{
  copy_matrix(Run{val, k}, dense, rows, cols);
  return list_places(rows, cols, k, subi, subj);
}

// Whether slots of `to`, from k on, that are written no faster than the n of `from` are read are never among those
// still to be read. Said of contiguous arrays alone.
template <class T>
bool trails(StridedArray<T> to, i64 k, StridedArray<const T> from, i64 n)
{
  if (to.stride != 1 || from.stride != 1) return false;
  return std::less_equal<>{}(to.data + k, from.data) || std::less_equal<>{}(from.data + n, to.data + k);
}

// A NaN counts as zero: its magnitude is not above 0.
bool is_nonzero(f64 value)
{
  return std::fabs(value) > 0.0;
}

}  // namespace

// Lists all elements of a dense matrix as triplets, row by row, from entry 0 on.
//
// - msubi, msubj, mval (array; rows * cols): the row, the column and the value of each element
KERNEL((584, 586, 587), (), list_dense_matrix, i32 rows, i32 cols, I32 msubi, I32 msubj, F64 mval, CF64x2 mx)
{
  list_elements(mx, rows, cols, 0, msubi, msubj, mval);
}

// Appends all elements of a dense matrix as triplets, row by row.
//
// - data (array; rows x cols): the dense matrix
KERNEL((635), (i32 k), append_dense_matrix, CF64x2 data, i32 rows, i32 cols, i32 k, I32 subi, I32 subj, F64 val)
{
  return static_cast<i32>(list_elements(data, rows, cols, k, subi, subj, val));
}

// Appends the row and the column of all elements of a dense matrix, row by row.
KERNEL((639), (i32 k), append_dense_pattern, i32 rows, i32 cols, i32 k, I32 subi, I32 subj)
{
  return static_cast<i32>(list_places(rows, cols, k, subi, subj));
}

// Lists the values of a dense matrix row by row.
KERNEL((585), (), flatten_dense_matrix, i32 rows, i32 cols, F64 mval, CF64x2 mx)
{
  copy_matrix(Run{mval, 0}, mx, rows, cols);
}

// Transposes a matrix that is stored by rows into columns of m slots each.
//
// - data (array; base + rows * cols): matrices by rows, one behind the other
// - newdata (array; cols * m): the matrix by columns
// - base (index): where the matrix begins in `data`; goes on behind it
// - m (step): the distance of columns, at least `rows`
KERNEL((638), (i32 base), transpose_dense_matrix, CF64 data, i32 rows, i32 cols, F64 newdata, i32 base, i32 m)
{
  transpose_slots(Run{newdata, 0}, Run{data, base}, rows, cols, m);
  return wrapping_add(base, wrapping_mul(rows, cols));
}

// Sets the elements of a dense matrix, stored by rows, to the values of all entries. The last one of a repeated pair
// stays.
//
// - r (array; rows x ncols): the dense matrix
KERNEL((644), (), scatter_entries, i32 ncols, F64 r, CI32 subi, CI32 subj, CF64 val)
{
  for (i64 k = 0; k < subi.count; ++k) r[i64{subi[k]} * ncols + subj[k]] = val[k];
}

// Looks for an entry outside the matrix among the first n.
//
// - nrows (extent): the rows of the matrix
// - flag (flag): whether there is one; a flag that comes in set stays so
KERNEL((640), (bool flag), find_entry_outside, i32 nrows, i32 ncols, i64 n, bool flag, CI32 subi_, CI32 subj_)
{
  return flag | any_entry_outside(subi_, subj_, nrows, ncols, n);
}

// Finds the greatest row and the greatest column of n entries.
//
// - maxi, maxj (start): what the maximum of the rows and of the columns starts from
KERNEL((636, 637), (i32 maxi, i32 maxj), greatest_row_and_column, i32 maxi, i32 maxj, i32 n, CI32 subi, CI32 subj)
{
  for (i64 k = 0; k < n; ++k) maxi = std::max(maxi, subi[k]);
  for (i64 k = 0; k < n; ++k) maxj = std::max(maxj, subj[k]);
  return {maxi, maxj};
}

// Adds the number of values that are not zero to `init`. A NaN counts as zero, which is intended.
KERNEL((641), (i32 init), count_nonzero_values, i32 init, CF64 val_)
{
  for (i64 i = 0; i < val_.count; ++i) {
    if (is_nonzero(val_[i])) ++init;
  }
  return init;
}

// Appends the entries with a value that is not zero, in order. A NaN is dropped too, which is intended. Source and
// target may be one matrix.
KERNEL((642), (i32 k), drop_zeros, i32 k, I32 subi, CI32 subi_, I32 subj, CI32 subj_, F64 val, CF64 val_)
{
  i64 place = k, end = val_.count;
  const auto copy_entry = [&](i64 i) {
    subi[place] = subi_[i];
    subj[place] = subj_[i];
    val[place] = val_[i];
  };
  if (trails(subi, k, subi_, end) && trails(subi, k, subj_, end) && trails(subj, k, subi_, end) &&
      trails(subj, k, subj_, end) && trails(val, k, val_, end)) {
    // What is zero is a matter of chance. Without a branch on it, in a fifth of the time, a zero is copied too, and the
    // next entry over it; behind the last one that is not zero nothing is copied.
    while (end > 0 && !is_nonzero(val_[end - 1])) --end;
    for (i64 i = 0; i < end; ++i) {
      const bool stays = is_nonzero(val_[i]);
      copy_entry(i);
      place += stays;
    }
  } else {
    for (i64 i = 0; i < end; ++i) {
      if (!is_nonzero(val_[i])) continue;
      copy_entry(i);
      ++place;
    }
  }
  return static_cast<i32>(place);
}

// Finds where each of n rows begins among the entries lo .. hi-1, which are sorted by row.
//
// - lo (index): the first entry; goes on to where the last row ends
// - hi (index): the end of the entries, exclusive
// - ptrb (array; n): where the entries of each row begin
KERNEL((643), (i64 lo), find_row_starts, i32 n, i64 hi, i64 lo, I64 ptrb, CI32 subi)
{
  for (i32 r = 0; r < n; ++r) {
    ptrb[r] = lo;
    while (lo < hi && subi[lo] == r) ++lo;
  }
  return lo;
}

// Places the diagonal of a block, n entries. Rows and columns are both taken from `msubi`; this is intended.
//
// - base (position in subi; n): where the entries go, in `subj` too
// - msubi (array; n): the row and the column of each entry inside the block
// - rowoff, coloff (index): the row and the column at which the block begins
KERNEL((632), (), place_diagonal_block, i64 n, i64 base, CI32 msubi, i32 rowoff, i32 coloff, I32 subi, I32 subj)
{
  const Run rows{subi, base};
  const Run columns{subj, base};
  for (i64 k = 0; k < n; ++k) {
    rows[k] = wrapping_add(msubi[k], rowoff);
    columns[k] = wrapping_add(msubi[k], coloff);
  }
}

}  // namespace fragments
