// Repetitions of a view of a variable along an axis. Operand: its numbers `tnativeidxs` and, if it is sparse, the flat
// positions `tsp`. The result, `rnativeidxs` and `rsp`, is written from slot `pos` on; kernels return the slot behind
// it.

#include "frame/copy_run.h"
#include "index/divisor.h"

namespace fragments {

// Sparse, along the leading axis: n elements, `reps` times; `step` is the size of the operand.
KERNEL((214), (i32), repeat_along_leading_axis, i64 step, i32 pos, i32 reps, i32 n, I64 rnativeidxs, I64 rsp,
       CI64 tnativeidxs, CI64 tsp)
{
  for (i64 r = 0; r < reps && n > 0; ++r, pos += n) {
    const i64 distance = step * r;
    copy_run(Run{rsp, pos}, Run{tsp, 0}, n, [distance](i64 flat) { return flat + distance; });
    copy_run(Run{rnativeidxs, pos}, Run{tnativeidxs, 0}, n);
  }
  return pos;
}

// Sparse, along a new last axis: each of n elements, m times.
KERNEL((215), (i32), repeat_along_last_axis, i32 pos, i32 m, i32 n, I64 rnativeidxs, I64 rsp, CI64 tnativeidxs,
       CI64 tsp)
{
  for (i64 r = 0; r < n; ++r) {
    for (i64 t = 0; t < m; ++t, ++pos) {
      rsp[pos] = tsp[r] * m + t;
      rnativeidxs[pos] = tnativeidxs[r];
    }
  }
  return pos;
}

// Sparse, along any axis: p is the extent of the axis, q and w the product of the extents behind it, v = p*q the
// distance of neighbours along the axis before, u = p*q*reps that distance in the result. The repetitions of each of n
// elements follow each other, so that `rsp` doesn't ascend; this is intended, and it is sorted afterwards.
KERNEL((216), (i32), repeat_along_axis, i32 p, i32 q, i32 pos, i32 reps, i32 n, i32 u, I64 rnativeidxs, I64 rsp, i32 v,
       i32 w, CI64 tnativeidxs, CI64 tsp)
{
  const Divisor extent(p), behind(q), slab(v), stride(w);
  const i64 step = i64{p} * q;
  for (i64 r = 0; r < n; ++r) {
    const i64 flat = tsp[r];
    const i64 coordinate = extent.remainder(stride.quotient(flat));
    const i64 first = coordinate * q + slab.quotient(flat) * u + behind.remainder(flat);
    for (i64 t = 0; t < reps; ++t, ++pos) {
      rsp[pos] = first + t * step;
      rnativeidxs[pos] = tnativeidxs[r];
    }
  }
  return pos;
}

// Dense, along any axis: n blocks of m numbers, each `reps` times.
KERNEL((224), (i32), repeat_blocks, i32 m, i32 n, i32 pos, i32 reps, I64 rnativeidxs, CI64 tnativeidxs)
{
  for (i64 a = 0; a < n; ++a) {
    for (i64 t = 0; t < reps && m > 0; ++t, pos += m) {
      copy_run(Run{rnativeidxs, pos}, Run{tnativeidxs, a * m}, m);
    }
  }
  return pos;
}

}  // namespace fragments
