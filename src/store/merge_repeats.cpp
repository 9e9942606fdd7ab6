// Merging of repeated positions of a sparse array (inst_, cof_): entries of one position become one, their values
// added in the order of the source. A sorted source is walked as it stands, any other through a permutation `perm` that
// sorts it.
//
//     sorted source: check 620, measure 621, write 622
//     through perm:  measure 623, write 624 and 631
//
// Entry 0 of the source is the caller's: it starts the count in a measure, and the writer goes on behind the entry
// that the caller has written to place `count` of the target.

#include "index/order.h"

namespace fragments {
namespace {

// Merges all entries in the order entry(0), entry(1), ...; returns the place of the last one written.
template <class Entry>
i32 merge(F64 cof, F64 cof_, I64 inst, I64 inst_, i64 count, Entry entry)
{
  for (i64 i = 1; i < inst_.count; ++i) {
    const i64 source = entry(i);
    if (inst_[source] > inst_[entry(i - 1)]) {
      ++count;
      inst[count] = inst_[source];
      cof[count] = cof_[source];
    } else {
      cof[count] += cof_[source];
    }
  }
  return static_cast<i32>(count);
}

i64 as_it_stands(i64 i)
{
  return i;
}

auto through(I64 perm)
{
  return [perm](i64 i) { return perm[i]; };
}

}  // namespace

// `init` plus the number of strict ascents: the number of distinct positions of a sorted source for an `init` of 1.
KERNEL((621, 628), (i32), count_distinct, I64 inst_, i32 init)
{
  return init + count_ascents(inst_, inst_.count, as_it_stands);
}

// Merges a sorted source. A source of one entry writes nothing.
KERNEL((622, 629), (i32), merge_repeats, F64 cof, F64 cof_, I64 inst, I64 inst_, i32 count)
{
  return merge(cof, cof_, inst, inst_, count, as_it_stands);
}

// The number of distinct positions in the order of `perm`.
KERNEL((623, 630), (i32), count_distinct_through_perm, I64 inst_, i32 init, I64 perm)
{
  return init + count_ascents(inst_, inst_.count, through(perm));
}

// Merges a source in the order of `perm`.
KERNEL((624), (i32), merge_repeats_through_perm_a, F64 cof, F64 cof_, I64 inst, I64 inst_, i32 count, I64 perm)
{
  return merge(cof, cof_, inst, inst_, count, through(perm));
}

// The same for another call site.
KERNEL((631), (i32), merge_repeats_through_perm_b, F64 cof, F64 cof_, I64 inst, I64 inst_, i32 count, I64 perm)
{
  return merge(cof, cof_, inst, inst_, count, through(perm));
}

}  // namespace fragments
