// The sum of an expression along one axis. It removes the axis `dim`: an element of the result has the terms of all
// elements that differ along `dim` only, ascending along `dim`. Terms with the same variable are not merged, so that
// the result has as many terms and atoms as the operand.
//
// The axis splits the shape in `outer`, the product of the extents before it, its own extent `ext`, and `inner`, the
// product behind it. The element at flat position p falls into the group (a, b), a = p / (ext*inner) % outer and
// b = p % inner, which is the element a*inner + b of the result.
//
//     dense    outer 535, inner 536; shape 537 and 538, or 540 and 541; write 539
//     sparse   bucket size 526, permutation 527, sort 528; outer 529, inner 530, measure 531; shape 532 and 533;
//              write 534
//
// The sort leaves a permutation of the stored elements on the x stack, by which they come group by group.
//
// - outer (extent): the product of the extents before the axis
// - inner (extent): the product of the extents behind the axis
// - ext_inner (extent): `inner` times the extent of the axis

#include <limits>
#include <utility>

#include "index/counting_sort.h"
#include "index/divisor.h"
#include "index/pattern_runs.h"
#include "index/shape.h"
#include "stack/record.h"

namespace fragments {
namespace {

struct Group {
  i64 a, b;
  bool operator==(const Group&) const = default;
};

// The group of a flat position. The quotient is kept for a block of ext*inner positions, where the sort leaves
// consecutive elements, unless blocks are too short for a branch on where they end.
class GroupFinder {
 public:
  GroupFinder(i32 ext_inner, i32 inner, i32 outer)
      : ext_inner_(ext_inner), outer_(outer), inner_(inner), kept_(ext_inner >= worth_a_branch ? ext_inner : 0)
  {
  }

  Group operator()(i64 flat)
  {
    if (flat < block_ || flat - block_ >= kept_) {
      const i64 quotient = ext_inner_.quotient(flat);
      block_ = quotient * divisor("ext_inner", ext_inner_.value());
      a_ = quotient < divisor("outer", outer_.value()) ? quotient : outer_.remainder(quotient);
    }
    return {a_, inner_.value() == 1 ? 0 : inner_.remainder(flat)};
  }

 private:
  static constexpr i64 worth_a_branch = 64;

