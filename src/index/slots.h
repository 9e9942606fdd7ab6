// Fills and copies of whole fields, slot by slot in ascending order: source and target of a copy may overlap in one
// array. A count of 0 or less does nothing.
#pragma once

#include <type_traits>

#include "frame/frame.h"

namespace fragments {

template <class T>
void fill_slots(Run<T> to, i64 n, T value)
{
  for (i64 k = 0; k < n; ++k) to[k] = value;
}

template <class T>
void copy_slots(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n)
{
  for (i64 k = 0; k < n; ++k) to[k] = from[k];
}

template <class T>
void scale_slots(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n, T factor)
{
  for (i64 k = 0; k < n; ++k) to[k] = from[k] * factor;
}

// to[m] = step * m for m from `first` to `last`, wrapping around: with first 0 and last n, the `ptr` of n elements of
// `step` terms each.
inline void fill_multiples(Run<i32> to, i64 first, i64 last, i32 step)
{
  i32 multiple = wrapping_mul(static_cast<i32>(first), step);
  for (i64 m = first; m <= last; ++m, multiple = wrapping_add(multiple, step)) to[m] = multiple;
}

}  // namespace fragments
