// The diagonal of a product of an expression E, which has ecols columns, and a matrix P of parameters, in either order.
// Entry j of P stands at flat position psp[j], strictly ascending, and is parameter param[j]; everywhere else there is
// a 0.
//
//     P*E: R(r) = sum over s of P(r, s) * E(s, r)     E is walked by column
//     E*P: R(r) = sum over s of E(r, s) * P(s, r)     P is walked by column
//
//     P*E   sparse E: sort E by column 339 to 342, measure 343, write 344      dense E: measure 345, write 346
//     E*P   sort P by column 347 to 350; sparse E: measure 351, write 352      dense E: measure 353, write 354
//
// R is sparse with one axis; its elements ascend by r. Sparse E: an element for every r with a match, even of an
// element without terms. Dense E: an element for every row of P with entries in P*E, for every column of P with entries
// in E*P, also without terms. The terms of an element stand by ascending s, then in the order of E. All walks are
// linear in the entries and elements.
//
// A coefficient of the result is all code: `rcof` is 0, and a term costs 3 atoms, or 4 and its own if E has code, (2,
// cof), the term's own and (3), (1, parameter), (5). `ecols` and `pcols` are above 0 where there is a pattern to
// divide. The cursors `i` and `j` come in at the beginning of a row or column, and the walk ends when one of them is at
// its end.
//
// - perm (position in xi32; one an item): the order by column that the sort made, of E in P*E and of P in E*P
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far
// - i (cursor): the next stored element of E
// - j (cursor): the next entry of P in the order of `perm`

#include "stack/parameter_matrix.h"
#include "stack/record.h"

namespace fragments {
namespace {

// match(flat position in E, entry of P) for the diagonal of P*E with a dense E, element(r) after each row of P.
template <class Match, class Element>
void walk_rows(const ByRow& p, i64 ecols, Match match, Element element)
{
  for_each_block(p, [&](i64 row, i32 begin, i32 end) {
    for (i32 entry = begin; entry < end; ++entry) match((p.sp[entry] - row * p.cols) * ecols + row, entry);
    element(row);
  });
}

// match(flat position in E, entry of P) for the diagonal of E*P with a dense E, element(r) after each column of P.
template <class Match, class Element>
void walk_columns(const ByColumn& p, i32& cursor, i64 ecols, Match match, Element element)
{
  for_each_entry_by_column(
      p, cursor, [&](i64 s, i64 column, i32 entry) { match(column * ecols + s, entry); }, element);
}

}  // namespace

// Measures the diagonal of P*E, sparse E.
KERNEL((343), (i32 c, i32 e, i32 k), measure_diagonal_of_left_product, i32 codeptr, i32 ecols, i32 ptr, i32 ncodeatom,
       i32 nelem, i32 pcols, i32 pnelem, i32 perm, i32 psp, i32 c, i32 e, i32 k, i32 sp, CI32 wi32, CI64 wi64,
       CI32 xi32, CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByRow p{{xi64, psp}, pnelem, pcols};
  const ByColumn columns{{wi64, sp}, {xi32, perm}, nelem, Divisor(ecols)};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  i32 i = 0, j = 0;
  walk_diagonal(
      p, j, columns, i, [&](i32, i32 f) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {size.atoms, size.elements, size.terms};
}

// Writes the diagonal of P*E, sparse E: all of the record. Nothing at all is done for an `rnelem` of 0 or less.
//
// - rnelem (size): the elements of the result
// - rhascode (flag): above 0 if `rcodeptr[0]` is to be set to 0; the code is written in any case
KERNEL((344), (), write_diagonal_of_left_product, i32 cconst, i32 code, i32 codeptr, i32 cof, i32 ecols, i32 perm,
       i32 ncodeatom, i32 nelem, i32 nidxs, i32 rdim, i32 pcols, i32 param, i32 pnelem, i32 psp, i32 ptr, i32 rcconst,
       i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnelem, i32 rnidxs, i32 rhascode, i32 rptr,
       i32 rshape, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  if (rnelem <= 0) return;
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByRow p{{xi64, psp}, pnelem, pcols};
  const ByColumn columns{{wi64, sp}, {xi32, perm}, nelem, Divisor(ecols)};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (rhascode > 0) result.codeptr[0] = 0;
  ri32[rshape] = rdim;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    i32 i = 0, j = 0;
    walk_diagonal(
        p, j, columns, i, [&](i32 entry, i32 f) { result.append_parametrised(operand, f, numbers[entry], hascode); },
        [&](i64 flat) { result.close_element(flat); });
  });
}

