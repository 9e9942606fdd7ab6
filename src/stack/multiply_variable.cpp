// The product of a constant matrix M and a plain variable x, each element of which is one variable with coefficient 1:
//
//     right   R(t, c) = sum over j of x(t, j) * M(j, c)     x on the w stack
//     left    R(i, c) = sum over j of M(i, j) * x(j, c)     x on the x stack
//
// x is its variable numbers `nidxs`, with a pattern `sp` if it is sparse; its shape is (xd0, xd1), or it has one axis
// if `xnd` is 1. A term of the result is a variable of x with a value of M as its coefficient, zeros included; terms
// are not merged and there is no code. Elements come in row-major order.
//
// M has the values `mcof`, dense row-major or of the sparse entries (`msubi`, `msubj`), which ascend strictly by row,
// then column. 485 and 489 to 491 take their number from the length of `msubi`.
//
//     right, M dense,  x sparse   measure 476, write 477
//     right, M sparse, x dense    check, sort M by column 478, measure 479, write 480
//     right, M sparse, x sparse   check, sort M by column 478, zero `rowptr` 481, rows of x 482, measure 483, write 484
//     left,  M sparse, x dense    check, measure 486, write 488
//     left,  M sparse, x sparse   check, sort x by column and measure 485, write 487
//
// The check is 489, or 490 and 491 one by one. Writers write terms, `rptr` and `rsp`; `rptr[0]` too, but for 480.
//
// The sorts leave `perm`, `mcolptr`, `colptr`, `mrowptr`, `rowptr`, `rows` and `cols` on the i32 stack.
//
// - perm (position in xi32 or wi32; one an item): the entries of M (right) or the elements of x (left) by column
// - mcolptr (position in wi32; mdimj + 1): where the entries of M of each column begin in `perm`
// - colptr (position in xi32; xd1 + 1): where the elements of x of each column begin in `perm`
// - mrowptr (position in xi32; mdimi + 1): where the entries of M of each row begin
// - rowptr (position in wi32; rows of x + 1): where the elements of x of each row begin
// - rows (position in xi32 or wi32; elements): the row of each element of x
// - cols (position in xi32 or wi32; elements): the column of each element of x
// - mcof (array; entries): the value of each entry of M; of a dense M all, row by row
// - xnd (count): the axes of x, 1 or 2
// - xd0 (extent): the rows of x
// - xd1 (extent): the columns of x, above 0 with a sparse x; 1 for a vector

#include "index/lookup_list.h"
#include "index/pattern_runs.h"
#include "index/slots.h"
#include "stack/column_sort.h"
#include "stack/constant_matrix.h"
#include "stack/record.h"

