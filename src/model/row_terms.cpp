// The terms of evaluated rows split by kind: linear terms, the constant term, and terms on elements of semidefinite
// variables.
//
// Rows are a record, its `ptr`, `nidxs` and `cof` at the positions `ppos`, `ipos` and `fpos`. A term's number is above
// 0 for a linear variable, 0 for the constant term, and below 0 the complement of the number of a semidefinite element.
// Inside a row the negative numbers stand first, those of one semidefinite variable next to each other. 76 adds up the
// constant terms in `bfix`, 79 and 47 list them among the linear ones; 78 and 79 leave out coefficients of 0.0.
//
//                         n rows   n rows, 64-bit starts   one row
//     sizes               75       78                      46
//     linear terms        76       79                      47
//     semidefinite terms  77       80                      48
//
// All in one pass over the terms.
//
// - ri32, ri64, rf64 (array; up to its last field): the stack that holds the rows
// - nblk (cursor): the matrices of semidefinite terms, one for each run of one variable in a row
// - nbar (cursor): the semidefinite terms
// - nlin (cursor): the linear terms
// - ptrb (array; n + 1): where the listed terms of each row begin in `subj` and `cof`; slot 0 is the caller's
// - nz (cursor): the entries of the matrices so far
// - nm (cursor): the matrices so far
// - barsubj (array; matrices): the semidefinite variable of each matrix
// - matdim (array; matrices): the order of each matrix
// - matnnz (array; matrices): how many entries each matrix has
// - matsubi, matsubj (array; entries): the row and the column of each entry of all matrices
// - matcof (array; entries): the value of each entry of all matrices
// - ptr (array; n + 1): slot r + 1 takes the number of matrices behind row r, that is `nm`; slot 0 is the caller's

#include <algorithm>
#include <tuple>

#include "model/select.h"
#include "stack/record.h"

namespace fragments {
namespace {

// The elements of all semidefinite variables by number: variable, row and column.
struct SemidefiniteElements {
  CI32 barj;
  CI32 i;
  CI32 j;
};

// The coefficient of the element (i, j) as an entry of a symmetric matrix given by its lower triangle: an entry off the
// diagonal counts twice there.
inline f64 matrix_entry(i32 i, i32 j, f64 coefficient)
{
  return i == j ? coefficient : coefficient * 0.5;
}

// Walks the negative numbers at the head of the terms p .. e-1: calls begin(variable) at each run of elements of one
// semidefinite variable and term(a, p) for each term on an element a. Returns the first term behind them.
template <class Begin, class Term>
i32 for_each_semidefinite_term(Run<const i64> nidxs, CI32 barj, i32 p, i32 e, Begin begin, Term term)
{
  i32 variable = -1;
  for (; p < e && nidxs[p] < 0; ++p) {
    const i64 a = ~nidxs[p];
    if (barj[a] != variable) {
      variable = barj[a];
      begin(variable);
    }
    term(a, p);
  }
  return p;
}

struct RowSizes {
  i32 matrices;
  i32 linear;
  i32 semidefinite;
};

// Adds the sizes of n rows; linear_terms(p, e) counts among the terms p .. e-1 behind the negative numbers of a row.
template <class LinearTerms>
void measure_rows(const Operand& rows, i32 n, CI32 barj, RowSizes& sizes, LinearTerms linear_terms)
{
  for (i64 r = 0; r < n; ++r) {
    const i32 s = rows.ptr[r], e = rows.ptr[r + 1];
    const i32 p = for_each_semidefinite_term(
        rows.nidxs, barj, s, e, [&](i32) { ++sizes.matrices; }, [](i64, i32) {});
    sizes.semidefinite += p - s;
    sizes.linear += linear_terms(p, e);
  }
}

// A list of sparse symmetric matrices: for each its variable, order and number of entries, and the entries of all.
struct MatrixList {
  I32 barsubj;
  I32 matdim;
  I32 matnnz;
  I32 matsubi;
  I32 matsubj;
  F64 matcof;
  i32 entries;
  i32 matrices;

