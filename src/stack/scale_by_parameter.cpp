// A parameter times an expression, and an array of parameters times a single element. The structure of the expression
// stays, and all coefficients become code: (2, cof), the term's own atoms and (3) if the operand has code, (1,
// parameter), (5). So a term costs 3 atoms, or 4 and its own.
//
//     array times element      zero `rcof` 333, `rptr` 334, `rnidxs` 336, code 337
//     parameter times record   write 338
//
// No kernel measures them. The result has code, whether the operand has any or not.

#include "index/slots.h"
#include "stack/copy_structure.h"
#include "stack/record.h"

namespace fragments {

// The code of an array of `n` parameters times an operand of one element with `nnz` terms: element i of the result has
// all of the operand's terms times parameter i. It makes n * nnz terms, with 3 * n * nnz atoms, or with
// n * (4 * nnz + ncodeatom) if the operand has code. The other fields are filled beforehand: `rcof` 0, `rptr` the
// multiples of `nnz`, `rnidxs` n copies of the operand's; `rcodeptr[0]` is the caller's.
//
// - param (position in xi32; n): the numbers of the parameters
// - n (count): the parameters
KERNEL((337), (), write_parameters_times_element_code, i32 cconst, i32 code, i32 cof, i32 ncodeatom, i32 nnz, i32 param,
       i32 codeptr, i32 rcconst, i32 rcode, i32 rcodeptr, F64 rf64, I32 ri32, i32 n, CF64 wf64, CI32 wi32, CI32 xi32)
{
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coded_terms(cof, codeptr, code, cconst);
  const Run numbers{xi32, param};
  const ResultArrays r{ri32, {}, rf64};
  Writer result = r.code_writer(rcodeptr, rcode, rcconst);
  if (ncodeatom <= 0) {
    for (i64 i = 0; i < n; ++i) {
      for (i64 t = 0; t < nnz; ++t) result.append_parametrised_code(operand, t, numbers[i], std::false_type{});
    }
    return;
  }
  if (n <= 0 || nnz <= 0) return;
  for (i64 t = 0; t < nnz; ++t) result.append_parametrised_code(operand, t, numbers[0], std::true_type{});
  // All elements have the same opcodes at the same distances, so that these are copied: half the time of writing atom
  // by atom. Operands are not, since those of operators stay unwritten.
  const i32 atoms = result.atoms;
  for (i32 i = 1; i < n; ++i) {
    const i32 shift = i * atoms;
    const Run cconst_of_element = result.cconst.from(shift);
    copy_run(result.code.from(shift), result.code, atoms);
    copy_run(result.codeptr.from(i64{i} * nnz + 1), result.codeptr.from(1), nnz, [=](auto end) { return end + shift; });
    i64 a = 0;
    for (i64 t = 0; t < nnz; ++t) {
      cconst_of_element[a++] = operand.cof[t];
      const i64 e = operand.codeptr[t + 1];
      for (i64 b = operand.codeptr[t]; b < e; ++b) {
        stay_scalar(b);
        cconst_of_element[a++] = operand.cconst[b];
      }
      cconst_of_element[a + 1] = numbers[i];
      a += 3;
    }
  }
}

// A parameter times an expression: all fields of the result. It has the elements and terms of the operand, and 3 * nnz
// atoms, or 4 * nnz + ncodeatom if the operand has code.
//
// - p (index): the number of the parameter
// - rhascode (flag): above 0 if `rcodeptr[0]` is to be set to 0; the code is written in any case
// - rnelem (count): the stored elements of the operand and of the result
// - rnnz (count): the terms of the result, `nnz`
KERNEL((338), (), write_parameter_times_expression, i32 cconst, i32 code, i32 cof, i32 ncodeatom, i32 nidxs, i32 nnz,
       i32 p, i32 ptr, i32 codeptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, bool hassp, I32 ri32,
       I64 ri64, i32 rhascode, i32 rnd, i32 rnelem, i32 rnidxs, i32 rnnz, i32 rptr, i32 rshape, i32 rsp, i32 shape,
       i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.coded_terms(cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.code_writer(rcodeptr, rcode, rcconst);
  fill_slots(Run{rf64, rcof}, rnnz, 0.0);
  copy_structure(r, {rshape, rsp, rptr, rnidxs}, w, {shape, sp, ptr, nidxs}, {rnd, rnelem, nnz}, hassp);
  if (rhascode > 0) result.codeptr[0] = 0;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 t = 0; t < nnz; ++t) result.append_parametrised_code(operand, t, p, hascode);
  });
}

}  // namespace fragments
