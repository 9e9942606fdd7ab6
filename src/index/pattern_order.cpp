// Sorting a sparsity pattern by its axes, in an order of the axes that the host layer chooses: the elements are
// numbered, and then comes one stable pass for each axis, the least significant first, with the two permutations
// swapped in between. A pass clears the buckets, counts the elements of each, adds up, and places. There is a bucket
// for each coordinate along the axis, (sp[k] / strides[d]) % shape[d].
//
//     number the elements   298    219
//     clear the buckets     299    220
//     count                 300    221
//     add up                301    222
//     place                 302    223
//
// The second column is for the pattern of a view of a variable. A pass is linear in the elements and the extent.

#include "index/counting_sort.h"
#include "index/divisor.h"

namespace fragments {
namespace {

// The coordinate along axis d of flat positions.
class Coordinate {
 public:
  Coordinate(i32 d, CI32 shape, CI64 strides) : extent_(shape[d]), stride_(strides[d]) {}
  i64 operator()(i64 flat) const { return extent_.remainder(stride_.quotient(flat)); }

 private:
  Divisor extent_, stride_;
};

void count_by_axis(i32 d, I32 ptr, i32 n, CI32 shape, CI64 strides, CI64 sp)
{
  if (n < 1) return;
  const Coordinate coordinate(d, shape, strides);
  count_buckets(ptr, n, [&](i64 k) { return coordinate(sp[k]); });
}

void place_by_axis(i32 d, CI32 from, I32 to, I32 ptr, i32 n, CI32 shape, CI64 strides, CI64 sp)
{
  if (n < 1) return;
  const Coordinate coordinate(d, shape, strides);
  reorder_items(ptr, from, to, n, [&](i64 k) { return coordinate(sp[k]); });
}

}  // namespace

// The order to begin with: n elements as they are stored.
KERNEL((298), (), number_elements, I32 perm, i32 n)
{
  number_items(perm, n);
}

// Zeroes ptr[0 .. n] for n buckets.
KERNEL((299), (), clear_pattern_buckets, i32 n, I32 ptr)
{
  clear_buckets(ptr, n);
}

// Counts the elements by their coordinate along axis d, those of coordinate b in ptr[b+1]. They are taken as they are
// stored: the order reached doesn't matter here.
KERNEL((300), (), count_elements_by_axis, i32 d, I32 ptr, i32 nnz, CI32 rshape, CI64 rstrides, CI64 sp)
{
  count_by_axis(d, ptr, nnz, rshape, rstrides, sp);
}

// From the counts of n buckets to their starts: the running sum of ptr[0 .. n].
KERNEL((301, 322), (), add_up_pattern_buckets, i32 n, I32 ptr)
{
  add_up(ptr, n);
}

// Sorts the elements, in the order of `perm`, by their coordinate along axis d: the order reached goes to `perm2`. Each
// bucket's ptr[b] is left at its end.
KERNEL((302), (), place_elements_by_axis, i32 d, CI32 perm, I32 perm2, I32 ptr, i32 nnz, CI32 rshape, CI64 rstrides,
       CI64 sp)
{
  place_by_axis(d, perm, perm2, ptr, nnz, rshape, rstrides, sp);
}

// Zeroes ptr[0 .. rshape[d]], for a pass by axis d.
KERNEL((220, 241), (), clear_view_buckets, i32 d, I32 ptr, CI32 rshape)
{
  clear_buckets(ptr, rshape[d]);
}

// Counts n elements by their coordinate along axis d, as they are stored.
KERNEL((221, 242), (), count_view_by_axis, i32 d, I32 ptr, i32 n, CI32 rshape, CI64 rsp, CI64 s)
{
  count_by_axis(d, ptr, n, rshape, s, rsp);
}

// From the counts to the starts of the buckets of axis d.
KERNEL((222, 243), (), add_up_view_buckets, i32 d, I32 ptr, CI32 rshape)
{
  add_up(ptr, rshape[d]);
}

// Sorts n elements, in the order of `curperm`, by their coordinate along axis d: the order reached goes to `tgtperm`.
KERNEL((223, 244), (), place_view_by_axis, CI32 curperm, i32 d, I32 ptr, i32 n, CI32 rshape, CI64 rsp, CI64 s,
       I32 tgtperm)
{
  place_by_axis(d, curperm, tgtperm, ptr, n, rshape, s, rsp);
}

}  // namespace fragments
