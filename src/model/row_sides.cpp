// Rows split into the linear and the conic side: counts of rows, terms and atoms, and row lists with their `ptr`.
//
// Rows are a record on the w stack: row k has the terms `ptr[k]` .. `ptr[k+1]`-1, `ptr` standing at `base` of `wi32`
// if no other position is named.

#include "model/row_sides.h"

namespace fragments {
namespace {

// Adds the lengths of the first n rows to the side of each, without a branch, as sides can follow in any order.
template <class Length>
void add_lengths(CI32 conidxs, i32 n, i32& ncon, i32& nlin, Length length)
{
  for (i64 k = 0; k < n; ++k) {
    const bool conic = conidxs[k] < 0;
    const i32 terms = length(k);
    ncon += conic ? terms : 0;
    nlin += conic ? 0 : terms;
  }
}

// One side while it is listed: `rows` rows with `terms` terms so far.
struct Side {
  i32 rows;
  i32 terms;
  I32 rowidx;
  Run<i32> ptr;

  void append(i32 row, i32 length)
  {
    terms += length;
    rowidx[rows] = row;
    ptr[rows + 1] = terms;
    ++rows;
  }
};

// Appends the runs first .. last-1 of the pointers `from` to the pointers `to`, which have c runs of `acc` slots so
// far.
void append_lengths(Run<const i32> from, i32 first, i32 last, Run<i32> to, i32& acc, i32& c)
{
  for (i64 k = first; k < last; ++k) {
    acc += from[k + 1] - from[k];
    ++c;
    to[c] = acc;
  }
}

}  // namespace

// c plus the number of linear rows among the first n.
KERNEL((26, 31), (i32), count_linear_rows, CI32 conidxs, i32 n, i32 c)
{
  for (i64 k = 0; k < n; ++k) c += conidxs[k] >= 0;
  return c;
}

// Adds the terms of the first n rows to `ncon` or `nlin` by the side of each.
KERNEL((27, 34), (i32, i32), count_terms_by_side, i32 ncon, CI32 conidxs, i32 nlin, i32 n, i32 base, CI32 wi32)
{
  const Run ptr{wi32, base};
  add_lengths(conidxs, n, ncon, nlin, [&](i64 k) { return ptr[k + 1] - ptr[k]; });
  return {ncon, nlin};
}

// The same for code atoms: the rows' `ptr` stands at `base`, the `codeptr` of their terms at `off`.
KERNEL((28, 36), (i32, i32), count_atoms_by_side, i32 ncon, i32 off, CI32 conidxs, i32 nlin, i32 n, i32 base, CI32 wi32)
{
  const Run ptr{wi32, base}, codeptr{wi32, off};
  add_lengths(conidxs, n, ncon, nlin, [&](i64 k) { return codeptr[ptr[k + 1]] - codeptr[ptr[k]]; });
  return {ncon, nlin};
}

// Appends the rows first .. last-1 of the `ptr` at `wbase` (or the terms of a `codeptr` there) to the pointers at
// `xbase` of `xi32`, which have c runs of `acc` slots so far.
KERNEL((29, 37), (i32, i32), append_run_lengths, i32 wbase, i32 acc, i32 xbase, i32 c, i32 first, i32 last, CI32 wi32,
       I32 xi32)
{
  append_lengths({wi32, wbase}, first, last, {xi32, xbase}, acc, c);
  return {acc, c};
}

// The same with its scalars in another order.
KERNEL((30, 38), (i32, i32), append_lengths_of_runs, i32 acc, i32 xbase, i32 c, i32 wbase, i32 first, i32 last,
       CI32 wi32, I32 xi32)
{
  append_lengths({wi32, wbase}, first, last, {xi32, xbase}, acc, c);
  return {acc, c};
}

// Lists the first n rows by side: row numbers in `crowidx` and `lrowidx`, term counts added up in a `ptr` for each side
// on the x stack. `cn` and `ln` rows with `cacc` and `lacc` terms are there already; slot 0 of each `ptr` is the
// caller's.
KERNEL((35), (i32, i32, i32, i32), split_rows_with_lengths, i32 cn, i32 cacc, I32 conidxs, i32 cbase, I32 crowidx,
       i32 ln, i32 lacc, i32 lbase, I32 lrowidx, i32 n, i32 base, CI32 wi32, I32 xi32)
{
  const Run ptr{wi32, base};
  Side conic{cn, cacc, crowidx, {xi32, cbase}};
  Side linear{ln, lacc, lrowidx, {xi32, lbase}};
  for_each_row(
      conidxs, n, [&](i64 k, i32 row) { conic.append(row, ptr[k + 1] - ptr[k]); },
      [&](i64 k, i32 row) { linear.append(row, ptr[k + 1] - ptr[k]); });
  return {conic.rows, conic.terms, linear.rows, linear.terms};
}

// Lists the first n rows by side: row numbers only.
KERNEL((39), (i32, i32), split_rows_by_side, i32 cn, I32 conidxs, I32 crowidx, i32 ln, I32 lrowidx, i32 n)
{
  for_each_row(
      conidxs, n, [&](i64, i32 row) { crowidx[cn++] = row; }, [&](i64, i32 row) { lrowidx[ln++] = row; });
  return {cn, ln};
}

}  // namespace fragments
