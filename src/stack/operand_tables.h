// Operands of an operator that takes any number of them: tables hold a position or a size for each.
#pragma once

#include "stack/record.h"

namespace fragments {

struct OperandTables {
  CI32 ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom;
  StackArrays w;

  // Operand k, as far as its elements b .. e-1 are copied: without terms among them, the other tables are not read. Its
  // code is looked up only in a result with code.
  template <class Flag>
  Operand operand(i64 k, i64 b, i64 e, Flag hascode) const
  {
    // No array that is read is None, which a run from a position would have to test for.
    const Run i32s{w.i32s, 0};
    const Run i64s{w.i64s, 0};
    const Run f64s{w.f64s, 0};
    const auto ptr = i32s.from(ptr_base[k]);
    if (ptr[b] >= ptr[e]) return {.ptr = ptr};
    if (hascode && ncodeatom[k] > 0) {
      // Made as a whole: clearing it first takes a quarter of a short element's time.
      return {.ptr = ptr,
              .nidxs = i64s.from(nidxs_base[k]),
              .cof = f64s.from(cof_base[k]),
              .codeptr = i32s.from(codeptr[k]),
              .code = i32s.from(code[k]),
              .cconst = f64s.from(cconst[k]),
              .hascode = true};
    }
    return {.ptr = ptr, .nidxs = i64s.from(nidxs_base[k]), .cof = f64s.from(cof_base[k])};
  }
};

}  // namespace fragments
