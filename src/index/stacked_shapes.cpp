// Stacks of arrays along an axis: a table with the shape of each item in a row, and the shape of the whole. Items of
// lower rank count as having extent 1 along the axes that they lack.
//
//     fill the table with 1      250
//     enter each item's shape    252, 597 and 598
//     shape of the whole         289 from the first item, 253 along the axis of the stack
//     check and enter an item    290, 291
//
// - shape, shapes (array; items x axes): the shape of each item, one a row
// - shpi, shp, shapei (array; axes of the item): the extents of one item
// - rshape (array; axes): the extents of the whole
// - flag (flag): whether all items fit; one that comes in cleared stays so

#include <algorithm>

#include "index/shape.h"

namespace fragments {

// Fills a table of extents with 1.
//
// - rows (count): the items
// - cols (count): the axes
KERNEL((250), (), fill_shape_table, i32 rows, i32 cols, I32x2 shape)
{
  if (rows < 1 || cols < 1) return;
  if (shape.colstride == 1 && shape.rowstride == cols) {
    // Without gaps between the rows.
    shape.bounds.check(rows - 1, cols - 1);
    std::fill_n(shape.data, i64{rows} * cols, 1);
  } else {
    for (i64 r = 0; r < rows; ++r) fill_ones(Row{shape, r}, 0, cols);
  }
}

// Copies the shape of one item into its row. The rest of the row stays as it is.
KERNEL((252), (), enter_item_shape, i32 row, I32x2 shape, CI32 shpi)
{
  copy_extents(Row{shape, row}, 0, shpi, 0, shpi.count);
}

// Copies the shape of a stored expression into its row. The rest of the row stays as it is.
KERNEL((597), (), enter_stored_shape, i32 row, I32x2 shapes, CI32 shp)
{
  copy_extents(Row{shapes, row}, 0, shp, 0, shp.count);
}

// Fills the row of a stored expression with extent 1 for the axes that its shape lacks.
//
// - n (count): the axes of the table
KERNEL((598), (), fill_rest_of_row, i32 row, i32 n, I32x2 shapes, CI32 shp)
{
  fill_ones(Row{shapes, row}, shp.count, n);
}

// Adds the extents along `axis` of the rows from 1 up to n-1 to resshape[axis], which holds that of row 0.
//
// - n (count): the items
KERNEL((253), (), add_extents_along_axis, i32 axis, i32 n, I32 resshape, CI32x2 shape)
{
  for (i64 j = 1; j < n; ++j) resshape[axis] = wrapping_add(resshape[axis], shape(j, axis));
}

// Whether an item fits the others: clears `flag` if its shape differs from that of the whole in any axis but `axis`.
KERNEL((290), (bool flag), check_item_shape, i32 axis, bool flag, CI32 rshape, CI32 shapei)
{
  i32 other = 0;
  const auto compare = [&](i64 lo, i64 hi) {
    for (i64 j = lo; j < hi; ++j) other |= rshape[j] ^ shapei[j];
  };
  compare(0, std::min<i64>(axis, shapei.count));
  compare(std::max(i64{axis} + 1, i64{0}), shapei.count);
  return flag && other == 0;
}

// Adds one item to a stack: its extent along `axis` goes to dimsizes[item] and is added to `total`, and the axes that
// it lacks must have extent 1 in the whole, or `flag` is cleared. An item that lacks `axis` itself has extent 1 there,
// and its other axes aren't looked at; this is intended.
//
// - total (cursor): the extent of the whole along `axis`, so far
// - dimsizes (array; items): the extent of each item along `axis`
// - item (index): the item
// - rank (count): the axes of the whole
KERNEL((291), (bool flag, i32 total), add_item_to_stack, i32 axis, bool flag, i32 total, I32 dimsizes, i32 item,
       i32 rank, CI32 rshape, CI32 shapei)
{
  i32 extent = 1;
  if (axis < shapei.count) {
    extent = shapei[axis];
    i32 other = 0;
    for (i64 j = shapei.count; j < rank; ++j) other |= rshape[j] ^ 1;
    flag &= other == 0;
  }
  dimsizes[item] = extent;
  return {flag, wrapping_add(total, extent)};
}

}  // namespace fragments
