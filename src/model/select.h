// Selection of the entries of a list.
#pragma once

#include "frame/frame.h"

namespace fragments {

// Selects those of n entries that `is_kept`, in order: keep(c, k) puts entry k into slot c. It is called for all
// entries up to the last that is kept, since the next one kept overwrites the slot of one that isn't: without a branch
// that data decides, it takes half the time.
template <class IsKept, class Keep>
i32 select(i64 n, i32 c, IsKept is_kept, Keep keep)
{
  while (n > 0 && !is_kept(n - 1)) --n;
  for (i64 k = 0; k < n; ++k) {
    keep(c, k);
    c += is_kept(k);
  }
  return c;
}

}  // namespace fragments
