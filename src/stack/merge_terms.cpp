// Merging: the terms of an element that have one variable become one term, their coefficients added up in the operand's
// order. The result is sorted by variable inside each element.
//
//     is it needed at all?   strictly ascending variables 394, no dead terms 395
//     sort                   longest element 391, permutation on x 392 (or on w 393)
//     merge                  measure 397, write 400
//
// - perm (position in xi32 or wi32; terms): the numbers of the record's terms, those of each element in the slots that
//   `ptr` tells, by variable and those of one variable in their order
// - k (cursor): the terms of the result so far

#include "index/counting_sort.h"
#include "stack/key_sort.h"
#include "stack/record.h"

namespace fragments {
namespace {

// Walks the sorted terms begin .. end-1: part(t) for each term t, whole(variable, n) after the n parts of one variable.
template <class Part, class Whole>
void for_each_variable(Run<const i64> nidxs, Run<const i32> perm, i64 begin, i64 end, Part part, Whole whole)
{
  for (i64 i = begin; i < end;) {
    const i64 first = i, variable = nidxs[perm[i]];
    do part(i64{perm[i]});
    while (++i < end && nidxs[perm[i]] == variable);
    whole(variable, i - first);
  }
}

}  // namespace

// Whether the variables of every element strictly ascend.
KERNEL((394), (bool ok), are_variables_ascending, bool ok, i32 nelem, i32 nidxs, i32 ptr, CI32 wi32, CI64 wi64)
{
  const Operand operand{.ptr{wi32, ptr}, .nidxs{wi64, nidxs}};
  for (i64 i = 0; i < nelem && ok; ++i) {
    const i64 end = operand.ptr[i + 1];
    for (i64 t = operand.ptr[i] + i64{1}; t < end; ++t) ok &= operand.nidxs[t - 1] < operand.nidxs[t];
  }
  return ok;
}

// `init` or the number of terms of the longest of n elements, if that is larger.
KERNEL((391), (i32 init), longest_element, i32 init, i32 n, i32 ptr, CI32 wi32)
{
  const Run ends{wi32, ptr};
  for (i64 i = 0; i < n; ++i) {
    const i32 length = ends[i + 1] - ends[i];
    if (length > init) init = length;
  }
  return init;
}

// Sorts the terms of each element by variable into `perm` on x: by counting where the variables lie close together, by
// comparing where not.
//
// - bucket (position in xi32; longest element + 1): scratch
KERNEL((392), (), sort_terms, i32 nelem, i32 nidxs, i32 perm, i32 ptr, CI32 wi32, CI64 wi64, i32 bucket, I32 xi32)
{
  const Operand operand{.ptr{wi32, ptr}, .nidxs{wi64, nidxs}};
  const Run buckets{xi32, bucket};
  for (i64 i = 0; i < nelem; ++i) {
    const i32 first = operand.ptr[i];
    const i64 n = operand.ptr[i + 1] - i64{first};
    if (n <= 0) continue;
    const Run sorted{xi32, i64{perm} + first};
    const Run variables = operand.nidxs.from(first);
    if (n == 1) {
      sorted[0] = first;
      continue;
    }
    const KeyRange range = range_of(variables, n);
    if (n > 2 && range.distance() < static_cast<std::uint64_t>(n)) {
      const i64 last = static_cast<i64>(range.distance()) + 1;
      const auto bucket_of = [&](i64 t) { return variables[t] - range.least; };
      clear_buckets(buckets, last);
      count_buckets(buckets, n, bucket_of);
      add_up(buckets, last);
      const auto place = [&](i64 slot, i64 t) { sorted[slot] = static_cast<i32>(first + t); };
      place_items(
          buckets, n, [](i64 t) { return t; }, bucket_of, place);
    } else {
      sort_by_key(sorted, buckets, first, n, variables, range);
    }
  }
}

// Sorts the terms of each element by variable into `perm` on w, by comparing alone.
//
// - tmp (position in wi32; longest element): scratch
KERNEL((393), (), sort_terms_on_w, i32 nelem, i32 nidxs, i32 nnz, i32 perm, i32 tmp, i32 ptr, I32 wi32, CI64 wi64)
{
  const Operand operand{.ptr{wi32, ptr}, .nidxs{wi64, nidxs}};
  const Run sorted{wi32, perm}, buffer{wi32, tmp};
  for (i32 t = 0; t < nnz; ++t) sorted[t] = t;
  for (i64 i = 0; i < nelem; ++i) {
    const i32 first = operand.ptr[i];
    const i64 n = operand.ptr[i + 1] - i64{first};
    if (n <= 1) continue;
    const Run variables = operand.nidxs.from(first);
    sort_by_key(sorted.from(first), buffer, first, n, variables, range_of(variables, n));
  }
}

// Measures merging. With code every variable of each element is written, without code those with a part that is not
// zero; NaN is not.
//
// - e, k (cursor): both grow by the number of terms that 400 writes
KERNEL((397), (i32 e, i32 k), measure_merged_terms, i32 cof, i32 ncodeatom, i32 nelem, i32 nidxs, i32 perm, i32 ptr,
       i32 e, i32 k, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof);
  const Run sorted{xi32, perm};
  i32 terms = 0;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    for (i64 i = 0; i < nelem; ++i) {
      const i64 begin = operand.ptr[i], end = operand.ptr[i + 1];
      if (begin >= end) continue;
      if (end - begin == 1) {
        terms += hascode || operand.cof[sorted[begin]] != 0.0;
        continue;
      }
      i64 variable = operand.nidxs[sorted[begin]];
      bool is_counted = false;
      terms += hascode;
      const auto look_at = [&](i64 slot) {
        const i64 t = sorted[slot];
        const bool is_another = operand.nidxs[t] != variable;
        variable = operand.nidxs[t];
        if (hascode) {
          terms += is_another;
        } else {
          const bool is_written = operand.cof[t] != 0.0;
          is_counted &= !is_another;
          terms += is_written & !is_counted;
          is_counted |= is_written;
        }
      };
      // Nothing branches on the terms, nor on the number of a few: to look at the last one again adds nothing.
      if (end - begin <= 4) {
        for (i64 slot = begin; slot < begin + 4; ++slot) look_at(std::min(slot, end - 1));
      } else {
        for (i64 slot = begin; slot < end; ++slot) look_at(slot);
      }
    }
  });
  return {e + terms, k + terms};
}

