// Several arrays that arrive together, as one array of arrays: the extents of their stack, and their interleaving.
//
// Entries that are None are empty. A loop that reads an entry relies on its length unless the kernel says otherwise.

#include "index/shape.h"

namespace fragments {

// Adds to rshape[d] the extents along axis d of the first n shapes, for stacking arrays along d. A shape that ends
// before d, None too, counts as extent 1.
//
// - d (axis): the axis of the stack
// - n (count): the shapes to add
// - rshape (array; axes): the extents of the result; rshape[d] holds what to add to
// - shapes (array; n): the shape of each array
KERNEL((231), (), add_stacked_extents, i32 d, i32 n, I32 rshape, CI32Table shapes)
{
  for (i64 k = 0; k < n; ++k) {
    const CI32& shape = shapes[k];
    rshape[d] = wrapping_add(rshape[d], d < shape.count ? shape[d] : 1);
  }
}

// Adds to resshape[dim] the extents along axis `dim` of all shapes; each of them has that axis.
//
// - resshape (array; axes): the extents of the result; resshape[dim] holds what to add to
KERNEL((445), (), add_extents_of_table, i32 dim, I32 resshape, CI32Table shapes)
{
  for (i64 k = 0; k < shapes.count; ++k) resshape[dim] = wrapping_add(resshape[dim], shapes[k][dim]);
}

// Interleaves lists of native numbers: element r of every list in turn, for each r below the product of the first nd
// extents of `resshape`.
//
// - con_nativeidxs (array; product * width): the native numbers in turn
// - width (count): the lists
// - nd (count): the extents that are multiplied
// - nidxlist (array; width): the lists, of the product's length each
KERNEL((256), (), interleave_lists, I32 con_nativeidxs, i32 width, i32 nd, CI32Table nidxlist, CI32 resshape)
{
  const i64 size = product<i64>(1, resshape, 0, nd);
  i64 pos = 0;
  for (i64 r = 0; r < size; ++r) {
    for (i64 j = 0; j < width; ++j) con_nativeidxs[pos++] = nidxlist[j][r];
  }
}

}  // namespace fragments
