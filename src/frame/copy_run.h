// Copies of runs of terms and atoms.
//
// Most elements have 1 to 12 terms. There the prologue of a vectorised loop costs more than the copy itself, and so
// does a branch on what is left over, which is foretold wrongly every other time. Neighbours therefore move two at a
// time: up to four as two pairs, more as twice two pairs again and again, the last of which lie over those before where
// the number asks for it. Only long runs, which are worth a call, go through a vectorised loop.
#pragma once

#include <cstring>
#include <type_traits>

#include "frame/run.h"

namespace fragments {

constexpr i64 long_run = 32;

// Put into a loop over k that seldom runs more than a few times, it keeps the compiler from vectorising the loop.
inline void stay_scalar(i64& k)
{
  asm("" : "+r"(k));
}

// The function of a plain copy.
struct AsItIs {
  template <class V>
  V operator()(V value) const
  {
    return value;
  }
};

// Two neighbours, as one value for the functions that copies apply.
template <class T>
struct PairOf {
  typedef T type __attribute__((vector_size(2 * sizeof(T)), aligned(alignof(T)), may_alias));  // NOLINT: no alias can
};

template <class T, class F>
auto pair_from(const T* source, F f)
{
  return f(*reinterpret_cast<const typename PairOf<T>::type*>(source));
}
template <class T>
void store_pair(T* target, typename PairOf<T>::type pair)
{
  *reinterpret_cast<typename PairOf<T>::type*>(target) = pair;
}

// to[k] = f(from[k]) for k below n, which is 2 at least.
template <class T, class F>
void copy_short_run(T* to, const T* from, i64 n, F f)
{
  if (n <= 4) {
    const auto first = pair_from(from, f), last = pair_from(from + n - 2, f);
    store_pair(to, first);
    store_pair(to + n - 2, last);
    return;
  }
  const auto copy_four = [&](i64 k) {
    store_pair(to + k, pair_from(from + k, f));
    store_pair(to + k + 2, pair_from(from + k + 2, f));
  };
  const i64 last = n - 4;
  i64 k = 0;
  do copy_four(k);
  while ((k += 4) < last);
  copy_four(last);
}

// The loop over a long run. It is a function of its own since the compiler takes it for a cold one among the short runs
// of a kernel, and leaves it unaligned, at half its speed. A plain copy is memcpy's, whose vectors are wider: three
// quarters of the time inside the caches.
template <class T, class F>
[[gnu::noinline]] void copy_long_run(T* to, const T* from, i64 n, F f)
{
  if constexpr (std::is_same_v<F, AsItIs>) {
    std::memcpy(to, from, static_cast<std::size_t>(n) * sizeof(T));
  } else {
    for (i64 k = 0; k < n; ++k) to[k] = f(from[k]);
  }
}

// to[k] = f(from[k]) for k below n, f being one for elements and for pairs of them. Source and target are different
// arrays.
template <class T, class F>
void copy_run(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n, F f)
{
  to.bounds.check_run(n);
  from.bounds.check_run(n);
  if (to.stride != 1 || from.stride != 1) {
    for (i64 k = 0; k < n; ++k) {
      stay_scalar(k);
      to.data[k * to.stride] = f(from.data[k * from.stride]);
    }
  } else if (n < 2) {
    if (n == 1) *to.data = f(*from.data);
  } else if (n >= long_run) [[unlikely]] {
    copy_long_run(to.data, from.data, n, f);
  } else {
    copy_short_run(to.data, from.data, n, f);
  }
}
template <class T>
void copy_run(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n)
{
  copy_run(to, from, n, AsItIs{});
}

// Copies n elements, 1 to 6, as three pairs that may lie over one another, without a branch on n: where n changes from
// one run to the next at random, such a branch costs more than the copy. Of an odd number one element more is read and
// written. The strides are 1.
template <class T>
void copy_up_to_six(Run<T> to, std::type_identity_t<Run<const T>> from, i64 n)
{
  to.bounds.check_run(n + n % 2);
  from.bounds.check_run(n + n % 2);
  const i64 last = (n - 1) & ~i64{1}, middle = last < 2 ? last : 2;
  const auto copy_pair = [&](i64 k) { store_pair(to.data + k, pair_from(from.data + k, AsItIs{})); };
  copy_pair(0);
  copy_pair(middle);
  copy_pair(last);
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
