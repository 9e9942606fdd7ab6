// Compaction: drops the terms whose coefficient is zero, once 380 has folded their code. The folded code lies on the x
// stack; the atom 10 alone is the code of a term whose coefficient is all in `cof`.
//
//     is it needed at all?   396 copies a record if every term is alive 395 and their order is right 394
//     compaction             measure 386, does the result need a pattern 387, write 390
//     nothing to drop        389 finishes a result that is on r already
//
// An element whose terms all drop stays in a dense result, without terms, and leaves a sparse one. A NaN in `cof`
// counts as zero when terms are dropped, so that it is lost, but as alive when it is asked whether any must be; both
// are intended.
//
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far

#include <algorithm>

#include "index/shape.h"
#include "index/slots.h"
#include "stack/record.h"

namespace fragments {
namespace {

// Terms whose coefficients are tested together.
constexpr i64 block = 64;

// Whether one of `block` coefficients from term t on is zero; NaN isn't.
bool has_zero(Run<const f64> cof, i64 t)
{
  const auto is_zero = [](auto c) { return c == 0.0; };
  const Run<const f64> run = cof.from(t);
  run.bounds.check_run(block);
  if (run.stride != 1) {
    bool found = false;
    for (i64 k = 0; k < block; ++k) found |= is_zero(run[k]);
    return found;
  }
  PairOf<i64>::type zeros{};
  for (i64 k = 0; k < block; k += 4) {
    zeros |= pair_from(run.data + k, is_zero) | pair_from(run.data + k + 2, is_zero);
  }
  return (zeros[0] | zeros[1]) != 0;
}

// Whether the code of term t is the mark of folding alone.
bool is_folded(const Operand& operand, i64 t)
{
  const i32 a = operand.codeptr[t];
  return operand.codeptr[t + 1] - a == 1 && operand.code[a] == moved_to_cof;
}

// What is kept of term t. These are integers instead of branches that data would decide, which take twice the time.
struct Kept {
  i64 first;      // of its atoms
  i32 has_value;  // 1 if the coefficient isn't zero; NaN is zero here
  i32 is_kept;    // 1 if it has a value or its code isn't the mark of folding alone
  i32 atoms;      // with a value the first alone

