// The stored elements of an array: their flat positions, native indices and values. `sp` and `nidxs` run in parallel;
// a dense array has no `sp`, and its element k stands at position k.

#include "index/slots.h"

namespace fragments {

// Restricts a pattern to the positions from `lo` up to hi-1: appends the native indices of the elements there to
// `rnidxs`, from slot k on, and their positions less `lo` to `rsp`. Returns the slot behind them.
//
// The position is that of element k, the slot written, not of the element found: position and native index belong
// together only if the elements found are the first ones of `sp` and k comes in as 0. This is intended.
KERNEL((325), (i32), restrict_pattern, i32 k, CI32 nidxs, I32 rnidxs, I64 rsp, CI64 sp, i32 lo, i32 hi)
{
  for (i64 m = 0; m < sp.count; ++m) {
    if (sp[m] < lo || sp[m] >= hi) continue;
    rnidxs[k] = nidxs[m];
    rsp[k] = sp[k] - lo;
    ++k;
  }
  return k;
}

// The flat positions of an array's elements, from slot `base` on: all of `sp`, which may be empty, or for a dense
// array, `sp` None, the numbers of its len(nidxs) elements.
KERNEL((314), (), append_positions, I64 dest, CI32 nidxs, i32 base, CI64 sp)
{
  const Run to{dest, base};
  if (sp.data) {
    copy_slots(to, Run{sp, 0}, sp.count);
  } else {
    for (i64 k = 0; k < nidxs.count; ++k) to[k] = k;
  }
}

// The native indices, from slot `base` on.
KERNEL((326), (), append_native_indices, I32 dst, CI32 nidxs, i32 base)
{
  copy_slots(Run{dst, base}, Run{nidxs, 0}, nidxs.count);
}

// The values of a dense array at the positions of a pattern, which has as many elements as `nidxs` has entries.
KERNEL((329), (), gather_stored_values, F64 cvals, CI32 nidxs, CI64 sp, CF64 values)
{
  for (i64 k = 0; k < nidxs.count; ++k) cvals[k] = values[sp[k]];
}

// One value for n elements.
KERNEL((330), (), fill_values, i64 n, F64 vals, f64 value)
{
  fill_slots(Run{vals, 0}, n, value);
}

}  // namespace fragments
