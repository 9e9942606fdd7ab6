// Fields that the host layer fills before an operator runs or carries over from an operand as they stand, and whole
// records that an operator leaves as they are.
//
// - flag (flag): above 0 if the result has code

#include "index/counting_sort.h"
#include "stack/copy_structure.h"

namespace fragments {

// Zeroes n slots, as the coefficients of terms that are all code.
KERNEL((333, 373, 378), (), zero_slots, i32 top, F64 rf64, i32 n)
{
  fill_slots(Run{rf64, top}, n, 0.0);
}

// Writes the `ptr` of n elements of k terms each.
//
// - k (count): the terms of an element
// - top (position in ri32; n + 1): the `ptr`
KERNEL((334), (), write_even_ptr, i32 k, I32 ri32, i32 n, i32 top)
{
  fill_multiples(Run{ri32, top}, 0, n, k);
}

// Writes the `ptr` of n elements of k terms each but for its first slot, which is there already. Multiples are cut to
// 32 bits.
//
// - k (count): the terms of an element
// - top (position in ri32; n + 1): the `ptr`
KERNEL((501), (), write_even_ptr_ends, i64 k, I32 ri32, i32 n, i32 top)
{
  fill_multiples(Run{ri32, top}, 1, n, static_cast<i32>(k));
}

// Writes -999, the placeholder, for n terms that have no variable yet.
KERNEL((335), (), write_placeholder_variables, I64 ri64, i32 top, i32 n)
{
  fill_slots(Run{ri64, top}, n, i64{-999});
}

// Copies a run of n variables `times` times, one copy behind the other.
//
// - times (count): the copies
// - top (position in ri64; times * n): the copies
KERNEL((336), (), repeat_variables, i32 from, i32 n, I64 ri64, i32 times, i32 top, CI64 wi64)
{
  repeat_slots(Run{ri64, top}, Run{wi64, from}, n, times);
}

// Marks the `ptr` of n elements as not yet set, by -9999.
//
// - top (position in ri32; n + 1): the `ptr`
KERNEL((377), (), mark_ptr_unset, I32 ri32, i32 n, i32 top)
{
  fill_slots(Run{ri32, top}, n + i64{1}, -9999);
}

// Zeroes the `ptr` of n elements, to count in: rows of a variable.
//
// - top (position in wi32; n + 1): the `ptr`
KERNEL((481), (), zero_ptr_on_w, i32 top, I32 wi32, i32 n)
{
  fill_slots(Run{wi32, top}, n + i64{1}, 0);
}

// Zeroes the `ptr` of the n elements of a sum, to count in.
//
// - pos (position in ri32; n + 1): the `ptr`
KERNEL((516), (), zero_ptr_on_r, I32 ri32, i32 n, i32 pos)
{
  fill_slots(Run{ri32, pos}, n + i64{1}, 0);
}

// Zeroes the slots in which the atoms of the n elements of a sum are counted, if it has code.
//
// - pos (position in xi32; n + 1): the slots
KERNEL((517), (), zero_ptr_on_x, i32 flag, i32 n, i32 pos, I32 xi32)
{
  if (flag > 0) fill_slots(Run{xi32, pos}, n + i64{1}, 0);
}

// Copies the `ptr` of n elements.
//
// - from (position in wi32; n + 1): the operand's `ptr`
// - to (position in ri32; n + 1): the result's `ptr`
KERNEL((381), (), copy_ptr, i32 n, i32 from, I32 ri32, i32 to, CI32 wi32)
{
  copy_slots(Run{ri32, to}, Run{wi32, from}, n + i64{1});
}

// Copies n extents.
KERNEL((361, 382, 388, 398, 435, 532, 537, 552, 568, 571), (), copy_record_extents, i32 n, I32 ri32, i32 to, i32 from,
       CI32 wi32)
{
  copy_slots(Run{ri32, to}, Run{wi32, from}, n);
}

// Copies n extents of a summand.
KERNEL((498, 500, 503, 505, 509), (), copy_summand_extents, I32 ri32, i32 n, i32 to, i32 from, CI32 wi32)
{
  copy_slots(Run{ri32, to}, Run{wi32, from}, n);
}

// Copies n variables.
KERNEL((383), (), copy_variables, i32 from, i32 n, I64 ri64, i32 to, CI64 wi64)
{
  copy_slots(Run{ri64, to}, Run{wi64, from}, n);
}

// Copies n coefficients.
KERNEL((384), (), copy_coefficients, i32 from, i32 n, i32 to, F64 rf64, CF64 wf64)
{
  copy_slots(Run{rf64, to}, Run{wf64, from}, n);
}

// Copies the flat positions of n elements, if the record has a pattern.
KERNEL((385, 399), (), copy_pattern, bool hassp, i32 n, I64 ri64, i32 to, i32 from, CI64 wi64)
{
  if (hassp) copy_slots(Run{ri64, to}, Run{wi64, from}, n);
}

// Copies the extents of operand 0, of which there are `nd[0]`.
//
// - pos (position in ri32; nd[0]): the result's extents
KERNEL((515), (), copy_first_extents, CI32 nd, I32 ri32, i32 pos, CI32 shape_base, CI32 wi32)
{
  if (nd[0] > 0) copy_slots(Run{ri32, pos}, Run{wi32, shape_base[0]}, nd[0]);
}

// Copies the extents behind an axis that is removed, each one place down: axis d of the result is axis d+1 of the
// operand.
//
// - lo (axis): the axis that is removed
// - hi (count): the operand's axes
KERNEL((533, 538), (), copy_extents_behind_axis, i32 lo, i32 hi, I32 ri32, i32 rshape, i32 shape, CI32 wi32)
{
  const i64 first = lo;
  copy_slots(Run{ri32, rshape + first}, Run{wi32, shape + first + 1}, hi - first - 1);
}

// Copies n extents from an array of their own: the shape of a constant array.
KERNEL((402), (), push_extents, i32 n, I32 ri32, i32 rshape, CI32 shape)
{
  copy_slots(Run{ri32, rshape}, Run{shape, 0}, n);
}

// Copies n extents from an array of their own: the shape of a slice.
KERNEL((415), (), push_slice_extents, i32 n, I32 ri32, CI32 rshape, i32 top)
{
  copy_slots(Run{ri32, top}, Run{rshape, 0}, n);
}

// Copies n flat positions from an array of their own, if the constant array has a pattern.
KERNEL((403), (), push_pattern, bool hassp, i32 n, I64 ri64, i32 rsp, CI64 sparsity)
{
  if (hassp) copy_slots(Run{ri64, rsp}, Run{sparsity, 0}, n);
}

// Copies n extents from one array to another.
KERNEL((444), (), copy_shape, i32 n, I32 resshape, CI32 shape)
{
  copy_slots(Run{resshape, 0}, Run{shape, 0}, n);
}

// Copies as many extents as `rshape` has room for from one array to another.
KERNEL((502), (), fill_shape, I32 rshape, CI32 shape)
{
  copy_slots(Run{rshape, 0}, Run{shape, 0}, rshape.count);
}

// Adds up counts, so that they become a `ptr`: slot i+1 grows by slot i, for i below n.
//
// - pos (position in ri32; n + 1): the `ptr`
KERNEL((520), (), add_up_ptr_on_r, I32 ri32, i32 n, i32 pos)
{
  add_up(Run{ri32, pos}, n);
}

// Adds up the counts of atoms of the elements of a sum, if it has code: slot i+1 grows by slot i, for i below n.
//
// - pos (position in xi32; n + 1): the counts
KERNEL((521), (), add_up_ptr_on_x, i32 flag, i32 n, i32 pos, I32 xi32)
{
  if (flag > 0) add_up(Run{xi32, pos}, n);
}

// Moves slots 0 .. n-1 one place up: cursors that have advanced to the ends of their elements become the `ptr` again.
// Slot 0 keeps the end of element 0, and the caller sets it to 0.
//
// - pos (position in ri32; n + 1): the cursors
KERNEL((524), (), shift_ptr_up, I32 ri32, i32 n, i32 pos)
{
  shift_up(Run{ri32, pos}, n);
}

// Writes the identity permutation of n elements.
//
// - base (position in xi32; n): the permutation
KERNEL((527, 563), (), write_identity_permutation, i32 base, i32 n, I32 xi32)
{
  number_items(Run{xi32, base}, n);
}

// Copies a record field by field from w to r, its pattern if it is sparse, its code if it has any.
KERNEL((396, 557), (), copy_record, i32 cconst, i32 code, i32 codeptr, i32 cof, bool hassp, i32 ncodeatom, i32 nd,
       i32 nelem, i32 nidxs, i32 nnz, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rnidxs, i32 rptr, i32 rshape, i32 rsp, i32 shape, i32 sp, CF64 wf64, CI32 wi32, CI64 wi64)
{
  copy_structure({ri32, ri64, rf64}, {rshape, rsp, rptr, rnidxs}, {wi32, wi64, wf64}, {shape, sp, ptr, nidxs},
                 {nd, nelem, nnz}, hassp);
  copy_slots(Run{rf64, rcof}, Run{wf64, cof}, nnz);
  if (ncodeatom <= 0) return;
  copy_slots(Run{ri32, rcodeptr}, Run{wi32, codeptr}, nnz + i64{1});
  copy_slots(Run{ri32, rcode}, Run{wi32, code}, ncodeatom);
  copy_slots(Run{rf64, rcconst}, Run{wf64, cconst}, ncodeatom);
}

}  // namespace fragments