namespace fragments {
namespace {

// Row and column of the n elements of a pattern with `width` columns; row(t, m) for each row t with m elements, or one
// by one where rows are short.
template <class EachRow>
void split_pattern(Run<const i64> sp, i32 n, i32 width, Run<i32> rows, Run<i32> cols, EachRow row)
{
  if (has_short_rows(sp, n, width)) {
    const Divisor divisor(width);
    for (i64 m = 0; m < n; ++m) {
      const auto [t, column] = divisor.divide(sp[m]);
      rows[m] = static_cast<i32>(t);
      cols[m] = static_cast<i32>(column);
      row(t, 1);
    }
    return;
  }
  for_each_row_run(sp, n, width, [&](i64 t, i32 b, i32 e) {
    const i64 row_start = t * width;
    for (i32 m = b; m < e; ++m) {
      rows[m] = static_cast<i32>(t);
      cols[m] = static_cast<i32>(sp[m] - row_start);
    }
    row(t, e - b);
  });
}

// The number of stretches of equal keys among key(0) .. key(n-1).
template <class Key>
i32 count_stretches(i64 n, Key key)
{
  i32 count = n > 0;
  for (i64 k = 1; k < n; ++k) count += key(k) != key(k - 1);
  return count;
}

// A list of items in groups, group g being the items ptr[g] .. ptr[g+1]-1, ascending by key.
template <class Key>
struct KeyedGroups {
  Run<const i32> ptr;
  i32 count;
  Key key;
};
template <class Key>
KeyedGroups(Run<const i32>, i32, Key) -> KeyedGroups<Key>;

// The walk of the sparse products: every group o of the outer list against every group i of the inner one. match(p, q)
// for items of one key; element(o, i) after each pair of groups with a match.
template <class Outer, class Inner, class Match, class Element>
void intersect_groups(const Outer& outer, const Inner& inner, Match match, Element element)
{
  if (inner.count <= 0) return;
  LookupList<decltype(outer.key)> group;
  for (i32 o = 0; o < outer.count; ++o) {
    const i32 begin = outer.ptr[o], end = outer.ptr[o + 1];
    if (begin >= end) continue;
    group.take(outer.key, begin, end, inner.ptr[inner.count] - inner.ptr[0]);
    for (i32 i = 0; i < inner.count; ++i) {
      if (group.intersect(inner.ptr[i], inner.ptr[i + 1], inner.key, match)) element(o, i);
    }
  }
}

// Rows of a sparse x against columns of M.
template <class Match, class Element>
void intersect_right(Run<const i32> rowptr, i32 xd0, Run<const i32> cols, Run<const i32> mcolptr, i32 mdimj, CI32 msubi,
                     Run<const i32> perm, Match match, Element element)
{
  const KeyedGroups x_rows{rowptr, xd0, KeysOf{cols}};
  const KeyedGroups matrix_columns{mcolptr, mdimj, OrderedKeysOf{msubi, perm}};
  intersect_groups(x_rows, matrix_columns, match, element);
}

// Rows of M against columns of a sparse x.
template <class Match, class Element>
void intersect_left(Run<const i32> mrowptr, i32 mdimi, CI32 msubj, Run<const i32> colptr, i32 xd1, Run<const i32> rows,
                    Run<const i32> perm, Match match, Element element)
{
  const KeyedGroups matrix_rows{mrowptr, mdimi, KeysOf{msubj}};
  const KeyedGroups x_columns{colptr, xd1, OrderedKeysOf{rows, perm}};
  intersect_groups(matrix_rows, x_columns, match, element);
}

}  // namespace

// Clears `ok` if an entry of M lies outside (mdimi, mdimj) or does not come strictly before the next by row, then
// column.
KERNEL((489), (bool ok), is_matrix_valid, i32 mdimi, i32 mdimj, CI32 msubi, CI32 msubj, bool ok)
{
  ok &= !any_entry_outside(msubi, msubj, mdimi, mdimj, msubi.count);
  ok &= !any_entry_unordered(msubi, msubj, msubi.count);
  return ok;
}

// Sets `badidx` if an entry of M lies outside (mdimi, mdimj).
KERNEL((490), (bool badidx), has_entry_outside, bool badidx, i32 mdimi, i32 mdimj, CI32 msubi, CI32 msubj)
{
  return badidx | any_entry_outside(msubi, msubj, mdimi, mdimj, msubi.count);
}

// Sets `badorder` if an entry of M does not come strictly before the next by row, then column.
KERNEL((491), (bool badorder), has_unordered_entries, bool badorder, CI32 msubi, CI32 msubj)
{
  return badorder | any_entry_unordered(msubi, msubj, msubi.count);
}

// Counts the rows of x that have a stored element, 1 for a vector. The right product with a dense M has this number
// times mdimj elements, and n * mdimj terms.
//
// - n (count): the stored elements of x
// - d1 (extent): the columns of x, above 0
// - res (cursor): the number of rows; what comes in is replaced unless `n` is 0 or less
KERNEL((476), (i32 res), count_stored_rows, i32 n, i32 sp, CI64 wi64, i32 res, i32 xnd, i32 d1)
{
  if (n < 1) return res;
  if (n == 1 || xnd < 2) return 1;
  return count_row_runs(Run{wi64, sp}, n, d1);
}

// Right product, dense M, sparse x: all of it. Each row of x with a stored element and each column of M make an
// element. O(terms).
KERNEL((477), (), write_dense_right_product, CF64 mcof, i32 mdimj, i32 nidxs, i32 nelem, i32 rcof, F64 rf64, I32 ri32,
       I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 sp, CI64 wi64, i32 xd1)
{
  const Run variables{wi64, nidxs}, pattern{wi64, sp};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof);
  result.ptr[0] = 0;
  for_each_row_run(pattern, nelem, xd1, [&](i64 t, i32 b, i32 e) {
    const i64 row_start = t * xd1;
    for (i64 c = 0; c < mdimj; ++c) {
      copy_run(result.nidxs.from(result.terms), variables.from(b), e - b);
      for (i32 m = b; m < e; ++m) result.cof[result.terms++] = mcof[(pattern[m] - row_start) * mdimj + c];
      result.close_element(t * mdimj + c);
    }
  });
}

