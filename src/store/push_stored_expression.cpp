// Stored expressions and plain variables as records on a stack: unit terms 574, a stored expression 609, the last of
// consecutive positions 614.

#include "stack/record.h"

namespace fragments {

// Pushes unit terms: the `ptr` of n elements with one term each, closing entry included, and m coefficients of 1.0.
//
// - ptrbase (position in ri32; n + 1): where the term of each element begins
// - cofbase (position in rf64; m): the coefficient of each term
// - m (count): the terms
KERNEL((574), (), push_unit_terms, i32 cofbase, i32 n, i32 m, i32 ptrbase, F64 rf64, I32 ri32)
{
  const Run ptr{ri32, ptrbase};
  const Run cof{rf64, cofbase};
  for (i32 i = 0; i < n; ++i) ptr[i] = i;
  if (n >= 0) ptr[n] = n;
  for (i32 i = 0; i < m; ++i) cof[i] = 1.0;
}

// Pushes a stored expression as a record: its extents, `ptr` with its first entry 0, and for each row its terms and,
// unless `flag`, the constant as one more term of variable 0, also where it is 0. No `sp` is written, and no code.
//
// - nd (count): the axes of the expression
// - nelem (count): the rows of the expression, the elements of the record
// - shape (array; nd): the extents of the expression
// - ptrb (array; nelem + 1): where the terms of each row begin; they end where the next ones begin
// - subj, cof_v (array; terms of all rows): the variable and the coefficient of each term
// - bfix (array; nelem): the constant of each row, not read with `flag`
// - flag (flag): whether the constants are left out
// - shapepos (position in i32; nd): the extents of the record
// - ptr (position in i32; nelem + 1): where the terms of each element of the record begin
// - nidxs (position in i64; terms): the variable of each term of the record
// - cof (position in f64; terms): the coefficient of each term of the record
KERNEL((609), (), push_stored_expression, CF64 bfix, i32 cof, CF64 cof_v, F64 f64_arg, I32 i32_arg, I64 i64_arg, i32 nd,
       i32 nelem, i32 nidxs, i32 ptr, CI64 ptrb, CI32 shape, i32 shapepos, CI64 subj, bool flag)
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
    copy_terms(variables, {subj, first}, coefficients, {cof_v, first}, ptrb[nelem] - first, AsItIs{});
    for (i64 r = 1; r <= nelem; ++r) ends[r] = static_cast<i32>(ptrb[r] - first);
    return;
  }
  i64 t = 0, b = first;
  for (i64 r = 0; r < nelem; ++r) {
    const i64 e = ptrb[r + 1];
    copy_terms(variables.from(t), {subj, b}, coefficients.from(t), {cof_v, b}, e - b, AsItIs{});
    t += std::max<i64>(e - b, 0);
    variables[t] = 0;
    coefficients[t] = bfix[r];
    ends[r + 1] = static_cast<i32>(++t);
    b = e;
  }
}

// Pushes the last of the flat positions 0 .. n-1: slot `top` takes n-1; nothing is written for n of 0 or less.
//
// - top (position in i64; 1): the slot
KERNEL((614), (), push_last_position, I64 i64_arg, i32 n, i32 top)
{
  if (n > 0) i64_arg[top] = n - 1;
}

}  // namespace fragments
