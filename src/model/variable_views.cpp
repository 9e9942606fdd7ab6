// Views of variables: a view owns no numbers, it maps its elements onto the flat numbers of the base array.
//
//     basevar_nativeidxs   the native number of each stored element
//     sparsity             the flat position of each, strictly ascending; a dense view has none
//
// The map of a dense view stands for all of its elements, so that a sparse one is scattered into zeros: 191 and 192 in
// a list, 194 and 195 in a map. 146 pushes a view on a stack, 188 and 189 append one to a stack of views.
//
// - sparsity (array; stored elements): the flat position of each stored element
// - idxs (array; elements): the native number of each element of a dense map

#include "index/slots.h"

namespace fragments {
namespace {

// to[at[k]] = from[k] for k below n.
void scatter(Run<i64> to, CI64 at, CI64 from, i64 n)
{
  for (i64 k = 0; k < n; ++k) to[at[k]] = from[k];
}

}  // namespace

// Pushes a view of n elements as an expression record, one term of coefficient 1 an element; the pattern only if
// `hassp`. The shape is pushed by 145.
//
// - ptrpos (position in ri32; n + 1): where the terms of each element begin
// - sppos, nidxspos (position in ri64; n): the flat position of each element, the variable of each term
// - cofpos (position in rf64; n): the coefficient of each term
KERNEL((146), (), push_view, CI64 basevar_nativeidxs, i32 cofpos, bool hassp, i32 nidxspos, i32 n, i32 ptrpos, F64 rf64,
       I32 ri32, I64 ri64, i32 sppos, CI64 sparsity)
{
  fill_multiples(Run{ri32, ptrpos}, 0, n, 1);
  copy_slots(Run{ri64, nidxspos}, Run{basevar_nativeidxs, 0}, n);
  if (hassp) copy_slots(Run{ri64, sppos}, Run{sparsity, 0}, n);
  fill_slots(Run{rf64, cofpos}, n, 1.0);
}

// Appends the map of a dense operand of a stack, with the positions of its elements in the operand: 0, 1, 2 and so on.
//
// - bpos (position in basevar_nativeidxs; elements): where the operand's numbers begin
// - spos (position in sparsity; elements): where its positions begin
// - thisnidxs (array; elements): the native number of each element of the operand
KERNEL((188), (), append_dense_view, I64 basevar_nativeidxs, i32 bpos, I64 sparsity, i32 spos, CI64 thisnidxs)
{
  const Run numbers{basevar_nativeidxs, bpos};
  const Run positions{sparsity, spos};
  copy_slots(numbers, Run{thisnidxs, 0}, thisnidxs.count);
  for (i64 k = 0; k < thisnidxs.count; ++k) positions[k] = k;
}

// Writes all of a map into a list, from slot `pos` on.
KERNEL((189), (), append_view, CI64 basevar_nativeidxs, I64 nindex, i32 pos)
{
  copy_slots(Run{nindex, pos}, Run{basevar_nativeidxs, 0}, basevar_nativeidxs.count);
}

// Zeroes n slots of a list from `pos` on. A sparse view is written over them by 192, so that the elements that it
// doesn't store stand as number 0.
KERNEL((191), (), append_zeros, i32 n, I64 nindex, i32 pos)
{
  clear_slots(Run{nindex, pos}, n);
}

// Writes each number of a sparse view to its position in a list, counted from slot `pos` on.
KERNEL((192), (), scatter_into_list, CI64 basevar_nativeidxs, I64 nindex, i32 pos, CI64 sparsity)
{
  scatter({nindex, pos}, sparsity, basevar_nativeidxs, sparsity.count);
}

// Writes each number of a sparse view to its position in a dense map, for all of `basevar_nativeidxs`.
KERNEL((194), (), scatter_view, CI64 basevar_nativeidxs, I64 idxs, CI64 sparsity)
{
  scatter({idxs, 0}, sparsity, basevar_nativeidxs, basevar_nativeidxs.count);
}

// Writes each number of a sparse view to its position in a dense map, for all of `sparsity`.
KERNEL((195, 196), (), scatter_view_by_pattern, CI64 basevar_nativeidxs, I64 idxs, CI64 sparsity)
{
  scatter({idxs, 0}, sparsity, basevar_nativeidxs, sparsity.count);
}

// Copies all of a map.
//
// - r (array; elements): the copy
KERNEL((197, 202, 203), (), copy_view, CI64 nativeidxs, I64 r)
{
  copy_slots(Run{r, 0}, Run{nativeidxs, 0}, nativeidxs.count);
}

}  // namespace fragments
