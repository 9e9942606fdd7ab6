// Sorting a sparsity pattern by its axes, in an order of the axes that the host layer chooses: the elements are
// numbered, and then comes one stable pass for each axis, the least significant first, with the two permutations
// swapped in between. A pass clears the buckets, counts the elements of each, adds up, and places. There is a bucket
// for each coordinate along the axis, (sp[k] / strides[d]) % shape[d].
//
//     strides of the axes    297    218 240
//     room for the buckets   296    217 239     the greatest extent, and 1 more
//     number the elements    298    219 237
//     clear the buckets      299    220 241
//     count                  300    221 242
//     add up                 301    222 243
//     place                  302    223 244
//
// The second column is for views of variables. A pass is linear in the elements and the extent. The pattern need not
// ascend.
//
// - d (axis): the axis to sort by
// - ptr (array; buckets + 1): the buckets of the counting sort, one a coordinate along the axis
// - rshape (array; axes): the extents of the array
// - rstrides, s (array; axes): the strides of the array
// - sp, rsp (array; elements): the flat position of each element

#include "index/counting_sort.h"
#include "index/divisor.h"

namespace fragments {
namespace {

// The coordinate along axis d of flat positions.
Coordinate along_axis(i32 d, CI32 shape, CI64 strides)
{
  return {Divisor(strides[d]), Divisor(shape[d])};
}

void count_by_axis(i32 d, I32 ptr, i32 n, CI32 shape, CI64 strides, CI64 sp)
{
  if (n < 1) return;
  const Coordinate coordinate = along_axis(d, shape, strides);
  count_buckets(ptr, n, [&](i64 k) { return coordinate(sp[k]); });
}

void place_by_axis(i32 d, CI32 from, I32 to, I32 ptr, i32 n, CI32 shape, CI64 strides, CI64 sp)
{
  if (n < 1) return;
  const Coordinate coordinate = along_axis(d, shape, strides);
  reorder_items(ptr, from, to, n, [&](i64 k) { return coordinate(sp[k]); });
}

}  // namespace

// The order to begin with, elements as they are stored: perm[k] = k for k below n.
//
// - perm (array; n): the numbers of the elements
// - n (count): the elements
KERNEL((298), (), number_elements, I32 perm, i32 n)
{
  number_items(perm, n);
}

// Zeroes ptr[0 .. n] for n buckets; nothing for n below 0.
//
// - n (count): the buckets
KERNEL((299), (), clear_pattern_buckets, i32 n, I32 ptr)
{
  clear_buckets(ptr, n);
}

// Counts the elements by their coordinate along axis d, those of coordinate b in ptr[b+1]. They are taken as they are
// stored: the order reached doesn't matter here.
//
// - nnz (count): the elements
KERNEL((300), (), count_elements_by_axis, i32 d, I32 ptr, i32 nnz, CI32 rshape, CI64 rstrides, CI64 sp)
{
  count_by_axis(d, ptr, nnz, rshape, rstrides, sp);
}

// From the counts of buckets to their starts: the running sum of ptr[0 .. n].
//
// - n (count): the buckets
KERNEL((301, 322), (), add_up_pattern_buckets, i32 n, I32 ptr)
{
  add_up(ptr, n);
}

// Sorts the elements, in the order of `perm`, by their coordinate along axis d. The buckets come in with their starts,
// and each is left at its end.
//
// - perm (array; nnz): the numbers of the elements in the order reached so far
// - perm2 (array; nnz): the numbers of the elements in the order that the pass makes
// - nnz (count): the elements
KERNEL((302), (), place_elements_by_axis, i32 d, CI32 perm, I32 perm2, I32 ptr, i32 nnz, CI32 rshape, CI64 rstrides,
       CI64 sp)
{
  place_by_axis(d, perm, perm2, ptr, nnz, rshape, rstrides, sp);
}

// Zeroes ptr[0 .. rshape[d]], the buckets of a pass by axis d.
KERNEL((220, 241), (), clear_view_buckets, i32 d, I32 ptr, CI32 rshape)
{
  clear_buckets(ptr, rshape[d]);
}

// Counts n elements by their coordinate along axis d, those of coordinate b in ptr[b+1]. They are taken as they are
// stored: the order reached doesn't matter here.
//
// - n (count): the elements
KERNEL((221, 242), (), count_view_by_axis, i32 d, I32 ptr, i32 n, CI32 rshape, CI64 rsp, CI64 s)
{
  count_by_axis(d, ptr, n, rshape, s, rsp);
}

// From the counts of the buckets of axis d to their starts: the running sum of ptr[0 .. rshape[d]].
KERNEL((222, 243), (), add_up_view_buckets, i32 d, I32 ptr, CI32 rshape)
{
  add_up(ptr, rshape[d]);
}

// Sorts n elements, in the order of `curperm`, by their coordinate along axis d, into `tgtperm`. The buckets come in
// with their starts, and each is left at its end.
//
// - n (count): the elements
KERNEL((223, 244), (), place_view_by_axis, CI32 curperm, i32 d, I32 ptr, i32 n, CI32 rshape, CI64 rsp, CI64 s,
       I32 tgtperm)
{
  place_by_axis(d, curperm, tgtperm, ptr, n, rshape, s, rsp);
}

}  // namespace fragments
