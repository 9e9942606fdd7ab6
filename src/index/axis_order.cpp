// Bringing the elements along one axis of an array together. The array is seen as (q, p, r): p is the extent of the
// axis, q the product of the extents before it, r the product of those behind it.

#include "index/counting_sort.h"

namespace fragments {
namespace {

// Writes all q*p*r elements of the array from `c` on in the order (q, r, p). Returns the place behind them.
i32 gather_along_axis(i32 p, i32 q, i32 r, CI64 array, i32 c, I64 target)
{
  i64 place = c;
  for (i64 a = 0; a < q; ++a) {
    for (i64 b = 0; b < r; ++b) {
      const Run line{array, p * a * r + b};
      for (i64 e = 0; e < p; ++e) target[place++] = line[e * r];
    }
  }
  return static_cast<i32>(place);
}

}  // namespace

// The native indices in the order (q, r, p), from `c` on; returns the new `c`.
KERNEL((59), (i32), gather_cone_members, i32 p, i32 q, i32 r, CI64 nativeidxs, i32 c, I64 permidxs)
{
  return gather_along_axis(p, q, r, nativeidxs, c, permidxs);
}

// The same for a view of a variable.
KERNEL((201), (i32), gather_view_along_axis, i32 p, i32 q, i32 r, CI64 nativeidxs, i32 c, I64 residxs)
{
  return gather_along_axis(p, q, r, nativeidxs, c, residxs);
}

// Sorts the items of `perm` by the flat positions val[item] with the coordinate along the axis left out; items that
// differ in it alone keep their order. Buckets are ptrb[0 .. p*r]; each is left at its end. Here p is the product of
// the extents before the axis and q its extent.
KERNEL((103), (), sort_across_axis, i32 p, i32 q, i32 r, I32 perm, I32 ptrb, CI64 val)
{
  const i64 slab = i64{q} * r;
  const auto key = [&](i32 item) { return val[item] / slab * r + val[item] % r; };
  const i64 n = perm.count;
  const Scratch<i32> before(n);
  for (i64 k = 0; k < n; ++k) before[k] = perm[k];
  clear_buckets(ptrb, i64{p} * r);
  count_buckets(ptrb, n, [&](i64 k) { return key(before[k]); });
  add_up(ptrb, i64{p} * r);
  reorder_items(ptrb, before, perm, n, key);
}

}  // namespace fragments
