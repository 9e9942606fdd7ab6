// Stacks: n operands joined along the axis `dim`, one that they have or a new one. The shapes around `dim` are folded
// to three extents, d0 before it, d1 of the axis itself (`d1s`, one for each operand) and d2 behind it, so that element
// (a, b, g) of an operand has the flat position (a*d1 + b)*d2 + g.
//
//     every stack      check 428, extent at `dim` 429, shape 427, measure 430, d0 424 or 437, d2 425 or 438
//     all dense        write 436
//     sparse, dim 0    write 439
//     sparse, others   extent at `dim` 433, where each operand begins there 432, keys 441, number of buckets 440,
//                      sort 442, write 443
//
// An operand is given by its places in tables of positions and counts; a table is read where there is something to
// copy. The writers set `rptr[0]` and, in a result with code, `rcodeptr[0]`. In such a result the terms of an operand
// without code get the atom (2, 0.0) each. An element without terms keeps its place everywhere.

#include <utility>

#include "index/counting_sort.h"
#include "index/divisor.h"
#include "index/shape.h"
#include "index/slots.h"
#include "stack/record.h"

namespace fragments {
namespace {

// The operands' fields.
struct OperandTables {
  CI32 ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom;
  I32 wi32;
  I64 wi64;
  F64 wf64;
};

// Appends the elements b .. e-1 of operand k, at least one, as one run of terms.
template <class Flag>
void append_elements(Writer& result, const OperandTables& from, i64 k, i64 b, i64 e, Flag hascode)
{
  Operand operand{.ptr{from.wi32, from.ptr_base[k]}};
  const i32 terms = operand.ptr[e] - operand.ptr[b];
  bool own_code = false;
  if (terms > 0) {
    operand.nidxs = {from.wi64, from.nidxs_base[k]};
    operand.cof = {from.wf64, from.cof_base[k]};
    own_code = hascode && from.ncodeatom[k] > 0;
    if (own_code) {
      operand.codeptr = {from.wi32, from.codeptr[k]};
      operand.code = {from.wi32, from.code[k]};
      operand.cconst = {from.wf64, from.cconst[k]};
    }
  }
  result.append_elements(operand, b, e, own_code);
  if (hascode && !own_code) result.append_zero_code(terms);
}

}  // namespace

// Copies a shape.
KERNEL((427), (), copy_operand_shape, i32 n, I32 shape, CI32 shape_)
{
  copy_slots(Run{shape, 0}, Run{shape_, 0}, n);
}

// Checks that the operands from 1 on have the number of axes and, but for `dim`, the extents of operand 0: `bad` if
// not. The operand whose own number is `dim` may have any number of axes, which is intended; its first `nd` extents are
// compared all the same. `alldense` stays if no operand from 1 on is sparse; for operand 0 the caller has set it.
KERNEL((428), (bool, bool), check_operands, bool alldense, i32 dim, CI32 hassp, bool bad, i32 n, i32 nd, CI32 nds,
       i32 shape, CI32 shape_base, CI32 wi32)
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
    bad = bad || extents_differ(k, 0, dim) || extents_differ(k, static_cast<i64>(dim) + 1, nd);
    alldense = alldense && hassp[k] == 0;
  }
  return {alldense, bad};
}

// The extent of the result at `dim`: `total` plus the operands' extents there. A new axis, `dim` at or behind `nd`, has
// the extent n, whatever `total` is.
KERNEL((429), (i32), stacked_extent, i32 dim, i32 n, i32 nd, i32 total, CI32 shape_base, CI32 wi32)
{
  if (dim >= nd) return n;
  for (i64 k = 0; k < n; ++k) total = wrapping_add(total, wi32[static_cast<i64>(shape_base[k]) + dim]);
  return total;
}

// Measures the result: whether it has code, `c` its atoms, `e` its elements, `k` its terms. Atoms count only if there
// is code at all.
KERNEL((430), (bool, i32, i32, i32), measure_stack, i32 n, CI32 ncodeatom, CI32 nelem, CI32 nnz, bool hascode, i32 c,
       i32 e, i32 k)
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

// Where each operand begins on the axis `dim` of the result; `offset[0]` is the caller's.
KERNEL((432), (), write_offsets, CI32 d1s, i32 n, I32 offset)
{
  for (i64 i = 0; i < n - 1; ++i) offset[i + 1] = wrapping_add(offset[i], d1s[i]);
}

// `init` plus the operands' extents at `dim`.
KERNEL((433), (i32), sum_of_extents, i32 init, CI32 d1s, i32 n)
{
  for (i64 i = 0; i < n; ++i) init = wrapping_add(init, d1s[i]);
  return init;
}

