// The diagonal of the product of a sparse constant matrix M and an expression E, without the product:
//
//     right form   R(j) = sum over i of E(j, i) * M(i, j)
//     left form    R(i) = sum over j of M(i, j) * E(j, i)
//
// R is sparse with one axis; an element's position is the column (right) or row (left) of M. Terms are scaled as in the
// product itself: neither merged nor dropped, with (2, factor) and (5) behind their code. They stand in the order of
// the entries of M in a column (right) or row (left). Entries of M ascend strictly by row, then column; kernels without
// `mnnz` take their number from the length of `msubi`.
//
//     right, E dense or sparse   check 454, sort M by column 451, measure 452, write 453
//     left,  E dense             check 454, measure 455, write 456
//     left,  E sparse            check 454, sort E by column and measure 457, write 458
//
// A column or row of M with entries makes an element where E is dense; where it is sparse, it does so if an entry and a
// stored element match. An element of E without terms counts like any other. All walks are linear in the entries and
// elements, and the right one with a sparse E in mdimj.
//
// - d1 (extent): the columns of E, above 0 with a sparse E
// - xcolptr (position in xi32; columns + 1): where the items of each column begin in `xperm`
// - xperm (position in xi32; one an item): the entries of M (right) or the stored elements of E (left) by column
// - mi (cursor): the next entry of M

#include "index/lookup_list.h"
#include "index/pattern_runs.h"
#include "stack/column_sort.h"
#include "stack/constant_matrix.h"
#include "stack/look_ahead.h"
#include "stack/record.h"

namespace fragments {
namespace {

// The right form with a dense E: entry(q, k, f) for each place q in `perm`, its entry k and the element f that it
// meets, element(j) after each column j of M.
template <class Entry, class Element>
void walk_columns(CI32 msubi, CI32 msubj, Run<const i32> perm, i32 mnnz, i32 d1, Entry entry, Element element)
{
  for (i32 q = 0; q < mnnz;) {
    const i32 j = msubj[perm[q]];
    const i64 row_start = i64{d1} * j;
    for (; q < mnnz && msubj[perm[q]] == j; ++q) entry(q, perm[q], row_start + msubi[perm[q]]);
    element(j);
  }
}

// The right form with a sparse E: column j of M against row j of E, by cursors that only move forward. entry(k, e) for
// each match of entry k and stored element e, element(j) after each column with a match.
template <class Entry, class Element>
void walk_columns_and_rows(CI32 msubi, CI32 msubj, Run<const i32> perm, i32 mnnz, i32 mdimj, Run<const i64> sp,
                           i32 nelem, i32 d1, Entry entry, Element element)
{
  LookupList<OrderedKeysOf<CI32>> column;
  i32 e = 0, q = 0;
  for (i64 j = 0; j < mdimj; ++j) {
    const i64 row_start = j * d1;
    const i32 row_end = stretch_end(e, nelem, [&](i32 stored) { return sp[stored] < row_start + d1; });
    const i32 column_end = stretch_end(q, mnnz, [&](i32 place) { return msubj[perm[place]] == j; });
    column.take({msubi, perm}, q, column_end, row_end - e);
    const bool met =
        column.intersect(e, row_end, KeysOf{sp, row_start}, [&](i32 place, i32 stored) { entry(perm[place], stored); });
    if (met) element(j);
    e = row_end;
    q = column_end;
  }
}

// The left form with a dense E, from entry `mi` on: entry(k, f) for each entry k and the element f that it meets,
// element(i) after each row i of M.
template <class Entry, class Element>
void walk_rows(i32& mi, CI32 msubi, CI32 msubj, i32 d1, Entry entry, Element element)
{
  const i32 mnnz = static_cast<i32>(msubi.count);
  while (mi < mnnz) {
    const i32 i = msubi[mi];
    for (; mi < mnnz && msubi[mi] == i; ++mi) entry(mi, i64{d1} * msubj[mi] + i);
    element(i);
  }
}

// The rows of the elements of a pattern, in an order of them.
struct RowsInOrder {
  Run<const i64> sp;
  Run<const i32> order;
  Divisor width;

