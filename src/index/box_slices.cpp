// Slices of index arrays by a box: from a start, inclusive, to a stop, exclusive, along every axis.
//
//     dense source    walk the box 260, or filter 317
//     sparse source   strides 315, count 318, size 316 and strides 319 of the result, filter 320
//
// The walk of a dense source in row-major order takes neither a division nor a multiplication per element. The filters
// go by stretches of positions that are inside or outside the box, so that a dense source is read in the box alone, and
// a stored position is compared with the end of its stretch; they keep the order, so that a sparse result ascends
// again.
//
// - index (array; nd): scratch; left with the coordinates of the last element
// - rnidxs (array; up to the slot returned): the native numbers of the elements inside
// - stride (array; nd): the strides of the array, as 315 makes them
// - sp (array; len(nidxs)): the flat position of each element, ascending

#include "index/box.h"
#include "index/box_gather.h"
#include "index/slots.h"

namespace fragments {
namespace {

// The coordinates of a flat position.
void split(i64 flat, I32 index, CI32 shape, CI64 stride, i64 nd)
{
  for (i64 d = 0; d < nd; ++d)
    index[d] = static_cast<i32>(flat / divisor("stride", stride[d]) % divisor("shape", shape[d]));
}

}  // namespace

// The native numbers in a box of a dense array, in row-major order. At least one axis. Scratch: 3 * nd integers.
//
// - con_nativeidxs (array; product of `shape`): the native number of each element
// - sliceidxs (array; n): those of the elements in the box
// - n (count): the elements in the box, as 259 counts them; trusted
KERNEL((260), (), slice_by_walk, CI32 con_nativeidxs, CI32 firsta, CI32 lasta, i32 nd, CI32 shape, I32 sliceidxs, i32 n)
{
  gather_box_by_shape(sliceidxs, con_nativeidxs, firsta, lasta, shape, nd, n);
}

// Dense: appends the native numbers of the elements inside the box.
//
// - pos (cursor): the slot of `rnidxs` that is written next
KERNEL((317), (i32 pos), slice_dense_by_filter, CI32 astart, CI32 astop, I32 index, i32 nd, i32 pos, CI32 nidxs,
       I32 rnidxs, CI32 shape, CI64 stride)
{
  if (nidxs.count <= 0) return pos;
  const Box<CI32, CI64> box{nd, shape, stride, astart, astop};
  for_each_box_block(box, nidxs.count, [&](i64 b, i64 length, i64 step, i64 rows) {
    copy_rows(Run{rnidxs, pos}, Run{nidxs, b}, length, step, rows);
    pos += static_cast<i32>(length * rows);
  });
  split(nidxs.count - 1, index, shape, stride, nd);
  return pos;
}

// Sparse: adds the number of elements inside the box to `count`.
//
// - count (start): what the number is added to
KERNEL((318), (i32 count), count_in_box, CI32 astart, CI32 astop, i32 nd, I32 index, i32 count, CI32 nidxs, CI32 shape,
       CI64 sp, CI64 stride)
{
  if (nidxs.count <= 0) return count;
  if (nd <= 0) return count + static_cast<i32>(nidxs.count);
  const Box<CI32, CI64> box{nd, shape, stride, astart, astop};
  BoxFilter(box, false).for_each(sp, nidxs.count, [&](i64 b, i64 e) { count += static_cast<i32>(e - b); });
  split(sp[nidxs.count - 1], index, shape, stride, nd);
  return count;
}

// Sparse: appends the elements inside the box.
//
// - pos (cursor): the slot of `rnidxs` and `rsp` that is written next
// - rsp (array; up to the slot returned): the flat positions of the elements inside, by the strides of the result
// - rstride (array; nd): the strides of the result, as 319 makes them
KERNEL((320), (i32 pos), slice_sparse_by_filter, CI32 astart, CI32 astop, I32 index, i32 nd, i32 pos, CI32 nidxs,
       I32 rnidxs, I64 rsp, CI64 rstride, CI32 shape, CI64 sp, CI64 stride)
{
  if (nidxs.count <= 0) return pos;
  if (nd <= 0) {
    for (i64 e = 0; e < nidxs.count; ++e, ++pos) {
      rsp[pos] = 0;
      rnidxs[pos] = nidxs[e];
    }
    return pos;
  }
  const Box<CI32, CI64> box{nd, shape, stride, astart, astop};
  BoxFilter(box, true).for_each_with_place(
      sp, nidxs.count, [&](i64 place, i64 d, i64 x) { return place + x * rstride[d]; },
      [&](i64 b, i64 e, auto place) {
        const Run to_sp{rsp, pos};
        const Run to_nidxs{rnidxs, pos};
        for (i64 k = b; k < e; ++k) {
          stay_scalar(k);
          to_sp[k - b] = place(k);
          to_nidxs[k - b] = nidxs[k];
        }
        pos += static_cast<i32>(e - b);
      });
  split(sp[nidxs.count - 1], index, shape, stride, nd);
  return pos;
}

}  // namespace fragments
