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
    const Run<const i32> ptr{w.i32s, ptr_base[k]};
    const bool has_terms = ptr[b] < ptr[e];
    if (hascode && has_terms && ncodeatom[k] > 0) {
      // Made as a whole: clearing it first takes a quarter of a short element's time.
      return {.ptr = ptr,
              .nidxs{w.i64s, nidxs_base[k]},
              .cof{w.f64s, cof_base[k]},
              .codeptr{w.i32s, codeptr[k]},
              .code{w.i32s, code[k]},
              .cconst{w.f64s, cconst[k]},
              .hascode = true};
    }
    Operand operand{.ptr = ptr};
    if (!has_terms) return operand;
    operand.nidxs = {w.i64s, nidxs_base[k]};
    operand.cof = {w.f64s, cof_base[k]};
    return operand;
  }
};

}  // namespace fragments
