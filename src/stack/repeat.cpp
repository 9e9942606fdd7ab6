// Repetition: n copies of an operand one behind the other along the axis `dim`, whose extent becomes `rdim`. The shape
// around `dim` is folded to three extents, d0 before it, d1 of the axis itself and d2 behind it, so that element
// (a, b, g) has the flat position (a*d1 + b)*d2 + g.
//
//     write 426; without a measuring kernel, since all sizes are n times the operand's

#include "index/pattern_runs.h"
#include "index/slots.h"
#include "stack/record.h"

namespace fragments {

// Writes all of the result, `rptr[0]` and, with `rhascode`, `rcodeptr[0]` included. Elements that have one `a` repeat
// together, so that each copy of them moves as one run.
//
// - n (count): the copies
// - d0 (extent): the product of the extents before `dim`
// - d1 (extent): the operand's extent along `dim`
// - d2 (extent): the product of the extents behind `dim`
// - rdim (extent): the result's extent along `dim`, n * d1
KERNEL((426), (), repeat, i32 cconst, i32 code, i32 codeptr, i32 cof, i32 d0, i32 d1, i32 d2, i32 dim, bool hassp,
       i32 n, i32 ncodeatom, i32 nd, i32 nelem, i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       i32 rdim, F64 rf64, I32 ri32, I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, i32 shape,
       i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  const Run extents{ri32, rshape};
  copy_slots(extents, Run{wi32, shape}, nd);
  extents[dim] = rdim;
  result.ptr[0] = 0;
  if (rhascode > 0) result.codeptr[0] = 0;

  const i64 block = i64{d1} * d2;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    if (!hassp) {
      for (i64 a = 0; a < d0; ++a) {
        for (i32 copy = 0; copy < n; ++copy) result.append_elements(operand, a * block, (a + 1) * block, hascode);
      }
      return;
    }
    const Run pattern{wi64, sp};
    for_each_row_run(pattern, nelem, block, [&](i64 a, i32 b, i32 e) {
      for (i64 copy = 0; copy < n; ++copy) {
        const i64 shift = (d1 * copy + a * rdim) * d2 - a * block;
        copy_run(result.sp.from(result.elements), pattern.from(b), e - b, [shift](auto f) { return shift + f; });
        result.append_elements(operand, b, e, hascode);
      }
    });
  });
}

}  // namespace fragments
