// Bounds of a domain. Sparse lower bounds (`lsubi`, `lsubj`, `lval`) and upper bounds (`usubi`, `usubj`, `uval`) are
// sorted by row, then column; their union is a table of positions `inst`, a row and a column each, with both bounds,
// 0 where one is missing. Dense bounds are row-major.

#include "frame/frame.h"
#include "index/merge.h"

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

// `init` plus the number of positions with a bound.
KERNEL((282), (i64), count_bounds, CI32 lsubi, CI32 lsubj, i64 init, CI32 usubi, CI32 usubj)
{
  return init + union_size(lsubi.count, usubi.count, keys(lsubi, lsubj), keys(usubi, usubj));
}

// Writes the union. Where a position has both bounds, the lower one is read at the place of the upper one, lval[b] with
// uval[b]; this is intended.
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

// Scatters a sparse list into dense lower bounds of `ncols` columns; of a repeated position the last value stays.
KERNEL((284), (), scatter_lower_bounds, i32 ncols, F64 lval, CI32 subi, CI32 subj, CF64 v)
{
  scatter(lval, ncols, subi, subj, v);
}

// The same for upper bounds.
KERNEL((285), (), scatter_upper_bounds, i32 ncols, CI32 subi, CI32 subj, F64 uval, CF64 v)
{
  scatter(uval, ncols, subi, subj, v);
}

// Appends two matrices row by row to `lval` and `uval`, from slot `pos` on; returns the slot behind them.
KERNEL((286), (i32), append_dense_bounds, i32 rows, i32 cols, i32 pos, CF64x2 lb, F64 lval, CF64x2 ub, F64 uval)
{
  for (i64 r = 0; r < rows; ++r) {
    for (i64 c = 0; c < cols; ++c) {
      lval[pos] = lb(r, c);
      uval[pos] = ub(r, c);
      ++pos;
    }
  }
  return pos;
}

// A sparse pattern as a table of positions.
KERNEL((287), (), write_positions, I32x2 inst, CI32 msubi, CI32 msubj)
{
  for (i64 k = 0; k < msubi.count; ++k) {
    inst(k, 0) = msubi[k];
    inst(k, 1) = msubj[k];
  }
}

}  // namespace fragments
