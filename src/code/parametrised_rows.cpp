// The table of parametrised rows: filing the parametrised terms of an evaluated expression by constraint row, taking
// rows out, and the sizes of both.
//
//     row_param_ptrb, row_param_ptre  i32[rows]   first term and end of a row; both 0 if it has none
//     row_code_ptr                    i32[rows]   first atom of a row
//     param_code_sizes                i32[terms]  atoms of a term
//     param_varidx                    i64[terms]  variable of a term
//     code, cconst                    i32[atoms], f64[atoms]
//
// Rows are appended behind the terms and atoms that the table has. A row that is taken out leaves a hole, and the
// counters then only tell how much is in use. Element i of the expression, whose fields lie on the r stack, is row
// `nativeidxs[i]`.
//
//     file rows       measure 135, grow the arrays 140 to 143, lay out 136, copy 137
//     replace rows    take out 138, or 139 and 144, then file
//     evaluate        134
//
// A term is left out if it is trivial: one atom that is a constant, or the mark of a constant that stands in `cof`. A
// term without atoms isn't trivial and is filed with size 0.
//
// - k (cursor): the terms of the table
// - c (cursor): the atoms of the table
// - nativeidxs (array; nelem): the row of each element
// - capacity (value): the slots of a growable array; with 0 or less the kernel may never end
// - need (size): the slots that are needed

#include <algorithm>

#include "code/opcodes.h"
#include "frame/copy_run.h"

namespace fragments {
namespace {

// The terms of a record whose coefficients are code.
struct ParametrisedTerms {
  Run<const i32> ptr;
  Run<const i32> codeptr;
  Run<const i32> code;  // something that is there in a record without any atom

  ParametrisedTerms(CI32 ri32, i32 ptr_at, i32 codeptr_at, i32 code_at, i32 nelem)
      : ptr(ri32, ptr_at), codeptr(ri32, codeptr_at), code(ri32, code_at)
  {
    // Without any term there may be no `codeptr` either.
    if (nelem > 0 && ptr[nelem] > 0 && codeptr[ptr[nelem]] == 0) code = codeptr;
  }

  // Whether a term is trivial whose only atom is this.
  static bool is_trivial(i32 opcode) { return (opcode == push_constant) | (opcode == moved_to_cof); }