  void begin_matrix(i32 variable, i32 order)
  {
    barsubj[matrices] = variable;
    matdim[matrices] = order;
    matnnz[matrices] = 0;
    ++matrices;
  }
  void add_entry(i32 i, i32 j, f64 coefficient)
  {
    matsubi[entries] = i;
    matsubj[entries] = j;
    matcof[entries] = coefficient;
    ++entries;
    ++matnnz[matrices - 1];
  }
};

// One matrix for each run of one semidefinite variable in n rows; ptr[r+1] becomes the number of matrices behind row r.
// Returns the number of entries and that of matrices.
template <class Start>
std::tuple<i32, i32> append_matrices(const Operand& rows, i32 n, const SemidefiniteElements& elements, CI32 barvar_dim,
                                     StridedArray<Start> ptr, MatrixList to)
{
  for (i64 r = 0; r < n; ++r) {
    for_each_semidefinite_term(
        rows.nidxs, elements.barj, rows.ptr[r], rows.ptr[r + 1],
        [&](i32 variable) { to.begin_matrix(variable, barvar_dim[variable]); },
        [&](i64 a, i32 p) {
          const i32 i = elements.i[a], j = elements.j[a];
          to.add_entry(i, j, matrix_entry(i, j, rows.cof[p]));
        });
    ptr[r + 1] = to.matrices;
  }
  return {to.entries, to.matrices};
}

}  // namespace

// Sizes n rows: counts the matrices, the semidefinite terms and the terms behind these. Only constant terms that lead
// those are left out of `nlin`, which is intended: 76 writes fewer terms if a constant term stands behind a linear one,
// and its `ptrb[n]` tells how many.
KERNEL((75), (i32 nblk, i32 nlin, i32 nbar), measure_rows_by_term, i32 nblk, CI32 barvar_block_elm_barj, i32 nlin,
       i32 n, i32 ipos, i32 ppos, CI32 ri32, CI64 ri64, i32 nbar)
{
  const Operand rows{.ptr{ri32, ppos}, .nidxs{ri64, ipos}};
  RowSizes sizes{nblk, nlin, nbar};
  measure_rows(rows, n, barvar_block_elm_barj, sizes, [&](i32 p, i32 e) {
    while (p < e && rows.nidxs[p] == 0) ++p;
    return e - p;
  });
  return {sizes.matrices, sizes.linear, sizes.semidefinite};
}

// Sizes n rows: counts the matrices, the semidefinite terms and, of the terms behind these, those whose coefficient
// differs from 0.0, constant terms included; NaN does.
KERNEL((78), (i32 nblk, i32 nlin, i32 nbar), measure_rows_by_coefficient, i32 nblk, CI32 barvar_block_elm_barj,
       i32 fpos, i32 nlin, i32 n, i32 ipos, i32 ppos, CF64 rf64, CI32 ri32, CI64 ri64, i32 nbar)
{
  const StackArrays r{ri32, ri64, rf64};
  const Operand rows = r.operand(ppos, ipos, fpos);
  RowSizes sizes{nblk, nlin, nbar};
  measure_rows(rows, n, barvar_block_elm_barj, sizes, [&](i32 p, i32 e) {
    i32 count = 0;
    for (; p < e; ++p) count += rows.cof[p] != 0.0;
    return count;
  });
  return {sizes.matrices, sizes.linear, sizes.semidefinite};
}

// Lists the linear terms of n rows, from place ptrb[0] on; constant terms are added to `bfix` in the order of the
// terms, semidefinite ones are passed over.
KERNEL((76), (), split_linear_and_constant_terms, F64 bfix, F64 cof, i32 fpos, i32 n, i32 ipos, i32 ppos, I32 ptrb,
       CF64 rf64, CI32 ri32, CI64 ri64, I32 subj)
{
  const StackArrays r{ri32, ri64, rf64};
  const Operand rows = r.operand(ppos, ipos, fpos);
  if (n <= 0) return;
  i64 place = ptrb[0];
  for (i64 row = 0; row < n; ++row) {
    const i32 e = rows.ptr[row + 1];
    for (i32 p = rows.ptr[row]; p < e; ++p) {
      const i64 v = rows.nidxs[p];
      if (v > 0) [[likely]] {
        subj[place] = static_cast<i32>(v);
        cof[place] = rows.cof[p];
        ++place;
      } else if (v == 0) {
        bfix[row] += rows.cof[p];
      }
    }
    ptrb[row + 1] = static_cast<i32>(place);
  }
}

// Lists the linear and constant terms of n rows whose coefficient differs from 0.0, from place ptrb[0] on; NaN does.
KERNEL((79), (), split_nonzero_terms, F64 cof, i32 fpos, i32 n, i32 ipos, i32 ppos, I64 ptrb, CF64 rf64, CI32 ri32,
       CI64 ri64, I32 subj)
{
  const StackArrays r{ri32, ri64, rf64};
  const Operand rows = r.operand(ppos, ipos, fpos);
  if (n <= 0) return;
  const auto is_listed = [&](i64 p) {
    const bool is_linear = rows.nidxs[p] >= 0, is_zero = rows.cof[p] == 0.0;
    return is_linear & !is_zero;
  };
  // Which coefficients are 0.0 is a matter of chance. Up to the last term that is listed all are written, since the
  // next one listed overwrites the place of one that isn't: without a branch on it, in half the time.
  i32 last = rows.ptr[n];
  while (last > rows.ptr[0] && !is_listed(last - 1)) --last;
  i64 place = ptrb[0];
  for (i64 row = 0; row < n; ++row) {
    const i32 e = std::min(rows.ptr[row + 1], last);
    for (i64 p = rows.ptr[row]; p < e; ++p) {
      subj[place] = static_cast<i32>(rows.nidxs[p]);
      cof[place] = rows.cof[p];
      place += is_listed(p);
    }
    ptrb[row + 1] = place;
  }
}

// Appends the semidefinite terms of n rows as lower triangles of symmetric matrices, one for each run of one variable.
// The coefficient of an element off the diagonal is halved.
KERNEL((77), (i32 nz, i32 nm), write_row_matrices, i32 nz, i32 nm, I32 barsubj, CI32 barvar_block_elm_barj,
       CI32 barvar_block_elm_i, CI32 barvar_block_elm_j, CI32 barvar_dim, i32 fpos, F64 matcof, I32 matdim, I32 matnnz,
       I32 matsubi, I32 matsubj, i32 ipos, i32 n, I32 ptr, i32 ppos, CF64 rf64, CI32 ri32, CI64 ri64)
{
  const StackArrays r{ri32, ri64, rf64};
  return append_matrices(r.operand(ppos, ipos, fpos), n,
                         {barvar_block_elm_barj, barvar_block_elm_i, barvar_block_elm_j}, barvar_dim, ptr,
                         {barsubj, matdim, matnnz, matsubi, matsubj, matcof, nz, nm});
}

// Appends the semidefinite terms of n rows as lower triangles of symmetric matrices, one for each run of one variable,
// with a 64-bit `ptr`. The coefficient of an element off the diagonal is halved.
KERNEL((80), (i32 nz, i32 nm), write_row_matrices_wide, i32 nz, i32 nm, I32 barsubj, CI32 barvar_block_elm_barj,
       CI32 barvar_block_elm_i, CI32 barvar_block_elm_j, CI32 barvar_dim, i32 fpos, F64 matcof, I32 matdim, I32 matnnz,
       I32 matsubi, I32 matsubj, i32 ipos, i32 n, I64 ptr, i32 ppos, CF64 rf64, CI32 ri32, CI64 ri64)
{
  const StackArrays r{ri32, ri64, rf64};
  return append_matrices(r.operand(ppos, ipos, fpos), n,
                         {barvar_block_elm_barj, barvar_block_elm_i, barvar_block_elm_j}, barvar_dim, ptr,
                         {barsubj, matdim, matnnz, matsubi, matsubj, matcof, nz, nm});
}

// Sizes one row of n terms in any order: counts the semidefinite ones and all others.
//
// - pos (position in ri64; n): the number of each term
// - nlin (cursor): the linear and constant terms
KERNEL((46), (i32 nlin, i32 nbar), measure_row, i32 nlin, i32 pos, i32 n, i32 nbar, CI64 ri64)
{
  const Run nidxs{ri64, pos};
  i64 negative = 0;
  for (i64 k = 0; k < n; ++k) negative -= nidxs[k] >> 63;
  const i32 semidefinite = static_cast<i32>(negative);
  return {nlin + std::max(n, 0) - semidefinite, nbar + semidefinite};
}

// Lists the linear and constant terms of one row of n terms, in any order, from place 0 on.
KERNEL((47), (), split_row, F64 cof, i32 fpos, i32 ipos, i32 n, CF64 rf64, CI64 ri64, I32 subj)
{
  const Run nidxs{ri64, ipos};
  const Run coefficients{rf64, fpos};
  select(
      n, 0, [&](i64 t) { return nidxs[t] >= 0; },
      [&](i64 slot, i64 t) {
        subj[slot] = static_cast<i32>(nidxs[t]);
        cof[slot] = coefficients[t];
      });
}

// Lists n terms, all semidefinite, by variable, row and column. The coefficient of an element off the diagonal is
// halved.
//
// - subj (array; n): the semidefinite variable of each term
// - subk, subl (array; n): the row and the column of the element of each term
KERNEL((48), (), write_semidefinite_terms, CI32 barvar_block_elm_barj, CI32 barvar_block_elm_i, CI32 barvar_block_elm_j,
       i32 fpos, i32 ipos, i32 n, CF64 rf64, CI64 ri64, I32 subj, I32 subk, I32 subl, F64 val)
{
  const Run nidxs{ri64, ipos};
  const Run cof{rf64, fpos};
  for (i64 t = 0; t < n; ++t) {
    const i64 a = ~nidxs[t];
    const i32 i = barvar_block_elm_i[a], j = barvar_block_elm_j[a];
    subj[t] = barvar_block_elm_barj[a];
    subk[t] = i;
    subl[t] = j;
    val[t] = matrix_entry(i, j, cof[t]);
  }
}

}  // namespace fragments