// Right product: sorts the entries of M by column, stably, into `perm` and `mcolptr`. One column needs no sort, and its
// `msubj` is not read.
//
// - nb (count): the columns to add up, mdimj
KERNEL((478), (), sort_entries_by_column, i32 mdimj, i32 nb, i32 mcolptr, CI32 msubj, i32 mnnz, i32 perm, I32 wi32)
{
  const Run column_ptr{wi32, mcolptr}, permutation{wi32, perm};
  if (mdimj == 1) {
    number_items(permutation, mnnz);
    column_ptr[0] = 0;
    column_ptr[1] = mnnz;
    return;
  }
  sort_by_column(column_ptr, mdimj, nb, permutation, mnnz, [&](i64 k) { return msubj[k]; });
}

// Measures the right product of sparse M and dense x: `acc` plus the number of columns of M with an entry, from the
// entries in the order of `perm`. The product has this number times xd0 elements, and mnnz * xd0 terms.
//
// - acc (cursor): the number of columns
// - n (count): the entries of M
KERNEL((479), (i32 acc), count_used_columns, CI32 msubj, i32 acc, i32 n, i32 perm, CI32 wi32)
{
  const Run permutation{wi32, perm};
  return acc + count_stretches(n, [&](i64 q) { return msubj[permutation[q]]; });
}

// Right product, sparse M with its order by column `perm`, dense x: all but `rptr[0]`, the caller's. Each row of x and
// each column of M with an entry make an element. O(mnnz * xd0).
KERNEL((480), (i32 elmi, i32 nzi), write_sparse_right_product, i32 elmi, i32 nzi, CF64 mcof, i32 mdimj, CI32 msubi,
       CI32 msubj, i32 nidxs, i32 mnnz, i32 perm, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp,
       CI32 wi32, CI64 wi64, i32 xd0, i32 xd1)
{
  const Run permutation{wi32, perm};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof, {.elements = elmi, .terms = nzi});
  if (mnnz <= 0) return {result.elements, result.terms};
  // A row of the result differs from the one before only in its variables: 0.6 of the time of writing each by itself.
  i32 width = 0;
  for (i64 t = 0; t < xd0; ++t) {
    const Run row{wi64, nidxs + t * xd1};
    const Run variables = result.nidxs.from(result.terms);
    for (i64 q = 0; q < mnnz; ++q) variables[q] = row[msubi[permutation[q]]];
    if (t > 0) {
      copy_run(result.cof.from(result.terms), result.cof.from(result.terms - mnnz), mnnz);
      copy_run(result.sp.from(result.elements), result.sp.from(result.elements - width), width,
               [mdimj](auto flat) { return flat + mdimj; });
      copy_run(result.ptr.from(result.elements + 1), result.ptr.from(result.elements + 1 - width), width,
               [mnnz](auto end) { return end + mnnz; });
      result.terms += mnnz;
      result.elements += width;
      continue;
    }
    for (i32 q = 0; q < mnnz;) {
      const i32 c = msubj[permutation[q]];
      for (; q < mnnz && msubj[permutation[q]] == c; ++q) result.cof[result.terms++] = mcof[permutation[q]];
      result.close_element(c);
      ++width;
    }
  }
  return {result.elements, result.terms};
}