// Writes the merged record. With code each term gets the atoms of all its parts in their order and, if there are
// several, the atom (8, their number) that adds up the values. Without code a term whose parts are all zero is left
// out. Sums begin at 0.0, so that a lone -0.0 comes out as 0.0. Sets `rptr[0]` and, with `rhascode`, `rcodeptr[0]`.
//
// - c (cursor): the atoms of the result so far
KERNEL((400), (i32 c, i32 k), write_merged_terms, i32 cconst, i32 code, i32 c, i32 codeptr, i32 cof, i32 ncodeatom,
       i32 nelem, i32 nidxs, i32 k, i32 perm, i32 ptr, i32 rcconst, i32 rcode, i32 rcodeptr, i32 rcof, F64 rf64,
       I32 ri32, I64 ri64, i32 rhascode, i32 rnidxs, i32 rptr, CF64 wf64, CI32 wi32, CI64 wi64, CI32 xi32)
{
  const StackArrays w{wi32, wi64, wf64};
  const Operand operand = w.operand(ptr, nidxs, cof, codeptr, code, cconst);
  const ResultArrays r{ri32, ri64, rf64};
  Writer result = r.writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, {.terms = k, .atoms = c});
  const Run sorted{xi32, perm};
  result.ptr[0] = 0;
  if (rhascode > 0) result.codeptr[0] = 0;
  with_constant(ncodeatom > 0, [&](auto hascode) {
    f64 sum = 0.0;
    bool is_written = hascode;
    for (i64 i = 0; i < nelem; ++i) {
      for_each_variable(
          operand.nidxs, sorted, operand.ptr[i], operand.ptr[i + 1],
          [&](i64 t) {
            const f64 part = operand.cof[t];
            sum += part;
            is_written |= part != 0.0;
            if (hascode) result.push_atoms_of(operand, t);
          },
          [&](i64 variable, i64 parts) {
            if (is_written) {
              result.nidxs[result.terms] = variable;
              result.cof[result.terms] = sum;
              if (hascode) {
                if (parts > 1) result.push_atom(add_several, static_cast<f64>(parts));
                result.close_term();
              } else {
                ++result.terms;
              }
            }
            sum = 0.0;
            is_written = hascode;
          });
      result.close_element();
    }
  });
  return {result.atoms, result.terms};
}

}  // namespace fragments
