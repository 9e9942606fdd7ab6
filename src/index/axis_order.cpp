// Bringing the elements along one axis of an array together, or sorting them by all other axes. The array has three
// axes, those in front of the axis and those behind it taken as one each.
//
// - p (extent): the axis
// - q (extent): the axes before it, as one
// - r (extent): the axes behind it, as one
// - nativeidxs (array; q * p * r): the native number of each element
// - c (cursor): the slot that is written next

#include "index/counting_sort.h"
#include "index/divisor.h"
#include "index/slots.h"

namespace fragments {
namespace {

// Writes all q*p*r elements of the array of the extents (q, p, r) from `c` on in the order (q, r, p). Returns the place
// behind them.
i32 gather_along_axis(i32 p, i32 q, i32 r, CI64 array, i32 c, I64 target)
{
  if (p < 1 || q < 1 || r < 1) return c;
  const i64 slab = i64{p} * r, end = c + q * slab;
  if (p == 1 || r == 1) {
    copy_slots(Run{target, c}, Run{array, 0}, q * slab);
  } else {
    for (i64 a = 0; a < q; ++a) transpose_slots(Run{target, c + a * slab}, Run{array, a * slab}, p, r, p);
  }
  return static_cast<i32>(end);
}

}  // namespace

// The native numbers of an array of the extents (q, p, r) in the order (q, r, p), which is that of the members of cones
// along its axis.
//
// - permidxs (array; c + q * p * r): the native numbers, reordered
KERNEL((59), (i32 c), gather_cone_members, i32 p, i32 q, i32 r, CI64 nativeidxs, i32 c, I64 permidxs)
{
  return gather_along_axis(p, q, r, nativeidxs, c, permidxs);
}

// The native numbers of a view of the extents (q, p, r) in the order (q, r, p).
//
// - residxs (array; c + q * p * r): the native numbers, reordered
KERNEL((201), (i32 c), gather_view_along_axis, i32 p, i32 q, i32 r, CI64 nativeidxs, i32 c, I64 residxs)
{
  return gather_along_axis(p, q, r, nativeidxs, c, residxs);
}

// Sorts the items of `perm` by their flat positions with the coordinate along the axis left out, in an array of the
// extents (p, q, r). Items that differ in this coordinate alone keep their order. O(items + p * r). Scratch: a copy of
// `perm`.
//
// - p (extent): the axes before the axis, as one
// - q (extent): the axis
// - perm (array; items): the items, in the order to begin with and then in the order made
// - ptrb (array; p * r + 1): room for the buckets; each is left at its end
// - val (array; one an item): the flat position of each item
KERNEL((103), (), sort_across_axis, i32 p, i32 q, i32 r, I32 perm, I32 ptrb, CI64 val)
{
  const i64 n = perm.count;
  if (n < 1) return clear_buckets(ptrb, i64{p} * r);
  const Divisor slab(divisor("q * r", i64{q} * r)), inner(r);
  const Scratch<i32> before(n);
  for (i64 k = 0; k < n; ++k) before[k] = perm[k];
  const auto key = [&](i32 item) {
    const auto [outer, behind] = slab.divide(val[item]);
    return outer * r + inner.remainder(behind);
  };
  sort_pass(ptrb, i64{p} * r, i64{p} * r, before, perm, n, key);
}

}  // namespace fragments
