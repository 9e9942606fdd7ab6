// Symmetrisation in two axes of one extent: the mean of an array and its transpose in these axes. An element on the
// diagonal stays as it is, bit for bit. Off it, the result has the terms of the element and behind them those of its
// mirror, both halved: coefficients times 0.5, and code times 0.5 by the atoms (2, 0.5), (5). Terms with the same
// variable are not merged.
//
//     dense    fold 559, 560, 561 and strides 562; measure 570, shape 571, write 572
//     sparse   bucket size 558, fold and strides, permutation 563, sort 564, mirror keys 566, measure 565 (terms) and
//              567 (elements), shape 568, write 569
//
// The five-axis fold multiplies into `dim`, which the caller presets to 1 but for the sides, dim[1] and dim[3].
//
// The mirror of a sparse record is the record again, its elements in the order of the mirrors' flat positions, the
// mirror keys. The sort leaves that order as a permutation on xi32, and 566 the keys, ascending, on xi64. The result is
// the merge of the pattern with these keys. 564 sorts by them only if neither dim[0] nor dim[2] is above dim[3]. For
// another shape the caller sorts the keys that 566 writes for the permutation 563, and has 566 write them once more;
// from keys out of order 569 would write more terms than 565 measures.
//
// - nc (cursor): the atoms of the result, counted on from what comes in
// - nnz (cursor): the terms of the result, counted on from what comes in
// - key (position in xi64; elements): the mirror keys in the order of `perm`, strictly ascending where it is sorted
// - perm (position in xi32; elements): the numbers of the operand's elements, sorted by their mirrors' flat positions
// - c (cursor): the atoms of the result so far

#include <utility>

#include "index/counting_sort.h"
#include "index/five_axis_fold.h"
#include "index/merge.h"
#include "stack/record.h"

