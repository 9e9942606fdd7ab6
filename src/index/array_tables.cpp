// Several arrays that arrive together, as one array of arrays: the extents of their stack, and their interleaving.
//
// Entries that are None are empty. A loop that reads an entry relies on its length unless the kernel says otherwise.

#include <algorithm>

#include "index/shape.h"
#include "index/slots.h"

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
  if (size < 1 || width < 1) return;
  bool apart = true;
  for (i64 j = 0; j < width; ++j) apart &= are_apart(Run{con_nativeidxs, 0}, size * width, Run{nidxlist[j], 0}, size);
  // List by list for some rows that stay in the nearest cache; in order where an order shows.
  const i64 rows = apart ? std::max<i64>(2048 / width, 16) : 1;
  for (i64 b = 0; b < size; b += rows) {
    const i64 n = std::min(rows, size - b);
    for (i64 j = 0; j < width;) {
      const Run to{con_nativeidxs, b * width + j};
      const Run from{nidxlist[j], b};
      if (width == 1 && apart) {
        copy_slots(to, from, n);
        ++j;
      } else if (j + 1 < width && apart) {
        const Run second{nidxlist[j + 1], b};
        for (i64 r = 0; r < n; ++r) {
          to[r * width] = from[r];
          to[r * width + 1] = second[r];
        }
        j += 2;
      } else {
        for (i64 r = 0; r < n; ++r) to[r * width] = from[r];
        ++j;
      }
    }
  }
}

}  // namespace fragments