// Right product: row and column of each element of a sparse x, and where its rows start: since the pattern ascends, its
// elements lie in row order and are only counted, into the slots of `rowptr` that 481 has zeroed. A vector lies in one
// row.
//
// - nb (count): the rows to add up, xshape[0]
// - xshape (array; 2): the extents of x; not read for a vector
KERNEL((482), (), split_pattern_by_row, i32 xnd, i32 nelem, i32 rowptr, i32 sp, I32 wi32, CI64 wi64, i32 nb,
       CI32 xshape, i32 rows, i32 cols)
{
  const Run pattern{wi64, sp};
  const Run row_ptr{wi32, rowptr}, row{wi32, rows}, column{wi32, cols};
  row_ptr[0] = 0;
  if (xnd == 1) {
    fill_slots(row, nelem, 0);
    for (i64 m = 0; m < nelem; ++m) column[m] = static_cast<i32>(pattern[m]);
    row_ptr[1] = nelem;
    return;
  }
  if (nelem > 0) split_pattern(pattern, nelem, xshape[1], row, column, [&](i64 t, i32 n) { row_ptr[t + 1] += n; });
  add_up(row_ptr, nb);
}

// Measures the right product of sparse M and sparse x: an element for each row of x and column of M with a match, that
// is, an entry whose row is the column of the stored element, and a term for each match. O(rows of x with elements *
// (mdimj + mnnz) + mdimj * nelem).
KERNEL((483), (i32 rnelem, i32 rnnz), measure_right_product, i32 mdimj, i32 mcolptr, CI32 msubi, i32 rnelem, i32 rnnz,
       i32 perm, i32 rowptr, CI32 wi32, i32 xd0, i32 cols)
{
  intersect_right(
      Run{wi32, rowptr}, xd0, Run{wi32, cols}, Run{wi32, mcolptr}, mdimj, msubi, Run{wi32, perm},
      [&](i32, i32) { ++rnnz; }, [&](i32, i32) { ++rnelem; });
  return {rnelem, rnnz};
}

// Right product, sparse M, sparse x: all of it, with `rsp` if `rhassp`. A row of x and a column of M make an element if
// an entry's row is the column of a stored element.
KERNEL((484), (), write_sparse_sparse_right_product, CF64 mcof, i32 mdimj, i32 mcolptr, CI32 msubi, i32 nidxs, i32 perm,
       i32 rowptr, i32 rcof, F64 rf64, bool rhassp, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, CI32 wi32,
       CI64 wi64, i32 xd0, i32 cols)
{
  const Run variables{wi64, nidxs};
  const Run permutation{wi32, perm};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof);
  result.ptr[0] = 0;
  intersect_right(
      Run{wi32, rowptr}, xd0, Run{wi32, cols}, Run{wi32, mcolptr}, mdimj, msubi, permutation,
      [&](i32 e, i32 p) { result.append_term(variables[e], mcof[permutation[p]]); },
      [&](i64 t, i32 c) {
        if (rhassp)
          result.close_element(t * mdimj + c);
        else
          result.close_element();
      });
}

// Prepares and measures the left product of sparse M and sparse x: fills `mrowptr`, `rows`, `cols`, and `perm` and
// `colptr` by a stable sort of the elements by column (a vector is one column). Then it counts an element for each row
// of M and column of x with a match, that is, an entry whose column is the row of the stored element, and a term for
// each match. O(rows of M with entries * (xd1 + nelem) + xd1 * mnnz).
KERNEL((485), (i32 rnelem, i32 rnnz), measure_left_product, i32 mdimi, i32 mrowptr, CI32 msubi, CI32 msubj, i32 xnd,
       i32 nelem, i32 perm, i32 colptr, i32 rnelem, i32 rnnz, i32 sp, i32 xd1, I32 xi32, CI64 xi64, i32 rows, i32 cols)
{
  const Run row_ptr{xi32, mrowptr}, column_ptr{xi32, colptr}, permutation{xi32, perm}, row{xi32, rows},
      column{xi32, cols};
  const Run pattern{xi64, sp};

  clear_buckets(row_ptr, mdimi);
  count_buckets(row_ptr, msubi.count, [&](i64 k) { return msubi[k]; });
  add_up(row_ptr, mdimi);

  if (xnd == 1) {
    for (i64 m = 0; m < nelem; ++m) row[m] = static_cast<i32>(pattern[m]);
    fill_slots(column, nelem, 0);
  } else {
    split_pattern(pattern, nelem, xd1, row, column, [](i64, i32) {});
  }
  if (xnd >= 2) {
    sort_by_column(column_ptr, xd1, permutation, nelem, [&](i64 m) { return column[m]; });
  } else {
    number_items(permutation, nelem);
    column_ptr[0] = 0;
    column_ptr[1] = nelem;
  }

  intersect_left(
      row_ptr, mdimi, msubj, column_ptr, xd1, row, permutation, [&](i32, i32) { ++rnnz; }, [&](i32, i32) { ++rnelem; });
  return {rnelem, rnnz};
}

