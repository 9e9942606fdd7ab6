// Flat positions of arrays that are stacked along an axis: those of each array are moved to where its elements stand in
// the whole. They lie one array behind the other in one list, and are moved in place. The positions of each array
// ascend; the whole is sorted afterwards, unless the arrays are stacked along the leading axis.
//
//     one array after the other           295
//     views along the leading axis        235, an operand a call
//     views along any axis                238, after the offsets, 236

#include "frame/frame.h"

namespace fragments {
namespace {

// An array of the extent `extent` along the axis, in a whole of the extent `whole` there. It begins at `offset`, and
// `inner` is the product of the extents behind the axis.
struct StackedArray {
  i64 inner, extent, whole, offset;

  // Moves n positions. Those that agree in the axes before this one are neighbours and move by the same distance, so
  // that a division is taken only where these axes change.
  void move_positions(Run<i64> sp, i64 n) const
  {
    const i64 slab = inner * extent;
    i64 begin = 0, end = 0, distance = 0;
    for (i64 k = 0; k < n; ++k) {
      const i64 flat = sp[k];
      if (flat < begin || flat >= end) {
        const i64 outer = flat / divisor("inner * extent", slab);
        begin = outer * slab;
        end = begin + slab;
        distance = (outer * (whole - extent) + offset) * inner;
      }
      sp[k] = flat + distance;
    }
  }
};

void add_to_positions(Run<i64> sp, i64 n, i64 distance)
{
  for (i64 k = 0; k < n; ++k) sp[k] += distance;
}

}  // namespace

// Moves the positions of one array and returns the offset of the next. Along the leading axis, `offset` counts
// positions, and the array's size is added to it; along another one it counts coordinates, and the extent is added.
//
// - axis_inner (flag): whether the arrays are stacked along another axis than the leading one; any number but 0 is true
// - inner (extent): the axes behind the axis of the stack, as one
// - total (extent): the whole, along the axis of the stack
// - dimsizes (array; items): the extent of each array along the axis; read along an axis other than the leading one
// - itemsizes (array; items): the size of each array, stored elements or not; read along the leading axis
// - n (count): the positions of the array
// - start (index): the first of them in `sp`
// - offset (cursor): where the array begins in the whole
// - sp (array; start + n): the flat positions of all arrays
KERNEL((295), (i64 offset), stack_item, i32 axis_inner, i64 inner, i32 total, CI32 dimsizes, i32 item, CI64 itemsizes,
       i32 n, i32 start, i64 offset, I64 sp)
{
  const Run positions{sp, start};
  if (!axis_inner) {
    add_to_positions(positions, n, offset);
    return offset + itemsizes[item];
  }
  const i64 extent = dimsizes[item];
  StackedArray{inner, extent, total, offset}.move_positions(positions, n);
  return offset + extent;
}

// Stacking along the leading axis: adds `add` to the positions of one operand.
//
// - k (index): the operand
// - pos (cursor): the slot of `rsp` at which the positions of the operand begin
// - add (step): the size of the operands before it
// - rsp (array; pos + numnz[k]): the flat positions of all operands
KERNEL((235), (i32 pos), stack_view_along_leading_axis, i32 k, i32 pos, i64 add, CI32 numnz, I64 rsp)
{
  const i32 n = numnz[k];
  if (n <= 0) return pos;
  add_to_positions({rsp, pos}, n, add);
  return pos + n;
}

// Stacking n operands along any axis: moves the positions of all operands.
//
// - p (extent): the whole, along the axis of the stack
// - q (extent): the axes behind the axis, as one
// - pos (cursor): the slot of `rsp` at which the positions of the first operand begin
// - n (count): the operands
// - rsp (array; pos + positions): the flat positions of all operands
KERNEL((238), (i32 pos), stack_views, i32 p, i32 q, i32 pos, i32 n, CI32 numnz, CI32 offset, I64 rsp, CI32 sdims)
{
  for (i64 k = 0; k < n; ++k) {
    const i32 count = numnz[k];
    if (count <= 0) continue;
    StackedArray{q, sdims[k], p, offset[k]}.move_positions({rsp, pos}, count);
    pos += count;
  }
  return pos;
}

}  // namespace fragments