  i64 operator()(i32 place) const { return width.quotient(sp[order[place]]); }
};

// The left form with a sparse E, its elements by column: row i of M against column i of E, from `mi` and `q` on until
// either list is exhausted. entry(k, e) for each match, element(i) after each row with a match. At most two divisions
// an element.
template <class Entry, class Element>
void walk_rows_and_columns(i32& mi, CI32 msubi, CI32 msubj, i32& q, Run<const i32> perm, i32 nelem, Run<const i64> sp,
                           i32 d1, Entry entry, Element element)
{
  const i32 mnnz = static_cast<i32>(msubi.count);
  if (mi >= mnnz || q >= nelem) return;
  const Divisor width(d1);
  LookupList<KeysOf<CI32>> row;
  const auto column_of = [&](i32 place) { return width.remainder(sp[perm[place]]); };
  while (true) {
    const i64 column = column_of(q);
    mi = stretch_end(mi, mnnz, [&](i32 k) { return msubi[k] < column; });
    if (mi == mnnz) return;
    const i32 column_end = stretch_end(q + 1, nelem, [&](i32 place) { return column_of(place) == column; });
    if (msubi[mi] == column) {
      const i32 row_end = stretch_end(mi + 1, mnnz, [&](i32 k) { return msubi[k] == column; });
      row.take({msubj}, mi, row_end, column_end - q);
      const bool met =
          row.intersect(q, column_end, RowsInOrder{sp, perm, width}, [&](i32 k, i32 place) { entry(k, perm[place]); });
      if (met) element(column);
      mi = row_end;
    }
    q = column_end;
    if (mi == mnnz || q == nelem) return;
  }
}

}  // namespace

// Right form: sorts the entries of M by column, stably, into `xperm` and the mdimj + 1 slots of `xcolptr`.
KERNEL((451), (), sort_matrix_by_column, i32 mdimj, i32 mnnz, CI32 msubj, I32 xi32, i32 xcolptr, i32 xperm)
{
  sort_by_column(Run{xi32, xcolptr}, mdimj, Run{xi32, xperm}, mnnz, [&](i64 k) { return msubj[k]; });
}

// Right form: measures, with a sparse E (`hassp`) or a dense one.
KERNEL((452), (i32 rncodeatom, i32 rnelem, i32 rnnz), measure_right_diagonal, i32 codeptr, i32 d1, bool hassp,
       i32 mdimj, i32 mnnz, CI32 msubi, CI32 msubj, i32 ncodeatom, i32 nelem, i32 ptr, i32 rncodeatom, i32 rnelem,
       i32 rnnz, i32 sp, CI32 wi32, CI64 wi64, CI32 xi32, i32 xperm)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});
  const Run perm{xi32, xperm};
  const auto entry = [&](i32, i64 f) { size.append_scaled(f); };
  const auto element = [&](i64) { size.close_element(); };
  if (hassp)
    walk_columns_and_rows(msubi, msubj, perm, mnnz, mdimj, Run{wi64, sp}, nelem, d1, entry, element);
  else
    walk_columns(
        msubi, msubj, perm, mnnz, d1, [&](i32, i32 k, i64 f) { entry(k, f); }, element);
  return {size.atoms, size.elements, size.terms};
}

// Right form: writes, with a sparse E (`hassp`) or a dense one. `rptr[0]` and `rcodeptr[0]` are the caller's.
KERNEL((453), (i32 codei, i32 elmi, i32 nzi), write_right_diagonal, i32 cconst, i32 code, i32 codei, i32 codeptr,
       i32 cof, i32 d1, i32 elmi, bool hassp, i32 mdimj, i32 mnnz, CI32 msubi, CI32 msubj, CF64 mval, i32 ncodeatom,
       i32 nelem, i32 nidxs, i32 nzi, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, i32 xperm)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst,
                                  {.elements = elmi, .terms = nzi, .atoms = codei});
  const Run perm{xi32, xperm};
  with_constant(ncodeatom > 0, [&](auto hascode) {
    const auto entry = [&](i32 k, i64 f) { result.append_scaled(operand, f, mval[k], hascode); };
    const auto element = [&](i64 j) { result.close_element(j); };
    if (hassp) {
      walk_columns_and_rows(msubi, msubj, perm, mnnz, mdimj, Run{wi64, sp}, nelem, d1, entry, element);
    } else {
      const auto element_at = [&](i64 q) { return i64{d1} * msubj[perm[q]] + msubi[perm[q]]; };
      const auto entry_ahead = [&](i32 q, i32 k, i64 f) {
        look_ahead(operand, q, mnnz, hascode, element_at);
        entry(k, f);
      };
      walk_columns(msubi, msubj, perm, mnnz, d1, entry_ahead, element);
    }
  });
  return {result.atoms, result.elements, result.terms};
}

