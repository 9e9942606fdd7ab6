// Steps of odometers: multi-indices that count through a box, the last axis fastest.

#include "frame/frame.h"

namespace fragments {

// The same position at n levels of an odometer.
KERNEL((106, 107, 109), (), start_odometer, i32 n, I64 st, i64 x)
{
  for (i64 k = 0; k < n; ++k) st[k] = x;
}

// One step through an array of the extents dims[nd]. Level j counts along axis nd-1-j: its coordinate is ii[j], and
// st[j] is the flat position at the start of its run, strides[nd-1-j] apart. A level that reaches its extent starts
// over and carries to the next; the last level doesn't. The levels that started over take the position of the one that
// didn't.
KERNEL((108), (), step_odometer, CI32 dims, I32 ii, i32 nd, I64 st, CI64 strides)
{
  i64 j = 0;
  for (i64 axis = i64{nd} - 1; axis >= 0; --axis) {
    ii[j] = wrapping_add(ii[j], 1);
    st[j] = wrapping_add(st[j], strides[axis]);
    if (axis == 0 || ii[j] != dims[axis]) break;
    ii[j++] = 0;
  }
  for (i64 k = 0; k < j; ++k) st[k] = st[j];
}

// One step of the index `ndidx` through the box from `first` up to `last`, exclusive: along the last axis, with a carry
// of one level. A carry out of the axis in front of it is the caller's; the box must have room along the last axis.
KERNEL((112), (), step_index, CI32 first, CI32 last, I32 ndidx)
{
  const i64 n = ndidx.count;
  if (n < 1) return;
  ndidx[n - 1] = wrapping_add(ndidx[n - 1], 1);
  while (n > 1 && ndidx[n - 1] >= last[n - 1]) {
    ndidx[n - 1] = first[n - 1];
    ndidx[n - 2] = wrapping_add(ndidx[n - 2], 1);
  }
}

}  // namespace fragments
