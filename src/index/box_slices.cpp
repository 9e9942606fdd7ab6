// Slices of index arrays by a box: from a start, inclusive, to a stop, exclusive, along every axis.
//
//     dense source    walk the box 260, or filter 317
//     sparse source   strides 315, count 318, size 316 and strides 319 of the result, filter 320
//
// The walk of a dense source in row-major order takes neither a division nor a multiplication per element. The filters
// visit every stored element, split its flat position into coordinates and test them; they keep the order, so that a
// sparse result ascends again. They take O(elements * axes).
//
// - index (array; nd): scratch; takes the coordinates of every element and keeps those of the last
// - rnidxs (array; up to the slot returned): the native numbers of the elements inside
// - stride (array; nd): the strides of the array, as 315 makes them
// - sp (array; len(nidxs)): the flat position of each element, ascending

#include "index/box_gather.h"
#include "index/divisor.h"
#include "index/shape.h"

namespace fragments {
namespace {

// The coordinates of flat positions by strides that need not be row-major: index[d] = flat / stride[d] % shape[d].
class Coordinates {
 public:
  Coordinates(CI32 shape, CI64 stride, i32 nd) : shape_(shape), stride_(stride)
  {
    for (i64 d = 0; d < nd && d < fast_axes; ++d) axes_[d] = {Divisor(stride[d]), Divisor(shape[d])};
  }

  i32 operator()(i64 flat, i64 d) const
  {
    return static_cast<i32>(d < fast_axes ? axes_[d](flat) : flat / stride_[d] % shape_[d]);
  }

 private:
  // No array of practice has more axes; further ones take divisions.
  static constexpr i64 fast_axes = 8;

  CI32 shape_;
  CI64 stride_;
  Coordinate axes_[fast_axes];
};

// Calls inside(e) for those of `count` elements whose flat position(e) lies in the box. `index` takes the coordinates
// of each element, all of them before they are tested, and keeps those of the last one. Without axes every element is
// inside. O(count * nd).
template <class Position, class Inside>
void filter_by_box(CI32 astart, CI32 astop, i32 nd, I32 index, CI32 shape, CI64 stride, i64 count, Position position,
                   Inside inside)
{
  if (count <= 0) return;
  const Coordinates coordinate(shape, stride, nd);
  for (i64 e = 0; e < count; ++e) {
    const i64 flat = position(e);
    bool is_inside = true;
    for (i64 d = 0; d < nd; ++d) {
      const i32 k = coordinate(flat, d);
      index[d] = k;
      is_inside &= astart[d] <= k && k < astop[d];
    }
    if (is_inside) inside(e);
  }
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
  filter_by_box(
      astart, astop, nd, index, shape, stride, nidxs.count, [](i64 e) { return e; },
      [&](i64 e) { rnidxs[pos++] = nidxs[e]; });
  return pos;
}

// Sparse: adds the number of elements inside the box to `count`.
//
// - count (start): what the number is added to
KERNEL((318), (i32 count), count_in_box, CI32 astart, CI32 astop, i32 nd, I32 index, i32 count, CI32 nidxs, CI32 shape,
       CI64 sp, CI64 stride)
{
  filter_by_box(
      astart, astop, nd, index, shape, stride, nidxs.count, [&](i64 e) { return sp[e]; }, [&](i64) { ++count; });
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
  filter_by_box(
      astart, astop, nd, index, shape, stride, nidxs.count, [&](i64 e) { return sp[e]; },
      [&](i64 e) {
        i64 flat = 0;
        for (i64 d = 0; d < nd; ++d) flat += (i64{index[d]} - astart[d]) * rstride[d];
        rsp[pos] = flat;
        rnidxs[pos] = nidxs[e];
        ++pos;
      });
  return pos;
}

}  // namespace fragments
