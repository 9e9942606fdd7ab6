// The expansion of a stored expression by a sparse vector of weights, a[c] at position sub[c] of an axis of length d:
// every row times every weight makes a row of the result. Rows come in the order of the source's rows, then of the
// weights, so the positions r*d + sub[c] ascend if those of the source and `sub` do. Row k = r*len(sub) + c has all the
// terms of row r, their coefficients and the constant times a[c].
//
//     at once 589; in pieces: rows 591, coefficients 590, constants 592; in place 593
//
// `ptrb[0]` and `eptrb[0]` are the caller's.

#include "frame/copy_run.h"
#include "frame/frame.h"

namespace fragments {
namespace {

// Appends the rows of n source rows from row k on: positions and row pointers, eptrb[k] being where the terms begin.
// Returns the number of rows.
i64 expand_rows(i64 n, I64 einst, I64 eptrb, i32 d, i64 k, I64 ptrb, I32 sub)
{
  if (n <= 0 || sub.count == 0) return k;
  i64 end = eptrb[k];
  for (i64 r = 0; r < n; ++r) {
    const i64 length = ptrb[r + 1] - ptrb[r];
    for (i64 c = 0; c < sub.count; ++c, ++k) {
      einst[k] = r * d + sub[c];
      eptrb[k + 1] = end += length;
    }
  }
  return k;
}

void expand_constants(F64 a, F64 bfix, F64 ebfix)
{
  for (i64 r = 0; r < bfix.count; ++r) {
    const f64 constant = bfix[r];
    copy_run(Run{ebfix, r * a.count}, Run{a, 0}, a.count, [constant](f64 weight) { return constant * weight; });
  }
}

}  // namespace

// The whole expansion of a dense expression, row r of which is at position r; it has as many rows as `bfix`.
KERNEL((589), (), expand_by_weights, F64 a, F64 bfix, F64 cof, i32 d, F64 ebfix, F64 ecof, I64 einst, I64 eptrb,
       I64 esubj, I64 ptrb, I32 sub, I64 subj)
{
  const i64 n = bfix.count;
  expand_rows(n, einst, eptrb, d, 0, ptrb, sub);
  expand_constants(a, bfix, ebfix);
  for (i64 r = 0, k = 0; r < n; ++r) {
    const i64 b = ptrb[r], length = ptrb[r + 1] - b;
    for (i64 c = 0; c < sub.count; ++c, ++k) {
      const i64 t = eptrb[k];
      const f64 weight = a[c];
      copy_terms({esubj, t}, {subj, b}, {ecof, t}, {cof, b}, length, [weight](f64 x) { return x * weight; });
    }
  }
}

// The first n coefficients times weight c, into `ecof` from place `base` on.
KERNEL((590), (), expand_coefficients, F64 a, F64 cof, F64 ecof, i32 c, i32 n, i64 base)
{
  if (n <= 0) return;
  const f64 weight = a[c];
  copy_run(Run{ecof, base}, Run{cof, 0}, n, [weight](f64 x) { return x * weight; });
}

// Positions and row pointers of n rows of a dense expression by all weights, appended from row k on; returns the new k.
KERNEL((591), (i64), append_expanded_rows, i32 n, I64 einst, I64 eptrb, i32 d, i64 k, I64 ptrb, I32 sub)
{
  return expand_rows(n, einst, eptrb, d, k, ptrb, sub);
}

// The constants of all rows. `einst`, an entry a row of the result, isn't read.
KERNEL((592), (), expand_all_constants, F64 a, F64 bfix, F64 ebfix, [[maybe_unused]] I64 einst)
{
  expand_constants(a, bfix, ebfix);
}

// The expansion in place, without constants, of n rows in arrays that have room for the result. Works from the last
// row, weight and term back to the first, so that every slot is read before it is overwritten. `m` is the length of the
// weight axis. With `flag`, `inst` holds the rows' positions; else row r is at r, and `inst` is only written.
KERNEL((593), (), expand_in_place, F64 a, F64 cof, i32 n, I64 inst, I64 ptrb, I32 sub, I64 subj, bool flag, i32 m)
{
  if (n <= 0) return;
  i64 k = n * sub.count, t = ptrb[0] + (ptrb[n] - ptrb[0]) * sub.count;
  for (i64 r = i64{n} - 1; r >= 0; --r) {
    const i64 b = ptrb[r], e = ptrb[r + 1], position = flag ? inst[r] : r;
    for (i64 c = sub.count - 1; c >= 0; --c) {
      const f64 weight = a[c];
      ptrb[k] = t;
      for (i64 s = e - 1; s >= b; --s) {
        --t;
        subj[t] = subj[s];
        cof[t] = cof[s] * weight;
      }
      --k;
      inst[k] = position * m + sub[c];
    }
  }
}

}  // namespace fragments