// `init` or the largest extent of the result, if that is larger.
KERNEL((440), (i32), largest_extent, i32 init, CI32 ri32, i32 n, i32 top)
{
  const Run extents{ri32, top};
  for (i64 i = 0; i < n; ++i) init = extents[i] > init ? extents[i] : init;
  return init;
}

// Stack of dense operands: for every a, the elements of one a of each operand in turn, which lie together. Without
// `hascode` no table of code is read and `rcodeptr` is not touched.
KERNEL((436), (), write_dense_stack, CI32 cconst, CI32 code, I32 codeptr, CI32 cof_base, i32 d0, CI32 d1s, i32 d2,
       i32 n, CI32 ncodeatom, CI32 nidxs_base, bool hascode, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, F64 wf64, I32 wi32, I64 wi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, wi32, wi64, wf64};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst);
  result.ptr[0] = 0;
  if (hascode) result.codeptr[0] = 0;
  with_constant(hascode, [&](auto code_flag) {
    for (i64 a = 0; a < d0; ++a) {
      for (i64 k = 0; k < n; ++k) {
        const i64 block = static_cast<i64>(d1s[k]) * d2;
        if (block > 0) append_elements(result, operands, k, a * block, (a + 1) * block, code_flag);
      }
    }
  });
}

// Stack of dense and sparse operands along the first axis: one operand behind the other, the flat positions of each
// shifted by the sizes of the ones before. Always writes `rsp`. An operand without axes has the size 1.
KERNEL((439), (), write_first_axis_stack, CI32 cconst, CI32 code, I32 codeptr, CI32 cof_base, CI32 hassp, i32 n,
       CI32 ncodeatom, i32 nd, CI32 nelem, CI32 nidxs_base, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr,
       i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, i32 rsp, CI32 shape_base,
       CI32 sp_base, F64 wf64, I32 wi32, I64 wi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, wi32, wi64, wf64};
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
          copy_run(rpattern, Run{wi64, sp_base[k]}, count, [shift](i64 f) { return shift + f; });
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

// The keys of a sparse stack: for each stored element of each operand in turn, its flat position in the result at
// `key`, the operand's number at `opnum`, its own number in the operand at `elnum`.
KERNEL((441), (), write_stack_keys, CI32 d1s, i32 d2, CI32 hassp, i32 n, CI32 nelem, CI32 offset, i32 rdim,
       CI32 sp_base, i32 opnum, i32 elnum, i32 key, I64 wi64, I32 xi32, I64 xi64)
{
  Run operand_number{xi32, opnum}, element_number{xi32, elnum};
  Run keys{xi64, key};
  i64 m = 0;
  for (i32 k = 0; k < n; ++k) {
    const i32 count = nelem[k];
    if (count <= 0) continue;
    const bool sparse = hassp[k] != 0;
    const Run<i64> pattern = sparse ? Run{wi64, sp_base[k]} : Run<i64>{};
    const Divisor block{static_cast<i64>(d1s[k]) * d2};
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

// Sorts the n keys of a sparse stack by radix, one counting sort of the coordinates on each axis, the last axis first.
// The permutation moves to and fro between `order` and `other`; what is returned first is where it ended up. The
// buckets are left as the last pass leaves them. Allocates `nd` strides.
KERNEL((442), (i32, i32), sort_stack_keys, i32 order, CI32 ri32, i32 nd, i32 n, i32 rshape, i32 other, i32 key,
       I32 xi32, CI64 xi64, i32 bucket)
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
    const Divisor stride{strides[d]}, extent{extents[d]};
    const auto coordinate = [&](i64 i) { return extent.remainder(stride.quotient(keys[i])); };
    clear_buckets(buckets, extents[d]);
    count_buckets(buckets, n, coordinate);
    add_up(buckets, extents[d]);
    reorder_items(buckets, from, to, n, coordinate);
    std::swap(from, to);
    std::swap(order, other);
  }
  return {order, other};
}

// Sparse stack in the order of its sorted keys. `hascode` tells whether the result has code, `rhascode` only whether
// `rcodeptr[0]` is set.
KERNEL((443), (), write_sorted_stack, CI32 cconst, CI32 code, I32 codeptr, CI32 cof_base, i32 order, CI32 ncodeatom,
       CI32 nidxs_base, bool hascode, CI32 ptr_base, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rhascode, i32 rnelem, i32 rnidxs, i32 rptr, i32 rsp, i32 opnum, i32 elnum, i32 key, F64 wf64,
       I32 wi32, I64 wi64, CI32 xi32, CI64 xi64)
{
  const OperandTables operands{ptr_base, nidxs_base, cof_base, codeptr, code, cconst, ncodeatom, wi32, wi64, wf64};
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
      append_elements(result, operands, operand_number[p], i, i + 1, code_flag);
    }
  });
}

}  // namespace fragments
