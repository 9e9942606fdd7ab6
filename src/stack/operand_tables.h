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
    Operand operand{.ptr{w.i32s, ptr_base[k]}};
    if (operand.terms(b, e).count() <= 0) return operand;
    operand.nidxs = {w.i64s, nidxs_base[k]};
    operand.cof = {w.f64s, cof_base[k]};
    if (hascode && ncodeatom[k] > 0) {
      operand.codeptr = {w.i32s, codeptr[k]};
      operand.code = {w.i32s, code[k]};
      operand.cconst = {w.f64s, cconst[k]};
      operand.hascode = true;
    }
    return operand;
  }
};

}  // namespace fragments
