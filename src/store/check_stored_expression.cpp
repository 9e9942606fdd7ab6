// Checks of stored expressions. A stored expression of n rows is held in flat arrays, without code:
//
//     inst  i64[n]         flat position of each row, strictly ascending and inside the shape's size
//     ptrb  i64[n + 1]     row r has the terms ptrb[r] .. ptrb[r+1]-1; ptrb[0] is 0
//     subj  i64[ptrb[n]]   variable of each term
//     cof   f64[ptrb[n]]   coefficient of each term
//     bfix  f64[n]         constant term of each row
//
// Most flags come in and stay true only as long as all is well, so that checks chain; that of 626 works the other way.

#include "index/order.h"

namespace fragments {

// Positions: `flag` stays true if the first is at or above 0, `flag2` if the last is below `size`, `flag3` if they
// ascend strictly. Neither `ptrb` nor `thisshape` is looked at; this is intended.
KERNEL((575), (bool, bool, bool), check_positions_by_fault, I64 inst, bool flag, i32 n, [[maybe_unused]] I64 ptrb,
       bool flag2, bool flag3, i64 size, [[maybe_unused]] I32 thisshape)
{
  if (n <= 0) return {flag, flag2, flag3};
  return {flag && inst[0] >= 0, flag2 && inst[n - 1] < size, flag3 && is_ascending(inst, n)};
}

// Positions: `flag`, and all are inside 0 .. size-1 and ascend strictly, which makes the first and the last stand for
// all.
KERNEL((611), (bool), check_positions, I64 inst, bool flag, i64 size)
{
  const i64 n = inst.count;
  if (n == 0) return flag;
  return flag && inst[0] >= 0 && inst[n - 1] < size && is_ascending(inst, n);
}

// Positions before sorting: sets `flag` for any of n outside 0 .. size-1; a flag that is set stays set.
KERNEL((626), (bool), find_position_outside, bool flag, I64 inst_, i32 n, i64 size)
{
  for (i64 i = 0; !flag && i < n; ++i) flag = inst_[i] < 0 || inst_[i] >= size;
  return flag;
}

// Positions before merging: `flag`, and they are sorted; repeats may stand in them.
KERNEL((620, 627), (bool), check_sorted, I64 inst_, bool flag)
{
  return flag && is_sorted(inst_, inst_.count);
}

// Row pointers of n rows: `flag`, and no row ends before it begins.
KERNEL((612), (bool), check_row_pointers, i32 n, I64 ptrb, bool flag)
{
  return flag && is_sorted(ptrb, i64{n} + 1);
}

// Constants: `flag`, and all n are zero, so that the expression has no constant part. A NaN is not zero.
KERNEL((608), (bool), check_no_constants, F64 bfix, i32 n, bool flag)
{
  for (i64 i = 0; flag && i < n; ++i) flag = bfix[i] == 0.0;
  return flag;
}

}  // namespace fragments