// Measures the diagonal of P*E, dense E.
KERNEL((345), (i32 c, i32 e, i32 k), measure_diagonal_of_left_product_with_dense, i32 codeptr, i32 ecols, i32 ncodeatom,
       i32 pcols, i32 pnelem, i32 psp, i32 ptr, i32 c, i32 e, i32 k, CI32 wi32, CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByRow p{{xi64, psp}, pnelem, pcols};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  walk_rows(
      p, ecols, [&](i64 f, i32) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {size.atoms, size.elements, size.terms};
}

// Writes the diagonal of P*E, dense E: all of the record.
//
// - rhascode (flag): above 0 if `rcodeptr[0]` is to be set to 0; the code is written in any case
KERNEL((346), (), write_diagonal_of_left_product_with_dense, i32 cconst, i32 code, i32 codeptr, i32 cof, i32 ecols,
       i32 ncodeatom, i32 nidxs, i32 rdim, i32 pcols, i32 param, i32 pnelem, i32 psp, i32 ptr, i32 rcconst, i32 rcode,
       i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp,
       CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByRow p{{xi64, psp}, pnelem, pcols};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (rhascode > 0) result.codeptr[0] = 0;
  ri32[rshape] = rdim;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    walk_rows(
        p, ecols, [&](i64 f, i32 entry) { result.append_parametrised(operand, f, numbers[entry], hascode); },
        [&](i64 flat) { result.close_element(flat); });
  });
}

// Measures the diagonal of E*P, sparse E.
KERNEL((351), (i32 i, i32 j, i32 c, i32 e, i32 k), measure_diagonal_of_right_product, i32 codeptr, i32 ecols, i32 i,
       i32 j, i32 ncodeatom, i32 nelem, i32 pcols, i32 pnelem, i32 perm, i32 psp, i32 ptr, i32 c, i32 e, i32 k, i32 sp,
       CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByRow rows{{wi64, sp}, nelem, ecols};
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  walk_diagonal(
      rows, i, p, j, [&](i32 f, i32) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {i, j, size.atoms, size.elements, size.terms};
}

// Writes the diagonal of E*P, sparse E: terms, code, `rptr` and `rsp`; `rptr[0]` and `rcodeptr[0]` are the caller's.
KERNEL((352), (i32 c, i32 e, i32 i, i32 j, i32 k), write_diagonal_of_right_product, i32 cconst, i32 code, i32 c,
       i32 codeptr, i32 cof, i32 ecols, i32 e, i32 i, i32 j, i32 ncodeatom, i32 nelem, i32 nidxs, i32 k, i32 pcols,
       i32 param, i32 pnelem, i32 perm, i32 psp, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByRow rows{{wi64, sp}, nelem, ecols};
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    walk_diagonal(
        rows, i, p, j, [&](i32 f, i32 entry) { result.append_parametrised(operand, f, numbers[entry], hascode); },
        [&](i64 flat) { result.close_element(flat); });
  });
  return {result.atoms, result.elements, i, j, result.terms};
}

// Measures the diagonal of E*P, dense E.
KERNEL((353), (i32 j, i32 c, i32 e, i32 k), measure_diagonal_of_right_product_with_dense, i32 codeptr, i32 ecols, i32 j,
       i32 ncodeatom, i32 pcols, i32 pnelem, i32 perm, i32 psp, i32 ptr, i32 c, i32 e, i32 k, CI32 wi32, CI32 xi32,
       CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  walk_columns(
      p, j, ecols, [&](i64 f, i32) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {j, size.atoms, size.elements, size.terms};
}

// Writes the diagonal of E*P, dense E: terms, code, `rptr` and `rsp`; `rptr[0]` and `rcodeptr[0]` are the caller's.
KERNEL((354), (i32 c, i32 e, i32 j, i32 k), write_diagonal_of_right_product_with_dense, i32 cconst, i32 code, i32 c,
       i32 codeptr, i32 cof, i32 ecols, i32 e, i32 j, i32 ncodeatom, i32 nidxs, i32 k, i32 pcols, i32 param, i32 pnelem,
       i32 perm, i32 psp, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64,
       i32 rnidxs, i32 rptr, i32 rsp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    walk_columns(
        p, j, ecols, [&](i64 f, i32 entry) { result.append_parametrised(operand, f, numbers[entry], hascode); },
        [&](i64 flat) { result.close_element(flat); });
  });
  return {result.atoms, result.elements, j, result.terms};
}

}  // namespace fragments
