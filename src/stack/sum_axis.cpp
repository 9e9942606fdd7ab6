// The sum of an expression along one axis. It removes the axis `dim`: an element of the result has the terms of all
// elements that differ along `dim` only, ascending along `dim`. Terms with the same variable are not merged.
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

#include <utility>

#include "index/counting_sort.h"
#include "index/divisor.h"
#include "index/shape.h"
#include "stack/record.h"

namespace fragments {
namespace {

struct Group {
  i64 a, b;
  bool operator==(const Group&) const = default;
};

// The group of a flat position. The quotient is kept for a block of ext*inner positions, where the sort leaves
// consecutive elements.
class Groups {
 public:
  Groups(i32 ext_inner, i32 inner, i32 outer) : ext_inner_(ext_inner), outer_(outer), inner_(inner) {}

  Group operator()(i64 flat)
  {
    if (flat < block_ || flat >= block_ + ext_inner_) {
      const i64 quotient = flat / ext_inner_;
      block_ = quotient * ext_inner_;
      a_ = quotient % outer_;
    }
    return {a_, inner_.remainder(flat)};
  }

 private:
  i64 ext_inner_, outer_;
  Divisor inner_;
  i64 block_ = -ext_inner_, a_ = 0;
};

}  // namespace

// The shape of the result on arrays of their own, first part: the n extents before the axis.
KERNEL((540), (), copy_extents_before_summed_axis, i32 n, I32 r, CI32 shape)
{
  copy_extents(r, 0, shape, 0, n);
}

// The second part: the extents behind the axis `dim`, each one place down.
KERNEL((541), (), copy_extents_behind_summed_axis, i32 dim, I32 r, CI32 shape)
{
  copy_extents(r, -1, shape, i64{dim} + 1, shape.count);
}

// Sorts the permutation at `source` by all axes but `dim`, which puts the elements of a group side by side, ascending
// along `dim`: a counting sort for each axis, the last one first, that places into `target` and swaps the two. `ptr`
// has room for the greatest extent plus 1. Returns (source, target), the first being where the sorted permutation
// stands. Along the last axis, or behind it, groups are side by side already: nothing is done. O((nd - 1) * (nelem +
// extent)).
KERNEL((528), (i32, i32), sort_by_group, i32 dim, i32 nd, i32 nelem, i32 ptr, i32 sp, i32 source, i32 target, i32 shape,
       CI32 wi32, CI64 wi64, I32 xi32)
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
      const Divisor by_stride(stride), by_extent(extent);
      const auto digit = [&](i64 m) { return by_extent.remainder(by_stride.quotient(pattern[m])); };
      clear_buckets(buckets, extent);
      count_buckets(buckets, nelem, [&](i64 k) { return digit(from[k]); });
      add_up(buckets, extent);
      reorder_items(buckets, from, to, nelem, digit);
      std::swap(source, target);
    }
    stride = wrapping_mul<i64>(stride, extent);
  }
  return {source, target};
}

// Counts the groups of the n elements in sorted order: adds 1 to `count` at each one whose group is not the group (a,
// b) before it. Returns the last group and the count, so that a further call can go on.
KERNEL((531), (i64, i64, i32), count_groups, i32 ext_inner, i32 inner, i32 n, i32 count, i64 a, i64 b, i32 outer,
       i32 perm, i32 sp, CI64 wi64, CI32 xi32)
{
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  Groups group_of(ext_inner, inner, outer);
  Group last{a, b};
  for (i64 k = 0; k < n; ++k) {
    const Group group = group_of(pattern[order[k]]);
    count += group != last;
    last = group;
  }
  return {last.a, last.b, count};
}

// Sparse: writes an element for each group of the sorted elements `cursor` to `nelem`-1, also for a group without
// terms. `rsp` ascends. Cursors of the result: `c` atoms, `g` elements, `t` terms.
KERNEL((534), (i32, i32, i32, i32), write_sparse_sum_along_axis, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof,
       i32 cursor, i32 g, i32 ext_inner, i32 inner, i32 ncodeatom, i32 nelem, i32 nidxs, i32 t, i32 ptr, i32 rcconst,
       i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 outer,
       i32 perm, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = g, .terms = t, .atoms = c});
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  Groups group_of(ext_inner, inner, outer);
  with_constant(ncodeatom > 0, [&](auto hascode) {
    Group next{};
    if (cursor < nelem) next = group_of(pattern[order[cursor]]);
    while (cursor < nelem) {
      const Group group = next;
      const auto goes_on = [&] {
        ++cursor;
        if (cursor >= nelem) return false;
        next = group_of(pattern[order[cursor]]);
        return next == group;
      };
      // Elements that are neighbours in the operand too move as one run: along the last axis, all of a group.
      for (bool more = true; more;) {
        const i32 b = order[cursor];
        i32 e = b;
        do {
          ++e;
          more = goes_on();
        } while (more && order[cursor] == e);
        result.append(operand, operand.terms(b, e), hascode);
      }
      result.close_element(group.a * inner + group.b);
    }
  });
  return {result.atoms, cursor, result.elements, result.terms};
}

// Dense: writes all outer*inner elements, without terms where there are none. Neighbours along the axis stand
// `inner_step` apart. Cursors of the result: `rncodeatom` atoms, `rnelem` elements, `rnnz` terms.
KERNEL((539), (i32, i32, i32), write_dense_sum_along_axis, i32 cconst, i32 code, i32 codeptr, i32 cof, i32 ext,
       i32 ext_inner, i32 inner, i32 inner_step, i32 ncodeatom, i32 nidxs, i32 outer, i32 ptr, i32 rcconst, i32 rcode,
       i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rncodeatom, i32 rnelem, i32 rnidxs, i32 rnnz, i32 rptr,
       CF64 wf64, CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = rnelem, .terms = rnnz, .atoms = rncodeatom});
  // Along the last axis the elements of a group are neighbours and move as one run.
  const bool is_one_run = inner_step == 1;
  const i32 runs = is_one_run ? ext > 0 : ext, run_length = is_one_run ? ext : 1;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 a = 0; a < outer; ++a) {
      for (i64 b = 0; b < inner; ++b) {
        i64 e = a * ext_inner + b;
        for (i32 k = 0; k < runs; ++k, e += inner_step) {
          result.append(operand, operand.terms(e, e + run_length), hascode);
        }
        result.close_element();
      }
    }
  });
  return {result.atoms, result.elements, result.terms};
}

}  // namespace fragments
