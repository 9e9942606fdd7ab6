// Steps of odometers: multi-indices that count through a box, the last axis fastest.
//
//     through an array, with flat positions    start 106 107 109, step 108
//     through a box, the index alone           step 112

#include "frame/frame.h"

namespace fragments {

// The position at which an odometer starts, at all of its levels.
//
// - n (count): the levels, one an axis
// - st (array; n): the flat position of each level
// - x (value): the flat position
KERNEL((106, 107, 109), (), start_odometer, i32 n, I64 st, i64 x)
{
  for (i64 k = 0; k < n; ++k) st[k] = x;
}

// One step through an array; level j counts along axis nd-1-j. A level that reaches its extent starts over and carries
// to the next; the last level, of axis 0, doesn't. The levels that started over take the position of the one that
// didn't. At least one axis, or nothing is done.
//
// - dims (array; nd): the extents of the array
// - ii (array; nd): the coordinate of each level
// - st (array; nd): the flat position of each level, where its run starts; st[0] is that of the element
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

// One step of a multi-index through a box: along the last axis, with a carry of one level. A carry out of the axis in
// front of it is the caller's. With more than one axis, the call doesn't end for a box that is empty along the last.
//
// - ndidx (array; axes): the multi-index that is advanced; its length is the number of axes
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
