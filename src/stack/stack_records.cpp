// Stacks: n operands joined along the axis `dim`, one that they have or a new one. The shapes around `dim` are folded
// to three extents, d0 before it, d1 of the axis itself (`d1s`, one for each operand, all 1 for a new axis) and d2
// behind it, so that element (a, b, g) of an operand has the flat position (a*d1 + b)*d2 + g.
//
//     every stack      check 428, extent at `dim` 429, shape 427, measure 430, d0 424 or 437, d2 425 or 438
//     all dense        write 436
//     sparse, dim 0    write 439
//     sparse, others   extent at `dim` 433, where each operand begins there 432, keys 441, buckets 440, sort 442,
//                      write 443
//
// An operand is given by its places in tables of positions and counts; a table is read where there is something to
// copy. The writers begin at the result's first element, term and atom and set `rptr[0]` and, in a result with code,
// `rcodeptr[0]`. In such a result the terms of an operand without code get the atom (2, 0.0) each. An element without
// terms keeps its place everywhere.
//
// - n (count): the operands
// - d0 (extent): the product of the extents before the axis `dim`
// - d2 (extent): the product of the extents behind the axis `dim`
// - code (array; operands): the position in `wi32` of each operand's opcodes; not read for one without code
// - opnum (position in xi32; one a key): the number of the operand that each key's element belongs to
// - elnum (position in xi32; one a key): the number of each key's element in its operand
// - key (position in xi64; one a key): the flat position in the result of each stored element of each operand
// - order (position in xi32; one a key): the numbers of the keys, in ascending order of the keys

#include <utility>

#include "index/counting_sort.h"
#include "index/divisor.h"
#include "index/shape.h"
#include "index/slots.h"
#include "stack/operand_tables.h"

