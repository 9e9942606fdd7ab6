// Affine conic constraints: the affine expressions that each binds to its cone, and the tables that tie element numbers
// to constraints.
//
// Element a of the user's constraints is entry `acon_elm_ofs[a]` of the affine conic constraint `acon_elm_accid[a]`,
// made from the affine expression `acon_elm_afe[a]`; its value is the cone's times `acon_elm_scale[a]`. Variable v
// that lives in a cone is entry `var_elm_acc_ofs[v]` of constraint `var_elm_acc_idx[v]`, -1 if it lives in none.
//
// An array of symmetric matrices of order d has the matrix axes anywhere among its others. Packed, only the lower
// triangles are kept, by columns or by rows, one behind the other in the order of the other axes. In a triangle packed
// by columns (i, j + 1) is d - 1 - j behind (i, j), in one packed by rows (i + 1, j) is i + 1 behind it.
//
//     constraints   expressions and constants 1 and 2, elements 4, variables 9 and 10
//     matrices      scale 87, pack 88, unpack 89
//
// - accafeidxs (array; entries of all constraints): the affine expression of each entry
// - accb (array; entries of all constraints): the constant of each entry
// - from (position in afeidxs; n): where the expressions begin
// - nblocks, nmid, ninner (extent): the product of the extents before the first matrix axis, between the two, and
//   behind the second
// - rowlen (size): the slots of a packed triangle, d * (d + 1) / 2
// - d (extent): the order of the matrices

#include <algorithm>

#include "index/slots.h"

namespace fragments {
namespace {

// Packed triangles of `rowlen` slots each, and the extents of the other axes: their products before the row's axis,
// between the row's and the column's, and behind the column's.
struct Triangles {
  i64 rowlen;
  i64 nblocks;
  i64 nmid;
  i64 ninner;

  // Walks an array in its own order, the first matrix axis having `rows` entries: row(i, triangle) for each row, with
  // the slot at which its first triangle begins.
  template <class EachRow>
  void for_each_row(i64 rows, EachRow row) const
  {
    if (ninner < 1) return;
    for (i64 a = 0; a < nblocks; ++a) {
      for (i64 i = 0; i < rows; ++i) {
        for (i64 m = 0; m < nmid; ++m) row(i, (a * nmid + m) * ninner * rowlen);
      }
    }
  }

