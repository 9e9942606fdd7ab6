// Block sums: each run of `blk` neighbouring elements of an operand becomes one element, block q having the flat
// positions q*blk .. q*blk + blk-1. Terms are not merged, so that `nidxs`, `cof` and code of the result are the
// operand's as they stand and only the pattern is made anew.
//
//     dense operand    `rptr` 501, for elements of one size
//     sparse operand   count the blocks 496, `rptr` and `rsp` 499
//
// - blk (size): the elements of a block, above 0

#include "index/pattern_runs.h"
#include "stack/record.h"

namespace fragments {

// `acc` plus the number of blocks that n flat positions lie in.
KERNEL((496), (i32 acc), count_blocks, i64 blk, i32 acc, i32 n, i32 sp, CI64 wi64)
{
  for_each_row_run(Run{wi64, sp}, n, blk, [&](i64, i32, i32) { ++acc; });
  return acc;
}

// Writes the pattern and the `ptr` of the next `ng` blocks that hold elements; `rptr[0]` is the caller's.
//
// - n (count): the stored elements of the operand
// - rhassp (flag): whether `rsp` is written
// - ng (count): the blocks
// - cur (cursor): the next of the operand's elements
KERNEL((499), (i32 cur), write_blocks, i64 blk, i32 n, i32 ptr, bool rhassp, I32 ri32, I64 ri64, i32 ng, i32 rptr,
       i32 rsp, i32 cur, i32 sp, CI32 wi32, CI64 wi64)
{
  const Run ends{wi32, ptr};
  const Run pattern{wi64, sp};
  const Run result_pattern{ri64, rsp};
  const Run result_ptr{ri32, rptr};
  for (i64 g = 0; g < ng; ++g) {
    const i64 q = pattern[cur] / divisor("blk", blk);
    const i64 block_end = (q + 1) * blk;
    if (rhassp) result_pattern[g] = q;
    while (cur < n && pattern[cur] < block_end) ++cur;
    result_ptr[g + 1] = ends[cur];
  }
  return cur;
}

}  // namespace fragments
