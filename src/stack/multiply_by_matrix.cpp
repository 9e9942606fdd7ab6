// The product of a constant matrix M (mdimi, mdimj) and an expression E (d0, d1), d1 equal to mdimj:
//
//     R(i, t) = sum over j of M(i, j) * E(t, j),   R has the shape (mdimi, d0)
//
// so M is applied to each row of E: as matrices, R is M times the transpose of E. Every term of E is copied once for
// each matrix entry that meets it, scaled by that entry; terms with the same variable are not merged and zeros stay.
// Elements come in ascending i, then t, which keeps `rsp` ascending; inside an element the terms stand by ascending j,
// then in the operand's order.
//
//     M sparse, E one element   check 475, write 465
//     M sparse, E dense         check 475, measure 467, write 472
//     M sparse, E sparse        check 475, measure 467, write 473, its code 474
//     M dense,  E dense         measure 467, write each row 468 (and `rnidxs` 336), all code 469
//     M dense,  E sparse        measure 467, write each row 470 (and `rnidxs` 336), all code 471
//
// A term of a result with code costs its own atoms plus two, (2, factor) and (5); no code is made up for an operand
// without. Writers leave `rptr[0]` and `rcodeptr[0]` to the caller. Entries of a sparse M ascend strictly by row, then
// column; with a sparse E, d1 is above 0.
//
// - d0 (extent): the rows of E
// - d1 (extent): the columns of E, which are those of M
// - i (index): the row of M
// - rncodeatom (size): the atoms of the result; above 0 it has code

#include <algorithm>

#include "index/lookup_list.h"
#include "index/pattern_runs.h"
#include "stack/constant_matrix.h"
#include "stack/record.h"

namespace fragments {
namespace {

// The walk of the sparse product: every row group of M against every row run of E, the run's columns looked up in the
// group. match(k, e) is called for entry k and element e of one column; element(i, t) after each pair of group and run
// with a match, also if all matched elements are empty. At most O(row groups * nelem + mnnz * row runs), and no memory.
template <class Match, class Element>
void merge_rows(CI32 msubi, CI32 msubj, i32 mnnz, Run<const i64> sp, i32 nelem, i32 d1, Match match, Element element)
{
  LookupList<KeysOf<CI32>> row_of_matrix;
  for_each_row_group(msubi, mnnz, [&](i32 i, i32 kb, i32 ke) {
    row_of_matrix.take({msubj}, kb, ke, nelem);
    for_each_row_run(sp, nelem, d1, [&](i64 t, i32 b, i32 e) {
      if (row_of_matrix.intersect(b, e, KeysOf{sp, t * d1}, match)) element(i, t);
    });
  });
}

}  // namespace

// Checks the entries of a sparse matrix: sets `badidx` for an entry outside (mdimi, mdimj), `badorder` for a pair of
// neighbours that does not strictly ascend by row, then column. Always runs both scans, and clears neither flag.
KERNEL((454, 459, 466), (bool badidx, bool badorder), check_matrix, bool badidx, bool badorder, i32 mdimi, i32 mdimj,
       i32 mnnz, CI32 msubi, CI32 msubj)
{
  badidx |= any_entry_outside(msubi, msubj, mdimi, mdimj, mnnz);
  badorder |= any_entry_unordered(msubi, msubj, mnnz);
  return {badidx, badorder};
}

// Checks the entries of a matrix that may be dense (`msubi` or `msubj` None: nothing to check), up to the first fault:
// sets `badidx` for an entry outside (mdimi, mdimj), else `badorder` for a pair of neighbours that does not strictly
// ascend by row, then column. So a matrix with both faults reports `badorder` false, and a `badidx` that comes in true
// ends the check; this is intended.
KERNEL((475), (bool badidx, bool badorder), check_matrix_to_first_fault, bool badidx, bool badorder, i32 mdimi,
       i32 mdimj, i32 mnnz, CI32 msubi, CI32 msubj)
{
  if (!msubi.data || !msubj.data) return {badidx, badorder};
  badidx = badidx || any_entry_outside(msubi, msubj, mdimi, mdimj, mnnz);
  badorder = badorder || (!badidx && any_entry_unordered(msubi, msubj, mnnz));
  return {badidx, badorder};
}

// Measures the product of any M and E: atoms, elements and terms of the result, exactly what the writers write.
//
// M is dense if `msubi` or `msubj` is None. With a dense M the incoming `rncodeatom` and `rnnz` are overwritten, and so
// is `rnelem` for a dense E; for a sparse E the incoming `rnelem` is multiplied with the rest. With a sparse M all
// three are added to, and a dense E multiplies the incoming `rnelem` by d0 too. Callers pass 0 for all three.
//
// - rncodeatom (cursor): the atoms of the result
KERNEL((467), (i32 rncodeatom, i32 rnelem, i32 rnnz), measure_product, i32 codeptr, i32 d0, i32 d1, bool hassp,
       i32 mdimi, i32 mnnz, CI32 msubi, CI32 msubj, i32 ncodeatom, i32 nelem, i32 nnz, i32 ptr, i32 rncodeatom,
       i32 rnelem, i32 rnnz, i32 sp, CI32 wi32, CI64 wi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  const Run pattern{wi64, sp};
  const bool hascode = ncodeatom > 0;
  Size size(operand, hascode, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});