// Measures the left product of sparse M and dense x: an element for each row of M with an entry and each column of x.
//
// - rnelem (cursor): the elements of the result; what comes in counts as rows of M, callers pass 0
// - rnnz (cursor): the terms of the result; what comes in is replaced
KERNEL((486), (i32 rnelem, i32 rnnz), measure_left_dense_product, i32 mnnz, CI32 msubi, i32 rnelem, i32 rnnz, i32 xd1)
{
  rnelem += count_stretches(mnnz, [&](i64 k) { return msubi[k]; });
  rnnz = xd1 * mnnz;
  return {rnelem * xd1, rnnz};
}

// Left product, sparse M, sparse x: all of it, from the fields that 485 leaves. A row of M and a column of x make an
// element if an entry's column is the row of a stored element.
KERNEL((487), (), write_sparse_sparse_left_product, CF64 mcof, i32 mdimi, i32 mrowptr, CI32 msubj, i32 nidxs, i32 perm,
       i32 colptr, i32 rcof, F64 rf64, I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 xd1, CI32 xi32, CI64 xi64,
       i32 rows)
{
  const Run variables{xi64, nidxs};
  const Run permutation{xi32, perm};
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof);
  result.ptr[0] = 0;
  intersect_left(
      Run{xi32, mrowptr}, mdimi, msubj, Run{xi32, colptr}, xd1, Run{xi32, rows}, permutation,
      [&](i32 p, i32 q) { result.append_term(variables[permutation[q]], mcof[p]); },
      [&](i64 i, i32 c) { result.close_element(i * xd1 + c); });
}

// Left product, sparse M, dense x: all of it. Each row of M with an entry and each column of x make an element.
// O(mnnz * xd1).
KERNEL((488), (), write_sparse_left_product, CF64 mcof, i32 mnnz, CI32 msubi, CI32 msubj, i32 nidxs, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rnidxs, i32 rptr, i32 rsp, i32 xd1, CI64 xi64)
{
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.sparse_writer(rptr, rsp, rnidxs, rcof);
  result.ptr[0] = 0;
  if (xd1 == 1) {
    // Rows follow each other without a gap, and nothing branches on where they end.
    const Run column{xi64, nidxs};
    for (i64 k = 0; k < mnnz; ++k) result.nidxs[k] = column[msubj[k]];
    copy_run(result.cof, {mcof, 0}, mnnz);
    i64 elements = 0;
    for (i64 k = 0; k < mnnz; ++k) {
      elements += k == 0 || msubi[k] != msubi[k - 1];
      result.sp[elements - 1] = msubi[k];
      result.ptr[elements] = static_cast<i32>(k + 1);
    }
    return;
  }
  for_each_row_group(msubi, mnnz, [&](i64 i, i32 b, i32 e) {
    const Run columns{msubj, b};
    const Run values{mcof, b};
    for (i64 c = 0; c < xd1; ++c) {
      const Run column{xi64, nidxs + c};
      const Run variables = result.nidxs.from(result.terms);
      for (i64 k = 0; k < e - b; ++k) variables[k] = column[i64{xd1} * columns[k]];
      copy_run(result.cof.from(result.terms), values, e - b);
      result.terms += e - b;
      result.close_element(i * xd1 + c);
    }
  });
}

}  // namespace fragments
