// The weighted sum of n operands of one shape, R = sum over k of w[k] * operand k. Operands are found through tables:
// `ptr_base`, `nidxs_base`, ... hold the position of the field for each operand, `nelem`, `ncodeatom`, ... its sizes.
// Terms are not merged; those of one element stand in the order of the operands.
//
// In a result with code (`hascode`) a term of an operand with code has its atoms and (2, w[k]), (5); a term of an
// operand without has the one atom (2, 0.0).
//
//     all operands   check the shapes 511, find out about code 512, copy the shape 515
//     all sparse     measure 514, write 525
//     else           measure 513; zero the counts of terms 516 and of atoms 517, count each operand with 518 or 519,
//                    add up 520 and 521, write each operand with 522 or 523, shift `rptr` back 524
//
// The result of the second path is dense. For each of its elements the terms are counted in `rptr` and, if it has code,
// the atoms in as many slots at `xpos`. Added up, both tell where an element begins; the writers move them on to where
// it ends.
//
// - n (count): the operands
// - k (index): the number of the operand
// - w (array; operands): the weight of each operand
// - code (array; operands): the position in `wi32` of each operand's opcodes; not read for one without code
// - xpos (position in xi32; elements + 1): where the atoms of each element of the result begin; the writers move each
//   on to where they end. Used in a result with code alone

#include "stack/operand_tables.h"

