// Permutations of views of variables: of the elements by a list of places, 165 and 166, of the two axes of a matrix,
// 168, of any axes, 208 and 209.

#include "index/slots.h"

namespace fragments {
namespace {

// to[k] = from[perm[k]] for k below n.
void gather(I64 to, CI64 from, CI64 perm, i32 n)
{
  for (i64 k = 0; k < n; ++k) to[k] = from[perm[k]];
}

// Calls element(k, t) for the elements k below n of a view with nd axes, t being the sum over d of slot[perm[d]] *
// pstrides[d] in 32 bits.
//
// The element's own number, not the axis, selects the extent and the slot: shape[nd-1-k] splits k, and slot[nd-1-k]
// takes digit nd-1, while the slots of the elements before keep what they took. This is intended; n is at most nd.
// Digit nd-1 of a number below nd is 0 in every base, so that t comes out as 0. Without axes t is 0, for any n.
template <class Element>
void for_each_permuted(i32 nd, i32 n, CI32 perm, CI64 pstrides, CI32 shape, Element element)
{
  if (n <= 0) return;
  const Scratch<i32> slot(nd);
  for (i64 k = 0; k < n; ++k) {
    i64 t = 0;
    if (nd > 0) {
      const i64 selected = i64{nd} - 1 - k;
      const i64 extent = shape[selected];
      i64 rest = k;
      for (i64 d = 0; d < nd; ++d) {
        slot[selected] = static_cast<i32>(rest % extent);
        rest /= extent;
      }
      for (i64 d = 0; d < nd; ++d) t += slot[perm[d]] * pstrides[d];
    }
    element(k, static_cast<i32>(t));
  }
}

}  // namespace

// Permutes the elements of a map: of n native numbers, number k is that of place perm[k].
//
// - perm (array; n): the place of each element before
KERNEL((165), (), permute_numbers, i32 n, CI64 nidxs, CI64 perm, I64 rnidxs)
{
  gather(rnidxs, nidxs, perm, n);
}

// Permutes the elements of a pattern: of n flat positions, position k is that of place perm[k].
//
// - perm (array; n): the place of each element before
KERNEL((166), (), permute_positions, i32 n, CI64 perm, I64 rsp, CI64 sp)
{
  gather(rsp, sp, perm, n);
}

// Transposes a matrix.
//
// - d1, d2 (extent): the rows and the columns of the matrix
KERNEL((168, 169), (), transpose_view, i32 d1, i32 d2, CI64 nativeidxs, I64 residxs)
{
  transpose_slots(Run{residxs, 0}, Run{nativeidxs, 0}, d1, d2, d1);
}

// Permutes the axes of a dense view: residxs[t] = nativeidxs[k], t being the position of element k in the result. The
// element's own number selects its extent and its coordinate, so that n is at most nd and t comes out as 0; this is
// intended. Without axes t is 0, for any n. Scratch: nd coordinates.
//
// - perm (array; nd): the axis of the view that becomes each axis of the result
KERNEL((208), (), permute_dense_view, CI64 nativeidxs, i32 nd, i32 n, CI32 perm, CI64 pstrides, I64 residxs, CI32 shape)
{
  for_each_permuted(nd, n, perm, pstrides, shape, [&](i64 k, i32 t) { residxs[t] = nativeidxs[k]; });
}

// Permutes the axes of a pattern: ressp[k] = t, the position of element k in the result. The element's own number
// selects its extent and its coordinate, so that n is at most nd and t comes out as 0; this is intended. Without axes t
// is 0, for any n. Scratch: nd coordinates.
//
// - perm (array; nd): the axis of the view that becomes each axis of the result
// - ressp (array; n): the flat position of each element in the result
KERNEL((209), (), permute_pattern, i32 nd, i32 n, CI32 perm, CI64 pstrides, I64 ressp, CI32 shape)
{
  for_each_permuted(nd, n, perm, pstrides, shape, [&](i64 k, i32 t) { ressp[k] = t; });
}

}  // namespace fragments
