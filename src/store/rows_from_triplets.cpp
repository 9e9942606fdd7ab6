// The rows of a stored expression from n terms in any order, entry k being variable idxs[k] in row ii[k]: a stable
// counting sort by row, a kernel a step.
//
//     count 600, add up 601, place 602, move the row pointers back 603
//
// - ii (array; n): the row of each term
// - idxs (array; n): the variable of each term
// - subj (array; n): the variable of each term, by row

#include "index/counting_sort.h"

namespace fragments {

// Counts the terms of each row, in ptrb[row + 1]. `ptrb` comes in as zeros.
KERNEL((600), (), count_terms_of_rows, CI32 ii, i32 n, I64 ptrb)
{
  count_buckets(ptrb, n, [&](i64 k) -> i64 { return ii[k]; });
}

// Turns the counts of n rows into where each row begins and ends.
KERNEL((601), (), add_up_row_counts, I64 ptrb, i32 n)
{
  add_up(ptrb, n);
}

// Places the variables by row; those of a row keep their order. Each ptrb[row] moves to where the row ends.
KERNEL((602), (), place_terms_by_row, CI64 idxs, CI32 ii, i32 n, I64 ptrb, I64 subj)
{
  place_items(
      ptrb, n, [](i64 k) { return k; }, [&](i64 k) -> i64 { return ii[k]; },
      [&](i64 place, i64 k) { subj[place] = idxs[k]; });
}

// Moves the ends of n rows one place up, to where the next row begins. Setting ptrb[0] to 0 is left to the caller.
KERNEL((603), (), restore_row_pointers, I64 ptrb, i32 n)
{
  shift_up(ptrb, n);
}

}  // namespace fragments
