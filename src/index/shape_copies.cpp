// Shapes made from shapes: copies, with axes taken out, put in, permuted, filled up with 1, or without those of
// extent 1.
//
// Axis k of the source goes to axis k of the target, or to a neighbour where an axis in front of it has gone or come;
// the extents of those axes are the caller's. Only the slots told are written.
//
// - n (count): the extents
// - d (axis): the axis that goes or comes
// - nd (count): the axes of `shape`
// - from, lo (axis): the first axis
// - to, hi (axis): the end of the axes, exclusive
// - s (array; axes): the extents of the result

#include "index/shape.h"

namespace fragments {

// accshape[k] = shape[k] for k below n: the extents of a constraint.
KERNEL((60, 97), (), copy_constraint_extents, I32 accshape, i32 n, CI32 shape)
{
  copy_extents(accshape, 0, shape, 0, n);
}

// coneshape[k] = shape[k] for k below n: the extents of a cone.
KERNEL((72, 90), (), copy_cone_extents, i32 n, I32 coneshape, CI32 shape)
{
  copy_extents(coneshape, 0, shape, 0, n);
}

// rshape[k] = shape[k] for k below n.
KERNEL((225), (), copy_result_extents, i32 n, I32 rshape, CI32 shape)
{
  copy_extents(rshape, 0, shape, 0, n);
}

// rshape[k] = shapei[k] for k below n: the extents of a stack of arrays, from its first item.
KERNEL((289), (), copy_first_item_extents, i32 n, I32 rshape, CI32 shapei)
{
  copy_extents(rshape, 0, shapei, 0, n);
}

// shape[k] = sh[k] for k below n: the extents of a stored expression.
KERNEL((604, 606), (), copy_stored_extents, i32 n, CI32 sh, I32 shape)
{
  copy_extents(shape, 0, sh, 0, n);
}

// s[k] = shape[k] for all extents of `shape`; `s` may be longer.
KERNEL((595), (), copy_extents_to_front, I32 s, CI32 shape)
{
  copy_extents(s, 0, shape, 0, shape.count);
}

// The first n extents of a view to the shape of its record.
//
// - pos (position in ri32; n): the shape of the record
KERNEL((145), (), push_view_extents, i32 n, I32 ri32, CI32 shape, i32 pos)
{
  copy_extents(ri32, pos, shape, 0, n);
}

// All extents of a stored expression to the shape of its record.
//
// - base (position in ri32; len(shape)): the shape of the record
KERNEL((573), (), push_stored_extents, I32 ri32, CI32 shape, i32 base)
{
  copy_extents(ri32, base, shape, 0, shape.count);
}

// rshape[k] = shape[k] for the axes from `from` up to to-1.
KERNEL((152), (), copy_extent_range, i32 from, i32 to, I32 rshape, CI32 shape)
{
  copy_extents(rshape, 0, shape, from, to);
}

// rshape[k] = shape[k] for the axes k behind d.
//
// - d (axis): the axis in front of those copied
KERNEL((228), (), copy_extents_behind, i32 d, i32 nd, I32 rshape, CI32 shape)
{
  copy_extents(rshape, 0, shape, i64{d} + 1, nd);
}

// accshape[k-1] = shape[k] for the axes k behind d: axis d of a constraint goes.
KERNEL((61, 98), (), close_axis_of_constraint, I32 accshape, i32 d, i32 nd, CI32 shape)
{
  copy_extents(accshape, -1, shape, i64{d} + 1, nd);
}

// coneshape[k-1] = shape[k] for the axes k behind d: axis d of a cone goes.
KERNEL((73, 91), (), close_axis_of_cone, i32 d, i32 nd, I32 coneshape, CI32 shape)
{
  copy_extents(coneshape, -1, shape, i64{d} + 1, nd);
}

// rshape[k-1] = shape[k] for the axes k behind d: axis d goes.
KERNEL((154), (), close_axis_of_result, i32 d, i32 nd, I32 rshape, CI32 shape)
{
  copy_extents(rshape, -1, shape, i64{d} + 1, nd);
}

// coneshape[k-2] = shape[k] for the axes k behind d: axis d is the second axis of a cone to go.
KERNEL((74, 92), (), close_second_axis_of_cone, i32 d, I32 coneshape, i32 nd, CI32 shape)
{
  copy_extents(coneshape, -2, shape, i64{d} + 1, nd);
}

// rshape[k+1] = shape[k] for the axes k from d on: a new axis d comes.
KERNEL((226), (), open_axis_of_result, i32 d, i32 nd, I32 rshape, CI32 shape)
{
  copy_extents(rshape, 1, shape, d, nd);
}

// rshape[k] = shape[perm[k]] for k below n.
//
// - perm (array; n): the axis of `shape` that becomes each axis of the result
KERNEL((167), (), permute_extents, i32 n, CI32 perm, I32 rshape, CI32 shape)
{
  for (i64 k = 0; k < n; ++k) rshape[k] = shape[perm[k]];
}

// rshape[k] = 1 for the axes k from `from` up to to-1.
KERNEL((213, 230), (), fill_result_with_ones, i32 from, i32 to, I32 rshape)
{
  fill_ones(rshape, from, to);
}

// shape[k] = 1 for the axes k from `lo` up to hi-1.
KERNEL((605, 607), (), fill_stored_with_ones, i32 lo, i32 hi, I32 shape)
{
  fill_ones(shape, lo, hi);
}

// s[k] = 1 for the axes k below n that `shape` doesn't have.
//
// - n (count): the axes of `s`
KERNEL((596), (), fill_missing_with_ones, i32 n, I32 s, CI32 shape)
{
  fill_ones(s, shape.count, n);
}

// `c` plus the number of extents other than 1 among the first n.
//
// - c (start): what the number is added to
KERNEL((204), (i32 c), count_real_axes, i32 n, i32 c, CI32 shape)
{
  for (i64 k = 0; k < n; ++k) c += shape[k] != 1;
  return c;
}

// The extents other than 1 among the first n, in order.
//
// - realshape (array; one an extent other than 1): those extents
KERNEL((205), (), drop_axes_of_extent_one, i32 n, I32 realshape, CI32 shape)
{
  i64 c = 0;
  for (i64 k = 0; k < n; ++k) {
    const i32 extent = shape[k];
    if (extent != 1) realshape[c++] = extent;
  }
}

}  // namespace fragments
