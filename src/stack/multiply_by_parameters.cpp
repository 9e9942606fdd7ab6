// Inner and element-wise product of an expression E and an array P of parameters of the same shape. Entry j of P stands
// at flat position psp[j], strictly ascending, and is parameter param[j]; everywhere else there is a 0.
//
//     inner product          measure 355, write 357 (sparse E) or 358 (dense E)
//     element-wise product   measure 359, write 362 (sparse E) or 363 (dense E)
//
// With a sparse E the two patterns are joined, O(nelem + pnelem + terms); the join ends as soon as one list is
// exhausted. With a dense E entry j meets element psp[j], O(pnelem + terms).
//
// A coefficient of the result is all code: `rcof` is 0, and a term costs 3 atoms, or 4 and its own if E has code, (2,
// cof), the term's own and (3), (1, parameter), (5). `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far
// - i (cursor): the next stored element of E; comes back where the join ended
// - j (cursor): the next entry of P; comes back where the join ended

#include "index/merge.h"
#include "stack/record.h"

namespace fragments {
namespace {

// match(f, j) for every stored element f of E that meets entry j of P.
template <class Match>
void join(Run<const i64> sp, i32& i, i32 nelem, Run<const i64> psp, i32& j, i32 pnelem, Match match)
{
  intersect(i, nelem, j, pnelem, KeysOf{sp}, KeysOf{psp}, match);
}

// element(f) for every element f of E that meets an entry of P.
template <class Element>
void for_each_factor(bool hassp, Run<const i64> sp, i32 nelem, Run<const i64> psp, i32 pnelem, Element element)
{
  if (hassp) {
    i32 i = 0, j = 0;
    join(sp, i, nelem, psp, j, pnelem, [&](i32 f, i32) { element(f); });
  } else {
    for (i32 j = 0; j < pnelem; ++j) element(psp[j]);
  }
}

}  // namespace

// Measures the inner product, of a sparse or dense E.
KERNEL((355), (i32 c, i32 k), measure_inner_product, i32 codeptr, bool hassp, i32 ncodeatom, i32 nelem, i32 pnelem,
       i32 psp, i32 ptr, i32 c, i32 k, i32 sp, CI32 wi32, CI64 wi64, CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.terms = k, .atoms = c});
  for_each_factor(hassp, {wi64, sp}, nelem, {xi64, psp}, pnelem, [&](i64 f) { size.append_parametrised(f); });
  return {size.atoms, size.terms};
}

// Inner product, sparse E: the terms of the result's one element, whose `rptr` is the caller's, and their code.
KERNEL((357), (i32 c, i32 i, i32 k, i32 j), write_inner_product, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof,
       i32 i, i32 ncodeatom, i32 nelem, i32 nidxs, i32 k, i32 j, i32 param, i32 pnelem, i32 psp, i32 ptr, i32 rcconst,
       i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 sp, CF64 wf64, CI32 wi32,
       CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.term_writer(rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    join({wi64, sp}, i, nelem, {xi64, psp}, j, pnelem,
         [&](i32 f, i32 entry) { result.append_parametrised(operand, f, numbers[entry], hascode); });
  });
  return {result.atoms, i, result.terms, j};
}

// Inner product, dense E: the terms of the result's one element, whose `rptr` is the caller's, and their code.
KERNEL((358), (i32 c, i32 k), write_inner_product_of_dense, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof,
       i32 ncodeatom, i32 nidxs, i32 k, i32 param, i32 pnelem, i32 psp, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const Run pattern{xi64, psp};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.term_writer(rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 j = 0; j < pnelem; ++j) result.append_parametrised(operand, pattern[j], numbers[j], hascode);
  });
  return {result.atoms, result.terms};
}

// Measures the element-wise product, of a sparse or dense E. For a dense E `e` comes back as it is, since the result
// has `pnelem` elements.
KERNEL((359), (i32 c, i32 e, i32 k), measure_elementwise_parameter_product, i32 codeptr, bool hassp, i32 ncodeatom,
       i32 nelem, i32 pnelem, i32 psp, i32 ptr, i32 c, i32 e, i32 k, i32 sp, CI32 wi32, CI64 wi64, CI64 xi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.elements = e, .terms = k, .atoms = c});
  for_each_factor(hassp, {wi64, sp}, nelem, {xi64, psp}, pnelem, [&](i64 f) {
    size.append_parametrised(f);
    if (hassp) size.close_element();
  });
  return {size.atoms, size.elements, size.terms};
}

// Element-wise product, sparse E: terms, code, `rptr` and `rsp`. Every match is an element of the result, also one
// without terms.
KERNEL((362), (i32 c, i32 i, i32 e, i32 k, i32 j), write_elementwise_parameter_product, i32 cconst, i32 code, i32 c,
       i32 codeptr, i32 cof, i32 i, i32 e, i32 ncodeatom, i32 nelem, i32 nidxs, i32 k, i32 j, i32 param, i32 pnelem,
       i32 psp, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs,
       i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const Run pattern{xi64, psp};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    join({wi64, sp}, i, nelem, pattern, j, pnelem, [&](i32 f, i32 entry) {
      result.append_parametrised(operand, f, numbers[entry], hascode);
      result.close_element(pattern[entry]);
    });
  });
  return {result.atoms, i, result.elements, result.terms, j};
}

// Element-wise product, dense E: terms, code, `rptr` and `rsp`. Every entry of P makes an element, also one without
// terms; elements count from 0.
KERNEL((363), (i32 c, i32 k), write_elementwise_parameter_product_of_dense, i32 cconst, i32 code, i32 c, i32 codeptr,
       i32 cof, i32 ncodeatom, i32 nidxs, i32 k, i32 param, i32 pnelem, i32 psp, i32 ptr, i32 rcconst, i32 rcode,
       i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CF64 wf64, CI32 wi32,
       CI64 wi64, CI32 xi32, CI64 xi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const Run pattern{xi64, psp};
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 j = 0; j < pnelem; ++j) {
      result.append_parametrised(operand, pattern[j], numbers[j], hascode);
      result.close_element(pattern[j]);
    }
  });
  return {result.atoms, result.terms};
}

}  // namespace fragments
