// The copy of a record's structure from w to r: all that operators keep who change coefficients alone.
#pragma once

#include "index/slots.h"
#include "stack/record.h"

namespace fragments {

// Where the fields of a structure begin, and how many there are.
struct StructurePositions {
  i32 shape, sp, ptr, nidxs;
};
struct StructureCounts {
  i32 axes, elements, terms;
};

// Extents, pattern if there is one, `ptr` and variables.
inline void copy_structure(const ResultArrays& r, StructurePositions to, const StackArrays& w, StructurePositions from,
                           StructureCounts counts, bool hassp)
{
  copy_slots(Run{r.i32s, to.shape}, Run{w.i32s, from.shape}, counts.axes);
  if (hassp) copy_slots(Run{r.i64s, to.sp}, Run{w.i64s, from.sp}, counts.elements);
  copy_slots(Run{r.i32s, to.ptr}, Run{w.i32s, from.ptr}, counts.elements + i64{1});
  copy_slots(Run{r.i64s, to.nidxs}, Run{w.i64s, from.nidxs}, counts.terms);
}

}  // namespace fragments
