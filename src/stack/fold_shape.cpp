// The extents around an axis `dim` of a shape on the w stack, folded to one number: d0, the elements before it, and d2,
// the elements behind it, times `init`.

#include "index/shape.h"

namespace fragments {

KERNEL((424, 431, 529, 535), (i32), extents_before, i32 init, i32 n, i32 top, I32 wi32)
{
  return product(init, Run<i32>{wi32, top}, 0, n);
}
KERNEL((437), (i32), stacked_extents_before, i32 n, i32 init, i32 top, I32 wi32)
{
  return product(init, Run<i32>{wi32, top}, 0, n);
}
KERNEL((425, 434, 530, 536), (i32), extents_behind, i32 init, i32 dim, i32 nd, i32 top, I32 wi32)
{
  return product_between(init, Run<i32>{wi32, top}, dim, nd);
}
KERNEL((438), (i32), stacked_extents_behind, i32 dim, i32 nd, i32 init, i32 top, I32 wi32)
{
  return product_between(init, Run<i32>{wi32, top}, dim, nd);
}

}  // namespace fragments
