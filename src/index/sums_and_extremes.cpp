// Sums and running sums of extents and counts, greatest and least entries.
//
// The greatest extent tells how many buckets a counting sort by the axes of an array needs. An empty range gives the
// start value back and reads nothing. 32-bit sums wrap around.
//
// - n (count): the entries

#include <algorithm>

#include "index/shape.h"

namespace fragments {
namespace {

// `start` plus the first n entries, wrapping around.
i32 sum(i32 start, CI32 entries, i64 n)
{
  for (i64 k = 0; k < n; ++k) start = wrapping_add(start, entries[k]);
  return start;
}

template <class T>
struct Extremes {
  T least, most;

  explicit Extremes(T value) : least(value), most(value) {}
  void take(T value)
  {
    least = std::min(least, value);
    most = std::max(most, value);
  }
  void store(StridedArray<T> res, i64 slot) const
  {
    res[slot] = least;
    res[slot + 1] = most;
  }
};

// The least and the greatest of vals1[idx[k]] for k from first up to last-1, and those of `vals2` unless it is None, in
// one pass. An empty range writes nothing.
template <class T>
void extremes_of_one_or_two(i64 first, CI64 idx, i64 last, StridedArray<T> res, StridedArray<const T> vals1,
                            StridedArray<const T> vals2)
{
  if (first >= last) return;
  Extremes<T> one(vals1[idx[first]]);
  if (vals2.data) {
    Extremes<T> two(vals2[idx[first]]);
    for (i64 k = first + 1; k < last; ++k) {
      const i64 at = idx[k];
      one.take(vals1[at]);
      two.take(vals2[at]);
    }
    two.store(res, 2);
  } else {
    for (i64 k = first + 1; k < last; ++k) one.take(vals1[idx[k]]);
  }
  one.store(res, 0);
}

}  // namespace

// `init` plus the first n entries of `numnz`.
KERNEL((227, 251), (i32 init), sum_of_counts, i32 n, CI32 numnz, i32 init)
{
  return sum(init, numnz, n);
}

// `init` plus all entries of `nnzs`.
KERNEL((292), (i32 init), sum_of_all_counts, CI32 nnzs, i32 init)
{
  return sum(init, nnzs, nnzs.count);
}

// Where each of n stacked operands begins along the axis: offset[i+1] = offset[i] + sdims[i] for i below n-1. offset[0]
// is the caller's, and the last extent isn't read.
KERNEL((236), (), offsets_of_operands, i32 n, I32 offset, CI32 sdims)
{
  for (i64 i = 0; i < i64{n} - 1; ++i) offset[i + 1] = wrapping_add(offset[i], sdims[i]);
}

// The greatest of `acc` and the first n extents of `shape`.
KERNEL((52, 65), (i32 acc), greatest_extent_of_shape, i32 acc, i32 n, CI32 shape)
{
  return greatest(acc, shape, 0, n);
}

// The greatest of `acc` and the first n extents of `rshape`.
KERNEL((217), (i32 acc), greatest_extent_of_result, i32 acc, i32 n, CI32 rshape)
{
  return greatest(acc, rshape, 0, n);
}

// The greatest of `acc` and the first n extents of `rshape`.
KERNEL((239), (i32 acc), greatest_extent_of_result_n_first, i32 n, i32 acc, CI32 rshape)
{
  return greatest(acc, rshape, 0, n);
}

// The greatest of `init`, which stands for extent 0, and the extents from 1 up to n-1.
KERNEL((296), (i32 init), greatest_extent_behind_first, i32 init, i32 n, CI32 rshape)
{
  return greatest(init, rshape, 1, n);
}

// The least of `lo` and the entries from 1 up to n-1, and the greatest of `hi` and these entries.
//
// - lo, hi (start): entry 0
KERNEL((594), (i32 lo, i32 hi), extremes_of_ranks, i32 lo, i32 hi, i32 n, CI32 nds)
{
  for (i64 k = 1; k < n; ++k) {
    lo = std::min(lo, nds[k]);
    hi = std::max(hi, nds[k]);
  }
  return {lo, hi};
}

// The least and the greatest of vals1[idx[k]] for k from `first` up to last-1, into res[0] and res[1]; those of
// `vals2`, unless it is None, into res[2] and res[3]. An empty range writes nothing.
//
// - first (index): the first entry of `idx`
// - idx (array; last): the numbers of the values
// - last (index): the end of the entries, exclusive
// - res (array; 4, or 2): the least and the greatest of one or two lists
// - vals1, vals2 (array; up to the last number): 64-bit values; `vals2` may be None
KERNEL((104), (), extremes_of_positions, i64 first, CI64 idx, i64 last, I64 res, CI64 vals1, CI64 vals2)
{
  extremes_of_one_or_two(first, idx, last, res, vals1, vals2);
}

// The least and the greatest of vals1[idx[k]] for k from `first` up to last-1, into res[0] and res[1]; those of
// `vals2`, unless it is None, into res[2] and res[3]. An empty range writes nothing.
//
// - first (index): the first entry of `idx`
// - idx (array; last): the numbers of the values
// - last (index): the end of the entries, exclusive
// - res (array; 4, or 2): the least and the greatest of one or two lists
// - vals1, vals2 (array; up to the last number): 32-bit values; `vals2` may be None
KERNEL((105), (), extremes_of_indices, i64 first, CI64 idx, i64 last, I32 res, CI32 vals1, CI32 vals2)
{
  extremes_of_one_or_two(first, idx, last, res, vals1, vals2);
}

// The greatest of `acc` and the first n extents of the operand.
KERNEL((526, 558), (i32 acc), greatest_extent, i32 acc, i32 n, i32 shape, CI32 wi32)
{
  return greatest(acc, Run{wi32, shape}, 0, n);
}

}  // namespace fragments
