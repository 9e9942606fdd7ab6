// Products of extents: the number of elements of an array, of some of its axes, of a box.
//
// Every call site of the host layer keeps a parameter order of its own, so one product occurs in many of them. A name
// says which extents are multiplied and then the parameters in their order; `size` is computed in 32 bits, `size64` in
// 64. Either wraps around. An empty range leaves the start value, `acc` or `init`, as it is, and reads nothing.
//
//     size                  all extents of an array
//     leading_size          the first n
//     trailing_size         those behind an axis
//     inner_size            those strictly between two axes
//     range_size            those of axes lo to hi-1
//     last_size             the n that end before an axis or a slot
//     size_without          all but those of two axes
//     box_size              the extents of a box: last, exclusive, less first
//
// Of each kind the 32-bit ones stand first, and those of arrays of extents before those of shapes on a stack.
//
// - dims (array; axes): the extents of the array
// - n (count): the extents that are multiplied
// - d (axis): the axis in front of the extents that are multiplied
// - lo, hi (axis): the axes in front of the extents that are multiplied and behind them
// - top, base, pos (position in wi32 or ri32; axes): the shape of a record

#include "index/shape.h"

namespace fragments {
namespace {

// The extents of a box: first inclusive, last exclusive.
i32 box_size(i32 init, CI32 first, CI32 last, i32 n)
{
  for (i64 d = 0; d < n; ++d) init = wrapping_mul(init, wrapping_sub(last[d], first[d]));
  return init;
}

}  // namespace

// `acc` times all extents of `shape`.
KERNEL((0, 50, 63, 190), (i32 acc), size_acc_shape, i32 acc, CI32 shape)
{
  return product(acc, shape, 0, shape.count);
}

// `init` times all extents of `shape`.
KERNEL((193, 261, 262), (i32 init), size_shape_init, CI32 shape, i32 init)
{
  return product(init, shape, 0, shape.count);
}

// `acc` times all extents of `rshape`.
KERNEL((155), (i32 acc), size_rshape_acc, CI32 rshape, i32 acc)
{
  return product(acc, rshape, 0, rshape.count);
}

// `init` times all extents of `dims`.
KERNEL((277), (i32 init), size_dims_init, CI32 dims, i32 init)
{
  return product(init, dims, 0, dims.count);
}

// `init` times all entries of `vals`.
//
// - vals (array; axes): the extents that are multiplied
KERNEL((576), (i32 init), size_init_vals, i32 init, CI32 vals)
{
  return product(init, vals, 0, vals.count);
}

// `init` times all extents of `eshape`.
KERNEL((588), (i32 init), size_eshape_init, CI32 eshape, i32 init)
{
  return product(init, eshape, 0, eshape.count);
}

// `init` times all extents of `shape`.
KERNEL((249, 268), (i64 init), size64_shape_init, CI32 shape, i64 init)
{
  return product(init, shape, 0, shape.count);
}

// `init` times all extents of `shape`.
KERNEL((276, 278, 279, 280), (i64 init), size64_init_shape, i64 init, CI32 shape)
{
  return product(init, shape, 0, shape.count);
}

// `acc` times all extents of `rshape`.
KERNEL((150), (i64 acc), size64_rshape_acc, CI32 rshape, i64 acc)
{
  return product(acc, rshape, 0, rshape.count);
}

// `init` times all extents of `dims`.
KERNEL((281), (i64 init), size64_dims_init, CI32 dims, i64 init)
{
  return product(init, dims, 0, dims.count);
}

// `init` times all extents of `dim`.
//
// - dim (array; axes): the extents of the array
KERNEL((288), (i64 init), size64_dim_init, CI32 dim, i64 init)
{
  return product(init, dim, 0, dim.count);
}

// `init` times all extents of `dims_`.
KERNEL((617, 625), (i64 init), size64_stored_dims_init, CI32 dims_, i64 init)
{
  return product(init, dims_, 0, dims_.count);
}

// `acc` times the first n extents of `shape`.
KERNEL((56, 93, 147, 156, 160, 210), (i32 acc), leading_size_acc_n_shape, i32 acc, i32 n, CI32 shape)
{
  return product(acc, shape, 0, n);
}

// `acc` times the first n extents of `shape`.
KERNEL((57, 69, 94, 198), (i32 acc), leading_size_n_acc_shape, i32 n, i32 acc, CI32 shape)
{
  return product(acc, shape, 0, n);
}

// `init` times the first n extents of `shape`.
KERNEL((206, 599), (i32 init), leading_size_n_shape_init, i32 n, CI32 shape, i32 init)
{
  return product(init, shape, 0, n);
}

// `acc` times the first n extents of `rshape`.
KERNEL((232), (i32 acc), leading_size_n_acc_rshape, i32 n, i32 acc, CI32 rshape)
{
  return product(acc, rshape, 0, n);
}

// `init` times the first n extents of `rshape`.
KERNEL((316), (i32 init), leading_size_init_n_rshape, i32 init, i32 n, CI32 rshape)
{
  return product(init, rshape, 0, n);
}

// `init` times the first n extents of `resshape`.
KERNEL((254), (i32 init), leading_size_init_n_resshape, i32 init, i32 n, CI32 resshape)
{
  return product(init, resshape, 0, n);
}

// `init` times the first n extents of `idims`.
KERNEL((633), (i32 init), leading_size_n_idims_init, i32 n, CI32 idims, i32 init)
{
  return product(init, idims, 0, n);
}

// `init` times the first n extents of `jdims`.
KERNEL((634), (i32 init), leading_size_n_jdims_init, i32 n, CI32 jdims, i32 init)
{
  return product(init, jdims, 0, n);
}

// `acc` times the first n extents of the shape at `pos`.
KERNEL((81), (i32 acc), leading_size_n_acc_ri32_pos, i32 n, i32 acc, CI32 ri32, i32 pos)
{
  return product(acc, Run{ri32, pos}, 0, n);
}

// n times the first n extents of the shape at `pos`: the number of axes is a factor too. This is intended.
//
// - size (size): the product, n itself for n below 1
KERNEL((45), (i32 size), n_times_leading_size_n_ri32_pos, i32 n, CI32 ri32, i32 pos)
{
  return product(n, Run{ri32, pos}, 0, n);
}

// `init` times the first n extents of the shape at `top`.
KERNEL((424, 431, 529, 535), (i32 init), leading_size_init_n_top_wi32, i32 init, i32 n, i32 top, CI32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// `init` times the first n extents of the shape at `top`.
KERNEL((437), (i32 init), leading_size_n_init_top_wi32, i32 n, i32 init, i32 top, CI32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// `acc` times the first n extents of the shape at `shape`; `flag` comes back as it was given.
//
// - flag (flag): any truth value
KERNEL((556), (bool flag, i32 acc), leading_size_n_flag_acc_shape_wi32, i32 n, bool flag, i32 acc, i32 shape, CI32 wi32)
{
  return {flag, product(acc, Run{wi32, shape}, 0, n)};
}

// `acc` times the first n extents of `shape`.
KERNEL((229), (i64 acc), leading_size64_acc_n_shape, i64 acc, i32 n, CI32 shape)
{
  return product(acc, shape, 0, n);
}

// `acc` times the first n extents of `shape`.
KERNEL((84), (i64 acc), leading_size64_n_acc_shape, i32 n, i64 acc, CI32 shape)
{
  return product(acc, shape, 0, n);
}

// `init` times the first n extents of `shape`.
KERNEL((610), (i64 init), leading_size64_n_shape_init, i32 n, CI32 shape, i64 init)
{
  return product(init, shape, 0, n);
}

// `acc` times the first n extents of `rshape`.
KERNEL((234), (i64 acc), leading_size64_acc_n_rshape, i64 acc, i32 n, CI32 rshape)
{
  return product(acc, rshape, 0, n);
}

// `init` times the first n extents of `rshape`.
KERNEL((293), (i64 init), leading_size64_n_init_rshape, i32 n, i64 init, CI32 rshape)
{
  return product(init, rshape, 0, n);
}

// `init` times the first n extents of the shape at `top`.
KERNEL((356, 360), (i64 init), leading_size64_n_init_top_wi32, i32 n, i64 init, i32 top, CI32 wi32)
{
  return product(init, Run{wi32, top}, 0, n);
}

// `acc` times the first n extents of the shape at `base`.
KERNEL((462), (i64 acc), leading_size64_n_acc_base_wi32, i32 n, i64 acc, i32 base, CI32 wi32)
{
  return product(acc, Run{wi32, base}, 0, n);
}

// `acc` times the first n extents of the shape at `base`.
KERNEL((507), (i64 acc), leading_size64_n_base_acc_wi32, i32 n, i32 base, i64 acc, CI32 wi32)
{
  return product(acc, Run{wi32, base}, 0, n);
}

// `acc` times the first n extents of the shape at `shape`.
KERNEL((542), (i64 acc), leading_size64_acc_shape_wi32_n, i64 acc, i32 shape, CI32 wi32, i32 n)
{
  return product(acc, Run{wi32, shape}, 0, n);
}

// `acc` times the extents of `shape` behind axis d.
KERNEL((58, 95, 200), (i32 acc), trailing_size_d_acc_nd_shape, i32 d, i32 acc, i32 nd, CI32 shape)
{
  return product_between(acc, shape, d, nd);
}

// `acc` times the extents of `shape` behind axis d.
KERNEL((70, 71, 199), (i32 acc), trailing_size_d_nd_acc_shape, i32 d, i32 nd, i32 acc, CI32 shape)
{
  return product_between(acc, shape, d, nd);
}

// `acc` times the extents of `shape` behind axis d.
KERNEL((149, 153, 212), (i32 acc), trailing_size_acc_nd_d_shape, i32 acc, i32 nd, i32 d, CI32 shape)
{
  return product_between(acc, shape, d, nd);
}

// `acc` times the extents of `shape` behind axis d.
KERNEL((157, 161, 211), (i32 acc), trailing_size_nd_d_acc_shape, i32 nd, i32 d, i32 acc, CI32 shape)
{
  return product_between(acc, shape, d, nd);
}

// `acc` times the extents of `rshape` behind axis d.
KERNEL((233), (i32 acc), trailing_size_d_acc_nd_rshape, i32 d, i32 acc, i32 nd, CI32 rshape)
{
  return product_between(acc, rshape, d, nd);
}

// `init` times the extents behind axis `dim` of the shape at `top`.
KERNEL((425, 434, 530, 536), (i32 init), trailing_size_init_dim_nd_top_wi32, i32 init, i32 dim, i32 nd, i32 top,
       CI32 wi32)
{
  return product_between(init, Run{wi32, top}, dim, nd);
}

// `init` times the extents behind axis `dim` of the shape at `top`.
KERNEL((438), (i32 init), trailing_size_dim_nd_init_top_wi32, i32 dim, i32 nd, i32 init, i32 top, CI32 wi32)
{
  return product_between(init, Run{wi32, top}, dim, nd);
}

// `acc` times the extents of `shape` behind axis d.
KERNEL((85), (i64 acc), trailing_size64_d_nd_acc_shape, i32 d, i32 nd, i64 acc, CI32 shape)
{
  return product_between(acc, shape, d, nd);
}

// `acc` times the extents of `shape` behind axis d.
KERNEL((86), (i64 acc), trailing_size64_d_acc_nd_shape, i32 d, i64 acc, i32 nd, CI32 shape)
{
  return product_between(acc, shape, d, nd);
}

// `acc` times the extents behind axis `lo` of the shape at `shape`.
//
// - hi (count): the axes of the operand
KERNEL((544), (i64 acc), trailing_size64_acc_hi_shape_wi32_lo, i64 acc, i32 hi, i32 shape, CI32 wi32, i32 lo)
{
  return product_between(acc, Run{wi32, shape}, lo, hi);
}

// `acc` times the extents of `shape` strictly between axes `lo` and `hi`.
KERNEL((148, 158, 162), (i32 acc), inner_size_acc_lo_hi_shape, i32 acc, i32 lo, i32 hi, CI32 shape)
{
  return product_between(acc, shape, lo, hi);
}

// `init` times the extents of `resshape` strictly between axes `lo` and `hi`.
KERNEL((255), (i32 init), inner_size_init_lo_hi_resshape, i32 init, i32 lo, i32 hi, CI32 resshape)
{
  return product_between(init, resshape, lo, hi);
}

// `init` times the extents of `rshape` strictly between axes `lo` and `hi`.
KERNEL((294), (i64 init), inner_size64_lo_init_hi_rshape, i32 lo, i64 init, i32 hi, CI32 rshape)
{
  return product_between(init, rshape, lo, hi);
}

// `acc` times the extents strictly between axes `lo` and `hi` of the shape at `shape`.
KERNEL((543), (i64 acc), inner_size64_acc_shape_wi32_lo_hi, i64 acc, i32 shape, CI32 wi32, i32 lo, i32 hi)
{
  return product_between(acc, Run{wi32, shape}, lo, hi);
}

// `acc` times the extents of axes `lo` to hi-1, the first of which stands at `base`.
//
// - lo (axis): the first axis
// - hi (axis): the end of the axes, exclusive
// - base (position in wi32; hi - lo): the extent of axis `lo`
KERNEL((494), (i64 acc), range_size64_acc_hi_lo_base_wi32, i64 acc, i32 hi, i32 lo, i32 base, CI32 wi32)
{
  return product(acc, Run{wi32, base}, 0, i64{hi} - lo);
}

// `acc` times the extents of axes `lo` to hi-1, the first of which stands at `base`.
//
// - lo (axis): the first axis
// - hi (axis): the end of the axes, exclusive
// - base (position in wi32; hi - lo): the extent of axis `lo`
KERNEL((497), (i64 acc), range_size64_hi_lo_acc_base_wi32, i32 hi, i32 lo, i64 acc, i32 base, CI32 wi32)
{
  return product(acc, Run{wi32, base}, 0, i64{hi} - lo);
}

// `acc` times the last n extents before axis `hi` of the shape at `base`.
//
// - hi (axis): the end of the axes, exclusive
KERNEL((495), (i64 acc), last_size64_acc_hi_n_base_wi32, i64 acc, i32 hi, i32 n, i32 base, CI32 wi32)
{
  return product(acc, Run{wi32, i64{base} + hi - n}, 0, n);
}

// `init` times the n extents in the slots before `top`.
//
// - top (position in i32): the end of the extents, exclusive
KERNEL((613), (i64 init), last_size64_n_i32_top_init, i32 n, CI32 i32_arg, i32 top, i64 init)
{
  return product(init, Run{i32_arg, i64{top} - n}, 0, n);
}

// `acc` times the first nd extents of `shape`, those of axes d and e left out.
//
// - d, e (axis): the axes that are left out
KERNEL((83), (i32 acc), size_without_d_e_nd_acc_shape, i32 d, i32 e, i32 nd, i32 acc, CI32 shape)
{
  for (i32 k = 0; k < nd; ++k) {
    if (k != d && k != e) acc = wrapping_mul(acc, shape[k]);
  }
  return acc;
}

// `acc` times the extents last[k] - first[k] of a box of n axes.
KERNEL((184), (i32 acc), box_size_first_last_n_acc, CI32 first, CI32 last, i32 n, i32 acc)
{
  return box_size(acc, first, last, n);
}

// `init` times the extents lasta[k] - firsta[k] of a box of n axes.
KERNEL((259), (i32 init), box_size_firsta_lasta_n_init, CI32 firsta, CI32 lasta, i32 n, i32 init)
{
  return box_size(init, firsta, lasta, n);
}

}  // namespace fragments
