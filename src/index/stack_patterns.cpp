// Flat positions of arrays that are stacked along an axis: those of each array are moved to where its elements stand in
// the whole. They lie one array behind the other in one list, and are moved in place. `sp` ascends in each array;
// the whole is sorted afterwards, unless the arrays are stacked along the leading axis.

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
        const i64 outer = flat / slab;
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

// Moves the n positions of item `item` from `start` on and returns the offset of the next item. Along the leading axis,
// `axis_inner` 0, `offset` counts positions and itemsizes[item] is added to it; along another one it counts coordinates
// and dimsizes[item], the item's extent, is added. `inner` is the product of the extents behind the axis, `total` the
// extent of the whole.
KERNEL((295), (i64), stack_item, i32 axis_inner, i64 inner, i32 total, CI32 dimsizes, i32 item, CI64 itemsizes, i32 n,
       i32 start, i64 offset, I64 sp)
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

// Stacking along the leading axis: adds `add` to the numnz[k] positions of operand k, from `pos` on. Returns the place
// behind them.
KERNEL((235), (i32), stack_view_along_leading_axis, i32 k, i32 pos, i64 add, CI32 numnz, I64 rsp)
{
  const i32 n = numnz[k];
  if (n <= 0) return pos;
  add_to_positions({rsp, pos}, n, add);
  return pos + n;
}

// Stacking n operands along any axis: operand k has the extent sdims[k] there and begins at offset[k] of the whole
// extent p; q is the product of the extents behind the axis. Its numnz[k] positions stand from `pos` on, behind those
// of the operands before it. Returns the place behind the last.
KERNEL((238), (i32), stack_views, i32 p, i32 q, i32 pos, i32 n, CI32 numnz, CI32 offset, I64 rsp, CI32 sdims)
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