  Kept(const Operand& operand, i64 t) : first(operand.codeptr[t])
  {
    const f64 value = operand.cof[t];
    const i32 all = static_cast<i32>(operand.codeptr[t + 1] - first), is_one = all == 1;
    // Read from a slot that is there in any case.
    const i32 opcode = *(is_one ? &operand.code[first] : &operand.codeptr[t]);
    has_value = (value < 0.0) | (value > 0.0);
    const i32 keeps_code = (has_value | (is_one & (opcode == moved_to_cof))) ^ 1;
    is_kept = has_value + keeps_code;
    atoms = has_value + keeps_code * all;
  }
};

}  // namespace

// Whether every term is alive. A term without code is dead if its coefficient is zero, one with code if that code is a
// single zero besides: the constant zero or the mark of folding. The code is that of the operand on w.
KERNEL((395), (bool ok), are_terms_alive, i32 cconst, i32 code, i32 codeptr, i32 cof, bool ok, i32 ncodeatom, i32 nnz,
       CF64 wf64, CI32 wi32)
{
  const StackArrays w{wi32, {}, wf64};
  const Operand operand = w.coded_terms(cof, codeptr, code, cconst);
  const auto has_zero_code = [&](i64 t) {
    const i32 a = operand.codeptr[t];
    return is_folded(operand, t) ||
           (operand.codeptr[t + 1] - a == 1 && operand.code[a] == push_constant && operand.cconst[a] == 0.0);
  };
  for (i64 t = 0; t < nnz && ok;) {
    // Mostly no coefficient is zero: a block without zeros takes a fifth of the time of a test for each term.
    if (nnz - t >= block && !has_zero(operand.cof, t)) {
      t += block;
      continue;
    }
    for (const i64 end = std::min(t + block, i64{nnz}); t < end && ok; ++t) {
      ok = operand.cof[t] != 0.0 || (ncodeatom > 0 && !has_zero_code(t));
    }
  }
  return ok;
}

// Measures what is kept, on top of what comes in; `e` grows by the elements that keep a term.
//
// - code (position in xi32; atoms): the opcodes of the folded code
// - codeptr (position in xi32; terms + 1): where the folded code of each term begins; it ends where the next begins
KERNEL((386), (i32 c, i32 e, i32 k), measure_kept_terms, i32 cof, i32 nelem, i32 ptr, i32 c, i32 e, i32 k, CF64 wf64,
       CI32 wi32, i32 code, i32 codeptr, CI32 xi32)
{
  const StackArrays w{wi32, {}, wf64};
  Operand operand = w.coefficients(ptr, cof);
  operand.codeptr = {xi32, codeptr};
  operand.code = {xi32, code};
  for (i64 i = 0; i < nelem; ++i) {
    const i32 terms_before = k, end = operand.ptr[i + 1];
    for (i64 t = operand.ptr[i]; t < end; ++t) {
      const Kept kept(operand, t);
      c += kept.atoms;
      k += kept.is_kept;
    }
    e += k > terms_before;
  }
  return {c, e, k};
}

// Whether `nelem` elements are fewer than the shape has, so that they need a pattern.
//
// - flag (flag): not read
// - needs_sp (flag): whether the result needs a pattern
// - nelem (count): the elements of the result
KERNEL((387), (bool needs_sp), needs_pattern, i32 nd, [[maybe_unused]] bool flag, i32 nelem, i32 shape, CI32 wi32)
{
  return product(i64{1}, Run{wi32, shape}, 0, nd) > nelem;
}

// Writes what is kept. A term with a nonzero coefficient keeps that and the first atom of its code, however long it is;
// any other gets the coefficient 0.0 and its code. `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - rhassp (flag): whether elements without terms are left out and `rsp` is written; without, each keeps its place
// - code (position in xi32; atoms): the opcodes of the folded code
// - xcconst (position in xf64; atoms): the constants of the folded code
// - codeptr (position in xi32; terms + 1): where the folded code of each term begins; it ends where the next begins
KERNEL((390), (i32 c, i32 e, i32 k), write_kept_terms, i32 c, i32 cof, i32 e, bool hassp, i32 nelem, i32 nidxs, i32 k,
       i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, bool rhassp, I32 ri32, I64 ri64, i32 rnidxs,
       i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, i32 xcconst, i32 code, i32 codeptr, CF64 xf64,
       CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  Operand operand = w.operand(ptr, nidxs, cof);
  operand.codeptr = {xi32, codeptr};
  operand.code = {xi32, code};
  operand.cconst = {xf64, xcconst};
  const Run pattern{wi64, sp};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = e, .terms = k, .atoms = c});
  for (i64 i = 0; i < nelem; ++i) {
    const i32 terms_before = result.terms, end = operand.ptr[i + 1];
    for (i64 t = operand.ptr[i]; t < end; ++t) {
      const Kept kept(operand, t);
      if (!kept.is_kept) continue;
      if (kept.atoms == 1) [[likely]]
        result.push_atom(operand.code[kept.first], operand.cconst[kept.first]);
      else
        result.push_atoms_of(operand, t);
      result.cof[result.terms] = kept.has_value ? operand.cof[t] : 0.0;
      result.nidxs[result.terms] = operand.nidxs[t];
      result.close_term();
    }
    if (!rhassp)
      result.close_element();
    else if (result.terms > terms_before)
      result.close_element(hassp ? pattern[i] : i);
  }
  return {result.atoms, result.elements, result.terms};
}

// Finishes a result of which nothing drops: variables and coefficients from w, `ptr` and, if `hassp`, `sp` from
// elsewhere on r, slot by slot upwards.
//
// - ptr (position in ri32; nelem + 1): the `ptr` that is copied
// - sp (position in ri64; nelem): the pattern that is copied
KERNEL((389), (), move_result, i32 cof, bool hassp, i32 nelem, i32 nidxs, i32 nnz, i32 ptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CF64 wf64, CI64 wi64)
{
  copy_slots(Run{ri64, rnidxs}, Run{wi64, nidxs}, nnz);
  copy_slots(Run{rf64, rcof}, Run{wf64, cof}, nnz);
  copy_slots(Run{ri32, rptr}, Run{ri32, ptr}, nelem + i64{1});
  if (hassp) copy_slots(Run{ri64, rsp}, Run{ri64, sp}, nelem);
}

}  // namespace fragments
