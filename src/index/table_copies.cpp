// Copies between tables and flat arrays.
//
// - shape (array; 2): the rows and the columns of the matrix

#include "index/divisor.h"

namespace fragments {

// A matrix row by row: vals[r * shape[1] + c] = values2[r, c]. Source and target may be one array: the copy runs in
// ascending order.
KERNEL((327), (), flatten_values, CI32 shape, F64 vals, CF64x2 values2)
{
  for (i64 r = 0; r < shape[0]; ++r) {
    const i64 cols = shape[1];
    for (i64 c = 0; c < cols; ++c) vals[r * cols + c] = values2(r, c);
  }
}

// The entries of a matrix at flat positions: vals[k] is that at sp[k]. Of the shape, only the columns are read.
KERNEL((328), (), gather_values, CI32 shape, CI64 sp, F64 vals, CF64x2 values2)
{
  if (sp.count < 1) return;
  const Divisor cols(shape[1]);
  for (i64 k = 0; k < sp.count; ++k) {
    const auto [r, c] = cols.divide(sp[k]);
    vals[k] = values2(r, c);
  }
}

// A list as the first column of a table: idxs[k, 0] = indexes[k].
//
// - idxs (array; entries x 1): the table
// - indexes (array; entries): the list
KERNEL((331), (), write_first_column, I32x2 idxs, CI32 indexes)
{
  for (i64 k = 0; k < indexes.count; ++k) idxs(k, 0) = indexes[k];
}

// A list as the first row of a table: idxs[0, k] = indexes[k].
//
// - idxs (array; 1 x entries): the table
// - indexes (array; entries): the list
KERNEL((332), (), write_first_row, I32x2 idxs, CI32 indexes)
{
  for (i64 k = 0; k < indexes.count; ++k) idxs(0, k) = indexes[k];
}

}  // namespace fragments
