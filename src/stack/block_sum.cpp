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
  return acc + count_row_runs(Run{wi64, sp}, n, blk);
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
  if (ng <= 0) return cur;
  const Run ends{wi32, ptr};
  const Run pattern{wi64, sp};
  const Run result_pattern{ri64, rsp};
  const Run result_ptr{ri32, rptr};
  const Divisor block(divisor("blk", blk));
  if (has_short_rows(pattern.from(cur), n - cur, blk)) {
    // The block is written anew with each of its elements, and nothing branches on where it ends.
    i64 written = 0;
    for (i64 last = -1; cur < n; ++cur) {
      const i64 q = block.quotient(pattern[cur]);
      written += q != last;
      last = q;
      if (written > ng) break;
      if (rhassp) result_pattern[written - 1] = q;
      result_ptr[written] = ends[cur + 1];
    }
    return cur;
  }
  for (i64 g = 0; g < ng; ++g) {
    const i64 q = block.quotient(pattern[cur]);
    const i64 block_end = (q + 1) * blk;
    if (rhassp) result_pattern[g] = q;
    cur = stretch_end(cur, n, [&](i32 k) { return pattern[k] < block_end; });
    result_ptr[g + 1] = ends[cur];
  }
  return cur;
}

}  // namespace fragments
