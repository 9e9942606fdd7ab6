// Merges with the pattern of an operand.
#pragma once

#include "index/merge.h"

namespace fragments {

// The stored elements of an operand among the flat positions wanted[0], wanted[1], ...: found(k, f) if the operand
// stores position wanted[k] as its element f. A dense operand stores all, a sparse one those of the pattern `sp`.
template <class Found>
void find_stored(CI64 wanted, bool hassp, Run<const i64> sp, i32 nelem, Found found)
{
  const i32 count = static_cast<i32>(wanted.count);
  i32 k = 0, f = 0;
  if (hassp)
    intersect(k, count, f, nelem, KeysOf{wanted}, KeysOf{sp}, found);
  else
    for (; k < count; ++k) found(k, wanted[k]);
}

}  // namespace fragments
