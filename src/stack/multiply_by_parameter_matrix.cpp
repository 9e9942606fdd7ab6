// The product of an expression E, with the shape (erows, ecols), and a matrix P of parameters, in either order: E*P has
// the shape (erows, pcols), P*E has (rows of P, ecols). Entry j of P stands at flat position psp[j], strictly
// ascending, and is parameter param[j]; everywhere else there is a 0.
//
//     E*P   sort P by column 364 to 367; measure 368 (dense E) or 369 (sparse E), write 370
//     P*E   dense E: measure 372, zero `rcof` 373, write 374
//           sparse E: sort E by column 375, measure 376, zero `rcof` 378, write 379
//           dense E and P: mark `rptr` as unset 377, then 371 for every row, column and inner index
//
// An element of the result belongs to a row of the left factor and a column of the right one that both have entries or
// stored elements; elements ascend by row, then column. With a sparse E a pair makes one if there is a match, even of
// an element without terms; with a dense E every pair does, also without terms. The terms of an element stand by
// ascending inner index, then in the order of E.
//
// A coefficient of the result is all code: `rcof` is 0, and a term costs 3 atoms, or 4 and its own if E has code, (2,
// cof), the term's own and (3), (1, parameter), (5). `rptr[0]` and `rcodeptr[0]` are the caller's. `ecols` and `pcols`
// are above 0 where there is a pattern to divide.
//
// - perm (position in xi32; one an item): the order by column that the sort made, of P in E*P and of E in P*E
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far

#include "stack/parameter_matrix.h"
#include "stack/record.h"

namespace fragments {
namespace {

// match(flat position in E, entry of P) for E*P with a dense E, element(flat position in the result) after each row of
// E and column of P with entries. O(erows * entries of P).
template <class Match, class Element>
void walk_dense_times_columns(i64 erows, i64 ecols, const ByColumn& p, Match match, Element element)
{
  for (i64 i = 0; i < erows; ++i) {
    i32 v = 0;
    for_each_entry_by_column(
        p, v, [&](i64 s, i64, i32 entry) { match(i * ecols + s, entry); },
        [&](i64 column) { element(i * p.cols.value() + column); });
  }
}

}  // namespace

// Measures E*P, dense E. O(erows * pnelem).
KERNEL((368), (i32 c, i32 e, i32 k), measure_dense_times_parameters, i32 codeptr, i32 erows, i32 ecols, i32 ncodeatom,
       i32 pcols, i32 pnelem, i32 perm, i32 psp, i32 ptr, i32 c, i32 e, i32 k, CI32 wi32, CI32 xi32, CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  walk_dense_times_columns(
      erows, ecols, p, [&](i64 f, i32) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {size.atoms, size.elements, size.terms};
}

// Measures E*P, sparse E. O(rows of E with elements * pnelem + columns of P with entries * nelem).
KERNEL((369), (i32 c, i32 e, i32 k), measure_sparse_times_parameters, i32 codeptr, i32 ecols, i32 ncodeatom, i32 nelem,
       i32 pcols, i32 pnelem, i32 perm, i32 psp, i32 ptr, i32 c, i32 e, i32 k, i32 sp, CI32 wi32, CI64 wi64, CI32 xi32,
       CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByRow rows{{wi64, sp}, nelem, ecols};
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  i32 i = 0;
  walk_product(
      rows, i, p, [&](i32 f, i32) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {size.atoms, size.elements, size.terms};
}

// Writes E*P, of a sparse E (`hassp`) or a dense one: terms, code, `rptr` and `rsp`.
KERNEL((370), (i32 c, i32 e, i32 k), write_expression_times_parameters, i32 cconst, i32 code, i32 c, i32 codeptr,
       i32 cof, i32 erows, i32 ecols, i32 e, bool hassp, i32 ncodeatom, i32 nelem, i32 nidxs, i32 k, i32 pcols,
       i32 param, i32 pnelem, i32 perm, i32 psp, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByColumn p{{xi64, psp}, {xi32, perm}, pnelem, Divisor(pcols)};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    const auto match = [&](i64 f, i32 entry) { result.append_parametrised(operand, f, numbers[entry], hascode); };
    const auto element = [&](i64 flat) { result.close_element(flat); };
    if (hassp) {
      i32 i = 0;
      walk_product({{wi64, sp}, nelem, ecols}, i, p, match, element);
    } else {
      walk_dense_times_columns(erows, ecols, p, match, element);
    }
  });
  return {result.atoms, result.elements, result.terms};
}

// One step of P*E with a dense P and a dense E: the terms of E(inner, col) times P(row, inner), with their code. The
// loops over row, column and inner index are the caller's, and so is `rptr`.
//
// - row, inner, col (index): the row of P, its column, which is the row of E, and the column of E
// - param (position in xi32; rows of P * pcols): the number of the parameter at each place of P, row by row
KERNEL((371), (i32 c, i32 k), write_product_step, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 ecols,
       i32 pcols, i32 col, i32 inner, i32 ncodeatom, i32 nidxs, i32 k, i32 row, i32 param, i32 ptr, i32 rcconst,
       i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, CF64 wf64, CI32 wi32, CI64 wi64,
       CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.term_writer(rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  const i64 f = i64{inner} * ecols + col;
  const i64 entry = i64{row} * pcols + inner;
  result.append_parametrised(operand, f, Run{xi32, param}[entry], ncodeatom > 0);
  return {result.atoms, result.terms};
}

// Measures P*E, dense E. An entry (r, s) of P meets all of row s of E, whose terms stand together. O(pnelem).
KERNEL((372), (i32 c, i32 e, i32 k), measure_parameters_times_dense, i32 codeptr, i32 ecols, i32 ncodeatom, i32 pcols,
       i32 pnelem, i32 ptr, i32 c, i32 e, i32 k, CI32 wi32, CI64 xi64, i32 psp)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByRow p{{xi64, psp}, pnelem, pcols};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  if (ecols > 0) {
    for_each_block(p, [&](i64 row, i32 begin, i32 end) {
      for (i32 entry = begin; entry < end; ++entry) {
        const i64 f = (p.sp[entry] - row * pcols) * ecols;
        size.append_parametrised(operand.terms(f, f + ecols));
      }
      size.elements += ecols;
    });
  }
  return {size.atoms, size.elements, size.terms};
}

// Writes P*E, dense E: variables, code, `rptr` and `rsp`, but not `rcof`. O(pnelem * ecols + terms).
//
// - j (cursor): the entry of P to begin with, the first of its row; comes back as `pnelem`
KERNEL((374), (i32 c, i32 e, i32 j, i32 k), write_parameters_times_dense, i32 cconst, i32 code, i32 c, i32 codeptr,
       i32 cof, i32 ecols, i32 e, i32 j, i32 ncodeatom, i32 nidxs, i32 k, i32 pcols, i32 param, i32 pnelem, i32 ptr,
       i32 rcconst, i32 rcode, i32 rcodeptr, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CF64 wf64,
       CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64, i32 psp)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByRow p{{xi64, psp}, pnelem, pcols};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer_without_cof(rptr, rsp, rnidxs, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for_each_block(p, j, [&](i64 row, i32 begin, i32 end) {
      for (i64 b = 0; b < ecols; ++b) {
        for (i32 entry = begin; entry < end; ++entry) {
          const i64 f = (p.sp[entry] - row * pcols) * ecols + b;
          result.append_parametrised(operand, f, numbers[entry], hascode, ZeroCof::elsewhere);
        }
        result.close_element(row * ecols + b);
      }
    });
  });
  return {result.atoms, result.elements, j, result.terms};
}

