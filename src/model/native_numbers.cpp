// Lists of native numbers, the flat numbers of variables and constraints: the largest, and those that stand for
// scalars.
//
// A selection stores 32-bit numbers. Numbers are compared in their full width and lie in the 32-bit range.
//
//     largest   3 of conic constraints, 5 of variables or constraints
//     scalars   above 0: count 11, select 12; from 0 on: count 21, select with values 22
//
// - m (start): what the maximum starts from
// - idxs (array; elements): the native number of each element

#include <algorithm>
#include <type_traits>

#include "model/select.h"

namespace fragments {
namespace {

// The maximum of m and the entries from `first` on.
template <class T>
i32 maximum(i32 m, StridedArray<T> numbers, i64 first)
{
  std::remove_const_t<T> greatest = m;
  for (i64 k = first; k < numbers.count; ++k) greatest = std::max(greatest, numbers[k]);
  return static_cast<i32>(greatest);
}

}  // namespace

// The maximum of m and the numbers of affine conic constraints.
KERNEL((3), (i32 m), largest_conic_constraint, CI32 accidxs, i32 m)
{
  return maximum(m, accidxs, 0);
}

// The maximum of m and all native numbers but the first, which is intended: entry 0 is never looked at.
KERNEL((5, 6), (i32 m), largest_native_number, i32 m, CI64 nativeidxs)
{
  return maximum(m, nativeidxs, 1);
}

// Counts the entries above 0.
//
// - c (cursor): the entries above 0
KERNEL((11, 13), (i32 c), count_positive, i32 c, CI64 idxs)
{
  for (i64 k = 0; k < idxs.count; ++k) c += idxs[k] > 0;
  return c;
}

// Selects the entries above 0, in order.
//
// - c (cursor): the place in `nativeidxs` behind the selection so far
// - nativeidxs (array; c and the selection): the selected numbers
KERNEL((12, 14), (i32 c), select_positive, CI64 idxs, i32 c, I32 nativeidxs)
{
  return select(
      idxs.count, c, [&](i64 k) { return idxs[k] > 0; },
      [&](i64 slot, i64 k) { nativeidxs[slot] = static_cast<i32>(idxs[k]); });
}

// Counts the entries at or above 0.
//
// - c (cursor): the entries at or above 0
KERNEL((21), (i32 c), count_nonnegative, CI64 nativeidxs, i32 c)
{
  for (i64 k = 0; k < nativeidxs.count; ++k) c += nativeidxs[k] >= 0;
  return c;
}

// Selects the entries at or above 0, in order, each with its value.
//
// - c (cursor): the place in `subj` and `val` behind the selection so far
// - subj, val (array; c and the selection): the selected numbers and their values
KERNEL((22), (i32 c), select_nonnegative_with_values, i32 c, CI64 nativeidxs, I32 subj, F64 val, CF64 values)
{
  return select(
      nativeidxs.count, c, [&](i64 k) { return nativeidxs[k] >= 0; },
      [&](i64 slot, i64 k) {
        subj[slot] = static_cast<i32>(nativeidxs[k]);
        val[slot] = values[k];
      });
}

}  // namespace fragments
