// Elements that lie all over an operand, as a permutation or the columns of a matrix take them: each is fetched into
// the caches some steps before its turn.
#pragma once

#include "stack/record.h"

namespace fragments {

template <class T>
void fetch(Run<T> run, i64 k)
{
  __builtin_prefetch(run.data + k * run.stride);
  asm volatile("");  // else the compiler takes this for a function without effect and drops its calls
}

// At step k of n, of which step m takes the element element_at(m): fetches `ptr` for the steps ahead, then terms, then
// code, each a stage later, since the place of each stands in the one before. A fifth less time where an operand is
// larger than the nearest cache.
template <class Flag, class ElementAt>
void look_ahead(const Operand& operand, i64 k, i64 n, Flag hascode, ElementAt element_at)
{
  constexpr i64 stage = 8;
  if (n - k <= 3 * stage) return;
  fetch(operand.ptr, element_at(k + 3 * stage));
  const i64 t = operand.ptr[element_at(k + 2 * stage)];
  fetch(operand.nidxs, t);
  fetch(operand.cof, t);
  if (hascode) {
    fetch(operand.codeptr, t);
    const i64 a = operand.codeptr[operand.ptr[element_at(k + stage)]];
    fetch(operand.code, a);
    fetch(operand.cconst, a);
  }
}

}  // namespace fragments