// Measures P*E, sparse E. O(rows of P with entries * nelem + columns of E with elements * pnelem).
KERNEL((376), (i32 c, i32 e, i32 k), measure_parameters_times_sparse, i32 codeptr, i32 ecols, i32 ncodeatom, i32 nelem,
       i32 pcols, i32 pnelem, i32 ptr, i32 c, i32 e, i32 k, i32 sp, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64,
       i32 perm, i32 psp)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const ByRow p{{xi64, psp}, pnelem, pcols};
  const ByColumn columns{{wi64, sp}, {xi32, perm}, nelem, Divisor(ecols)};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  i32 j = 0;
  walk_product(
      p, j, columns, [&](i32, i32 f) { size.append_parametrised(f); }, [&](i64) { size.close_element(); });
  return {size.atoms, size.elements, size.terms};
}

// Writes P*E, sparse E: variables, code, `rptr` and `rsp`, but not `rcof`.
//
// - j (cursor): the entry of P to begin with, the first of its row; comes back as `pnelem`
KERNEL((379), (i32 c, i32 e, i32 k, i32 j), write_parameters_times_sparse, i32 cconst, i32 code, i32 c, i32 codeptr,
       i32 cof, i32 ecols, i32 e, i32 ncodeatom, i32 nelem, i32 nidxs, i32 k, i32 pcols, i32 param, i32 pnelem, i32 j,
       i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp,
       i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64, i32 perm, i32 psp)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ByRow p{{xi64, psp}, pnelem, pcols};
  const ByColumn columns{{wi64, sp}, {xi32, perm}, nelem, Divisor(ecols)};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer_without_cof(rptr, rsp, rnidxs, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    walk_product(
        p, j, columns,
        [&](i32 entry, i32 f) { result.append_parametrised(operand, f, numbers[entry], hascode, ZeroCof::elsewhere); },
        [&](i64 flat) { result.close_element(flat); });
  });
  return {result.atoms, result.elements, result.terms, j};
}

}  // namespace fragments