namespace fragments {
namespace {

// Terms and atoms of a sum, from the sizes of its operands.
void count_terms(bool hascode, i32 n, CI32 ncodeatom, CI32 nnz, i32& rncodeatom, i32& rnnz)
{
  for (i64 k = 0; k < n; ++k) {
    rnnz += nnz[k];
    if (hascode) rncodeatom += ncodeatom[k] < 1 ? nnz[k] : ncodeatom[k] + 2 * nnz[k];
  }
}

// Walks the union of the patterns of n sparse operands. For each position, ascending, stored(k, e) is called for the
// operands that store it, as their element e, and then element(position). It allocates a cursor an operand; each step
// looks at all operands once, to advance those that it meets and to find the next position.
template <class Stored, class Element>
void walk_union(i32 n, CI32 nelem, CI32 sp_base, CI64 wi64, Stored stored, Element element)
{
  constexpr i64 none = -1;
  const Scratch<i32> cursors{n};
  i64 next = none;
  const auto look_at = [&](i64 k) {
    if (cursors[k] >= nelem[k]) return;
    const i64 position = wi64[i64{sp_base[k]} + cursors[k]];
    if (next < 0 || position < next) next = position;
  };
  for (i64 k = 0; k < n; ++k) look_at(k);
  while (next >= 0) {
    const i64 position = next;
    next = none;
    for (i64 k = 0; k < n; ++k) {
      if (cursors[k] < nelem[k] && wi64[i64{sp_base[k]} + cursors[k]] == position) stored(k, cursors[k]++);
      look_at(k);
    }
    element(position);
  }
}

// Operand k as far as its terms and atoms are counted.
Operand counted_operand(CI32 ptr_base, CI32 codeptr, CI32 ncodeatom, CI32 wi32, i64 k)
{
  const bool hascode = ncodeatom[k] > 0;
  return {.ptr{wi32, ptr_base[k]}, .codeptr{wi32, hascode ? codeptr[k] : 0}, .hascode = hascode};
}

// Counts an operand into the `ptr` of a dense result: the terms of each of its elements e, which stands at position(e),
// and their atoms, which are atoms_without_code(terms) in a result with code for an operand without.
template <class Position, class Atoms>
void count_operand(bool hascode, const Operand& operand, i32 nelem, Run<i32> ptr, Run<i32> atom_ptr, Position position,
                   Atoms atoms_without_code)
{
  for (i64 e = 0; e < nelem; ++e) {
    const i64 f = position(e);
    const Terms terms = operand.terms(e);
    ptr[f + 1] += terms.count();
    if (operand.hascode) {
      atom_ptr[f + 1] += operand.atoms(terms) + 2 * terms.count();
    } else if (hascode) {
      atom_ptr[f + 1] += atoms_without_code(terms.count());
    }
  }
}

// Writes the terms of operand k at the places where `ptr` and, in a result with code, `atom_ptr` have got to for the
// element at position(e), and moves both on.
template <class Position>
void scatter_operand(Writer& result, const OperandTables& operands, i64 k, i32 nelem, CF64 w, bool hascode,
                     Run<i32> atom_ptr, Position position)
{
  with_constant(hascode, [&](auto with_code) {
    const Run ptr = operands.ptr(k);
    if (ptr[0] >= ptr[nelem]) return;
    const Operand operand = operands.operand(k, with_code);
    const f64 weight = w[k];
    for (i64 e = 0; e < nelem; ++e) {
      const i64 f = position(e);
      result.terms = result.ptr[f];
      if (with_code) result.atoms = atom_ptr[f];
      result.append_weighted(operand, e, weight, with_code);
      result.ptr[f] = result.terms;
      if (with_code) atom_ptr[f] = result.atoms;
    }
  });
}

}  // namespace

// Clears `ok` if an operand has another number of axes than operand 0, or other extents.
KERNEL((511), (bool ok), have_equal_shapes, i32 n, CI32 nd, bool ok, CI32 shape_base, CI32 wi32)
{
  for (i64 k = 1; k < n && ok; ++k) {
    ok = nd[k] == nd[0];
    for (i64 d = 0; ok && d < nd[0]; ++d) ok = wi32[shape_base[k] + d] == wi32[shape_base[0] + d];
  }
  return ok;
}

// Sets `flag` if an operand has code.
//
// - flag (flag): whether the sum has code
KERNEL((512), (bool flag), has_code, bool flag, i32 n, CI32 ncodeatom)
{
  for (i64 k = 0; k < n; ++k) flag |= ncodeatom[k] > 0;
  return flag;
}

// Measures a dense sum, whose elements are those of its shape: adds the terms of all operands and, if `hascode`, the
// atoms. A term of an operand without code counts one atom, one of an operand with code two beyond its own.
KERNEL((513), (i32 rncodeatom, i32 rnnz), measure_dense_sum_of_operands, bool hascode, i32 n, CI32 ncodeatom, CI32 nnz,
       i32 rncodeatom, i32 rnnz)
{
  count_terms(hascode, n, ncodeatom, nnz, rncodeatom, rnnz);
  return {rncodeatom, rnnz};
}

// Measures a sum of sparse operands: adds the elements of the union of their patterns, the terms of all operands and,
// if `hascode`, the atoms. A term of an operand without code counts one atom, one of an operand with code two beyond
// its own. Allocates a cursor an operand; every element of the union costs a look at each operand.
KERNEL((514), (i32 rncodeatom, i32 rnelem, i32 rnnz), measure_sparse_sum_of_operands, bool hascode, i32 n,
       CI32 ncodeatom, CI32 nelem, CI32 nnz, i32 rncodeatom, i32 rnelem, i32 rnnz, CI32 sp_base, CI64 wi64)
{
  count_terms(hascode, n, ncodeatom, nnz, rncodeatom, rnnz);
  walk_union(
      n, nelem, sp_base, wi64, [](i64, i32) {}, [&](i64) { ++rnelem; });
  return {rncodeatom, rnelem, rnnz};
}

// Counts the terms and atoms of sparse operand k for a dense sum: adds those of the element at flat position f to slot
// f+1 of `rptr` and of `xpos`. An operand without code in a result with code counts one atom an element, not one a
// term; this is intended.
KERNEL((518), (), count_sparse_operand, bool hascode, CI32 codeptr, i32 k, CI32 ncodeatom, CI32 nelem, CI32 ptr_base,
       I32 ri32, i32 rptr, CI32 sp_base, CI32 wi32, CI64 wi64, i32 xpos, I32 xi32)
{
  if (nelem[k] < 1) return;
  const Operand operand = counted_operand(ptr_base, codeptr, ncodeatom, wi32, k);
  const Run pattern{wi64, sp_base[k]};
  count_operand(
      hascode, operand, nelem[k], {ri32, rptr}, {xi32, xpos}, [&](i64 e) { return pattern[e]; }, [](i32) { return 1; });
}

// Counts the terms and atoms of dense operand k for a dense sum: adds those of element e to slot e+1 of `rptr` and of
// `xpos`. An operand without code in a result with code counts one atom a term.
KERNEL((519), (), count_dense_operand, bool hascode, CI32 codeptr, i32 k, CI32 ncodeatom, CI32 nelem, CI32 ptr_base,
       I32 ri32, i32 rptr, CI32 wi32, i32 xpos, I32 xi32)
{
  if (nelem[k] < 1) return;
  const Operand operand = counted_operand(ptr_base, codeptr, ncodeatom, wi32, k);
  count_operand(
      hascode, operand, nelem[k], {ri32, rptr}, {xi32, xpos}, [](i64 e) { return e; }, [](i32 terms) { return terms; });
}

// Writes sparse operand k into a dense sum: its terms, times w[k], where `rptr` and `xpos` have got to for the element
// at their flat position, and moves both on. `rcodeptr[0]` is the caller's.
KERNEL((522), (), write_sparse_operand, bool hascode, CI32 cconst, CI32 code, CI32 codeptr, CI32 cof_base, i32 k,
       CI32 ncodeatom, CI32 nelem, CI32 nidxs_base, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, CI32 sp_base, CF64 w, CF64 wf64, CI32 wi32, CI64 wi64,
       i32 xpos, I32 xi32)
{
  if (nelem[k] < 1) return;
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, {wi32, wi64, wf64}};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst);
  const Run pattern{wi64, sp_base[k]};
  scatter_operand(result, operands, k, nelem[k], w, hascode, {xi32, xpos}, [&](i64 e) { return pattern[e]; });
}