// Left form, dense E: measures from entry `mi` on, which comes back as the number of entries.
KERNEL((455), (i32 mi, i32 rncodeatom, i32 rnelem, i32 rnnz), measure_left_diagonal, i32 codeptr, i32 d1, i32 mi,
       CI32 msubi, CI32 msubj, i32 ncodeatom, i32 ptr, i32 rncodeatom, i32 rnelem, i32 rnnz, CI32 wi32)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});
  walk_rows(
      mi, msubi, msubj, d1, [&](i32, i64 f) { size.append_scaled(f); }, [&](i64) { size.close_element(); });
  return {mi, size.atoms, size.elements, size.terms};
}

// Left form, dense E: writes all of the record, its one extent `rdim`, `rptr[0]` and, if the operand has code,
// `rcodeptr[0]` included.
//
// - rncodeatom (size): the atoms of the result; above 0 it has code
KERNEL((456), (), write_left_diagonal, i32 cconst, i32 code, i32 codeptr, i32 cof, i32 d1, i32 rdim, CI32 msubi,
       CI32 msubj, CF64 mval, i32 ncodeatom, i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, i32 rncodeatom, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, CF64 wf64, CI32 wi32,
       CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (ncodeatom > 0) result.codeptr[0] = 0;
  Run{ri32, rshape}[0] = rdim;
  with_constant(rncodeatom > 0, [&](auto hascode) {
    i32 mi = 0;
    walk_rows(
        mi, msubi, msubj, d1,
        [&](i32 k, i64 f) {
          look_ahead(operand, k, msubi.count, hascode, [&](i64 m) { return i64{d1} * msubj[m] + msubi[m]; });
          result.append_scaled(operand, f, mval[k], hascode);
        },
        [&](i64 i) { result.close_element(i); });
  });
}

// Left form, sparse E: sorts its stored elements by column, stably, into `xperm` and the d1 + 1 slots of `xcolptr`, and
// measures.
KERNEL((457), (i32 rncodeatom, i32 rnelem, i32 rnnz), measure_sparse_left_diagonal, i32 codeptr, i32 d1, CI32 msubi,
       CI32 msubj, i32 ncodeatom, i32 nelem, i32 ptr, i32 rncodeatom, i32 rnelem, i32 rnnz, i32 sp, CI32 wi32,
       CI64 wi64, i32 xcolptr, i32 xperm, I32 xi32)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});
  const Run pattern{wi64, sp};
  const Run perm{xi32, xperm};
  sort_by_column(Run{xi32, xcolptr}, d1, perm, nelem, ColumnOf{pattern, Divisor(d1)});
  i32 mi = 0, q = 0;
  walk_rows_and_columns(
      mi, msubi, msubj, q, perm, nelem, pattern, d1, [&](i32, i32 e) { size.append_scaled(e); },
      [&](i64) { size.close_element(); });
  return {size.atoms, size.elements, size.terms};
}

// Left form, sparse E: writes, from entry `mi` and place `q` on; they come back as the walk left them, one of them at
// the end of its list. `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - q (cursor): the next place in `xperm`
KERNEL((458), (i32 codei, i32 elmi, i32 q, i32 mi, i32 nzi), write_sparse_left_diagonal, i32 cconst, i32 code,
       i32 codei, i32 codeptr, i32 cof, i32 d1, i32 elmi, i32 q, i32 mi, CI32 msubi, CI32 msubj, CF64 mval,
       i32 ncodeatom, i32 nelem, i32 nidxs, i32 nzi, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, i32 xperm, CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst,
                                  {.elements = elmi, .terms = nzi, .atoms = codei});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    walk_rows_and_columns(
        mi, msubi, msubj, q, Run{xi32, xperm}, nelem, Run{wi64, sp}, d1,
        [&](i32 k, i32 e) { result.append_scaled(operand, e, mval[k], hascode); },
        [&](i64 i) { result.close_element(i); });
  });
  return {result.atoms, result.elements, q, mi, result.terms};
}

}  // namespace fragments