namespace fragments {
namespace {

// Appends terms of operand k.
template <class Flag>
void append_terms(Writer& result, const OperandTables& from, i64 k, Terms terms, Flag hascode)
{
  if (terms.count() <= 0) return;
  const Operand operand = from.operand(k, hascode);
  result.append(operand, terms, operand.hascode);
  if (hascode && !operand.hascode) result.append_zero_code(terms.count());
}

// Appends the elements b .. e-1 of operand k, at least one, as one run of terms.
template <class Flag>
void append_elements(Writer& result, const OperandTables& from, i64 k, i64 b, i64 e, Flag hascode)
{
  const Run ptr = from.ptr(k);
  result.append_ends(ptr, b, e);
  append_terms(result, from, k, {ptr[b], ptr[e]}, hascode);
}

// The same of its element f alone, for which there is less to do.
template <class Flag>
void append_element(Writer& result, const OperandTables& from, i64 k, i64 f, Flag hascode)
{
  const Run ptr = from.ptr(k);
  append_terms(result, from, k, {ptr[f], ptr[f + 1]}, hascode);
  result.close_element();
}

}  // namespace

// Copies the n extents of an operand from `shape_` to `shape`.
//
// - n (count): the extents
// - shape_ (array; axes): the extents that are copied
KERNEL((427), (), copy_operand_shape, i32 n, I32 shape, CI32 shape_)
{
  copy_slots(Run{shape, 0}, Run{shape_, 0}, n);
}

// Checks that the operands from 1 on have the number of axes and, but for `dim`, the extents of operand 0: `bad` if
// not. The operand whose own number is `dim` may have any number of axes, which is intended; its first `nd` extents are
// compared all the same. `alldense` stays if no operand from 1 on is sparse; for operand 0 the caller has set it.
//
// - alldense (flag): whether all operands are dense
// - nd (count): the axes of operand 0
// - shape (position in wi32; nd): the extents of operand 0
KERNEL((428), (bool alldense, bool bad), check_operands, bool alldense, i32 dim, CI32 hassp, bool bad, i32 n, i32 nd,
       CI32 nds, i32 shape, CI32 shape_base, CI32 wi32)
{
  const Run expected{wi32, shape};
  const auto extents_differ = [&](i64 k, i64 from, i64 to) {
    for (i64 d = from; d < to; ++d) {
      if (wi32[shape_base[k] + d] != expected[d]) return true;
    }
    return false;
  };
  for (i32 k = 1; k < n; ++k) {
    bad = bad || (k != dim && nds[k] != nd);
    bad = bad || extents_differ(k, 0, dim) || extents_differ(k, i64{dim} + 1, nd);
    alldense = alldense && hassp[k] == 0;
  }
  return {alldense, bad};
}

// The extent of the result at `dim`: `total` plus the operands' extents there. A new axis, `dim` at or behind `nd`, has
// the extent n, whatever `total` is.
//
// - nd (count): the axes of each operand
// - total (start): what the sum starts from
KERNEL((429), (i32 rdim), stacked_extent, i32 dim, i32 n, i32 nd, i32 total, CI32 shape_base, CI32 wi32)
{
  if (dim >= nd) return n;
  for (i64 k = 0; k < n; ++k) total = wrapping_add(total, wi32[i64{shape_base[k]} + dim]);
  return total;
}

// Measures the result, adding to what comes in: its atoms, elements and terms, and whether it has code, which it has if
// any operand has. Atoms count only then: those of an operand with code, and one a term of an operand without.
//
// - c (cursor): the atoms of the result
// - k (cursor): the terms of the result
KERNEL((430), (bool hascode, i32 c, i32 e, i32 k), measure_stack, i32 n, CI32 ncodeatom, CI32 nelem, CI32 nnz,
       bool hascode, i32 c, i32 e, i32 k)
{
  for (i64 operand = 0; operand < n; ++operand) {
    hascode = hascode || ncodeatom[operand] > 0;
    e += nelem[operand];
    k += nnz[operand];
  }
  if (hascode) {
    for (i64 operand = 0; operand < n; ++operand) c += ncodeatom[operand] > 0 ? ncodeatom[operand] : nnz[operand];
  }
  return {hascode, c, e, k};
}

// Where each operand begins on the axis `dim` of the result: `offset[k]` is `offset[0]`, which is the caller's, plus
// the extents there of the operands before k.
KERNEL((432), (), write_offsets, CI32 d1s, i32 n, I32 offset)
{
  for (i64 i = 0; i < n - 1; ++i) offset[i + 1] = wrapping_add(offset[i], d1s[i]);
}

// The extent of the result at `dim`: `init` plus the operands' extents there.
KERNEL((433), (i32 rdim), sum_of_extents, i32 init, CI32 d1s, i32 n)
{
  for (i64 i = 0; i < n; ++i) init = wrapping_add(init, d1s[i]);
  return init;
}

// The largest of `init` and the n extents of the result: the most buckets that a pass of 442 sorts into. It takes one
// slot more.
//
// - n (count): the axes of the result
// - top (position in ri32; n): the extents of the result
KERNEL((440), (i32 init), largest_extent, i32 init, CI32 ri32, i32 n, i32 top)
{
  const Run extents{ri32, top};
  for (i64 i = 0; i < n; ++i) init = extents[i] > init ? extents[i] : init;
  return init;
}

// Writes the stack of dense operands: for each of the d0 coordinates before `dim`, the block of d1s[k]*d2 neighbours of
// each operand k in turn. Without `hascode` no table of code is read and `rcodeptr` is not touched.
KERNEL((436), (), write_dense_stack, CI32 cconst, CI32 code, CI32 codeptr, CI32 cof_base, i32 d0, CI32 d1s, i32 d2,
       i32 n, CI32 ncodeatom, CI32 nidxs_base, bool hascode, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, {wi32, wi64, wf64}};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (hascode) result.codeptr[0] = 0;
  with_constant(hascode, [&](auto code_flag) {
    for (i64 a = 0; a < d0; ++a) {
      for (i64 k = 0; k < n; ++k) {
        const i64 block = i64{d1s[k]} * d2;
        if (block == 1) {
          append_element(result, operands, k, a, code_flag);
        } else if (block > 0) {
          append_elements(result, operands, k, a * block, (a + 1) * block, code_flag);
        }
      }
    }
  });
}

// Writes the stack of dense and sparse operands along the first axis, a sparse result: one operand behind the other,
// the flat positions of each shifted by the sizes of the ones before. An operand without axes has the size 1.
//
// - nd (count): the axes of each operand
KERNEL((439), (), write_first_axis_stack, CI32 cconst, CI32 code, CI32 codeptr, CI32 cof_base, CI32 hassp, i32 n,
       CI32 ncodeatom, i32 nd, CI32 nelem, CI32 nidxs_base, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rsp, CI32 shape_base,
       CI32 sp_base, CF64 wf64, CI32 wi32, CI64 wi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, {wi32, wi64, wf64}};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (rhascode > 0) result.codeptr[0] = 0;
  with_constant(rhascode > 0, [&](auto hascode) {
    i64 shift = 0;
    for (i64 k = 0; k < n; ++k) {
      const i32 count = nelem[k];
      if (count > 0) {
        const Run<i64> rpattern = result.sp.from(result.elements);
        if (hassp[k]) {
          copy_run(rpattern, Run{wi64, sp_base[k]}, count, [shift](auto f) { return shift + f; });
        } else {
          for (i64 i = 0; i < count; ++i) rpattern[i] = shift + i;
        }
        append_elements(result, operands, k, 0, count, hascode);
      }
      i64 size = 1;
      for (i64 d = 0; d < nd; ++d) size = wrapping_mul<i64>(size, wi32[shape_base[k] + d]);
      shift += size;
    }
  });
}