// Writes dense operand k into a dense sum: its terms, times w[k], where `rptr` and `xpos` have got to for their
// element, and moves both on. `rcodeptr[0]` is the caller's.
KERNEL((523), (), write_dense_operand, bool hascode, CI32 cconst, CI32 code, CI32 codeptr, CI32 cof_base, i32 k,
       CI32 ncodeatom, CI32 nelem, CI32 nidxs_base, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, CF64 w, CF64 wf64, CI32 wi32, CI64 wi64, i32 xpos, I32 xi32)
{
  if (nelem[k] < 1) return;
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, {wi32, wi64, wf64}};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst);
  scatter_operand(result, operands, k, nelem[k], w, hascode, {xi32, xpos}, [](i64 e) { return e; });
}

// Writes a sum of sparse operands from its first element on: an element for each flat position in the union of their
// patterns, also one without terms. `rptr[0]` and `rcodeptr[0]` are the caller's. Allocates a cursor an operand; every
// element of the union costs a look at each operand.
KERNEL((525), (), write_sparse_sum_of_operands, bool hascode, CI32 cconst, CI32 code, CI32 codeptr, CI32 cof_base,
       i32 n, CI32 ncodeatom, CI32 nelem, CI32 nidxs_base, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CI32 sp_base, CF64 w, CF64 wf64,
       CI32 wi32, CI64 wi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, {wi32, wi64, wf64}};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  with_constant(hascode, [&](auto with_code) {
    walk_union(
        n, nelem, sp_base, wi64,
        [&](i64 k, i32 e) {
          const Run ptr = operands.ptr(k);
          if (ptr[e] < ptr[i64{e} + 1]) result.append_weighted(operands.operand(k, with_code), e, w[k], with_code);
        },
        [&](i64 position) { result.close_element(position); });
  });
}

}  // namespace fragments
