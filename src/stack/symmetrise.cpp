// Symmetrisation in two axes: the mean of an array and its transpose in these axes. An element on the diagonal stays as
// it is, bit for bit. Off it, the result has the terms of the element and behind them those of its mirror, both halved:
// coefficients times 0.5, and code times 0.5 by the atoms (2, 0.5), (5). Terms with the same variable are not merged.
//
//     dense    fold 559, 560, 561 and strides 562; measure 570, shape 571, write 572
//     sparse   bucket size 558, fold and strides, permutation 563, sort 564, mirror keys 566, measure 565 (terms) and
//              567 (elements), shape 568, write 569
//
// The mirror of a sparse record is the record again, its elements in the order of the mirrors' flat positions, the
// mirror keys. The sort leaves that order as a permutation on xi32, and 566 the keys, ascending, on xi64. The result is
// the merge of the pattern with these keys.

#include <utility>

#include "index/counting_sort.h"
#include "index/five_axis_fold.h"
#include "index/merge.h"
#include "stack/record.h"

namespace fragments {
namespace {

constexpr f64 half = 0.5;

}  // namespace

// Sorts the permutation of n elements at `source` by four axes of the fold, `sortidx`, the least significant first: a
// stable counting sort for each axis, which places into `target` and swaps the two; an axis of extent below 2 is passed
// over. Returns (source, target), the first being where the sorted permutation stands. The axes 1, 2, 3, 0 turn the
// order of the pattern into that of the mirror keys.
//
// Every pass adds up dim[3] buckets, whatever the extent of its axis: a shorter axis also adds up slots behind its
// buckets, as they stand, and a longer one is added up in part. This is intended.
KERNEL((564), (i32, i32), sort_by_mirror, i32 source, CI32 dim, i32 n, CI32 sortidx, i32 sp, CI64 stride, i32 target,
       CI64 wi64, I32 xi32, i32 ptr)
{
  const Run buckets{xi32, ptr};
  const Run pattern{wi64, sp};
  for (i32 q = 0; q < 4; ++q) {
    const i32 axis = sortidx[q], extent = dim[axis];
    if (extent < 2) continue;
    const Run from{xi32, source}, to{xi32, target};
    const Divisor by_stride(stride[axis]), by_extent(extent);
    const auto digit = [&](i64 m) { return by_extent.remainder(by_stride.quotient(pattern[m])); };
    clear_buckets(buckets, extent);
    count_buckets(buckets, n, [&](i64 k) { return digit(from[k]); });
    add_up(buckets, dim[3]);
    reorder_items(buckets, from, to, n, digit);
    std::swap(source, target);
  }
  return {source, target};
}

// Sparse: adds the atoms and terms of the result to `nc` and `nnz`.
KERNEL((565), (i32, i32), measure_sparse_mean, i32 codeptr, i32 ncodeatom, i32 nelem, i32 ptr, i32 nc, i32 nnz, i32 sp,
       CI64 stride, CI32 wi32, CI64 wi64)
{
  if (nelem <= 0) return {nc, nnz};
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  for_each_stored_stretch(FoldStrides(stride), Run{wi64, sp}, nelem, [&](i64 b, i64 e, Side side) {
    const Terms stretch = operand.terms(b, e);
    const i32 terms = stretch.count();
    nnz += side == diagonal ? terms : 2 * terms;
    if (ncodeatom > 0) {
      const i32 atoms = operand.atoms(stretch);
      nc += side == diagonal ? atoms : 2 * (atoms + 2 * terms);
    }
  });
  return {nc, nnz};
}

// The mirror keys of n elements in the order of `perm`.
KERNEL((566), (), write_mirror_keys, i32 key, i32 n, i32 perm, CI64 stride, CI64 wi64, CI32 xi32, I64 xi64, i32 sp)
{
  if (n <= 0) return;
  const FoldStrides strides(stride);
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  const Run keys{xi64, key};
  for (i64 k = 0; k < n; ++k) keys[k] = strides.mirror(pattern[order[k]]);
}

// Sparse: adds the elements of the result to `acc`. `stride` is not read.
KERNEL((567), (i32), count_mean_elements, i32 n, i32 sp, i32 acc, [[maybe_unused]] CI64 stride, CI64 wi64, CI64 xi64,
       i32 key)
{
  if (n <= 0) return acc;
  const Run pattern{wi64, sp};
  const Run keys{xi64, key};
  return acc + union_size(
                   n, n, [&](i64 k) { return pattern[k]; }, [&](i64 k) { return keys[k]; });
}

// Sparse: writes the mean. Cursors: `c` atoms, `g` elements, `t` terms of the result, `ia` in the pattern, `ib` in the
// mirror keys.
KERNEL((569), (i32, i32, i32, i32, i32), write_sparse_mean, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 ia,
       i32 g, i32 ib, i32 ncodeatom, i32 nelem, i32 nidxs, i32 t, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, i32 key, CI64 stride, CF64 wf64,
       CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64, i32 perm)
{
  if (ia >= nelem && ib >= nelem) return {c, ia, g, ib, t};
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result =
      r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = g, .terms = t, .atoms = c});
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  const Run keys{xi64, key};
  RowCursor row{FoldStrides(stride)};
  with_constant(ncodeatom > 0, [&](auto hascode) {
    const auto append_half = [&](i32 e) { result.append_scaled(operand, e, half, hascode); };
    const auto element = [&](i64 flat, bool is_stored, bool is_mirror) {
      if (is_stored && is_mirror && row.around(flat).side(flat) == diagonal) {
        result.append(operand, ia, hascode);
      } else {
        if (is_stored) append_half(ia);
        if (is_mirror) append_half(order[ib]);
      }
      result.close_element(flat);
    };
    unite(
        ia, nelem, ib, nelem, [&](i64 k) { return pattern[k]; }, [&](i64 k) { return keys[k]; }, element);
  });
  return {result.atoms, ia, result.elements, ib, result.terms};
}

// Dense: adds the atoms and terms of the result to `nc` and `nnz`.
KERNEL((570), (i32, i32), measure_dense_mean, i32 nc, CI32 dim, i32 codeptr, i32 ncodeatom, i32 ptr, i32 nnz,
       CI64 stride, CI32 wi32)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  Size mean(operand, ncodeatom > 0, {.terms = nnz, .atoms = nc});
  i64 e = 0;
  for_each_mirror(dim, stride, [&](i64 mirror, bool is_on_diagonal) {
    if (is_on_diagonal) {
      mean.append(e);
    } else {
      mean.append_scaled(e);
      mean.append_scaled(mirror);
    }
    ++e;
  });
  return {mean.atoms, mean.terms};
}

// Dense: writes the mean. Cursors: `c` atoms, `g` elements, `t` terms of the result, `e` the operand's element, 0 at
// the start. Code is written if the operand has it; `rhascode` is not read.
KERNEL((572), (i32, i32, i32, i32), write_dense_mean, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 e,
       CI32 dim, i32 g, i32 ncodeatom, i32 nidxs, i32 t, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, [[maybe_unused]] i32 rhascode, i32 rnidxs, i32 rptr, CI64 stride, CF64 wf64,
       CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = g, .terms = t, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for_each_mirror(dim, stride, [&](i64 mirror, bool is_on_diagonal) {
      if (is_on_diagonal) {
        result.append(operand, e, hascode);
      } else {
        result.append_scaled(operand, e, half, hascode);
        result.append_scaled(operand, mirror, half, hascode);
      }
      result.close_element();
      ++e;
    });
  });
  return {result.atoms, e, result.elements, result.terms};
}

}  // namespace fragments