  // visit(slot) for each of n entries of a row, the first at `slot`, and in all triangles of the row. The entry behind
  // number j of them is distance(j) slots on. Returns the slot behind the last.
  template <class Distance, class Visit>
  i64 for_each_slot(i64 slot, i64 n, Distance distance, Visit visit) const
  {
    if (ninner == 1) {
      for (i64 j = 0; j < n; slot += distance(j), ++j) visit(slot);
    } else {
      for (i64 j = 0; j < n; slot += distance(j), ++j) {
        for (i64 e = 0; e < ninner; ++e) visit(slot + e * rowlen);
      }
    }
    return slot;
  }
};

}  // namespace

// Binds n expressions to a constraint with the constants `lb`, and behind them the same expressions once more with the
// constants `ub`: a ranged constraint uses each expression twice.
//
// - to (position in accafeidxs; 2 * n): where the constraint begins, in `accb` too
// - lb, ub (array; n): the constants of the first and of the second use
KERNEL((1), (), bind_ranged_expressions, I32 accafeidxs, F64 accb, CI32 afeidxs, i32 from, i32 to, CF64 lb, i32 n,
       CF64 ub)
{
  const Run source{afeidxs, from};
  const Run lower{accafeidxs, to}, upper{accafeidxs, i64{to} + n};
  const Run lower_b{accb, to}, upper_b{accb, i64{to} + n};
  copy_slots(lower, source, n);
  copy_slots(upper, source, n);
  copy_slots(lower_b, Run{lb, 0}, n);
  copy_slots(upper_b, Run{ub, 0}, n);
}

// Binds n expressions to a constraint with the constants `b`.
//
// - to (position in accafeidxs; n): where the constraint begins, in `accb` too
// - b (array; n): the constants
KERNEL((2), (), bind_expressions, I32 accafeidxs, F64 accb, CI32 afeidxs, i32 from, i32 to, CF64 b, i32 n)
{
  copy_slots(Run{accafeidxs, to}, Run{afeidxs, from}, n);
  copy_slots(Run{accb, to}, Run{b, 0}, n);
}

// Enters m constraints of d elements each, the elements' numbers and expressions constraint by constraint, with the
// scale 1.0.
//
// - d (extent): the elements of a constraint
// - m (count): the constraints
// - aconidxs, afeidxs (array; m * d): the number and the expression of each element
KERNEL((4), (), enter_elements, CI32 accidxs, I32 acon_elm_accid, I32 acon_elm_afe, I32 acon_elm_ofs,
       F64 acon_elm_scale, CI32 aconidxs, CI32 afeidxs, i32 d, i32 m)
{
  i64 k = 0;
  for (i32 i = 0; i < m; ++i) {
    for (i32 j = 0; j < d; ++j, ++k) {
      const i32 a = aconidxs[k];
      acon_elm_accid[a] = accidxs[i];
      acon_elm_ofs[a] = j;
      acon_elm_afe[a] = afeidxs[k];
      acon_elm_scale[a] = 1.0;
    }
  }
}

// Enters n variables in constraints of d entries each; the last constraint may be filled in part.
//
// - d (extent): the entries of a constraint
KERNEL((9), (), enter_variables, CI32 accidxs, i32 d, i32 n, CI64 nativeidxs, I32 var_elm_acc_idx, I32 var_elm_acc_ofs)
{
  i64 constraint = 0;
  i32 offset = 0;
  for (i64 k = 0; k < n; ++k) {
    const i64 v = nativeidxs[k];
    var_elm_acc_idx[v] = accidxs[constraint];
    var_elm_acc_ofs[v] = offset;
    if (++offset == d) {
      offset = 0;
      ++constraint;
    }
  }
}

// Takes n variables out of their constraints.
KERNEL((10), (), remove_variables, i32 n, CI64 nativeidxs, I32 var_elm_acc_idx)
{
  for (i64 k = 0; k < n; ++k) var_elm_acc_idx[nativeidxs[k]] = -1;
}

// Sets the scale of off-diagonal elements to s in q0 * q2 * q4 lower triangles that are listed by columns, the first
// `cols` columns of each, from the diagonal down. Elements of the diagonal are not read and keep their scale.
//
// - q0, q2, q4 (extent): the product of the extents before the first matrix axis, between the two, and behind the
//   second
// - cols (extent): the columns that are listed of each triangle
// - c (cursor): the place in `aconidxs`
// - s (value): the scale
KERNEL((87), (i32 c), scale_triangle_elements, F64 acon_elm_scale, CI32 aconidxs, i64 q0, i64 cols, i64 q2, i64 d,
       i64 q4, i32 c, f64 s)
{
  const i64 triangles = q2 * q0 * q4;
  i64 place = c;
  for (i64 t = 0; t < triangles; ++t) {
    for (i64 j = 0; j < cols; ++j) {
      ++place;
      for (i64 i = j + 1; i < d; ++i) acon_elm_scale[aconidxs[place++]] = s;
    }
  }
  return static_cast<i32>(place);
}

// Packs the expressions of lower triangles, listed from place c on: without `flag` listed by rows and packed by
// columns, with it listed by columns, each from the diagonal down, and packed by rows.
//
// - nrow (extent): the rows or, with `flag`, the columns that are listed of each triangle
// - c (cursor): the place in `afeidxs`
// - afetrilperm (array; nblocks * nmid * ninner * rowlen): the expressions packed
// - flag (flag): whether the triangles are listed by columns
KERNEL((88), (i32 c), pack_triangles, CI32 afeidxs, I32 afetrilperm, i32 rowlen, i64 nblocks, i64 d, i64 nmid, i64 nrow,
       i64 ninner, i32 c, bool flag)
{
  const Triangles triangles{rowlen, nblocks, nmid, ninner};
  const auto take = [&](i64 slot) { afetrilperm[slot] = afeidxs[c++]; };
  if (flag) {
    triangles.for_each_row(nrow, [&](i64 j, i64 triangle) {
      triangles.for_each_slot(
          triangle + (j + 3) * j / 2, d - j, [j](i64 below) { return j + below + 1; }, take);
    });
  } else {
    triangles.for_each_row(nrow, [&](i64 i, i64 triangle) {
      triangles.for_each_slot(
          triangle + i, i + 1, [d](i64 j) { return d - 1 - j; }, take);
    });
  }
  return c;
}

// Spreads triangles packed by columns over the full symmetric matrices, which get the expression of (i, j) or, above
// the diagonal, of (j, i). Both matrix axes have the order d, and `flag` makes no difference; this is intended.
//
// - afeidxs (array; nblocks * nmid * ninner * rowlen): the expressions packed
// - d2 (extent): the order of the matrices, too
// - pafeidxs (array; nblocks * d * nmid * d2 * ninner): the expression of each element
// - flag (flag): not read
KERNEL((89), (), unpack_triangles, CI32 afeidxs, i32 rowlen, i64 nblocks, i64 d, i64 nmid, i64 d2, i64 ninner,
       I32 pafeidxs, [[maybe_unused]] bool flag)
{
  const Triangles triangles{rowlen, nblocks, nmid, ninner};
  i64 k = 0;
  const auto put = [&](i64 slot) { pafeidxs[k++] = afeidxs[slot]; };
  triangles.for_each_row(d, [&](i64 i, i64 triangle) {
    const i64 before = std::min(i, d2);
    const i64 diagonal = triangles.for_each_slot(
        triangle + i, before, [d](i64 j) { return d - 1 - j; }, put);
    triangles.for_each_slot(
        diagonal, d2 - before, [](i64) { return 1; }, put);
  });
}

// Numbers the entries (a, b, e) of an array (q, r, p) from c on and stores the numbers in an array `perm` (q, p, r),
// its last two axes swapped. If `ofs` is not None, g[perm[k]] = ofs[k] for k below n.
//
// - p, q, r (extent): the extents of the array
// - c (cursor): the next number
// - perm (array; q * p * r): the numbers
// - g (array; up to the greatest number): what is permuted, by the numbers
// - ofs (array; n): the entries of `g` in the order of `perm`, or None
KERNEL((96), (i32 c), permute_middle_axis, i32 p, i32 q, i32 r, i32 n, F64 g, i32 c, CF64 ofs, I32 perm)
{
  for (i64 a = 0; a < q; ++a) {
    for (i64 b = 0; b < r; ++b) {
      for (i64 e = 0; e < p; ++e) perm[(p * a + e) * r + b] = c++;
    }
  }
  if (ofs.data) {
    for (i64 k = 0; k < n; ++k) g[perm[k]] = ofs[k];
  }
  return c;
}

}  // namespace fragments
