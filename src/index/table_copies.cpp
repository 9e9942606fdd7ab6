// Copies between tables and flat arrays.
//
// - shape (array; 2): the rows and the columns of the matrix

#include "index/divisor.h"
#include "index/slots.h"

namespace fragments {

// A matrix row by row: vals[r * shape[1] + c] = values2[r, c]. Source and target may be one array: the copy runs in
// ascending order.
KERNEL((327), (), flatten_values, CI32 shape, F64 vals, CF64x2 values2)
{
  if (const i64 rows = shape[0]; rows > 0) copy_matrix(Run{vals, 0}, values2, rows, shape[1]);
}

// The entries of a matrix at flat positions: vals[k] is that at sp[k]. Of the shape, only the columns are read.
KERNEL((328), (), gather_values, CI32 shape, CI64 sp, F64 vals, CF64x2 values2)
{
  if (sp.count < 1) return;
  const Divisor cols(shape[1]);
  if (values2.rowstride == cols.value() * values2.colstride) {
    // Without gaps between the rows; a position is divided for the check alone, if there is one.
    for (i64 k = 0; k < sp.count; ++k) {
      const auto [r, c] = cols.divide(sp[k]);
      values2.bounds.check(r, c);
      vals[k] = values2.data[sp[k] * values2.colstride];
    }
    return;
  }
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
