// Chains of numbered slots: doubly linked lists in two arrays, from which the host layer hands out runs of numbers.
//
//     next[s]   the slot after s, -1 at the end
//     prev[s]   the slot before s, -1 at the front
//
// Two chains, the slots in use and the free ones, share the arrays; the caller keeps the head and the length of each.
// A run is n slots that follow one another in a chain, given by the first one. It is trusted to be that long.
//
//     link 645 and 651, find the end of a run 650 and 649, list slots 647 and 648, move a run 646
//
// - next (array; slots): the slot after each
// - prev (array; slots): the slot before each
// - n (count): the slots of the run
// - target (array; base + n): takes the numbers of slots

#include <algorithm>

#include "frame/frame.h"

namespace fragments {
namespace {

// Links the slots first .. stop-1 in ascending order. The two outer ends stay as they are.
void link_range(i64 first, i64 stop, I32 next, I32 prev)
{
  for (i64 i = first; i < stop - 1; ++i) prev[i + 1] = static_cast<i32>(i);
  for (i64 i = first; i < stop - 1; ++i) next[i] = static_cast<i32>(i + 1);
}

// Walks n-1 steps from `cur` to the last slot of its run; met(slot) for every slot that a step arrives at.
template <class Met>
i32 walk_to_end(i32 cur, CI32 next, i64 n, Met met)
{
  for (i64 k = 1; k < n; ++k) {
    cur = next[cur];
    met(cur);
  }
  return cur;
}

i32 end_of_run(i32 cur, CI32 next, i32 n)
{
  return walk_to_end(cur, next, n, [](i32) {});
}

}  // namespace

// Links n fresh slots, 0 to n-1, to a chain. prev[0] and next[n-1] are the caller's.
//
// - n (count): the slots
KERNEL((645), (), link_slots, i32 n, I32 next, I32 prev)
{
  link_range(0, n, next, prev);
}

// Links the slots first .. stop-1 of grown arrays to a chain. prev[first] and next[stop-1] are the caller's.
//
// - stop (index): the end of the slots, exclusive
KERNEL((651), (), link_slot_range, i32 first, i32 stop, I32 next, I32 prev)
{
  link_range(first, stop, next, prev);
}

// Finds the last slot of a run.
//
// - cur (index): the first slot of the run; goes on to the last
KERNEL((650), (i32 cur), find_end, i32 cur, CI32 next, i32 n)
{
  return end_of_run(cur, next, n);
}

// Finds the last slot of a run and its greatest, for which the first slot doesn't count; this is intended.
//
// - cur (index): the first slot of the run; goes on to the last
// - top (start): what the maximum starts from
KERNEL((649), (i32 cur, i32 top), find_end_and_greatest, i32 cur, i32 top, CI32 next, i32 n)
{
  cur = walk_to_end(cur, next, n, [&](i32 slot) { top = std::max(top, slot); });
  return {cur, top};
}

// Lists the slots of a run.
//
// - cur (index): the first slot of the run; goes on to the one behind it, -1 if there is none
KERNEL((647), (i32 cur), list_run, i32 cur, CI32 next, i32 n, i32 base, I32 target)
{
  const Run places{target, base};
  for (i64 k = 0; k < n; ++k) {
    places[k] = cur;
    cur = next[cur];
  }
  return cur;
}

// Lists the n slots behind one, without itself.
//
// - cur (index): the slot before the run
KERNEL((648), (), list_successors, i32 cur, CI32 next, i32 n, i32 base, I32 target)
{
  const Run places{target, base};
  for (i64 k = 0; k < n; ++k) places[k] = cur = next[cur];
}

// Moves a run, anywhere in the source chain, to the front of the target chain. Only the ends of the run and its
// neighbours are written: the cost is the walk to the run's end.
//
// - first (index): the first slot of the run
// - thead, shead (index): the first slot of the target and of the source chain, -1 if it is empty
// - tlen (cursor): the length of the target chain
KERNEL((646), (i32 thead, i32 shead, i32 tlen), move_run, i32 thead, i32 shead, i32 first, I32 next, i32 tlen, i32 n,
       I32 prev)
{
  const i32 last = end_of_run(first, next, n);
  const i32 before = prev[first], after = next[last];
  if (before >= 0) {
    next[before] = after;
  } else {
    shead = after;
  }
  if (after >= 0) prev[after] = before;
  prev[first] = -1;
  next[last] = thead;
  if (thead >= 0) prev[thead] = last;
  return {first, shead, wrapping_add(tlen, n)};
}

}  // namespace fragments
