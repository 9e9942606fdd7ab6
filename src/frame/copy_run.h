// Copies of runs of terms and atoms.
//
// Most elements have 1 to 12 terms, where the prologue of a vectorised loop costs more than the copy itself. Short runs
// therefore move in pairs by running pointers; only longer ones, which are worth a call, go through a vectorised loop.
#pragma once

#include <type_traits>

#include "frame/run.h"

namespace fragments {

constexpr i64 long_run = 16;

// Put into a loop over k that seldom runs more than a few times, it keeps the compiler from vectorising the loop.
inline void stay_scalar(i64& k)
{
  asm("" : "+r"(k));
}

// The loop over a long run. It is a function of its own since the compiler takes it for a cold one among the short runs
// of a kernel, and leaves it unaligned, at half its speed.
template <class T, class F>
[[gnu::noinline]] void copy_long_run(Run<T> to, Run<const T> from, i64 n, F f)
{
  if (to.stride == 1 && from.stride == 1) {
    for (i64 k = 0; k < n; ++k) to.data[k] = f(from.data[k]);
  } else {
    for (i64 k = 0; k < n; ++k) to.data[k * to.stride] = f(from.data[k * from.stride]);
  }
}

// to[k] = f(from[k]) for k below n. Source and target are different arrays.
template <class T, class F>
void copy_run(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n, F f)
{
  to.bounds.check_run(n);
  from.bounds.check_run(n);
  T* target = to.data;
  const T* source = from.data;
  if (n >= long_run) [[unlikely]] {
    copy_long_run(to, from, n, f);
    return;
  }
  if (n & 1) {
    *target = f(*source);
    target += to.stride;
    source += from.stride;
  }
  for (i64 pairs = n >> 1; pairs > 0; --pairs) {
    const T first = f(source[0]), second = f(source[from.stride]);
    target[0] = first;
    target[to.stride] = second;
    target += 2 * to.stride;
    source += 2 * from.stride;
  }
}
template <class T>
void copy_run(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n)
{
  copy_run(to, from, n, [](T value) { return value; });
}

// The run of variables as it is and the run of coefficients through f, for n terms.
template <class F>
void copy_terms(Run<i64> to_nidxs, Run<const i64> nidxs, Run<f64> to_cof, Run<const f64> cof, i64 n, F f)
{
  if (n == 1) {
    to_nidxs[0] = nidxs[0];
    to_cof[0] = f(cof[0]);
    return;
  }
  copy_run(to_nidxs, nidxs, n);
  copy_run(to_cof, cof, n, f);
}

}  // namespace fragments