// Writes the keys of a sparse stack, which 442 sorts: for each stored element of each operand in turn, its flat
// position in the result at `key`, the operand's number at `opnum`, its own number in the operand at `elnum`.
KERNEL((441), (), write_stack_keys, CI32 d1s, i32 d2, CI32 hassp, i32 n, CI32 nelem, CI32 offset, i32 rdim,
       CI32 sp_base, i32 opnum, i32 elnum, i32 key, CI64 wi64, I32 xi32, I64 xi64)
{
  Run operand_number{xi32, opnum}, element_number{xi32, elnum};
  Run keys{xi64, key};
  i64 m = 0;
  for (i32 k = 0; k < n; ++k) {
    const i32 count = nelem[k];
    if (count <= 0) continue;
    const bool sparse = hassp[k] != 0;
    const Run pattern{wi64, sparse ? sp_base[k] : 0};
    const Divisor block{i64{d1s[k]} * d2};
    const i64 first = offset[k];
    for (i64 i = 0; i < count; ++i) {
      const auto [a, within] = block.divide(sparse ? pattern[i] : i);
      keys[m + i] = (first + a * rdim) * d2 + within;
      operand_number[m + i] = k;
      element_number[m + i] = static_cast<i32>(i);
    }
    m += count;
  }
}

// Sorts the n keys of a sparse stack by radix, one counting sort of the coordinates on each axis of the result, the
// last axis first. The permutation moves to and fro between `order` and `other`; the first result is where it ended up.
// The buckets are left as the last pass leaves them. Allocates `nd` strides. O(nd * n + the sum of the extents).
//
// - n (count): the keys
// - nd (count): the axes of the result
// - order, other (position in xi32; n): the room for the permutation and for its next order, swapped by each pass
// - bucket (position in xi32; the largest extent + 1): the buckets
KERNEL((442), (i32 order, i32 other), sort_stack_keys, i32 order, CI32 ri32, i32 nd, i32 n, i32 rshape, i32 other,
       i32 key, I32 xi32, CI64 xi64, i32 bucket)
{
  const Run extents{ri32, rshape};
  const Run buckets{xi32, bucket};
  const Run keys{xi64, key};
  const Scratch<i64> strides{nd};
  if (nd > 0) strides[nd - 1] = 1;
  row_major_strides(strides, extents, nd);

  Run from{xi32, order}, to{xi32, other};
  for (i32 i = 0; i < n; ++i) from[i] = i;
  for (i64 d = nd - 1; d >= 0; --d) {
    const Coordinate coordinate{Divisor{strides[d]}, Divisor{extents[d]}, d == 0};
    const auto digit = [&](i64 i) { return coordinate(keys[i]); };
    clear_buckets(buckets, extents[d]);
    count_buckets(buckets, n, digit);  // in the order of the keys, which is that of memory
    add_up(buckets, extents[d]);
    reorder_items(buckets, from, to, n, digit);
    std::swap(from, to);
    std::swap(order, other);
  }
  return {order, other};
}

// Writes a sparse stack in the order of its sorted keys.
//
// - hascode (flag): whether the result has code
// - rhascode (flag): above 0 if `rcodeptr[0]` is set, which goes with `hascode`
// - rnelem (count): the keys, which are the elements of the result
KERNEL((443), (), write_sorted_stack, CI32 cconst, CI32 code, CI32 codeptr, CI32 cof_base, i32 order, CI32 ncodeatom,
       CI32 nidxs_base, bool hascode, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rhascode, i32 rnelem, i32 rnidxs, i32 rptr, i32 rsp, i32 opnum, i32 elnum, i32 key, CF64 wf64,
       CI32 wi32, CI64 wi64, CI32 xi32, CI64 xi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, {wi32, wi64, wf64}};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, rcodeptr, rcode, rcconst);
  const Run sorted{xi32, order}, operand_number{xi32, opnum}, element_number{xi32, elnum};
  const Run keys{xi64, key};
  result.ptr[0] = 0;
  if (rhascode > 0) result.codeptr[0] = 0;
  with_constant(hascode, [&](auto code_flag) {
    for (i64 m = 0; m < rnelem; ++m) {
      const i64 p = sorted[m], i = element_number[p];
      result.sp[m] = keys[p];
      append_element(result, operands, operand_number[p], i, code_flag);
    }
  });
}

}  // namespace fragments
