// Bounds of domains: vectors and tables of bounds made from a domain's.
//
// The bounds of an array are one pair for all elements, one for each element, or sparse: row r of the table `domsp` is
// the multi-index of the element that entry r bounds. Sparse bounds of a matrix are two lists, the lower ones (`lsubi`,
// `lsubj`, `lval`) and the upper ones (`usubi`, `usubj`, `uval`), each sorted by row, then column, strictly ascending;
// their union is a table of positions, each with both bounds, 0 where one is missing.
//
//     array    all bounds 82, sparse ones of one side 100
//     matrix   union: count 282, write 283; into dense bounds: sparse ones 284 and 285, dense ones 286;
//              table of the positions of a pattern 287
//
// - domsp (array; entries x axes): the multi-index of each sparse bound, one a row
// - lsubi, lsubj, lval (array; lower bounds): the row, the column and the value of each lower bound
// - usubi, usubj, uval (array; upper bounds): the row, the column and the value of each upper bound
// - inst (array; positions x 2): the row and the column of each position

#include "index/merge.h"
#include "index/shape.h"
#include "index/slots.h"

namespace fragments {
namespace {

// Keys that compare like (row, column).
auto keys(CI32 subi, CI32 subj)
{
  return [=](i64 k) { return i64{subi[k]} * (i64{1} << 32) + subj[k]; };
}

void scatter(F64 dense, i32 ncols, CI32 subi, CI32 subj, CF64 v)
{
  for (i64 k = 0; k < subi.count; ++k) dense[i64{subi[k]} * ncols + subj[k]] = v[k];
}

}  // namespace

// Writes the bounds of n elements: with `scalar` the one pair for all, else with `dense` a pair for each; else the
// sparse bounds go to their elements in an array of nd axes, and the other elements keep what they hold. Scratch: nd
// strides.
//
// - bl, bu (array; n): the lower and the upper bound of each element
// - domlb, domub (array; 1, n or entries): the lower and the upper bounds of the domain
// - scalar (flag): whether the domain has one pair of bounds for all elements
// - dense (flag): whether the domain has a pair for each element
// - pos (position in ri32; nd): the extents of the array, not read but for sparse bounds
KERNEL((82), (), write_bounds, F64 bl, F64 bu, bool dense, CF64 domlb, bool scalar, CI32x2 domsp, CF64 domub, i32 nd,
       i32 n, CI32 ri32, i32 pos)
{
  if (scalar) {
    if (n < 1) return;
    fill_slots(Run{bl, 0}, n, domlb[0]);
    fill_slots(Run{bu, 0}, n, domub[0]);
  } else if (dense) {
    copy_slots(Run{bl, 0}, Run{domlb, 0}, n);
    copy_slots(Run{bu, 0}, Run{domub, 0}, n);
  } else if (nd > 0) {
    const Scratch<i64> strides(nd);
    strides[i64{nd} - 1] = 1;
    row_major_strides(strides, Run{ri32, pos}, nd);
    with_axis_count(nd, [&](auto axes) {
      for (i64 r = 0; r < domsp.rows; ++r) {
        const i64 position = flat_position(Row{domsp, r}, strides, axes);
        bl[position] = domlb[r];
        bu[position] = domub[r];
      }
    });
  }
}

// Writes the sparse bounds of one side, lower or upper, by the strides of the array; elements without one keep what
// they hold.
//
// - b (array; elements): the bound of each element
// - dombnd (array; entries): the value of each sparse bound
KERNEL((100), (), scatter_bounds_of_side, F64 b, CF64 dombnd, CI32x2 domsp, i32 nd, CI32 stride)
{
  with_axis_count(nd, [&](auto axes) {
    for (i64 r = 0; r < domsp.rows; ++r) b[flat_position(Row{domsp, r}, stride, axes)] = dombnd[r];
  });
}

// Adds the number of positions of the union of lower and upper bounds to `init`, in one merge of the two.
KERNEL((282), (i64 init), count_bounds, CI32 lsubi, CI32 lsubj, i64 init, CI32 usubi, CI32 usubj)
{
  return init + union_size(lsubi.count, usubi.count, keys(lsubi, lsubj), keys(usubi, usubj));
}

// Writes the union of lower and upper bounds, in one merge of the two. Where a position has both bounds, the lower one
// is read at the place of the upper one, lval[b] with uval[b], so that `lval` must reach so far; this is intended.
//
// - lbv, ubv (array; positions): the lower and the upper bound of each position
KERNEL((283), (), write_united_bounds, I32x2 inst, F64 lbv, CI32 lsubi, CI32 lsubj, CF64 lval, F64 ubv, CI32 usubi,
       CI32 usubj, CF64 uval)
{
  i64 a = 0, b = 0, k = 0;
  unite(a, lsubi.count, b, usubi.count, keys(lsubi, lsubj), keys(usubi, usubj), [&](i64, bool in_lower, bool in_upper) {
    inst(k, 0) = in_upper ? usubi[b] : lsubi[a];
    inst(k, 1) = in_upper ? usubj[b] : lsubj[a];
    lbv[k] = in_lower ? lval[in_upper ? b : a] : 0.0;
    ubv[k] = in_upper ? uval[b] : 0.0;
    ++k;
  });
}

// Writes a sparse list into dense lower bounds; of a repeated position the last value stays.
//
// - lval (array; rows x ncols): the dense lower bounds, row by row
// - v (array; entries): the value of each entry
KERNEL((284), (), scatter_lower_bounds, i32 ncols, F64 lval, CI32 subi, CI32 subj, CF64 v)
{
  scatter(lval, ncols, subi, subj, v);
}

// Writes a sparse list into dense upper bounds; of a repeated position the last value stays.
//
// - uval (array; rows x ncols): the dense upper bounds, row by row
// - v (array; entries): the value of each entry
KERNEL((285), (), scatter_upper_bounds, i32 ncols, CI32 subi, CI32 subj, F64 uval, CF64 v)
{
  scatter(uval, ncols, subi, subj, v);
}

// Appends two matrices of bounds row by row.
//
// - rows, cols (extent): the extents of the matrices
// - pos (cursor): the slot in `lval` and `uval` behind the bounds so far
// - lb, ub (array; rows x cols): the lower and the upper bounds
// - lval, uval (array; pos + rows * cols): the lower and the upper bounds of one matrix behind the other
KERNEL((286), (i32 pos), append_dense_bounds, i32 rows, i32 cols, i32 pos, CF64x2 lb, F64 lval, CF64x2 ub, F64 uval)
{
  copy_matrix(Run{lval, pos}, lb, rows, cols);
  copy_matrix(Run{uval, pos}, ub, rows, cols);
  return rows > 0 && cols > 0 ? wrapping_add(pos, wrapping_mul(rows, cols)) : pos;
}

// Lists the positions of a sparse pattern in a table.
KERNEL((287), (), write_positions, I32x2 inst, CI32 msubi, CI32 msubj)
{
  const i64 n = msubi.count;
  if (inst.rowstride == 2 && inst.colstride == 1 && inst.cols == 2 && n <= inst.rows) {
    // A table without gaps, as two lists side by side: the compiler vectorises this loop.
    i32* const pairs = inst.data;
    for (i64 k = 0; k < n; ++k) {
      pairs[2 * k] = msubi[k];
      pairs[2 * k + 1] = msubj[k];
    }
    return;
  }
  for (i64 k = 0; k < n; ++k) {
    inst(k, 0) = msubi[k];
    inst(k, 1) = msubj[k];
  }
}

}  // namespace fragments
