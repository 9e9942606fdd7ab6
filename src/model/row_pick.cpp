// The coefficients of picked variables in evaluated rows, as a dense block: row by row one place for every entry of
// `varidxs`.
//
// Rows are a record on the w stack, its `ptr`, `nidxs` and `cof` at the positions `ppos`, `ipos` and `fpos`. The terms
// of a row and `varidxs` ascend strictly, so one merge finds all of a row: O(nnz + n * len(varidxs)). A place whose
// variable the row does not have keeps what it held.
//
//     test the variables 40, pick all rows 32 and 41, or each into the block of its side 33
//
// - varidxs (array; variables): the variables to pick, strictly ascending
// - cof (array; rows x variables): the block, row by row
// - c (cursor): the place in the block behind the rows so far

#include "index/merge.h"
#include "index/order.h"
#include "model/row_sides.h"
#include "stack/record.h"

namespace fragments {
namespace {

// Rows and variables of no more items together are walked plainly: to note their matches takes up to twice the time.
constexpr i64 short_walk = 32;

// Picks the row of the terms p .. e-1 into `to`.
void pick_row(const Operand& rows, i32 p, i32 e, CI64 varidxs, Run<f64> to)
{
  i64 term = p, j = 0;
  if (i64{e} - p + varidxs.count <= short_walk) {
    while (term < e && j < varidxs.count) {
      const i64 x = rows.nidxs[term], y = varidxs[j];
      if (x == y) to[j] = rows.cof[term];
      term += x <= y;
      j += y <= x;
    }
    return;
  }
  intersect(term, i64{e}, j, varidxs.count, KeysOf{rows.nidxs}, KeysOf{varidxs},
            [&](i64 t, i64 place) { to[place] = rows.cof[t]; });
}

// Picks n rows into the block from place c on and returns the place behind it.
i32 pick_rows(const Operand& rows, i32 n, CI64 varidxs, F64 cof, i32 c)
{
  for (i64 r = 0; r < n; ++r) {
    pick_row(rows, rows.ptr[r], rows.ptr[r + 1], varidxs, {cof, c});
    c += static_cast<i32>(varidxs.count);
  }
  return c;
}

// The block of one side, with the row number of each place.
struct SideBlock {
  F64 cof;
  I32 subi;
  i32 place;

  void pick(const Operand& rows, i64 r, CI64 varidxs, i32 row)
  {
    pick_row(rows, rows.ptr[r], rows.ptr[r + 1], varidxs, {cof, place});
    const Run run{subi, place};
    for (i64 j = 0; j < varidxs.count; ++j) run[j] = row;
    place += static_cast<i32>(varidxs.count);
  }
};

}  // namespace

// Picks n rows into the block from place c on.
KERNEL((32), (i32 c), pick_coefficients, F64 cof, i32 fpos, i32 n, i32 ipos, i32 c, i32 ppos, CI64 varidxs, CF64 wf64,
       CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  return pick_rows(w.operand(ppos, ipos, fpos), n, varidxs, cof, c);
}

// Picks n rows into the block from place c on; 32 with its scalars in another order.
KERNEL((41), (i32 c), pick_coefficients_from_place, F64 cof, i32 fpos, i32 c, i32 n, i32 ipos, i32 ppos, CI64 varidxs,
       CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  return pick_rows(w.operand(ppos, ipos, fpos), n, varidxs, cof, c);
}

// Picks n rows into the blocks of the two sides, each with a list of the rows of its places. The list is filled in at
// every place, also where the row has no such variable.
//
// - ccof, lcof (array; rows of the side x variables): the block of the conic and of the linear rows, row by row
// - csubi, lsubi (array; rows of the side x variables): the number of the conic or linear row at each place
// - cc, lc (cursor): the place in the block of the conic and of the linear rows behind the rows so far
KERNEL((33), (i32 cc, i32 lc), pick_coefficients_by_side, F64 ccof, i32 cc, i32 fpos, CI32 conidxs, I32 csubi, F64 lcof,
       i32 lc, I32 lsubi, i32 n, i32 ipos, i32 ppos, CI64 varidxs, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand rows = w.operand(ppos, ipos, fpos);
  SideBlock conic{ccof, csubi, cc};
  SideBlock linear{lcof, lsubi, lc};
  for_each_row(
      conidxs, n, [&](i64 r, i32 row) { conic.pick(rows, r, varidxs, row); },
      [&](i64 r, i32 row) { linear.pick(rows, r, varidxs, row); });
  return {conic.place, linear.place};
}

// Whether the first n of the variables to pick ascend strictly.
KERNEL((40), (bool ok), check_picked_variables, i32 n, CI64 varidxs_, bool ok)
{
  return ok && is_ascending(varidxs_, n);
}

}  // namespace fragments
