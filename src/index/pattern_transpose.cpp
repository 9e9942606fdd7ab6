// The transpose of a sparse matrix, given by its pattern `sp`, ascending, and the native numbers parallel to it. A
// counting sort by column: clear the buckets 299, count 321, add up 322, place 323. O(entries + columns).
//
// - d1 (extent): the rows of the matrix, which are the columns of the transpose
// - d2 (extent): the columns of the matrix

#include "index/counting_sort.h"
#include "index/divisor.h"

namespace fragments {

// Counts the entries of a matrix by column, those of column j in ptr[j+1].
//
// - ptr (array; d2 + 1): the buckets, which come in zeroed
KERNEL((321), (), count_by_column, i32 d2, I32 ptr, CI64 sp)
{
  const Divisor columns(d2);
  count_buckets(ptr, sp.count, [&](i64 k) { return columns.remainder(sp[k]); });
}

// Places the entries column by column: entry (i, j) of a matrix becomes entry (j, i) of its transpose. Since `sp`
// ascends, the rows of each column come in order, and `tsp` ascends strictly.
//
// - ptr (array; d2 + 1): where the entries of each column begin; each is left at its end
// - tnidxs (array; elements): the native number of each entry of the transpose
// - tsp (array; elements): the flat position of each entry of the transpose
KERNEL((323), (), place_transposed, i32 d1, i32 d2, CI32 nidxs, I32 ptr, CI64 sp, I32 tnidxs, I64 tsp)
{
  struct Entry {
    i64 k, row, column;
  };
  const Divisor columns(d2);
  place_items(
      ptr, sp.count,
      [&](i64 k) {
        const auto [row, column] = columns.divide(sp[k]);
        return Entry{k, row, column};
      },
      [](const Entry& entry) { return entry.column; },
      [&](i64 place, const Entry& entry) {
        tnidxs[place] = nidxs[entry.k];
        tsp[place] = d1 * entry.column + entry.row;
      });
}

}  // namespace fragments
