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
    Operand operand{.ptr = i32s.from(ptr_base[k])};
    if (operand.terms(b, e).count() <= 0) return operand;
    operand.nidxs = Run{w.i64s, 0}.from(nidxs_base[k]);
    operand.cof = Run{w.f64s, 0}.from(cof_base[k]);
    if (hascode && ncodeatom[k] > 0) {
      operand.codeptr = i32s.from(codeptr[k]);
      operand.code = i32s.from(code[k]);
      operand.cconst = Run{w.f64s, 0}.from(cconst[k]);
      operand.hascode = true;
    }
    return operand;
  }
};

}  // namespace fragments
