// Solution vectors: gathered into the arrays of the user's variables and constraints, combined after a solve and
// cleared before one.
//
// `nativeidxs` maps the elements of a user's array to flat numbers; element k goes to `res[pos+k]`. The number 0 is no
// variable and reads as 0.0, but it is an ordinary constraint. Negative numbers are complements: of elements of
// semidefinite variables in a variable's array, of elements of affine conic constraints in a constraint's.
//
//     variables     values 17, 18 and 19, duals 20
//     constraints   values 15, duals 16
//     all vectors   duals from those of bounds 23 and 24, cleared 130 to 133
//
// - pos (position in res; n): where the gathered values go
// - start (index): the first slot to clear; goes on behind the last
// - end (index): the end of the slots to clear, exclusive

#include "index/slots.h"

namespace fragments {
namespace {

// res[k] = value(nativeidxs[k]) for k below n.
template <class T, class Value>
void gather(Run<f64> res, StridedArray<T> nativeidxs, i32 n, Value value)
{
  for (i64 k = 0; k < n; ++k) res[k] = value(i64{nativeidxs[k]});
}

constexpr f64 zero = 0.0, negative_zero = -0.0;

// Where the elements of affine conic constraints stand in a conic solution vector.
struct ConicElements {
  CI32 accptr;          // the place of each constraint's first entry
  CI32 acon_elm_accid;  // the constraint of each element
  CI32 acon_elm_ofs;    // its offset inside the constraint
  CF64 acon_elm_scale;  // the factor from the cone's entry to the element

  f64 value(CF64 vector, i64 a) const
  {
    return vector[i64{acon_elm_ofs[a]} + accptr[acon_elm_accid[a]]] * acon_elm_scale[a];
  }
};

void gather_constraints(Run<f64> res, CI32 nativeidxs, i32 n, const ConicElements& elements, CF64 conic, CF64 linear)
{
  gather(res, nativeidxs, n, [&](i64 v) {
    if (v >= 0) [[likely]]
      return linear[v];
    return elements.value(conic, ~v);
  });
}

// to[k] = lower[k] - upper[k] for k below n: the dual value of a pair of bounds.
void subtract(F64 to, CF64 lower, CF64 upper, i32 n)
{
  for (i64 k = 0; k < n; ++k) to[k] = lower[k] - upper[k];
}

// Zeroes the elements start .. end-1 of all arrays and returns how far they are set now.
template <class... Array>
i32 clear(i32 start, i32 end, Array... arrays)
{
  (clear_slots(Run{arrays, start}, i64{end} - start), ...);
  return start < end ? end : start;
}

}  // namespace

// Gathers the primal values of constraints: `xc` of linear rows, scaled entries of `accx` of conic elements.
KERNEL((15), (), gather_constraint_values, CI32 accptr, CF64 accx, CI32 acon_elm_accid, CI32 acon_elm_ofs,
       CF64 acon_elm_scale, i32 n, CI32 nativeidxs, i32 pos, F64 res, CF64 xc)
{
  gather_constraints({res, pos}, nativeidxs, n, {accptr, acon_elm_accid, acon_elm_ofs, acon_elm_scale}, accx, xc);
}

// Gathers the dual values of constraints: `y` of linear rows, scaled entries of `accy` of conic elements.
KERNEL((16), (), gather_constraint_duals, CI32 accptr, CF64 accy, CI32 acon_elm_accid, CI32 acon_elm_ofs,
       CF64 acon_elm_scale, i32 n, CI32 nativeidxs, i32 pos, F64 res, CF64 y)
{
  gather_constraints({res, pos}, nativeidxs, n, {accptr, acon_elm_accid, acon_elm_ofs, acon_elm_scale}, accy, y);
}

// Gathers the values of a variable without semidefinite elements; 0.0 for numbers at or below 0.
KERNEL((17), (), gather_scalar_values, i32 n, CI64 nativeidxs, i32 pos, F64 res, CF64 xx)
{
  gather(Run{res, pos}, nativeidxs, n, [&](i64 v) { return *(v > 0 ? &xx[v] : &zero); });
}

// Gathers the values of a variable without semidefinite elements, with the opposite sign. A value of 0.0 gives -0.0, a
// number at or below 0 gives 0.0.
KERNEL((18), (), gather_negated_values, i32 n, CI64 nativeidxs, i32 pos, F64 res, CF64 xx)
{
  gather(Run{res, pos}, nativeidxs, n, [&](i64 v) { return -*(v > 0 ? &xx[v] : &negative_zero); });
}

// Gathers the values of a variable: `xx` of scalar elements, `barx` of semidefinite ones.
KERNEL((19), (), gather_variable_values, CF64 barx, i32 n, CI64 nativeidxs, i32 pos, F64 res, CF64 xx)
{
  gather(Run{res, pos}, nativeidxs, n, [&](i64 v) {
    if (v > 0) [[likely]]
      return xx[v];
    return v < 0 ? barx[~v] : 0.0;
  });
}

// Gathers the dual values of a variable: `bars` of semidefinite elements, an entry of `accy` of scalar ones that live
// in the affine conic constraint `var_elm_acc_idx[v]`, `yx` of those that live in none (-1).
KERNEL((20), (), gather_variable_duals, CI32 accptr, CF64 accy, CF64 bars, i32 n, CI64 nativeidxs, i32 pos, F64 res,
       CI32 var_elm_acc_idx, CI32 var_elm_acc_ofs, CF64 yx)
{
  gather(Run{res, pos}, nativeidxs, n, [&](i64 v) {
    if (v <= 0) return v < 0 ? bars[~v] : 0.0;
    const i32 a = var_elm_acc_idx[v];
    return a >= 0 ? accy[i64{var_elm_acc_ofs[v]} + accptr[a]] : yx[v];
  });
}

// The duals of n variables from those of their bounds: slx - sux.
KERNEL((23), (), subtract_variable_duals, i32 n, CF64 slx, CF64 sux, F64 yx)
{
  subtract(yx, slx, sux, n);
}

// The duals of n linear rows from those of their bounds: slc - suc.
KERNEL((24), (), subtract_constraint_duals, i32 n, CF64 slc, CF64 suc, F64 y)
{
  subtract(y, slc, suc, n);
}

// Clears the solution of the variables start .. end-1, and returns how far it is set then.
KERNEL((130), (i32 start), clear_variables, i32 end, F64 slx, i32 start, F64 sux, F64 xx, F64 yx)
{
  return clear(start, end, slx, sux, xx, yx);
}

// Clears the solution of the variables start .. end-1 but for the duals `yx`, and returns nothing.
KERNEL((131), (), clear_variables_and_bound_duals, i32 end, F64 slx, i32 start, F64 sux, F64 xx)
{
  clear(start, end, slx, sux, xx);
}

// Clears the solution of the linear rows start .. end-1, and returns how far it is set then.
KERNEL((132), (i32 start), clear_new_constraints, i32 end, F64 slc, i32 start, F64 suc, F64 xc, F64 y)
{
  return clear(start, end, slc, suc, xc, y);
}

// Clears the solution of the linear rows start .. end-1, and returns nothing.
KERNEL((133), (), clear_constraints, i32 end, F64 slc, i32 start, F64 suc, F64 xc, F64 y)
{
  clear(start, end, slc, suc, xc, y);
}

}  // namespace fragments