  // Counts those of the terms b .. e-1 that are filed, and their atoms. Branches that data decides would take four
  // times as long, so that an opcode is read of every term; of one without atoms, which may be the last, that before
  // it.
  void count(i64 b, i64 e, i32& terms, i32& atoms) const
  {
    for (i64 t = b; t < e; ++t) {
      const i32 first = codeptr[t], n = codeptr[t + 1] - first;
      const i32 is_filed = ((n == 1) & is_trivial(code[std::max(first - (n == 0), 0)])) ^ 1;
      terms += is_filed;
      atoms += is_filed * n;
    }
  }
};

i32 atoms_of_row(CI32 param_code_sizes, i32 begin, i32 end)
{
  i32 atoms = 0;
  for (i64 t = begin; t < end; ++t) atoms += param_code_sizes[t];
  return atoms;
}

// Clears a row's entries and returns the number of its terms.
i32 take_out_row(I32 row_param_ptrb, I32 row_param_ptre, i32 row)
{
  const i32 terms = row_param_ptre[row] - row_param_ptrb[row];
  row_param_ptrb[row] = 0;
  row_param_ptre[row] = 0;
  return terms;
}

// The capacity, doubled until there is room for `need` above `top`. With a capacity of 0 or less it never ends.
i32 grown(i32 capacity, i32 top, i32 need)
{
  while (wrapping_sub(capacity, top) < need) capacity = wrapping_add(capacity, capacity);
  return capacity;
}

}  // namespace

// Counts the terms to file and their atoms, on top of `k` and `c`.
KERNEL((135), (i32 k, i32 c), count_parametrised_terms, i32 code, i32 codeptr, i32 nelem, i32 k, i32 c, i32 ptr,
       CI32 ri32)
{
  const ParametrisedTerms terms(ri32, ptr, codeptr, code, nelem);
  // All elements at once: their terms follow one another.
  if (nelem > 0) terms.count(terms.ptr[0], terms.ptr[nelem], k, c);
  return {k, c};
}

// Gives every row with terms to file its stretch of terms and atoms. The entries of other rows stay as they are.
KERNEL((136), (i32 c, i32 k), lay_out_rows, i32 code, i32 codeptr, i32 c, i32 k, CI32 nativeidxs, i32 nelem, i32 ptr,
       CI32 ri32, I32 row_code_ptr, I32 row_param_ptrb, I32 row_param_ptre)
{
  const ParametrisedTerms terms(ri32, ptr, codeptr, code, nelem);
  for (i64 i = 0; i < nelem; ++i) {
    i32 n = 0, m = 0;
    terms.count(terms.ptr[i], terms.ptr[i + 1], n, m);
    if (n == 0) continue;
    const i32 row = nativeidxs[i];
    row_param_ptrb[row] = k;
    row_param_ptre[row] = k + n;
    row_code_ptr[row] = c;
    k += n;
    c += m;
  }
  return {c, k};
}

// Copies the terms and atoms of every row into the stretch that 136 gave it.
//
// - code (array; atoms): the opcodes of the table
// - codepos (position in ri32; atoms): the opcodes of the expression
// - cconstpos (position in rf64; atoms): their constants
// - allnonneg (flag): comes back false if it came in false or a variable that is filed is negative, as the placeholder
//   of a missing variable is
KERNEL((137), (bool allnonneg), file_rows, F64 cconst, i32 cconstpos, I32 code, i32 codepos, i32 codeptr,
       CI32 nativeidxs, i32 nelem, i32 nidxs, bool allnonneg, I32 param_code_sizes, I64 param_varidx, i32 ptr,
       CF64 rf64, CI32 ri32, CI64 ri64, CI32 row_code_ptr, CI32 row_param_ptrb)
{
  const ParametrisedTerms terms(ri32, ptr, codeptr, codepos, nelem);
  const Run operands{rf64, cconstpos};
  const Run variables{ri64, nidxs};
  for (i64 i = 0; i < nelem; ++i) {
    const i64 begin = terms.ptr[i], end = terms.ptr[i + 1];
    if (begin >= end) continue;
    const i32 row = nativeidxs[i];
    i64 p = row_code_ptr[row], q = row_param_ptrb[row];
    for (i64 t = begin; t < end; ++t) {
      const i32 first = terms.codeptr[t], atoms = terms.codeptr[t + 1] - first;
      if (atoms == 1 && terms.is_trivial(terms.code[first])) continue;
      copy_run(Run{code, p}, terms.code.from(first), atoms);
      copy_run(Run{cconst, p}, operands.from(first), atoms);
      p += atoms;
      param_code_sizes[q] = atoms;
      param_varidx[q] = variables[t];
      allnonneg &= variables[t] >= 0;
      ++q;
    }
  }
  return allnonneg;
}

// Takes out rows, and their atoms and terms off `c` and `k`. There is no table if `row_param_ptrb` is None.
//
// - nativeidxs (array; its length counts): the rows
KERNEL((138), (i32 c, i32 k), take_out_rows, i32 c, CI32 nativeidxs, CI32 param_code_sizes, I32 row_param_ptrb,
       I32 row_param_ptre, i32 k)
{
  if (!row_param_ptrb.data) return {c, k};
  for (i64 i = 0; i < nativeidxs.count; ++i) {
    const i32 row = nativeidxs[i];
    c -= atoms_of_row(param_code_sizes, row_param_ptrb[row], row_param_ptre[row]);
    k -= take_out_row(row_param_ptrb, row_param_ptre, row);
  }
  return {c, k};
}

// Adds the atoms of one row to a count.
//
// - c (start): what the atoms are added to
KERNEL((139), (i32 c), add_atoms_of_row, i32 c, i32 row, CI32 param_code_sizes, CI32 row_param_ptrb,
       CI32 row_param_ptre)
{
  return c + atoms_of_row(param_code_sizes, row_param_ptrb[row], row_param_ptre[row]);
}

// Takes out rows and their terms off `k`; the count of atoms is the caller's. There is no table if `row_code_ptr` is
// None, which is all that it is asked for.
//
// - nelem (count): the rows
KERNEL((144), (i32 k), take_out_terms, i32 k, CI32 nativeidxs, i32 nelem, CI32 row_code_ptr, I32 row_param_ptrb,
       I32 row_param_ptre)
{
  if (!row_code_ptr.data) return k;
  for (i64 i = 0; i < nelem; ++i) k -= take_out_row(row_param_ptrb, row_param_ptre, nativeidxs[i]);
  return k;
}

// The capacity of a growable array, doubled until it is at least `need`.
KERNEL((140), (i32 capacity), grown_capacity, i32 capacity, i32 need)
{
  return grown(capacity, 0, need);
}

// The capacity of a growable array, doubled until it is at least `need`, which comes first.
KERNEL((141), (i32 capacity), capacity_for_need, i32 need, i32 capacity)
{
  return grown(capacity, 0, need);
}

// The capacity of a growable array, doubled until there is room for `need` slots more.
//
// - top (size): the slots that are filled
KERNEL((142), (i32 capacity), grown_capacity_above_top, i32 top, i32 capacity, i32 need)
{
  return grown(capacity, top, need);
}

// The capacity of a growable array, doubled until there is room for `need` slots more, which come first.
//
// - top (size): the slots that are filled
KERNEL((143), (i32 capacity), capacity_for_need_above_top, i32 need, i32 top, i32 capacity)
{
  return grown(capacity, top, need);
}

}  // namespace fragments
