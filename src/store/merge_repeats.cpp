// Merging of repeated positions of a sparse array (inst_, cof_): entries of one position become one, their values
// added in the order of the source. A sorted source is walked as it stands, any other through a permutation `perm` that
// sorts it.
//
//     sorted source: check 620, measure 621, write 622
//     through perm:  measure 623, write 624
//
// Entry 0 of the source is the caller's: it starts the count in a measure, and the writer goes on behind the entry
// that the caller has written to place `count` of the target.
//
// - inst_ (array; entries): the flat position of each entry of the source
// - inst, cof (array; distinct positions): the flat position and the value of each entry of the target
// - perm (array; entries): the numbers of the entries, sorted by position
// - count (cursor): the place of the last entry of the target so far

#include "index/order.h"

namespace fragments {
namespace {

// Merges all entries in the order entry(0), entry(1), ...; returns the place of the last one written. The sum of a
// position is only written to its place, not read from there for each entry.
template <class Entry>
i32 merge(F64 cof, CF64 cof_, I64 inst, CI64 inst_, i64 count, Entry entry)
{
  const i64 n = inst_.count;
  const auto ascends = [&](i64 i) { return inst_[entry(i)] > inst_[entry(i - 1)]; };
  f64 sum = n > 1 && !ascends(1) ? cof[count] : 0.0;
  for (i64 i = 1; i < n; ++i) {
    const i64 source = entry(i);
    if (ascends(i)) {
      ++count;
      inst[count] = inst_[source];
      sum = cof_[source];
    } else {
      sum += cof_[source];
    }
    cof[count] = sum;
  }
  return static_cast<i32>(count);
}

i64 as_it_stands(i64 i)
{
  return i;
}

auto through(CI64 perm)
{
  return [perm](i64 i) { return perm[i]; };
}

}  // namespace

// Adds the number of strict ascents to `init`: started at 1, the distinct positions of a sorted source.
KERNEL((621, 628), (i32 init), count_distinct, CI64 inst_, i32 init)
{
  return init + count_ascents(inst_, inst_.count, as_it_stands);
}

// Merges a sorted source. A source of one entry writes nothing.
KERNEL((622, 629), (i32 count), merge_repeats, F64 cof, CF64 cof_, I64 inst, CI64 inst_, i32 count)
{
  return merge(cof, cof_, inst, inst_, count, as_it_stands);
}

// Adds the number of strict ascents in the order of `perm` to `init`: started at 1, the distinct positions.
KERNEL((623, 630), (i32 init), count_distinct_through_perm, CI64 inst_, i32 init, CI64 perm)
{
  return init + count_ascents(inst_, inst_.count, through(perm));
}

// Merges a source in the order of `perm`. A source of one entry writes nothing.
KERNEL((624, 631), (i32 count), merge_repeats_through_perm, F64 cof, CF64 cof_, I64 inst, CI64 inst_, i32 count,
       CI64 perm)
{
  return merge(cof, cof_, inst, inst_, count, through(perm));
}

}  // namespace fragments
