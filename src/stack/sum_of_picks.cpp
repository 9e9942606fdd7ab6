// The weighted sum of chosen elements of an operand, one element: the sum over k of vcof[k] * E(vsub[k]). `vsub`
// ascends strictly; elements that a sparse operand does not store add nothing. Terms are scaled as in the matrix
// product: neither merged nor dropped, with (2, factor) and (5) behind their code.
//
//     strides of the operand 449, flat positions from rows of coordinates 450; check 446, measure 447, write 448
//
// 447 and 448 take O(elements chosen + nelem), or O(elements chosen) with a dense operand, and 448 the terms beside.
//
// - vsub (array; elements chosen): the flat position of each chosen element, strictly ascending
// - vcof (array; elements chosen): the weight of each chosen element

#include "index/shape.h"
#include "stack/find_stored.h"
#include "stack/record.h"

namespace fragments {

// The row-major strides of a shape: s[d] = s[d+1] * shape[d+1] for d from nd-2 down to 0; s[nd-1] is the caller's,
// which sets it to 1.
KERNEL((449), (), write_strides_of_picks, i32 nd, I64 s, CI32 shape)
{
  row_major_strides(s, shape, nd);
}

// Adds the flat position of row r of coordinates, the sum of vsub[r, d] * s[d], to res[r].
//
// - res (array; rows): the flat positions; callers pass zeros
// - vsub (array; rows x axes): the coordinates of the chosen elements, one element a row
KERNEL((450), (), add_flat_positions, i32 nd, I64 res, CI64 s, CI32x2 vsub)
{
  with_axis_count(nd, [&](auto axes) {
    for (i64 r = 0; r < vsub.rows; ++r) res[r] = flat_position(Row{vsub, r}, s, axes, res[r]);
  });
}

// Counts the terms of the result on from `rnnz`. It has two atoms a term more than the chosen elements have.
KERNEL((447), (i32 rnnz), count_terms_of_picks, bool hassp, i32 nelem, i32 ptr, i32 rnnz, i32 sp, CI64 vsub, CI32 wi32,
       CI64 wi64)
{
  const Run ends{wi32, ptr};
  find_stored(vsub, hassp, Run{wi64, sp}, nelem, [&](i32, i64 f) { rnnz += ends[f + 1] - ends[f]; });
  return rnnz;
}

// Writes the terms of the one element, from term `nzi` and atom `codei` on; `rptr` and `rcodeptr[0]` are the caller's.
//
// - rncodeatom (size): the atoms of the result; above 0 it has code
KERNEL((448), (i32 codei, i32 nzi), write_sum_of_picks, i32 cconst, i32 code, i32 codei, i32 codeptr, i32 cof,
       bool hassp, i32 nelem, i32 nidxs, i32 nzi, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rncodeatom, i32 rnidxs, i32 sp, CF64 vcof, CI64 vsub, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.term_writer(rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = nzi, .atoms = codei});
  with_constant(rncodeatom > 0, [&](auto hascode) {
    find_stored(vsub, hassp, Run{wi64, sp}, nelem,
                [&](i32 k, i64 f) { result.append_scaled(operand, f, vcof[k], hascode); });
  });
  return {result.atoms, result.terms};
}

}  // namespace fragments
