// Evaluation of parametrised rows: their code and the parameters' current values become the triplets of a sparse
// matrix.
//
// The table of rows, read and not changed:
//
//     begin, end of a row    i32[rows]    row i has the terms begin[i] .. end[i]-1; none if begin is not below end
//     first atom of a row    i32[rows]    the atoms of its terms follow one another from there on
//     atoms of a term        i32[terms]   0 or less for a term without code
//     variable of a term     i64[terms]
//     code, cconst           i32[atoms], f64[atoms]
//
// An entry takes the value at the bottom of the stack, slot `xbase` of `xf64`, after its term's run. Nothing clears the
// stack, which is intended: a term without code takes what the run before it left there. `top` is the depth at which
// the first run begins, 0 unless the caller wants it shifted; all others begin at 0.
//
// `k` counts entries. It comes back with the final depth.

#include "code/machine.h"

namespace fragments {
namespace {

struct Rows {
  CI32 begin, end, first_atom, sizes;
  I64 variables;
  I32 code;
  F64 cconst;
};

// entry(row, variable, value) for every term of n rows, in order. O(terms + atoms).
template <class Entry>
void evaluate(const Rows& rows, i64 n, Machine machine, i32& top, Entry entry)
{
  for (i64 row = 0; row < n; ++row) {
    const i32 begin = rows.begin[row], end = rows.end[row];
    if (begin >= end) continue;
    machine.opcode = {rows.code, rows.first_atom[row]};
    machine.operand = {rows.cconst, rows.first_atom[row]};
    for (i64 t = begin; t < end; ++t) {
      if (const i32 size = rows.sizes[t]; size > 0) machine.run(size, top);
      entry(row, rows.variables[t], machine.stack[0]);
      top = 0;
    }
  }
}

}  // namespace

// Evaluates the first `nrows` rows to columns and values. Variables are cut to 32 bits.
KERNEL((25), (i32, i32), evaluate_rows, F64 cconst, I32 code, I64 codenidx, CI32 codeptr, CI32 codesizes, i32 k,
       i32 nrows, F64 param_value, CI32 rowptrb, CI32 rowptre, i32 xbase, i32 top, I32 subj, F64 val, F64 xf64)
{
  const Machine machine{.param_value = param_value, .stack{xf64, xbase}};
  const Rows rows{rowptrb, rowptre, codeptr, codesizes, codenidx, code, cconst};
  evaluate(rows, nrows, machine, top, [&](i64, i64 variable, f64 value) {
    subj[k] = static_cast<i32>(variable);
    val[k] = value;
    ++k;
  });
  return {k, top};
}

// Evaluates all rows, as many as `row_param_ptrb` has entries, to rows, columns and values.
KERNEL((134), (i32, i32), evaluate_all_rows, F64 cconst, I32 code, i32 k, CI32 param_code_sizes, F64 param_value,
       I64 param_varidx, CI32 row_code_ptr, CI32 row_param_ptrb, CI32 row_param_ptre, i32 xbase, i32 top, I32 subi,
       I32 subj, F64 val, F64 xf64)
{
  const Machine machine{.param_value = param_value, .stack{xf64, xbase}};
  const Rows rows{row_param_ptrb, row_param_ptre, row_code_ptr, param_code_sizes, param_varidx, code, cconst};
  evaluate(rows, row_param_ptrb.count, machine, top, [&](i64 row, i64 variable, f64 value) {
    subi[k] = static_cast<i32>(row);
    subj[k] = static_cast<i32>(variable);
    val[k] = value;
    ++k;
  });
  return {k, top};
}

}  // namespace fragments
