// Lists of variable numbers: test for order, narrowing, removal of repeats, concatenation.
//
// A list of 64-bit numbers `varidxs` becomes one of 32 bits, `varidxs32`, whose slot 0 is the caller's. If it does not
// ascend, it is sorted through a permutation `perm`; then the repeats go.
//
//     ascending list   test 245, narrow 246
//     any other        count 247, narrow without repeats 248
//     two lists        concatenate 274 and 275
//
// - set1, set2 (array; variables): the lists to concatenate
// - r (array; variables of both lists): the concatenation

#include "index/order.h"
#include "model/select.h"

namespace fragments {

// Whether the first n entries strictly ascend.
//
// - flag (flag): whether all is well; one that comes in cleared stays so
KERNEL((245), (bool flag), check_variables_ascend, bool flag, i32 n, CI64 varidxs)
{
  return flag && is_ascending(varidxs, n);
}

// Narrows n entries, one slot up.
//
// - varidxs32 (array; n + 1): the numbers in 32 bits; slot 0 is the caller's
KERNEL((246), (), narrow_behind_first, i32 n, CI64 varidxs, I32 varidxs32)
{
  for (i64 k = 0; k < n; ++k) varidxs32[k + 1] = static_cast<i32>(varidxs[k]);
}

// Counts the ascents between neighbours in the order of `perm`: in a sorted one, the distinct variables less 1.
//
// - count (cursor): the ascents
KERNEL((247), (i32 count), count_distinct_variables, i32 n, i32 count, CI64 perm, CI64 varidxs)
{
  return count + count_ascents(varidxs, n, [&](i64 k) { return perm[k]; });
}

// Narrows the entry behind each ascent. The ascents are those of the list as it stands, while the entries are taken in
// the order of `perm`; this is intended.
//
// - count (cursor): the slot in `varidxs32` behind the entries so far
KERNEL((248), (i32 count), narrow_behind_ascents, i32 count, i32 n, CI64 perm, CI64 varidxs, I32 varidxs32)
{
  return select(
      i64{n} - 1, count, [&](i64 k) { return varidxs[k] < varidxs[k + 1]; },
      [&](i64 slot, i64 k) { varidxs32[slot] = static_cast<i32>(varidxs[perm[k + 1]]); });
}

// Concatenates two lists, first part: the first list as it is. Nothing is sorted, repeats stay.
KERNEL((274), (), copy_first_set, I32 r, CI32 set1)
{
  for (i64 k = 0; k < set1.count; ++k) r[k] = set1[k];
}

// Concatenates two lists, second part: the second list behind the first, of which only the length is used.
KERNEL((275), (), append_second_set, I32 r, CI32 set1, CI32 set2)
{
  for (i64 k = 0; k < set2.count; ++k) r[set1.count + k] = set2[k];
}

}  // namespace fragments