namespace fragments {
namespace {

constexpr f64 half = 0.5;

// Counts the atoms and terms of the mean at a stretch of elements whose mirrors, off the diagonal, count in it too: one
// set of an element on the diagonal and two, with two atoms more a term, of any other.
void count_stretch(const Operand& operand, i64 b, i64 e, DiagonalSide side, bool hascode, i32& nc, i32& nnz)
{
  const Terms stretch = operand.terms(b, e);
  const i32 terms = stretch.count();
  nnz += side == on_diagonal ? terms : 2 * terms;
  if (hascode) {
    const i32 atoms = operand.atoms(stretch);
    nc += side == on_diagonal ? atoms : 2 * (atoms + 2 * terms);
  }
}

// Whether the strides are those of a square fold with elements off its diagonal, which makes each of them the mirror of
// another one.
bool is_square(CI32 dim, CI64 stride)
{
  for (i64 d = 4; d >= 0; --d) {
    if (dim[d] <= 0) return false;
  }
  if (dim[1] != dim[3] || dim[1] < 2 || stride[3] != dim[4]) return false;
  for (i64 d = 0; d < 3; ++d) {
    if (stride[d] != stride[d + 1] * dim[d + 1]) return false;
  }
  return true;
}

}  // namespace

// Sorts the permutation of n elements at `source` by four axes of the fold, the least significant first: a stable
// counting sort for each axis, which places into `target` and swaps the two; an axis of extent below 2 is passed over.
// The first result is where the sorted permutation stands. The axes 1, 2, 3, 0 turn the order of the pattern into that
// of the mirror keys.
//
// Every pass adds up dim[3] buckets, whatever the extent of its axis: a shorter axis also adds up slots behind its
// buckets, as they stand, and a longer one is added up in part, so that elements are put over one another. This is
// intended.
//
// - n (count): the stored elements of the operand
// - sortidx (array; 4): the axes of the fold to sort by
// - ptr (position in xi32; greatest extent sorted by, or dim[3], + 1): the buckets
KERNEL((564), (i32 source, i32 target), sort_by_mirror, i32 source, CI32 dim, i32 n, CI32 sortidx, i32 sp, CI64 stride,
       i32 target, CI64 wi64, I32 xi32, i32 ptr)
{
  const Run buckets{xi32, ptr};
  const Run pattern{wi64, sp};
  for (i32 q = 0; q < 4; ++q) {
    const i32 axis = sortidx[q], extent = dim[axis];
    if (extent < 2) continue;
    const Run from{xi32, source}, to{xi32, target};
    const Coordinate coordinate{Divisor(n > 0 ? stride[axis] : 0), Divisor(extent), axis == 0};
    sort_pass(buckets, extent, dim[3], from, to, n, [&](i64 m) { return coordinate(pattern[m]); });
    std::swap(source, target);
  }
  return {source, target};
}

// Measures the mean of a sparse operand: its atoms and terms, one set of an element on the diagonal and two, with two
// atoms more a term, of any other.
KERNEL((565), (i32 nc, i32 nnz), measure_sparse_mean, i32 codeptr, i32 ncodeatom, i32 nelem, i32 ptr, i32 nc, i32 nnz,
       i32 sp, CI64 stride, CI32 wi32, CI64 wi64)
{
  if (nelem <= 0) return {nc, nnz};
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  for_each_stored_stretch(FoldStrides(stride), Run{wi64, sp}, nelem, [&](i64 b, i64 e, DiagonalSide side) {
    count_stretch(operand, b, e, side, ncodeatom > 0, nc, nnz);
  });
  return {nc, nnz};
}

// Writes the mirror keys of n stored elements, in the order of `perm`: the flat position of each with its coordinates
// along the two sides exchanged.
//
// - n (count): the stored elements of the operand
KERNEL((566), (), write_mirror_keys, i32 key, i32 n, i32 perm, CI64 stride, CI64 wi64, CI32 xi32, I64 xi64, i32 sp)
{
  if (n <= 0) return;
  const FoldStrides strides(stride);
  const Run order{xi32, perm};
  const Run pattern{wi64, sp};
  const Run keys{xi64, key};
  for (i64 k = 0; k < n; ++k) keys[k] = strides.mirror(pattern[order[k]]);
}

// Counts the elements of the mean of a sparse operand, the union of its pattern with its mirror keys, and adds them to
// `acc`. `stride` is not read.
//
// - n (count): the stored elements of the operand
KERNEL((567), (i32 acc), count_mean_elements, i32 n, i32 sp, i32 acc, [[maybe_unused]] CI64 stride, CI64 wi64,
       CI64 xi64, i32 key)
{
  if (n <= 0) return acc;
  const Run pattern{wi64, sp};
  const Run keys{xi64, key};
  return acc + union_size(
                   n, n, [&](i64 k) { return pattern[k]; }, [&](i64 k) { return keys[k]; });
}

// Writes the mean of a sparse operand by a merge of its pattern with its mirror keys: an element for each flat position
// that is in either, the terms of the stored element first. `rptr[0]` and `rcodeptr[0]` are the caller's.
//
// - ia (cursor): the next element of the pattern
// - ib (cursor): the next of the mirror keys
KERNEL((569), (i32 c, i32 ia, i32 g, i32 ib, i32 t), write_sparse_mean, i32 cconst, i32 code, i32 c, i32 codeptr,
       i32 cof, i32 ia, i32 g, i32 ib, i32 ncodeatom, i32 nelem, i32 nidxs, i32 t, i32 ptr, i32 rcconst, i32 rcode,
       i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, i32 key,
       CI64 stride, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64, i32 perm)
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
  // The strides may be None if no element meets a mirror.
  RowCursor row{stride.count > 0 ? FoldStrides(stride) : FoldStrides(FoldExtents{})};
  with_constant(ncodeatom > 0, [&](auto hascode) {
    const auto append_half = [&](i32 e) { result.append_scaled(operand, e, half, hascode); };
    const auto element = [&](i64 flat, bool is_stored, bool is_mirror) {
      if (is_stored && is_mirror && row.around(flat).side(flat) == on_diagonal) {
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

// Measures the mean of a dense operand: the atoms and terms of each element on the diagonal, and off it those of each
// element and its mirror, with two atoms more a term.
KERNEL((570), (i32 nc, i32 nnz), measure_dense_mean, i32 nc, CI32 dim, i32 codeptr, i32 ncodeatom, i32 ptr, i32 nnz,
       CI64 stride, CI32 wi32)
{
  const Operand operand{.ptr{wi32, ptr}, .codeptr{wi32, codeptr}};
  if (is_square(dim, stride)) {
    for_each_stretch({{dim[0], dim[1], dim[2], dim[3], dim[4]}}, [&](i64 b, i64 e, DiagonalSide side) {
      count_stretch(operand, b, e, side, ncodeatom > 0, nc, nnz);
    });
    return {nc, nnz};
  }
  Size mean(operand, ncodeatom > 0, {.terms = nnz, .atoms = nc});
  i64 e = 0;
  for_each_mirror(
      dim, stride, [&] { mean.append(e++); },
      [&](i64 mirror) {
        mean.append_scaled(e++);
        mean.append_scaled(mirror);
      });
  return {mean.atoms, mean.terms};
}

// Writes the mean of a dense operand, all elements in their order. Code is written if the operand has it. `rptr[0]` and
// `rcodeptr[0]` are the caller's.
//
// - e (cursor): the next element of the operand, 0 at the start
// - rhascode (flag): not read
KERNEL((572), (i32 c, i32 e, i32 g, i32 t), write_dense_mean, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 e,
       CI32 dim, i32 g, i32 ncodeatom, i32 nidxs, i32 t, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof,
       F64 rf64, I32 ri32, I64 ri64, [[maybe_unused]] i32 rhascode, i32 rnidxs, i32 rptr, CI64 stride, CF64 wf64,
       CI32 wi32, CI64 wi64)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.elements = g, .terms = t, .atoms = c});
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for_each_mirror(
        dim, stride,
        [&] {
          result.append(operand, e++, hascode);
          result.close_element();
        },
        [&](i64 mirror) {
          result.append_scaled(operand, e++, half, hascode);
          result.append_scaled(operand, mirror, half, hascode);
          result.close_element();
        });
  });
  return {result.atoms, e, result.elements, result.terms};
}

}  // namespace fragments
