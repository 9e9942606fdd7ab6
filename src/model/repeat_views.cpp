// Repetitions of a view of a variable along an axis: of a dense one 224, of a sparse one along the leading axis 214,
// along a new last axis 215, along any other 216.
//
// - tnativeidxs (array; n): the native number of each element of the view
// - tsp (array; n): the flat position of each element of the view, strictly ascending
// - rnativeidxs, rsp (array; pos and the result): the native numbers and the flat positions of the result
// - pos (cursor): the slot behind the result so far

#include "index/divisor.h"
#include "index/slots.h"

namespace fragments {
namespace {

// n repetitions of one element from slot pos on, `step` apart.
void repeat_element(I64 rnativeidxs, I64 rsp, i64 pos, i64 n, i64 number, i64 first, i64 step)
{
  fill_progression(Run{rsp, pos}, n, first, step);
  fill_progression(Run{rnativeidxs, pos}, n, number, 0);
}

}  // namespace

// Sparse, along the leading axis: all n elements, `reps` times.
//
// - step (step): the size of the view, by which the positions of one repetition are above those of the one before
KERNEL((214), (i32 pos), repeat_along_leading_axis, i64 step, i32 pos, i32 reps, i32 n, I64 rnativeidxs, I64 rsp,
       CI64 tnativeidxs, CI64 tsp)
{
  for (i64 r = 0; r < reps && n > 0; ++r, pos += n) {
    const i64 distance = step * r;
    copy_run(Run{rsp, pos}, Run{tsp, 0}, n, [distance](auto flat) { return flat + distance; });
    copy_run(Run{rnativeidxs, pos}, Run{tnativeidxs, 0}, n);
  }
  return pos;
}

// Sparse, along a new last axis: each of n elements, m times.
//
// - m (count): how often the view is repeated
KERNEL((215), (i32 pos), repeat_along_last_axis, i32 pos, i32 m, i32 n, I64 rnativeidxs, I64 rsp, CI64 tnativeidxs,
       CI64 tsp)
{
  if (m < 1) return pos;
  for (i64 r = 0; r < n; ++r, pos += m) repeat_element(rnativeidxs, rsp, pos, m, tnativeidxs[r], tsp[r] * m, 1);
  return pos;
}

// Sparse, along any axis: each of n elements, `reps` times. The repetitions of an element follow each other, so that
// `rsp` doesn't ascend; this is intended, and it is sorted afterwards.
//
// - p (extent): the extent of the axis
// - q, w (extent): the product of the extents behind the axis
// - v (step): the distance of neighbours along the axis before that one, p * q
// - u (step): the distance v in the result, p * q * reps
KERNEL((216), (i32 pos), repeat_along_axis, i32 p, i32 q, i32 pos, i32 reps, i32 n, i32 u, I64 rnativeidxs, I64 rsp,
       i32 v, i32 w, CI64 tnativeidxs, CI64 tsp)
{
  if (reps < 1) return pos;
  const Coordinate coordinate{Divisor(w), Divisor(p)};
  const Divisor behind(q), slab(v);
  const i64 step = i64{p} * q;
  const bool is_nested = w == q && v == step;
  for (i64 r = 0; r < n; ++r, pos += reps) {
    const i64 flat = tsp[r];
    const auto [block, rest] = slab.divide(flat);
    const i64 in_block = is_nested ? rest : coordinate(flat) * q + behind.remainder(flat);
    repeat_element(rnativeidxs, rsp, pos, reps, tnativeidxs[r], block * u + in_block, step);
  }
  return pos;
}

// Dense, along any axis: n blocks of m numbers, each `reps` times.
//
// - n (count): the blocks, the product of the extents before the axis
// - m (size): the numbers of a block, the product of the extents from the axis on
// - tnativeidxs (array; n * m): the native number of each element of the view
KERNEL((224), (i32 pos), repeat_blocks, i32 m, i32 n, i32 pos, i32 reps, I64 rnativeidxs, CI64 tnativeidxs)
{
  if (m < 1 || reps < 1) return pos;
  for (i64 a = 0; a < n; ++a) {
    repeat_slots(Run{rnativeidxs, pos}, Run{tnativeidxs, a * m}, m, reps);
    pos += m * reps;
  }
  return pos;
}

}  // namespace fragments