  Divisor ext_inner_, outer_, inner_;
  i64 kept_, block_ = std::numeric_limits<i64>::max(), a_ = 0;
};

}  // namespace

// Copies the first part of the result's shape from one array to another: the n extents before the axis.
//
// - n (count): the extents before the axis
// - r (array; axes - 1): the extents of the result
KERNEL((540), (), copy_extents_before_summed_axis, i32 n, I32 r, CI32 shape)
{
  copy_extents(r, 0, shape, 0, n);
}

// Copies the second part of the result's shape from one array to another: the extents behind the axis `dim`, each one
// place down. `shape` has as many slots as the operand has axes.
//
// - r (array; axes - 1): the extents of the result
KERNEL((541), (), copy_extents_behind_summed_axis, i32 dim, I32 r, CI32 shape)
{
  copy_extents(r, -1, shape, i64{dim} + 1, shape.count);
}

// Sorts the permutation at `source` by all axes but `dim`, which puts the elements of a group side by side, ascending
// along `dim`: a stable counting sort for each axis, the last one first, that places into `target` and swaps the two.
// The first result is where the sorted permutation stands. Along the last axis, or behind it, groups are side by side
// already: nothing is done. O((nd - 1) * nelem + the sum of the extents).
//
// - ptr (position in xi32; greatest extent + 1): the buckets
KERNEL((528), (i32 source, i32 target), sort_by_group, i32 dim, i32 nd, i32 nelem, i32 ptr, i32 sp, i32 source,
       i32 target, i32 shape, CI32 wi32, CI64 wi64, I32 xi32)
{
  if (dim >= nd - 1) return {source, target};
  const Run extents{wi32, shape};
  const Run buckets{xi32, ptr};
  const Run pattern{wi64, sp};
  i64 stride = 1;
  for (i32 axis = nd - 1; axis >= 0; --axis) {
    const i32 extent = extents[axis];
    if (axis != dim) {
      const Run from{xi32, source}, to{xi32, target};
      const Coordinate coordinate{Divisor(stride), Divisor(extent), axis == 0};
      sort_pass(buckets, extent, extent, from, to, nelem, [&](i64 m) { return coordinate(pattern[m]); });
      std::swap(source, target);
    }
    stride = wrapping_mul<i64>(stride, extent);
  }
  return {source, target};
}

// Counts the groups of the n elements in sorted order, the elements of the result: adds 1 to `count` at each one whose
// group is not that of the element before it. A further call can go on where this one ended.
//
// - n (count): the elements of the permutation
// - count (cursor): the groups
// - a, b (index): the group of the element before, at the start (-1, -1)
KERNEL((531), (i64 a, i64 b, i32 count), count_groups, i32 ext_inner, i32 inner, i32 n, i32 count, i64 a, i64 b,
       i32 outer, i32 perm, i32 sp, CI64 wi64, CI32 xi32)
{
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  GroupFinder group_of(ext_inner, inner, outer);
  Group last{a, b};
  for (i64 k = 0; k < n; ++k) {
    const Group group = group_of(pattern[order[k]]);
    count += group != last;
    last = group;
  }
  return {last.a, last.b, count};
}

// Writes the sum of a sparse operand, a sparse result: an element for each group of the sorted elements from `cursor`
// on, also for a group without terms. `rsp` ascends. `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - cursor (cursor): the next element in sorted order; comes back as `nelem`
// - nelem (count): the end of the sorted elements
// - c (cursor): the atoms of the result so far
KERNEL((534), (i32 c, i32 cursor, i32 g, i32 t), write_sparse_sum_along_axis, i32 cconst, i32 code, i32 c, i32 codeptr,
       i32 cof, i32 cursor, i32 g, i32 ext_inner, i32 inner, i32 ncodeatom, i32 nelem, i32 nidxs, i32 t, i32 ptr,
       i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp,
       i32 outer, i32 perm, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = g, .terms = t, .atoms = c});
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  GroupFinder group_of(ext_inner, inner, outer);
  with_constant(ncodeatom > 0, [&](auto hascode) {
    Group next{};
    if (cursor < nelem) next = group_of(pattern[order[cursor]]);
    while (cursor < nelem) {
      const Group group = next;
      i32 end = cursor + 1;
      for (; end < nelem; ++end) {
        next = group_of(pattern[order[end]]);
        if (next != group) break;
      }
      // Elements that are neighbours in the operand too move as one run: along the last axis, all of a group.
      for_each_neighbour_run(order, cursor, end,
                             [&](i64 b, i64 e) { result.append(operand, operand.terms(b, e), hascode); });
      result.close_element(group.a * inner + group.b);
      cursor = end;
    }
  });
  return {result.atoms, cursor, result.elements, result.terms};
}

// Writes the sum of a dense operand, a dense result: all outer*inner elements, without terms where there are none.
// `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - ext (extent): the extent of the axis
// - inner_step (step): the distance of neighbours along the axis in flat positions of the operand: `inner` again
KERNEL((539), (i32 rncodeatom, i32 rnelem, i32 rnnz), write_dense_sum_along_axis, i32 cconst, i32 code, i32 codeptr,
       i32 cof, i32 ext, i32 ext_inner, i32 inner, i32 inner_step, i32 ncodeatom, i32 nidxs, i32 outer, i32 ptr,
       i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rncodeatom, i32 rnelem,
       i32 rnidxs, i32 rnnz, i32 rptr, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    // Along the last axis groups are neighbours, one behind the other, and all terms move as one run.
    if (inner == 1 && inner_step == 1 && ext_inner == ext && ext > 0 && outer > 0) {
      const i32 shift = result.terms - operand.ptr[0];
      const i64 end = i64{outer} * ext;
      for (i64 e = ext; e <= end; e += ext) result.ptr[++result.elements] = operand.ptr[e] + shift;
      result.append(operand, operand.terms(0, end), hascode);
      return;
    }
    for (i64 a = 0; a < outer; ++a) {
      for (i64 b = 0; b < inner; ++b) {
        i64 e = a * ext_inner + b;
        for (i32 k = 0; k < ext; ++k, e += inner_step) result.append(operand, e, hascode);
        result.close_element();
      }
    }
  });
  return {result.atoms, result.elements, result.terms};
}

}  // namespace fragments
