// Walks of products with a parameter matrix P: two-dimensional patterns by row and by column, and how the two meet.
//
// A flat position f in a matrix with n columns is row f / n, column f % n. A block is the stored entries of one row or
// of one column. A product goes over blocks of rows of its left factor and blocks of columns of its right one; inside a
// pair of blocks an entry of the row meets the entry of the column whose row is its own column.
#pragma once

#include "index/divisor.h"
#include "index/lookup_list.h"
#include "index/pattern_runs.h"

namespace fragments {

// The entries of an ascending pattern, in its own order.
struct ByRow {
  Run<const i64> sp;
  i32 count;
  i64 cols;

  i64 key(i32 u) const { return sp[u] / divisor("columns", cols); }
  i32 block_end(i32 u, i64 row) const
  {
    const i64 end = (row + 1) * cols;
    return stretch_end(u + 1, count, [&](i32 at) { return sp[at] < end; });
  }
};

// The entries of an ascending pattern in the order of `perm`, by column and in a column by row.
struct ByColumn {
  Run<const i64> sp;
  Run<const i32> perm;
  i32 count;
  Divisor cols;

  i64 key(i32 v) const { return cols.remainder(sp[perm[v]]); }
  i32 block_end(i32 v, i64 column) const
  {
    return stretch_end(v + 1, count, [&](i32 at) { return key(at) == column; });
  }
};

// The row of an entry in the order by column.
struct RowByColumn {
  ByColumn columns;

  i64 operator()(i32 v) const { return columns.cols.quotient(columns.sp[columns.perm[v]]); }
};

// block(key, begin, end) for the blocks from the cursor on, which ends at the count.
template <class Pattern, class Block>
void for_each_block(const Pattern& pattern, i32& cursor, Block block)
{
  while (cursor < pattern.count) {
    const i64 key = pattern.key(cursor);
    const i32 end = pattern.block_end(cursor, key);
    block(key, cursor, end);
    cursor = end;
  }
}
template <class Pattern, class Block>
void for_each_block(const Pattern& pattern, Block block)
{
  i32 cursor = 0;
  for_each_block(pattern, cursor, block);
}

// entry(row, column, number) for the entries from the cursor on, which ends at the count; column_end(column) behind the
// last of each column. One division an entry.
template <class Entry, class ColumnEnd>
void for_each_entry_by_column(const ByColumn& pattern, i32& cursor, Entry entry, ColumnEnd column_end)
{
  while (cursor < pattern.count) {
    i32 number = pattern.perm[cursor];
    Divisor::Result at = pattern.cols.divide(pattern.sp[number]);
    const i64 column = at.remainder;
    do {
      entry(at.quotient, column, number);
      if (++cursor == pattern.count) break;
      number = pattern.perm[cursor];
      at = pattern.cols.divide(pattern.sp[number]);
    } while (at.remainder == column);
    column_end(column);
  }
}

// The block of a row meets the block v .. v_end-1 of a column: match(entry of the row's pattern, entry of the
// column's). Returns whether there was a match.
using RowBlock = LookupList<KeysOf<Run<const i64>>>;
template <class Match>
bool meet(RowBlock& row, const ByColumn& columns, i32 v, i32 v_end, Match match)
{
  return row.intersect(v, v_end, RowByColumn{columns}, [&](i32 a, i32 b) { match(a, columns.perm[b]); });
}

// The diagonal of a product: row r of the left factor and column r of the right one. match(entry of the row's pattern,
// entry of the column's), element(r) after each pair of blocks with a match. Both cursors move block by block, and the
// walk ends with the first pattern. O(count of both patterns).
template <class Match, class Element>
void walk_diagonal(const ByRow& rows, i32& u, const ByColumn& columns, i32& v, Match match, Element element)
{
  RowBlock row_block;
  while (u < rows.count && v < columns.count) {
    const i64 row = rows.key(u), column = columns.key(v);
    const i32 u_end = row <= column ? rows.block_end(u, row) : u;
    const i32 v_end = column <= row ? columns.block_end(v, column) : v;
    if (row == column) {
      row_block.take({rows.sp, row * rows.cols}, u, u_end, v_end - v);
      if (meet(row_block, columns, v, v_end, match)) element(row);
    }
    u = u_end;
    v = v_end;
  }
}

// The whole product: each row block, from the cursor on, with each column block; match(entry of the row's pattern,
// entry of the column's), element(flat position in the result) after each pair with a match. O(row blocks * count of
// columns + column blocks * count of rows).
template <class Match, class Element>
void walk_product(const ByRow& rows, i32& cursor, const ByColumn& columns, Match match, Element element)
{
  RowBlock row_block;
  for_each_block(rows, cursor, [&](i64 row, i32 u, i32 u_end) {
    row_block.take({rows.sp, row * rows.cols}, u, u_end, columns.count);
    for_each_block(columns, [&](i64 column, i32 v, i32 v_end) {
      if (meet(row_block, columns, v, v_end, match)) element(row * columns.cols.value() + column);
    });
  });
}

}  // namespace fragments
