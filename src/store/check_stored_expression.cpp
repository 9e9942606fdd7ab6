// Checks of stored expressions. A stored expression of n rows is held in flat arrays, without code:
//
//     inst  i64[n]         flat position of each row, strictly ascending and inside the shape's size
//     ptrb  i64[n + 1]     row r has the terms ptrb[r] .. ptrb[r+1]-1; ptrb[0] is 0
//     subj  i64[ptrb[n]]   variable of each term
//     cof   f64[ptrb[n]]   coefficient of each term
//     bfix  f64[n]         constant term of each row
//
// Most flags come in and stay true only as long as all is well, so that checks chain; that of 626 works in reverse.
//
//     positions   611, or 575 with a flag for each fault; before sorting 626, before merging 620
//     others      row pointers 612, constants 608
//
// - inst (array; rows): the flat position of each row, strictly ascending if all is well
// - flag (flag): whether all is well; one that comes in cleared stays so

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

#include "index/order.h"

namespace fragments {
namespace {

// Whether fault(i) is not 0 for any i below n. Stops behind the first sixteen with a fault: with a branch for every
// entry, a test takes twice the time and more.
template <class Fault>
bool has_fault(i64 n, Fault fault)
{
  i64 i = 0, faults = 0;
  while (faults == 0 && n - i >= 16) {
    for (const i64 e = i + 16; i < e; ++i) faults |= fault(i);
  }
  for (; i < n; ++i) faults |= fault(i);
  return faults != 0;
}

}  // namespace

// Checks the positions of n rows, with a flag for each fault; one that comes in cleared stays so. Neither `ptrb` nor
// `thisshape` is looked at; this is intended.
//
// - flag (flag): whether the first position is at or above 0
// - flag2 (flag): whether the last position is below `size`
// - flag3 (flag): whether they ascend strictly
// - ptrb, thisshape (array; any): not read
KERNEL((575), (bool flag, bool flag2, bool flag3), check_positions_by_fault, CI64 inst, bool flag, i32 n,
       [[maybe_unused]] CI64 ptrb, bool flag2, bool flag3, i64 size, [[maybe_unused]] CI32 thisshape)
{
  if (n <= 0) return {flag, flag2, flag3};
  return {flag && inst[0] >= 0, flag2 && inst[n - 1] < size, flag3 && is_ascending(inst, n)};
}

// Checks that all positions are inside 0 .. size-1 and ascend strictly, which makes the first and the last stand for
// all.
KERNEL((611), (bool flag), check_positions, CI64 inst, bool flag, i64 size)
{
  const i64 n = inst.count;
  if (n == 0) return flag;
  return flag && inst[0] >= 0 && inst[n - 1] < size && is_ascending(inst, n);
}

// Looks for a position outside 0 .. size-1 among the first n, before sorting.
//
// - flag (flag): whether there is one; a flag that comes in set stays so
// - inst_ (array; rows): the flat position of each row, in any order
KERNEL((626), (bool flag), find_position_outside, bool flag, CI64 inst_, i32 n, i64 size)
{
  const i64 last = std::max<i64>(size, 0) - 1;
  constexpr i64 sign = std::numeric_limits<i64>::min();
  return flag || has_fault(n, [&](i64 i) { return (inst_[i] | wrapping_sub(last, inst_[i])) & sign; });
}

// Checks that the positions are sorted, before merging; repeats may stand in them.
KERNEL((620, 627), (bool flag), check_sorted, CI64 inst_, bool flag)
{
  return flag && is_sorted(inst_, inst_.count);
}

// Checks the row pointers of n rows: no row ends before it begins.
KERNEL((612), (bool flag), check_row_pointers, i32 n, CI64 ptrb, bool flag)
{
  return flag && is_sorted(ptrb, i64{n} + 1);
}

// Checks that all n constants are zero, so that the expression has no constant part. A NaN is not zero.
KERNEL((608), (bool flag), check_no_constants, CF64 bfix, i32 n, bool flag)
{
  // Only the sign bit of a zero may be set. The shift leaves it out, and takes a third of the time of a comparison.
  return flag && !has_fault(n, [&](i64 i) { return static_cast<i64>(std::bit_cast<std::uint64_t>(bfix[i]) << 1); });
}

}  // namespace fragments
