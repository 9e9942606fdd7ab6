// Operands of an operator that takes any number of them: tables hold a position or a size for each.
#pragma once

#include "stack/record.h"

namespace fragments {

struct OperandTables {
  CI32 ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom;
  StackArrays w;

  // The `ptr` of operand k. No array that is read is None, which a run from a position would have to test for.
  Run<const i32> ptr(i64 k) const { return Run{w.i32s, 0}.from(ptr_base[k]); }

  // Operand k, of which terms are copied: without any the other tables are not read. Its code is looked up only in a
  // result with code.
  template <class Flag>
  Operand operand(i64 k, Flag hascode) const
  {
    // Without code the runs of the code begin at slot 0: their strides are known then, whichever operand it is.
    const bool coded = hascode && ncodeatom[k] > 0;
    const auto start = [&](const CI32& table) { return coded ? table[k] : 0; };
    const Run i32s{w.i32s, 0};
    const Run i64s{w.i64s, 0};
    const Run f64s{w.f64s, 0};
    return {.ptr = ptr(k),
            .nidxs = i64s.from(nidxs_base[k]),
            .cof = f64s.from(cof_base[k]),
            .codeptr = i32s.from(start(codeptr)),
            .code = i32s.from(start(code)),
            .cconst = f64s.from(start(cconst)),
            .atom_slots = w.atom_slots(start(code), start(cconst)),
            .hascode = coded};
  }
};

}  // namespace fragments
