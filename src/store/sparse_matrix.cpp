// Sparse matrices as three parallel arrays of triplets, row, column and value of each entry, and their dense forms.
// Entries stand in any order and repeats are kept, unless a kernel says otherwise.

#include <algorithm>
#include <cmath>

#include "stack/constant_matrix.h"

namespace fragments {
namespace {

// each(k, i, j) for every place (i, j) of a matrix in row-major order, k counting on; returns the new k.
template <class Each>
i64 for_each_place(i32 rows, i32 cols, i64 k, Each each)
{
  for (i32 i = 0; i < rows; ++i) {
    for (i32 j = 0; j < cols; ++j) each(k++, i, j);
  }
  return k;
}

// Every element of a dense matrix as a triplet from entry k on, zeros included.
i64 list_elements(F64x2 dense, i32 rows, i32 cols, i64 k, I32 subi, I32 subj, F64 val)
{
  return for_each_place(rows, cols, k, [&](i64 entry, i32 i, i32 j) {
    subi[entry] = i;
    subj[entry] = j;
    val[entry] = dense(i, j);
  });
}

// A NaN counts as zero: its magnitude is not above 0.
bool is_nonzero(f64 value)
{
  return std::fabs(value) > 0.0;
}

}  // namespace

// Lists all elements of a dense matrix as triplets, from entry 0 on.
KERNEL((584, 586, 587), (), list_dense_matrix, i32 rows, i32 cols, I32 msubi, I32 msubj, F64 mval, F64x2 mx)
{
  list_elements(mx, rows, cols, 0, msubi, msubj, mval);
}

// Lists all elements of a dense matrix as triplets, from entry k on; returns the new k.
KERNEL((635), (i32), append_dense_matrix, F64x2 data, i32 rows, i32 cols, i32 k, I32 subi, I32 subj, F64 val)
{
  return static_cast<i32>(list_elements(data, rows, cols, k, subi, subj, val));
}

// The rows and columns of that without the values.
KERNEL((639), (i32), append_dense_pattern, i32 rows, i32 cols, i32 k, I32 subi, I32 subj)
{
  return static_cast<i32>(for_each_place(rows, cols, k, [&](i64 entry, i32 i, i32 j) {
    subi[entry] = i;
    subj[entry] = j;
  }));
}

// The elements of a dense matrix row by row.
KERNEL((585), (), flatten_dense_matrix, i32 rows, i32 cols, F64 mval, F64x2 mx)
{
  for_each_place(rows, cols, 0, [&](i64 k, i32 i, i32 j) { mval[k] = mx(i, j); });
}

// Transposes a matrix (rows, cols) that is stored by rows at place `base` of `data` into columns of m slots each; m is
// at least `rows`. Returns the place behind the matrix.
KERNEL((638), (i32), transpose_dense_matrix, F64 data, i32 rows, i32 cols, F64 newdata, i32 base, i32 m)
{
  for (i64 r = 0; r < rows; ++r) {
    const Run row{data, base + r * cols};
    for (i64 c = 0; c < cols; ++c) newdata[r + c * m] = row[c];
  }
  return wrapping_add(base, wrapping_mul(rows, cols));
}

// Sets the elements of a dense matrix of `ncols` columns, stored by rows, to the values of all entries. The last one of
// a repeated pair stays.
KERNEL((644), (), scatter_entries, i32 ncols, F64 r, I32 subi, I32 subj, F64 val)
{
  for (i64 k = 0; k < subi.count; ++k) r[static_cast<i64>(subi[k]) * ncols + subj[k]] = val[k];
}

// Sets `flag` for any of n entries outside (nrows, ncols); a flag that is set stays set.
KERNEL((640), (bool), find_entry_outside, i32 nrows, i32 ncols, i64 n, bool flag, I32 subi_, I32 subj_)
{
  i32 outside = flag;
  for (i64 k = 0; k < n; ++k) outside |= is_entry_outside(subi_, subj_, nrows, ncols, k);
  return outside != 0;
}

// The maximum of `maxi` and the rows, and of `maxj` and the columns, of n entries.
KERNEL((636, 637), (i32, i32), greatest_row_and_column, i32 maxi, i32 maxj, i32 n, I32 subi, I32 subj)
{
  for (i64 k = 0; k < n; ++k) maxi = std::max(maxi, subi[k]);
  for (i64 k = 0; k < n; ++k) maxj = std::max(maxj, subj[k]);
  return {maxi, maxj};
}

// `init` plus the number of values that are not zero. A NaN counts as zero, which is intended.
KERNEL((641), (i32), count_nonzero_values, i32 init, F64 val_)
{
  for (i64 i = 0; i < val_.count; ++i) {
    if (is_nonzero(val_[i])) ++init;
  }
  return init;
}

// The entries with a value that is not zero, in order from entry k on; returns the new k. A NaN is dropped too, which
// is intended. Source and target may be one matrix.
KERNEL((642), (i32), drop_zeros, i32 k, I32 subi, I32 subi_, I32 subj, I32 subj_, F64 val, F64 val_)
{
  i64 place = k;
  for (i64 i = 0; i < val_.count; ++i) {
    if (!is_nonzero(val_[i])) continue;
    subi[place] = subi_[i];
    subj[place] = subj_[i];
    val[place] = val_[i];
    ++place;
  }
  return static_cast<i32>(place);
}

// Where each of n rows begins among the entries lo .. hi-1, which are sorted by row; returns where the last one ends.
KERNEL((643), (i64), find_row_starts, i32 n, i64 hi, i64 lo, I64 ptrb, I32 subi)
{
  for (i32 r = 0; r < n; ++r) {
    ptrb[r] = lo;
    while (lo < hi && subi[lo] == r) ++lo;
  }
  return lo;
}

// The diagonal of a block at (rowoff, coloff), n entries from place `base` on. Rows and columns are both taken from
// `msubi`; this is intended.
KERNEL((632), (), place_diagonal_block, i64 n, i64 base, I32 msubi, i32 rowoff, i32 coloff, I32 subi, I32 subj)
{
  const Run rows{subi, base};
  const Run columns{subj, base};
  for (i64 k = 0; k < n; ++k) {
    rows[k] = wrapping_add(msubi[k], rowoff);
    columns[k] = wrapping_add(msubi[k], coloff);
  }
}

}  // namespace fragments
