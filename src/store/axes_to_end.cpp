// The order of axes that moves some of them behind all others: first the axes that are not in `dims`, ascending, then
// `dims`. The three pieces are written one after the other:
//
//     axes before the last of dims 581, axes behind it 582, dims itself 583
//
// - dims (array; moved axes): the axes that are moved
// - perm (array; axes): the order of the axes
// - i (cursor): the first axis that is not dealt with yet, 0 at the start
// - k (cursor): the place in `perm` that is written next, 0 at the start

#include "frame/frame.h"

namespace fragments {
namespace {

// perm[k] = i for i up to stop-1, k moving along; i stays if it is not below stop.
void list_axes(i32& i, i32 stop, i32& k, I32 perm)
{
  while (i < stop) perm[k++] = i++;
}

}  // namespace

// Lists the axes up to the last one of `dims` that are not in `dims`, which ascends. Each entry of `dims` takes i one
// further, also one that is below i already.
KERNEL((581), (i32 i, i32 k), list_axes_outside, CI32 dims, i32 i, i32 k, I32 perm)
{
  for (i64 j = 0; j < dims.count; ++j) {
    list_axes(i, dims[j], k, perm);
    ++i;
  }
  return {i, k};
}

// Lists the axes from i up to stop-1.
//
// - stop (axis): the end of the axes that are listed, exclusive
KERNEL((582), (i32 i, i32 k), list_axes_behind, i32 k, i32 i, i32 stop, I32 perm)
{
  list_axes(i, stop, k, perm);
  return {i, k};
}

// Lists the moved axes, in the order of `dims`.
KERNEL((583), (i32 k), list_moved_axes, CI32 dims, i32 k, I32 perm)
{
  for (i64 j = 0; j < dims.count; ++j) perm[k++] = dims[j];
  return k;
}

}  // namespace fragments
