// New semidefinite variables and the tables of their elements.
//
// The elements of all semidefinite variables are numbered through. They come in blocks of variables of one order d; a
// variable has the d*(d+1)/2 elements of its lower triangle, column by column, each column from the diagonal down.
//
// - first (index): the first of the new variables
// - n (count): the new variables

#include "index/slots.h"

namespace fragments {

// Numbers n variables from `first` on.
//
// - barvaridxs (array; n): the number of each variable
KERNEL((7), (), number_semidefinite_variables, I32 barvaridxs, i32 first, i32 n)
{
  for (i32 k = 0; k < n; ++k) barvaridxs[k] = first + k;
}

// Fills in a block of n variables of order d: variable, row and column of each element, the order of each variable, and
// the numbers of the block's elements, themselves and not their complements.
//
// - barvar_block_elm_ptr (array; blocks): the first element of each block
// - blk (index): the block
// - d (extent): the order of the variables
// - nativeidxs (array; n * d * (d + 1) / 2): the number of each element of the block
KERNEL((8), (), fill_semidefinite_block, I32 barvar_block_elm_barj, I32 barvar_block_elm_i, I32 barvar_block_elm_j,
       CI32 barvar_block_elm_ptr, I32 barvar_dim, i32 blk, i32 d, i32 first, I64 nativeidxs, i32 n)
{
  if (n <= 0) return;
  // Variables of order 0 have no elements and no base.
  const i64 base = d > 0 ? barvar_block_elm_ptr[blk] : 0;
  const Run barj{barvar_block_elm_barj, base};
  const Run row{barvar_block_elm_i, base};
  const Run column{barvar_block_elm_j, base};
  i64 size = 0;
  for (i32 j = 0; j < d; size += d - j, ++j) {
    fill_progression(row.from(size), d - j, j, 1);
    fill_slots(column.from(size), d - j, j);
  }
  repeat_slots(row.from(size), row, size, i64{n} - 1);
  repeat_slots(column.from(size), column, size, i64{n} - 1);
  for (i32 b = 0; b < n; ++b) fill_slots(barj.from(b * size), size, first + b);
  fill_progression(Run{nativeidxs, 0}, n * size, base, 1);
  for (i32 b = 0; b < n; ++b) barvar_dim[i64{first} + b] = d;
}

}  // namespace fragments
