// Evaluation of parametrised rows: their code and the parameters' current values become the triplets of a sparse
// matrix.
//
// The table of rows, read and not changed; its atoms are `code` and `cconst`:
//
//                            134                                25
//     terms of a row         row_param_ptrb, row_param_ptre     rowptrb, rowptre     i32[rows], begin and end
//     first atom of a row    row_code_ptr                       codeptr              i32[rows]
//     atoms of a term        param_code_sizes                   codesizes            i32[terms]
//     variable of a term     param_varidx                       codenidx             i64[terms]
//
// A row has no terms if its begin is not below its end. The atoms of its terms follow one another from its first atom
// on; a term of 0 atoms or less has no code.
//
// An entry takes the value at the bottom of the stack after its term's run. Nothing clears the stack, which is
// intended: a term without code takes what the run before it left there.
//
//     opcode    operand                 effect
//     1         number of a parameter   pushes its value
//     2         constant                pushes it
//     3                                 pops two, pushes their sum
//     4                                 changes the sign of the top value
//     5                                 pops two, pushes their product
//     6                                 inverts the top value
//     8         count                   pops so many, none for 0 or less, pushes their sum, added from the top down
//     others                            none; 10 is the mark of a coefficient that stands in `cof`
//
// Nothing checks depths. As many slots as the longest term has atoms are always enough; the code that operators write
// needs less, d being the greatest depth of the code that they are given:
//
//     times a number c        its code, (2, c), (5)                       d, at least 2
//     times parameter p       (2, cof), its code, (3), (1, p), (5)        d + 1
//     the same without code   (2, cof), (1, p), (5)                       2
//     no code in a sum        (2, 0.0)                                    1
//     a parameter             (1, p)                                      1
//     n terms merged          the code of all, (8, n)                     d + n - 1
//     compacted               sums in another order, (2, cof), (3)        up to its atoms
//
// - code (array; atoms): the opcode of each atom
// - k (cursor): the entries so far
// - xbase (position in xf64; the deepest run, at least 1, and `top`): the stack, bottom first
// - top (cursor): the depth at which the first run begins, normally 0; all others begin at 0, which then comes back

#include "code/machine.h"

namespace fragments {
namespace {

struct Rows {
  CI32 begin, end, first_atom, sizes;
  CI64 variables;
  CI32 code;
  CF64 cconst;
};

// entry(row, variable, value) for every term of n rows, in order. O(terms + atoms).
template <class Entry>
void evaluate(const Rows& rows, i64 n, Machine machine, i32& top, Entry entry)
{
  // Whether all terms so far were multiples of parameters: as a rule all are, or they are mixed.
  bool are_multiples = top == 0;
  for (i64 row = 0; row < n; ++row) {
    const i32 begin = rows.begin[row], end = rows.end[row];
    if (begin >= end) continue;
    machine.opcode = {rows.code, rows.first_atom[row]};
    machine.operand = {rows.cconst, rows.first_atom[row]};
    i64 t = begin;
    if (are_multiples) {
      t = machine.run_multiples(rows.sizes, begin, end,
                                [&](i64 k, f64 value) { entry(row, rows.variables[k], value); });
      are_multiples = t == end;
    }
    for (; t < end; ++t) {
      if (const i32 size = rows.sizes[t]; size > 0) machine.run(size, top);
      entry(row, rows.variables[t], machine.stack[0]);
      top = 0;
    }
  }
}

}  // namespace

// Evaluates `nrows` rows to columns and values, entry `k` first. Variables are cut to 32 bits.
//
// - nrows (count): the rows
// - rowptrb (array; rows): the first term of each row
// - rowptre (array; rows): the end of the terms of each row, exclusive
// - codeptr (array; rows): the first atom of each row
// - codesizes (array; terms): the atoms of each term
// - codenidx (array; terms): the variable of each term
KERNEL((25), (i32 k, i32 top), evaluate_rows, CF64 cconst, CI32 code, CI64 codenidx, CI32 codeptr, CI32 codesizes,
       i32 k, i32 nrows, CF64 param_value, CI32 rowptrb, CI32 rowptre, i32 xbase, i32 top, I32 subj, F64 val, F64 xf64)
{
  const Machine machine{.param_value = param_value, .stack{xf64, xbase}};
  const Rows rows{rowptrb, rowptre, codeptr, codesizes, codenidx, code, cconst};
  i64 at = k;
  evaluate(rows, nrows, machine, top, [&](i64, i64 variable, f64 value) {
    subj[at] = static_cast<i32>(variable);
    val[at] = value;
    ++at;
  });
  return {static_cast<i32>(at), top};
}

// Evaluates all rows, as many as `row_param_ptrb` has entries, to rows, columns and values, entry `k` first. Variables
// are cut to 32 bits.
KERNEL((134), (i32 k, i32 top), evaluate_all_rows, CF64 cconst, CI32 code, i32 k, CI32 param_code_sizes,
       CF64 param_value, CI64 param_varidx, CI32 row_code_ptr, CI32 row_param_ptrb, CI32 row_param_ptre, i32 xbase,
       i32 top, I32 subi, I32 subj, F64 val, F64 xf64)
{
  const Machine machine{.param_value = param_value, .stack{xf64, xbase}};
  const Rows rows{row_param_ptrb, row_param_ptre, row_code_ptr, param_code_sizes, param_varidx, code, cconst};
  i64 at = k;
  evaluate(rows, row_param_ptrb.count, machine, top, [&](i64 row, i64 variable, f64 value) {
    subi[at] = static_cast<i32>(row);
    subj[at] = static_cast<i32>(variable);
    val[at] = value;
    ++at;
  });
  return {static_cast<i32>(at), top};
}

}  // namespace fragments
