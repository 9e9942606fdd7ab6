// The stored elements of an array: their flat positions, native numbers and values. `sp` and `nidxs` run in parallel;
// a dense array has no `sp`, and its element k stands at position k.
//
//     restrict to a range of positions         count 324, then 325
//     append to arrays that are concatenated   positions 314, native numbers 326
//     values                                   of a dense array at stored elements 329, all the same 330

#include "index/slots.h"

namespace fragments {

// Restricts a pattern to the positions from `lo` up to hi-1: appends the native numbers of the elements there to
// `rnidxs`, and positions less `lo` to `rsp`.
//
// The position is that of element k, the slot written, not of the element found: position and native number belong
// together only if the elements found are the first ones of `sp` and k comes in as 0. This is intended.
//
// - k (cursor): the slot that is written next
// - rnidxs, rsp (array; up to the slot returned): the native numbers and the positions of the elements
// - lo (value): the first flat position of the range
// - hi (value): the end of the range, exclusive
KERNEL((325), (i32 k), restrict_pattern, i32 k, CI32 nidxs, I32 rnidxs, I64 rsp, CI64 sp, i32 lo, i32 hi)
{
  for (i64 m = 0; m < sp.count; ++m) {
    if (sp[m] < lo || sp[m] >= hi) continue;
    rnidxs[k] = nidxs[m];
    rsp[k] = sp[k] - lo;
    ++k;
  }
  return k;
}

// The flat positions of an array's elements: all of `sp`, which may be empty, or for a dense array, `sp` None, the
// numbers of its elements.
//
// - dest (array; base + elements): the flat positions
// - nidxs (array; elements): gives only the number of elements, of a dense array
// - base (index): the slot of `dest` that is written first
// - sp (array; elements): the flat position of each stored element; None if the array is dense
KERNEL((314), (), append_positions, I64 dest, CI32 nidxs, i32 base, CI64 sp)
{
  const Run to{dest, base};
  if (sp.data) {
    copy_slots(to, {sp, 0}, sp.count);
  } else {
    for (i64 k = 0; k < nidxs.count; ++k) to[k] = k;
  }
}

// The native numbers of an array's elements.
//
// - dst (array; base + elements): the native numbers
// - base (index): the slot of `dst` that is written first
KERNEL((326), (), append_native_indices, I32 dst, CI32 nidxs, i32 base)
{
  copy_slots(Run{dst, base}, {nidxs, 0}, nidxs.count);
}

// The values of a dense array at the positions of a pattern: cvals[k] = values[sp[k]].
//
// - cvals (array; len(nidxs)): the value of each stored element
// - nidxs (array; elements): gives only the number of elements
// - values (array; up to the last position): the value at each flat position
KERNEL((329), (), gather_stored_values, F64 cvals, CI32 nidxs, CI64 sp, CF64 values)
{
  for (i64 k = 0; k < nidxs.count; ++k) cvals[k] = values[sp[k]];
}

// One value for n elements.
//
// - n (count): the elements
// - vals (array; n): the value of each element
// - value (value): what is written
KERNEL((330), (), fill_values, i64 n, F64 vals, f64 value)
{
  fill_slots(Run{vals, 0}, n, value);
}

}  // namespace fragments
