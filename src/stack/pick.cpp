// Picks: a one-dimensional list of elements of an operand, in the order of `idxs`, which may repeat and need not
// ascend. The result is dense; an element that a sparse operand does not store is there without terms.
//
//     dense operand    check 408, measure 409, write 410
//     sparse operand   check 408, find and measure 411, write 412
//
// Rows of coordinates are checked by 406 and turned into flat indices by 407 first. Writers leave `rptr[0]` and
// `rcodeptr[0]` to the caller.
//
// - idxs (array; picks): the flat position of each picked element
// - c (cursor): the atoms of the result so far
// - k (cursor): the terms of the result so far
// - slot (position in xi32; picks): the number of the stored element of each pick, -1 if it is not stored

#include <algorithm>

#include "index/shape.h"
#include "stack/record.h"

namespace fragments {
namespace {

// The slot of an index that a sparse operand does not store.
constexpr i32 not_stored = -1;

// Searches that run side by side.
constexpr i64 lanes = 8;

// For each of `lanes` indices the last of n ascending positions, n above 0, that is not above it, or the first. Every
// search takes the same steps without a branch on what it finds, and waits for its own loads alone: a quarter of the
// time of one search after the other.
void find_last_not_above(Run<const i64> sp, i32 n, const i64 (&indices)[lanes], i64 (&found)[lanes])
{
  for (i64& place : found) place = 0;
  for (i64 rest = n; rest > 1;) {
    const i64 half = rest / 2;
    for (i64 lane = 0; lane < lanes; ++lane) {
      found[lane] += half & -i64{sp[found[lane] + half] <= indices[lane]};
    }
    rest -= half;
  }
}

}  // namespace

// Turns each row of coordinates into the flat position of its element, row-major. It allocates a table of nd strides.
//
// - idxs (array; picks x axes): the coordinates of the picked elements, one element a row
// - this_idxs (array; picks): the flat position of each picked element
KERNEL((407), (), flatten_coordinates, CI32x2 idxs, i32 nd, CI32 shape, I64 this_idxs)
{
  const Scratch<i64> strides{nd};
  if (nd > 0) strides[nd - 1] = 1;
  row_major_strides(strides, shape, nd);
  with_axis_count(nd, [&](auto axes) {
    for (i64 i = 0; i < idxs.rows; ++i) this_idxs[i] = flat_position(Row{idxs, i}, strides, axes);
  });
}

// Measures a pick from a dense operand.
KERNEL((409), (i32 c, i32 k), measure_pick, i32 codeptr, CI64 idxs, i32 ncodeatom, i32 ptr, i32 c, i32 k, CI32 wi32)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.terms = k, .atoms = c});
  for (i64 i = 0; i < idxs.count; ++i) size.append(idxs[i]);
  return {size.atoms, size.terms};
}

// Writes a pick from a dense operand. O(picks + terms).
KERNEL((410), (i32 c, i32 k), write_pick, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, CI64 idxs, i32 k,
       i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rhascode,
       i32 rnidxs, i32 rptr, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  with_constant(rhascode > 0, [&](auto hascode) {
    for (i64 i = 0; i < idxs.count; ++i) {
      const i64 f = idxs[i];
      result.append(operand, f, hascode);
      result.close_element();
    }
  });
  return {result.atoms, result.terms};
}

// Finds each index in the pattern of a sparse operand by bisection and measures the pick. O(picks * log nelem).
KERNEL((411), (i32 c, i32 k), find_pick, i32 codeptr, CI64 idxs, i32 ncodeatom, i32 nelem, i32 ptr, i32 c, i32 k,
       i32 sp, i32 slot, CI32 wi32, CI64 wi64, I32 xi32)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size size(operand, ncodeatom > 0, {.terms = k, .atoms = c});
  const Run pattern{wi64, sp};
  const Run slots{xi32, slot};
  i64 indices[lanes], found[lanes];
  for (i64 first = 0; first < idxs.count; first += lanes) {
    const i64 n = std::min(lanes, idxs.count - first);
    for (i64 lane = 0; lane < lanes; ++lane) indices[lane] = idxs[first + std::min(lane, n - 1)];
    if (nelem > 0) find_last_not_above(pattern, nelem, indices, found);
    for (i64 lane = 0; lane < n; ++lane) {
      const bool stored = nelem > 0 && pattern[found[lane]] == indices[lane];
      slots[first + lane] = stored ? static_cast<i32>(found[lane]) : not_stored;
      if (stored) size.append(found[lane]);
    }
  }
  return {size.atoms, size.terms};
}

// Writes a pick from a sparse operand, from what 411 found. O(picks + terms).
//
// - idxs (array; picks): only its length is read, the number of picks
KERNEL((412), (i32 c, i32 k), write_found_pick, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, CI64 idxs, i32 k,
       i32 nidxs, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rhascode,
       i32 rnidxs, i32 rptr, i32 slot, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  const Run slots{xi32, slot};
  with_constant(rhascode > 0, [&](auto hascode) {
    for (i64 i = 0; i < idxs.count; ++i) {
      const i64 f = slots[i];
      if (f != not_stored) result.append(operand, f, hascode);
      result.close_element();
    }
  });
  return {result.atoms, result.terms};
}

}  // namespace fragments