  if (!msubi.data || !msubj.data) {
    size.terms = mdimi * nnz;
    size.atoms = hascode ? (ncodeatom + 2 * nnz) * mdimi : 0;
    if (hassp) {
      for_each_row_run(pattern, nelem, d1, [&](i64, i32, i32) { size.close_element(); });
      size.elements *= mdimi;
    } else {
      size.elements = d0 * mdimi;
    }
  } else if (hassp) {
    merge_rows(
        msubi, msubj, mnnz, pattern, nelem, d1, [&](i32, i32 e) { size.append_scaled(e); },
        [&](i32, i64) { size.close_element(); });
  } else {
    for_each_row_group(msubi, mnnz, [&](i32, i32, i32) { size.close_element(); });
    size.elements *= d0;
    // Row by row of E, which stays in the caches, and without the ends of row groups: half the time of the writer's
    // order.
    const i32 begin = size.terms;
    for (i64 t = 0; t < d0; ++t) {
      for (i64 k = 0; k < mnnz; ++k) size.append(t * d1 + msubj[k]);
    }
    if (hascode) size.atoms += 2 * (size.terms - begin);
  }
  return {size.atoms, size.elements, size.terms};
}

// Sparse M times an operand of one element, which makes an element of every entry of M: entry k is element k of the
// result, all `nnz` terms of the operand times mval[k], at flat position d1*msubi[k] + msubj[k]. Also sets
// `rcodeptr[0]` in a result with code. O(mnnz * nnz).
//
// - d1 (extent): the columns of the result
KERNEL((465), (i32 codei, i32 nzi), write_matrix_times_element, i32 cconst, i32 code, i32 codei, i32 codeptr, i32 cof,
       i32 d1, i32 mnnz, CI32 msubi, CI32 msubj, CF64 mval, i32 ncodeatom, i32 nidxs, i32 nnz, i32 nzi, i32 rcconst,
       i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CF64 wf64,
       CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.terms(nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = nzi, .atoms = codei});
  const bool hascode = ncodeatom > 0;
  if (hascode) result.codeptr[0] = 0;
  for (i32 k = 0; k < mnnz; ++k) {
    result.append_scaled(operand, Terms{0, nnz}, mval[k], hascode);
    result.close_element(i64{d1} * msubi[k] + msubj[k]);
  }
  return {result.atoms, result.terms};
}

