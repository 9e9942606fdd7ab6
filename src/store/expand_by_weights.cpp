// The expansion of a stored expression by a sparse vector of weights, a[c] at position sub[c] of an axis of length d:
// every row times every weight makes a row of the result. Rows come in the order of the source's rows, then of the
// weights, so the positions r*d + sub[c] ascend if those of the source and `sub` do. Row k = r*len(sub) + c has all the
// terms of row r, their coefficients and the constant times a[c].
//
//     at once 589; in pieces: rows 591, coefficients 590, constants 592; in place 593
//
// Row r of the source has the terms ptrb[r] .. ptrb[r+1]-1, and the result has its arrays with an e in front. Slot 0 of
// `eptrb` is the caller's, normally 0.
//
// - a (array; weights): the weights
// - sub (array; weights): the position of each weight
// - d (extent): the length of the axis of the weights
// - einst (array; rows of the result): the flat position of each row of the result
// - eptrb (array; rows of the result + 1): where the terms of each row of the result begin
// - esubj, ecof (array; terms of the result): the variable and the coefficient of each term of the result
// - ebfix (array; rows of the result): the constant of each row of the result

#include "frame/copy_run.h"
#include "frame/frame.h"

namespace fragments {
namespace {

// Appends the rows of n source rows from row k on: positions and row pointers, eptrb[k] being where the terms begin.
// Returns the number of rows.
i64 expand_rows(i64 n, I64 einst, I64 eptrb, i32 d, i64 k, CI64 ptrb, CI32 sub)
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

void expand_constants(CF64 a, i64 weights, CF64 bfix, F64 ebfix)
{
  for (i64 r = 0; r < bfix.count; ++r) {
    const f64 constant = bfix[r];
    copy_run(Run{ebfix, r * weights}, Run{a, 0}, weights, [constant](auto weight) { return constant * weight; });
  }
}

}  // namespace

// Expands a dense expression, row r of which is at position r; it has as many rows as `bfix`.
KERNEL((589), (), expand_by_weights, CF64 a, CF64 bfix, CF64 cof, i32 d, F64 ebfix, F64 ecof, I64 einst, I64 eptrb,
       I64 esubj, CI64 ptrb, CI32 sub, CI64 subj)
{
  if (sub.count <= 0) return;
  const i64 n = bfix.count;
  expand_rows(n, einst, eptrb, d, 0, ptrb, sub);
  expand_constants(a, sub.count, bfix, ebfix);
  for (i64 r = 0, k = 0; r < n; ++r) {
    const i64 b = ptrb[r], length = ptrb[r + 1] - b;
    for (i64 c = 0; c < sub.count; ++c, ++k) {
      const i64 t = eptrb[k];
      const f64 weight = a[c];
      copy_terms({esubj, t}, {subj, b}, {ecof, t}, {cof, b}, length, [weight](auto x) { return x * weight; });
    }
  }
}

// Expands the first n coefficients by one weight.
//
// - c (index): the weight
// - base (position in ecof; n): where the products go
KERNEL((590), (), expand_coefficients, CF64 a, CF64 cof, F64 ecof, i32 c, i32 n, i64 base)
{
  if (n <= 0) return;
  const f64 weight = a[c];
  copy_run(Run{ecof, base}, Run{cof, 0}, n, [weight](auto x) { return x * weight; });
}

// Appends the positions and row pointers of n rows of a dense expression by all weights; the terms of the first begin
// at eptrb[k], which is there already.
//
// - k (cursor): the rows of the result so far
KERNEL((591), (i64 k), append_expanded_rows, i32 n, I64 einst, I64 eptrb, i32 d, i64 k, CI64 ptrb, CI32 sub)
{
  return expand_rows(n, einst, eptrb, d, k, ptrb, sub);
}

// Expands the constants of all rows.
//
// - einst (array; rows of the result): not read
KERNEL((592), (), expand_all_constants, CF64 a, CF64 bfix, F64 ebfix, [[maybe_unused]] CI64 einst)
{
  expand_constants(a, a.count, bfix, ebfix);
}

// Expands n rows in place, without constants. Works from the last row, weight and term back to the first, so that every
// slot is read before it is overwritten.
//
// - inst (array; rows of the result): the position of each row
// - ptrb (array; rows of the result + 1): where the terms of each row begin
// - subj, cof (array; terms of the result): the variable and the coefficient of each term
// - flag (flag): whether `inst` comes in with the rows' positions; else row r is at r
// - m (extent): the length of the axis of the weights
KERNEL((593), (), expand_in_place, CF64 a, F64 cof, i32 n, I64 inst, I64 ptrb, CI32 sub, I64 subj, bool flag, i32 m)
{
  if (n <= 0 || sub.count <= 0) return;
  i64 k = n * sub.count, t = ptrb[0] + (ptrb[n] - ptrb[0]) * sub.count;
  for (i64 r = i64{n} - 1; r >= 0; --r) {
    const i64 b = ptrb[r], e = ptrb[r + 1], position = flag ? inst[r] : r;
    for (i64 c = sub.count - 1; c >= 0; --c) {
      const f64 weight = b < e ? a[c] : 0.0;  // a row without terms has no use for weights
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
