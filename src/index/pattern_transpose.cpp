// The transpose of a sparse matrix, given by its pattern `sp`, ascending, and the native indices parallel to it. A
// counting sort by column: clear the buckets 299, count 321, add up 322, place 323.

#include "index/counting_sort.h"
#include "index/divisor.h"

namespace fragments {

// Counts the entries of a matrix of d2 columns by column, those of column j in ptr[j+1].
KERNEL((321), (), count_by_column, i32 d2, I32 ptr, CI64 sp)
{
  const Divisor columns(d2);
  count_buckets(ptr, sp.count, [&](i64 k) { return columns.remainder(sp[k]); });
}

// Places the entries column by column: entry (i, j) of a matrix of d2 columns becomes entry (j, i) of one of d1. Since
// `sp` ascends, the rows of each column come in order, and `tsp` ascends strictly.
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
