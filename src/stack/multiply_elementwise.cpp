// Products with constants element by element: R(f) = M(f) * E(f), M being the pattern `msp` with the values `mcof`, and
// R = c * E. Terms are scaled as in the matrix product: (2, factor) and (5) stand behind their code.
//
//     constant array   check 460, measure 461, write 463; the result is sparse, with the elements that M and E store
//     scalar           write 464; the result has the operand's sizes, and with code two atoms more a term
//
// - msp (array; entries): the flat position of each entry of M, strictly ascending
// - mcof (array; entries): the value of each entry of M

#include "index/slots.h"
#include "stack/copy_structure.h"
#include "stack/find_stored.h"
#include "stack/record.h"

namespace fragments {

// Measures the product with a constant array: an element for each entry of M whose element the operand stores.
// O(entries of M + nelem).
KERNEL((461), (i32 rncodeatom, i32 rnelem, i32 rnnz), measure_elementwise_product, i32 codeptr, bool hassp, CI64 msp,
       i32 ncodeatom, i32 nelem, i32 ptr, i32 rncodeatom, i32 rnelem, i32 rnnz, i32 sp, CI32 wi32, CI64 wi64)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});
  find_stored(msp, hassp, Run{wi64, sp}, nelem, [&](i32, i64 f) {
    size.append_scaled(f);
    size.close_element();
  });
  return {size.atoms, size.elements, size.terms};
}

// Writes the product with a constant array: all of the record, with `rnd` extents, `rptr[0]` and, if the operand has
// code, `rcodeptr[0]`. Every entry of M whose element the operand stores makes an element, also without terms.
// O(entries of M + nelem + terms).
//
// - rncodeatom (size): the atoms of the result; above 0 it has code
KERNEL((463), (), write_elementwise_product, i32 cconst, i32 code, i32 codeptr, i32 cof, bool hassp, CF64 mcof,
       CI64 msp, i32 ncodeatom, i32 nelem, i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rncodeatom, i32 rnd, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, i32 shape, i32 sp,
       CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  copy_slots(Run{ri32, rshape}, Run{wi32, shape}, rnd);
  if (ncodeatom > 0) result.codeptr[0] = 0;
  result.ptr[0] = 0;
  with_constant(rncodeatom > 0, [&](auto hascode) {
    find_stored(msp, hassp, Run{wi64, sp}, nelem, [&](i32 k, i64 f) {
      result.append_scaled(operand, f, mcof[k], hascode);
      result.close_element(msp[k]);
    });
  });
}

// Writes the product with a scalar: all of the record but `rcodeptr[0]`. It has the operand's elements and terms, and
// if the operand has code, ncodeatom + 2 * nnz atoms.
//
// - c (factor): the scalar
KERNEL((464), (), write_scalar_product, f64 c, i32 cconst, i32 code, i32 codeptr, i32 cof, bool hassp, i32 ncodeatom,
       i32 nd, i32 nelem, i32 nidxs, i32 nnz, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, i32 shape, i32 sp, CF64 wf64, CI32 wi32,
       CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const ResultArrays r{ri32, ri64, rf64};
  copy_structure(r, {rshape, rsp, rptr, rnidxs}, w, {shape, sp, ptr, nidxs}, {nd, nelem, nnz}, hassp);
  scale_slots(Run{rf64, rcof}, Run{wf64, cof}, nnz, c);
  if (ncodeatom > 0) {
    Writer result = r.code_writer(rcodeptr, rcode, rcconst);
    result.append_scaled_code(w.coded_terms(cof, codeptr, code, cconst), Terms{0, nnz}, c);
  }
}

}  // namespace fragments