// Dense M, dense E: `rcof` and `rptr` for row i of M, which makes d0 elements. Every term of E occurs once in a row's
// run, zero entries of M included, so `rnidxs` is the operand's `nidxs` once for every row.
//
// - ei (cursor): the next element of E; callers pass 0 for each row of M
KERNEL((468), (i32 ei, i32 elmi, i32 nzi), write_dense_product_row, i32 cof, i32 d0, i32 ei, i32 elmi, i32 i, i32 d1,
       CF64 mval, i32 nzi, i32 ptr, i32 rcof, F64 rf64, I32 ri32, i32 rptr, CF64 wf64, CI32 wi32)
{
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coefficients(ptr, cof);
  const ResultArrays r{ri32, {}, rf64};
  Writer result = r.coefficient_writer(rptr, rcof, {.elements = elmi, .terms = nzi});
  const Run row{mval, i64{i} * d1};
  for (i32 t = 0; t < d0; ++t) {
    const i64 first = ei;
    result.append_scaled_coefficients(operand, first, first + d1, [&](i64 f) { return row[f - first]; });
    ei += std::max(d1, 0);
    result.close_element();
  }
  return {ei, result.elements, result.terms};
}

// Dense M, dense E: the code of all rows of M, if `rncodeatom` is above 0. Terms and atoms count from 0.
KERNEL((469), (), write_dense_product_code, i32 cconst, i32 code, i32 codeptr, i32 d0, i32 mdimi, i32 d1, CF64 mval,
       i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, F64 rf64, I32 ri32, i32 rncodeatom, CF64 wf64, CI32 wi32)
{
  if (rncodeatom <= 0) return;
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coded(ptr, codeptr, code, cconst);
  const ResultArrays r{ri32, {}, rf64};
  Writer result = r.code_writer(rcodeptr, rcode, rcconst);
  for (i64 i = 0; i < mdimi; ++i) {
    const Run row{mval, i * d1};
    i64 f = 0;
    for (i32 t = 0; t < d0; ++t) {
      for (i32 s = 0; s < d1; ++s, ++f) {
        result.append_scaled_code(operand, f, row[s]);
      }
    }
  }
}

// Dense M, sparse E: `rcof`, `rptr` and, if `rhassp`, `rsp` for row i of M, which makes one element for each row of E
// with a stored element. `rnidxs` is the operand's `nidxs` once for every row.
KERNEL((470), (i32 elmi, i32 nzi), write_dense_sparse_product_row, i32 cof, i32 d0, i32 d1, i32 elmi, i32 i, i32 mdimj,
       CF64 mval, i32 nelem, i32 nzi, i32 ptr, i32 rcof, F64 rf64, bool rhassp, I32 ri32, I64 ri64, i32 rptr, i32 rsp,
       i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coefficients(ptr, cof);
  const Run pattern{wi64, sp};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.coefficient_writer(rptr, rcof, {.elements = elmi, .terms = nzi});
  result.sp = {ri64, rsp};
  const Run row{mval, i64{mdimj} * i};
  for_each_row_run(pattern, nelem, d1, [&](i64 t, i32 b, i32 e) {
    result.append_scaled_coefficients(operand, b, e, [&](i64 f) { return row[pattern[f] - t * d1]; });
    if (rhassp) result.sp[result.elements] = t + i64{d0} * i;
    result.close_element();
  });
  return {result.elements, result.terms};
}

// Dense M, sparse E: the code of all rows of M, if `rncodeatom` is above 0. Terms and atoms count from 0.
KERNEL((471), (), write_dense_sparse_product_code, i32 cconst, i32 code, i32 codeptr, i32 mdimj, i32 d1, i32 mdimi,
       CF64 mval, i32 nelem, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, F64 rf64, I32 ri32, i32 rncodeatom, i32 sp,
       CF64 wf64, CI32 wi32, CI64 wi64)
{
  if (rncodeatom <= 0) return;
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coded(ptr, codeptr, code, cconst);
  const Run pattern{wi64, sp};
  const ResultArrays r{ri32, {}, rf64};
  Writer result = r.code_writer(rcodeptr, rcode, rcconst);
  for (i64 i = 0; i < mdimi; ++i) {
    const Run row{mval, mdimj * i};
    for_each_row_run(pattern, nelem, d1, [&](i64 t, i32 b, i32 e) {
      for (i32 f = b; f < e; ++f) {
        result.append_scaled_code(operand, f, row[pattern[f] - t * d1]);
      }
    });
  }
}

