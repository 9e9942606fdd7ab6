// Copies of runs. Most elements have 1 to 12 terms, so short runs go through loops that the compiler leaves as they
// are, and only long ones through loops that it vectorises.
#pragma once

#include "frame/frame.h"

namespace fragments {

// to[k] = f(from[k]) for k below n. Source and target are different arrays.
template <class T, class F>
void copy_run(Run<T> to, Run<T> from, i32 n, F f)
{
  for (i64 k = 0; k < n; ++k) to[k] = f(from[k]);
}
template <class T>
void copy_run(Run<T> to, Run<T> from, i32 n)
{
  copy_run(to, from, n, [](T value) { return value; });
}

// The run of variables as it is and the run of coefficients through f, for n terms.
template <class F>
void copy_terms(Run<i64> to_nidxs, Run<i64> nidxs, Run<f64> to_cof, Run<f64> cof, i32 n, F f)
{
  copy_run(to_nidxs, nidxs, n);
  copy_run(to_cof, cof, n, f);
}

}  // namespace fragments
