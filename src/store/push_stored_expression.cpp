// Stored expressions and plain variables as records on a stack.

#include "stack/record.h"

namespace fragments {

// Unit terms: the `ptr` of n elements with one term each, closing entry included, and m coefficients of 1.0.
KERNEL((574), (), push_unit_terms, i32 cofbase, i32 n, i32 m, i32 ptrbase, F64 rf64, I32 ri32)
{
  const Run ptr{ri32, ptrbase};
  const Run cof{rf64, cofbase};
  for (i32 i = 0; i < n; ++i) ptr[i] = i;
  if (n >= 0) ptr[n] = n;
  for (i32 i = 0; i < m; ++i) cof[i] = 1.0;
}

// The whole record of a stored expression: `nd` extents, `ptr` with its first entry 0, and for each of `nelem` rows its
// terms and, unless `flag`, the constant as one more term of variable 0, also where it is 0. No `sp` is written.
KERNEL((609), (), push_stored_expression, F64 bfix, i32 cof, F64 cof_v, F64 f64_arg, I32 i32_arg, I64 i64_arg, i32 nd,
       i32 nelem, i32 nidxs, i32 ptr, I64 ptrb, I32 shape, i32 shapepos, I64 subj, bool flag)
{
  const Run extents{i32_arg, shapepos};
  for (i64 d = 0; d < nd; ++d) extents[d] = shape[d];

  const Run ends{i32_arg, ptr};
  const Run variables{i64_arg, nidxs};
  const Run coefficients{f64_arg, cof};
  ends[0] = 0;
  if (nelem <= 0) return;
  const i64 first = ptrb[0];
  if (flag) {
    copy_terms(variables, {subj, first}, coefficients, {cof_v, first}, ptrb[nelem] - first, [](f64 c) { return c; });
    for (i64 r = 1; r <= nelem; ++r) ends[r] = static_cast<i32>(ptrb[r] - first);
    return;
  }
  i64 t = 0, b = first;
  for (i64 r = 0; r < nelem; ++r) {
    const i64 e = ptrb[r + 1];
    for (i64 s = b; s < e; ++s, ++t) {
      stay_scalar(s);
      variables[t] = subj[s];
      coefficients[t] = cof_v[s];
    }
    variables[t] = 0;
    coefficients[t] = bfix[r];
    ends[r + 1] = static_cast<i32>(++t);
    b = e;
  }
}

// The last of n flat positions: slot `top` takes n-1; nothing is written for n of 0 or less.
KERNEL((614), (), push_last_position, I64 i64_arg, i32 n, i32 top)
{
  if (n > 0) i64_arg[top] = n - 1;
}

}  // namespace fragments