// Sparse M, dense E: terms and `rptr`, with code if `rncodeatom` is above 0, with `rsp` if `rhassp`. Every pair of a
// row of M with entries and a row of E makes an element, also without terms; rows of M without entries make none.
// O(mnnz * d0 + terms).
KERNEL((472), (i32 codei, i32 elmi, i32 nzi), write_sparse_product, i32 cconst, i32 code, i32 codei, i32 codeptr,
       i32 cof, i32 d0, i32 d1, i32 elmi, i32 mnnz, CI32 msubi, CI32 msubj, CF64 mval, i32 nidxs, i32 nzi, i32 ptr,
       i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, bool rhassp, I32 ri32, I64 ri64, i32 rncodeatom,
       i32 rnidxs, i32 rptr, i32 rsp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst,
                                  {.elements = elmi, .terms = nzi, .atoms = codei});
  with_constant(rncodeatom > 0, [&](auto hascode) {
    for_each_row_group(msubi, mnnz, [&](i64 i, i32 kb, i32 ke) {
      for (i64 t = 0; t < d0; ++t) {
        for (i32 k = kb; k < ke; ++k) result.append_scaled(operand, t * d1 + msubj[k], mval[k], hascode);
        if (rhassp) result.sp[result.elements] = i * d0 + t;
        result.close_element();
      }
    });
  });
  return {result.atoms, result.elements, result.terms};
}

// Sparse M, sparse E: terms, `rptr` and, if `rhassp`, `rsp`. A row of M and a row of E make an element if an entry and
// a stored element match, even if all matched elements are without terms. O(rows of M with entries * nelem + mnnz *
// rows of E with elements + terms).
KERNEL((473), (i32 elmi, i32 nzi), write_sparse_sparse_product, i32 cof, i32 d0, i32 d1, i32 elmi, i32 mnnz, CI32 msubi,
       CI32 msubj, CF64 mval, i32 nelem, i32 nidxs, i32 nzi, i32 ptr, i32 rcof, F64 rf64, bool rhassp, I32 ri32,
       I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, {.elements = elmi, .terms = nzi});
  merge_rows(
      msubi, msubj, mnnz, Run{wi64, sp}, nelem, d1,
      [&](i32 k, i32 e) { result.append_scaled(operand, e, mval[k], false); },
      [&](i32 i, i64 t) {
        if (rhassp) result.sp[result.elements] = t + i64{d0} * i;
        result.close_element();
      });
  return {result.elements, result.terms};
}

// Sparse M, sparse E: the code of the terms that 473 wrote, by the same walk over the same arguments; callers pass 0
// for `nzi` and `codei`.
KERNEL((474), (i32 codei, i32 nzi), write_sparse_sparse_product_code, i32 cconst, i32 code, i32 codei, i32 codeptr,
       i32 d1, i32 mnnz, CI32 msubi, CI32 msubj, CF64 mval, i32 nelem, i32 nzi, i32 ptr, i32 rcconst, i32 rcode,
       i32 rcodeptr, F64 rf64, I32 ri32, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coded(ptr, codeptr, code, cconst);
  const ResultArrays r{ri32, {}, rf64};
  Writer result = r.code_writer(rcodeptr, rcode, rcconst, {.terms = nzi, .atoms = codei});
  merge_rows(
      msubi, msubj, mnnz, Run{wi64, sp}, nelem, d1,
      [&](i32 k, i32 e) { result.append_scaled_code(operand, e, mval[k]); }, [](i32, i64) {});
  return {result.atoms, result.terms};
}

}  // namespace fragments
