// The sort of items by column, ascending in each column if they come in row-major order: entries of a constant matrix,
// or stored elements of an expression.
#pragma once

#include "index/counting_sort.h"

namespace fragments {

// perm[ptr[c]] .. perm[ptr[c+1] - 1] are the items of column c. `added` columns are added up, all of them normally.
template <class Column>
void sort_by_column(Run<i32> ptr, i32 columns, i32 added, Run<i32> perm, i32 n, Column column)
{
  clear_buckets(ptr, columns);
  count_buckets(ptr, n, column);
  add_up(ptr, added);
  place_items(ptr, perm, n, column);
  shift_up(ptr, columns);
  ptr[0] = 0;
}
template <class Column>
void sort_by_column(Run<i32> ptr, i32 columns, Run<i32> perm, i32 n, Column column)
{
  sort_by_column(ptr, columns, columns, perm, n, column);
}

}  // namespace fragments
