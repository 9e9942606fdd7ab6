// Rows split into the linear and the conic side: counts of rows, terms and atoms, and row lists with their `ptr`.
//
// Rows are a record on the w stack. An entry of `conidxs` at or above 0 is the number of a linear row, below 0 the
// complement of the number of a conic row.
//
//     sizes of the sides       rows 26, terms 27, atoms 28
//     rows of each side        35 with the `ptr` of their terms, 39 without
//     `ptr` of a run of rows   29 and 30, which also take the `codeptr` of a run of terms
//
// - base (position in wi32; n + 1): where the terms of each row begin
// - crowidx, lrowidx (array; rows of the side): the numbers of the conic and of the linear rows
// - cn, ln (cursor): the conic and the linear rows so far
// - wbase (position in wi32; last + 1): the starts of runs: of the terms of rows, or of the atoms of terms
// - xbase (position in xi32; one a run, and 1): where the listed runs begin; slot 0 is the caller's
// - acc (cursor): the slots of all runs listed so far

#include "model/row_sides.h"

#include <utility>

#include "frame/copy_run.h"

namespace fragments {
namespace {

// Adds the lengths of the first n rows to the side of each, by masks: sides can follow in any order, and a branch would
// be foretold wrongly every other time.
template <class Length>
void add_lengths(CI32 conidxs, i32 n, i32& ncon, i32& nlin, Length length)
{
  for (i64 k = 0; k < n; ++k) {
    const i32 conic = -(conidxs[k] < 0), slots = length(k);
    ncon += slots & conic;
    nlin += slots & ~conic;
  }
}

// One side while it is listed: `rows` rows with `terms` terms so far.
struct RowList {
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
  if (first >= last) return;
  const i64 n = i64{last} - first;
  const i32 shift = acc - from[first];
  copy_run(to.from(i64{c} + 1), from.from(i64{first} + 1), n, [shift](auto end) { return end + shift; });
  acc = from[last] + shift;
  c += static_cast<i32>(n);
}

}  // namespace

// Counts the linear rows among the first n.
//
// - c (cursor): the linear rows
KERNEL((26, 31), (i32 c), count_linear_rows, CI32 conidxs, i32 n, i32 c)
{
  for (i64 k = 0; k < n; ++k) c += conidxs[k] >= 0;
  return c;
}

// Counts the terms of the first n rows by side.
//
// - ncon, nlin (cursor): the terms of the conic and of the linear rows
KERNEL((27, 34), (i32 ncon, i32 nlin), count_terms_by_side, i32 ncon, CI32 conidxs, i32 nlin, i32 n, i32 base,
       CI32 wi32)
{
  const Run ptr{wi32, base};
  add_lengths(conidxs, n, ncon, nlin, [&](i64 k) { return ptr[k + 1] - ptr[k]; });
  return {ncon, nlin};
}

// Counts the atoms of the first n rows by side.
//
// - off (position in wi32; terms + 1): where the atoms of each term of the rows begin
// - ncon, nlin (cursor): the atoms of the conic and of the linear rows
KERNEL((28, 36), (i32 ncon, i32 nlin), count_atoms_by_side, i32 ncon, i32 off, CI32 conidxs, i32 nlin, i32 n, i32 base,
       CI32 wi32)
{
  const Run ptr{wi32, base}, codeptr{wi32, off};
  i32 begin = n > 0 ? codeptr[ptr[0]] : 0;
  add_lengths(conidxs, n, ncon, nlin, [&](i64 k) {
    const i32 end = codeptr[ptr[k + 1]];
    return end - std::exchange(begin, end);
  });
  return {ncon, nlin};
}

// Appends the runs first .. last-1, by their lengths, to the list of runs at `xbase`.
//
// - c (cursor): the runs listed so far
KERNEL((29, 37), (i32 acc, i32 c), append_run_lengths, i32 wbase, i32 acc, i32 xbase, i32 c, i32 first, i32 last,
       CI32 wi32, I32 xi32)
{
  append_lengths({wi32, wbase}, first, last, {xi32, xbase}, acc, c);
  return {acc, c};
}

// Appends the runs first .. last-1, by their lengths, to the list of runs at `xbase`; 29 with its scalars in another
// order.
//
// - c (cursor): the runs listed so far
KERNEL((30, 38), (i32 acc, i32 c), append_lengths_of_runs, i32 acc, i32 xbase, i32 c, i32 wbase, i32 first, i32 last,
       CI32 wi32, I32 xi32)
{
  append_lengths({wi32, wbase}, first, last, {xi32, xbase}, acc, c);
  return {acc, c};
}

// Lists the first n rows by side: their numbers, and on the x stack where the terms of each begin when those of the
// side stand one behind the other.
//
// - cacc, lacc (cursor): the terms of the conic and of the linear rows so far
// - cbase, lbase (position in xi32; rows of the side + 1): where the terms of each conic and linear row begin; slot 0
//   is the caller's
KERNEL((35), (i32 cn, i32 cacc, i32 ln, i32 lacc), split_rows_with_lengths, i32 cn, i32 cacc, CI32 conidxs, i32 cbase,
       I32 crowidx, i32 ln, i32 lacc, i32 lbase, I32 lrowidx, i32 n, i32 base, CI32 wi32, I32 xi32)
{
  const Run ptr{wi32, base};
  RowList conic{cn, cacc, crowidx, {xi32, cbase}};
  RowList linear{ln, lacc, lrowidx, {xi32, lbase}};
  for_each_row(
      conidxs, n, [&](i64 k, i32 row) { conic.append(row, ptr[k + 1] - ptr[k]); },
      [&](i64 k, i32 row) { linear.append(row, ptr[k + 1] - ptr[k]); });
  return {conic.rows, conic.terms, linear.rows, linear.terms};
}

// Lists the numbers of the first n rows by side.
KERNEL((39), (i32 cn, i32 ln), split_rows_by_side, i32 cn, CI32 conidxs, I32 crowidx, i32 ln, I32 lrowidx, i32 n)
{
  for_each_row(
      conidxs, n, [&](i64, i32 row) { crowidx[cn++] = row; }, [&](i64, i32 row) { lrowidx[ln++] = row; });
  return {cn, ln};
}

}  // namespace fragments
