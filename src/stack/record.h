// Expression records on the stacks: what operators read (Operand) and what they write (Writer).
//
// A record is an N-dimensional array of sparse linear forms. Its fields are runs of slots, each at a position of its
// own in the three arrays of a stack:
//
//     shape    i32[nd]           extents, outermost first
//     sp       i64[nelem]        flat positions of the stored elements, strictly ascending; a dense record has none
//     ptr      i32[nelem + 1]    element i has the terms ptr[i] .. ptr[i+1]-1; ptr[0] is 0
//     nidxs    i64[nnz]          variable of each term; 0 is the constant term
//     cof      f64[nnz]          coefficient of each term
//     codeptr  i32[nnz + 1]      term e has the atoms codeptr[e] .. codeptr[e+1]-1; only in a record with code
//     code     i32[ncodeatom]    opcode of each atom
//     cconst   f64[ncodeatom]    operand of each atom
//
// The coefficient of a term is its `cof` plus the value of its code, if the record has code. A variable below 0 is an
// element of a semidefinite variable. The r stack takes results, the w stack holds operands, the x stack is scratch.
#pragma once

#include <algorithm>

#include "code/opcodes.h"
#include "frame/copy_run.h"
#include "frame/frame.h"

namespace fragments {

// Calls body(flag) with the flag as a constant of its type, so that a loop over terms without code keeps no trace of
// it.
template <class Body>
void with_constant(bool flag, Body body)
{
  if (flag) {
    body(std::true_type{});
  } else {
    body(std::false_type{});
  }
}

// A stretch of an operand's terms: begin .. end-1.
struct Terms {
  i32 begin, end;
  i32 count() const { return end - begin; }
};

// The fields of an operand that an operator reads.
struct Operand {
  Run<const i32> ptr{};
  Run<const i64> nidxs{};
  Run<const f64> cof{};
  Run<const i32> codeptr{};
  Run<const i32> code{};
  Run<const f64> cconst{};
  i64 atom_slots = 0;    // from the first atom to the end of the arrays; 0 if their strides are not 1
  bool hascode = false;  // where operands with and without code meet in one sum; elsewhere a flag stands for all

  // The terms of element f, and of the elements b .. e-1.
  Terms terms(i64 f) const { return {ptr[f], ptr[f + 1]}; }
  Terms terms(i64 b, i64 e) const { return {ptr[b], ptr[e]}; }

  i32 atoms(Terms t) const { return codeptr[t.end] - codeptr[t.begin]; }
};

// How far a record is counted or written.
struct Counts {
  i32 elements = 0;
  i32 terms = 0;
  i32 atoms = 0;
};

// What a Writer's functions of the same names will take up, counted beforehand.
struct Size : Counts {
  const Operand& operand;
  const bool hascode;

  Size(const Operand& of, bool with_code, Counts start) : Counts(start), operand(of), hascode(with_code) {}

  void append(Terms t)
  {
    terms += t.count();
    if (hascode) atoms += operand.atoms(t);
  }
  void append(i64 f) { append(operand.terms(f)); }

  void append_scaled(i64 f)
  {
    const Terms t = operand.terms(f);
    append(t);
    if (hascode) atoms += 2 * t.count();
  }

  void append_parametrised(Terms t)
  {
    append(t);
    atoms += (hascode ? 4 : 3) * t.count();
  }
  void append_parametrised(i64 f) { append_parametrised(operand.terms(f)); }

  void close_element() { ++elements; }
};

// Whether append_parametrised() zeroes the coefficients, or somebody else does for all of a result.
enum class ZeroCof { here, elsewhere };

// The fields of a result and how far they are written. Terms, atoms and elements are appended; slot 0 of `ptr` and
// `codeptr` stays the caller's. `hascode` of the member functions may be a constant from with_constant().
struct Writer : Counts {
  Run<i32> ptr{};
  Run<i64> sp{};
  Run<i64> nidxs{};
  Run<f64> cof{};
  Run<i32> codeptr{};
  Run<i32> code{};
  Run<f64> cconst{};

  void append_term(i64 variable, f64 coefficient)
  {
    nidxs[terms] = variable;
    cof[terms] = coefficient;
    ++terms;
  }

  // Appends terms of the operand as they are: a stretch, or those of element f.
  template <class Flag>
  void append(const Operand& from, Terms t, Flag hascode)
  {
    if (hascode) copy_code(from, t);
    copy_terms(nidxs.from(terms), from.nidxs.from(t.begin), cof.from(terms), from.cof.from(t.begin), t.count(),
               AsItIs{});
    terms += t.count();
  }
  template <class Flag>
  void append(const Operand& from, i64 f, Flag hascode)
  {
    append(from, from.terms(f), hascode);
  }

  // Appends the operand's elements b .. e-1 as they are. Neighbours in both records, they move as one run of terms.
  template <class Flag>
  void append_elements(const Operand& from, i64 b, i64 e, Flag hascode)
  {
    if (b >= e) return;
    append_ends(from.ptr, b, e);
    append(from, from.terms(b, e), hascode);
  }

  // Ends the elements b .. e-1 of a record, at least one, whose terms are appended next.
  void append_ends(Run<const i32> from, i64 b, i64 e)
  {
    const i32 shift = terms - from[b];
    copy_run(ptr.from(elements + 1), from.from(b + 1), e - b, [shift](auto end) { return end + shift; });
    elements += static_cast<i32>(e - b);
  }

  // Appends terms times `factor`: the coefficient is multiplied, and so is the code, by the atoms (2, factor) and (5)
  // behind the term's own.
  template <class Flag>
  void append_scaled(const Operand& from, Terms t, f64 factor, Flag hascode)
  {
    if (hascode) {
      for (i64 k = t.begin; k < t.end; ++k) {
        stay_scalar(k);
        nidxs[terms] = from.nidxs[k];
        cof[terms] = from.cof[k] * factor;
        push_scaled_code(from, k, factor);
      }
    } else {
      copy_terms(nidxs.from(terms), from.nidxs.from(t.begin), cof.from(terms), from.cof.from(t.begin), t.count(),
                 [factor](auto c) { return c * factor; });
      terms += t.count();
    }
  }
  template <class Flag>
  void append_scaled(const Operand& from, i64 f, f64 factor, Flag hascode)
  {
    append_scaled(from, from.terms(f), factor, hascode);
  }

  // The same of element f for a sum of operands with and without code. A term of an operand without gets the code of
  // append_zero_code().
  void append_weighted(const Operand& from, i64 f, f64 factor, bool hascode)
  {
    const Terms t = from.terms(f);
    if (from.hascode) {
      append_scaled(from, t, factor, std::true_type{});
    } else {
      append_scaled(from, t, factor, std::false_type{});
      if (hascode) append_zero_code(t.count());
    }
  }

  // Only the coefficients of append_scaled(), where the variables are copied as a whole: those of the elements b ..
  // e-1, element f times factor(f). Neighbours, they are counted in a loop of their own, which takes four fifths of the
  // time.
  template <class Factor>
  void append_scaled_coefficients(const Operand& from, i64 b, i64 e, Factor factor)
  {
    if (b >= e) return;
    const i32 shift = terms - from.ptr[b];
    i32 next = from.ptr[b];
    for (i64 f = b; f < e; ++f) {
      const Terms t{next, from.ptr[f + 1]};
      const f64 times = factor(f);
      copy_run(cof.from(shift + t.begin), from.cof.from(t.begin), t.count(), [times](auto c) { return c * times; });
      next = t.end;
    }
    terms = shift + next;
  }

  // Only the code of append_scaled(), in a pass over terms that are there already.
  void append_scaled_code(const Operand& from, Terms t, f64 factor)
  {
    for (i64 k = t.begin; k < t.end; ++k) {
      stay_scalar(k);
      push_scaled_code(from, k, factor);
    }
  }
  void append_scaled_code(const Operand& from, i64 f, f64 factor) { append_scaled_code(from, from.terms(f), factor); }

  // The code of the last n terms, which come from an operand without code: the one atom (2, 0.0) each, since their
  // coefficient is all in `cof`.
  void append_zero_code(i32 n)
  {
    for (i64 t = terms - n; t < terms; ++t) {
      stay_scalar(t);
      push_atom(push_constant, 0.0);
      codeptr[t + 1] = atoms;
    }
  }

  // Appends the terms of element f times parameter p. A coefficient that depends on a parameter is all code: `cof` is
  // 0, and the code is (2, cof), the term's own code and (3) if it has any, (1, p), (5). So a term costs 3 atoms, or 4
  // and its own.
  template <class Flag>
  void append_parametrised(const Operand& from, i64 f, i32 p, Flag hascode, ZeroCof zero_cof = ZeroCof::here)
  {
    const Terms t = from.terms(f);
    for (i64 k = t.begin; k < t.end; ++k) {
      stay_scalar(k);
      nidxs[terms] = from.nidxs[k];
      if (zero_cof == ZeroCof::here) cof[terms] = 0.0;
      append_parametrised_code(from, k, p, hascode);
    }
  }

  // Only the code of the operand's term t times parameter p.
  template <class Flag>
  void append_parametrised_code(const Operand& from, i64 t, i32 p, Flag hascode)
  {
    if (hascode) {
      push_atom(push_constant, from.cof[t]);
      push_atoms_of(from, t);
      push_operator(add);
      push_atoms({push_parameter, multiply}, {static_cast<f64>(p)});
    } else {
      push_atoms({push_constant, push_parameter, multiply}, {from.cof[t], static_cast<f64>(p)});
    }
    close_term();
  }

  void push_atom(i32 opcode, f64 operand)
  {
    code[atoms] = opcode;
    cconst[atoms] = operand;
    ++atoms;
  }

  // An atom whose operand is never read: its `cconst` slot stays unwritten.
  void push_operator(i32 opcode)
  {
    code[atoms] = opcode;
    ++atoms;
  }

  // Several atoms, the last of them without an operand. Their fields are stored as runs, two slots at a time.
  template <std::size_t n>
  void push_atoms(const i32 (&opcodes)[n], const f64 (&operands)[n - 1])
  {
    constexpr i64 count = n;
    const Run code_end = code.from(atoms);
    const Run cconst_end = cconst.from(atoms);
    for (i64 k = 0; k < count; ++k) code_end[k] = opcodes[k];
    for (i64 k = 0; k < count - 1; ++k) cconst_end[k] = operands[k];
    atoms += static_cast<i32>(n);
  }

  // The atoms of one term of the operand.
  void push_atoms_of(const Operand& from, i64 t)
  {
    const i64 e = from.codeptr[t + 1];
    for (i64 a = from.codeptr[t]; a < e; ++a) {
      stay_scalar(a);
      push_atom(from.code[a], from.cconst[a]);
    }
  }

  // Ends the code of the term that is being written, and the term.
  void close_term()
  {
    ++terms;
    codeptr[terms] = atoms;
  }

  // Ends the element that is being written; with a flat position in a sparse result, without in a dense one.
  void close_element()
  {
    ++elements;
    ptr[elements] = terms;
  }
  void close_element(i64 flat)
  {
    sp[elements] = flat;
    close_element();
  }

 private:
  void push_scaled_code(const Operand& from, i64 t, f64 factor)
  {
    const i64 first = from.codeptr[t], end = from.codeptr[t + 1], n = std::max<i64>(end - first, 0);
    const Run to_code = code.from(atoms);
    const Run to_cconst = cconst.from(atoms);
    if (n > 0 && n <= 6 && end < from.atom_slots && code.stride == 1 && cconst.stride == 1) [[likely]] {
      // What is copied beyond the atoms of the term is stored over by the factor's.
      copy_up_to_six(to_code, from.code.from(first), n);
      copy_up_to_six(to_cconst, from.cconst.from(first), n);
    } else {
      for (i64 k = 0; k < n; ++k) {
        stay_scalar(k);
        to_code[k] = from.code[first + k];
        to_cconst[k] = from.cconst[first + k];
      }
    }
    to_code[n] = push_constant;
    to_code[n + 1] = multiply;
    to_cconst[n] = factor;
    atoms += static_cast<i32>(n + 2);
    close_term();
  }

  // The code of terms of the operand for the terms appended next. Atoms of neighbouring terms are neighbours, so they
  // move as one run.
  void copy_code(const Operand& from, Terms t)
  {
    if (t.count() <= 0) return;
    if (t.count() == 1) {
      push_atoms_of(from, t.begin);
      codeptr[terms + 1] = atoms;
      return;
    }
    const i32 first = from.codeptr[t.begin], count = from.codeptr[t.end] - first, shift = atoms - first;
    copy_run(codeptr.from(terms + 1), from.codeptr.from(t.begin + 1), t.count(),
             [shift](auto end) { return end + shift; });
    copy_run(code.from(atoms), from.code.from(first), count);
    copy_run(cconst.from(atoms), from.cconst.from(first), count);
    atoms += count;
  }
};

// The three arrays of a stack that operands are read from.
struct StackArrays {
  CI32 i32s{};
  CI64 i64s{};
  CF64 f64s{};

  // The record whose fields begin at these positions, with its code and without.
  Operand operand(i32 ptr, i32 nidxs, i32 cof, i32 codeptr, i32 code, i32 cconst, bool hascode = false) const
  {
    return {.ptr{i32s, ptr},
            .nidxs{i64s, nidxs},
            .cof{f64s, cof},
            .codeptr{i32s, codeptr},
            .code{i32s, code},
            .cconst{f64s, cconst},
            .atom_slots = atom_slots(code, cconst),
            .hascode = hascode};
  }
  Operand operand(i32 ptr, i32 nidxs, i32 cof) const { return {.ptr{i32s, ptr}, .nidxs{i64s, nidxs}, .cof{f64s, cof}}; }
  // Its terms alone, of one element.
  Operand terms(i32 nidxs, i32 cof, i32 codeptr, i32 code, i32 cconst) const
  {
    Operand operand = coded_terms(cof, codeptr, code, cconst);
    operand.nidxs = {i64s, nidxs};
    return operand;
  }
  Operand coded_terms(i32 cof, i32 codeptr, i32 code, i32 cconst) const
  {
    return {.cof{f64s, cof},
            .codeptr{i32s, codeptr},
            .code{i32s, code},
            .cconst{f64s, cconst},
            .atom_slots = atom_slots(code, cconst)};
  }
  // As far as its coefficients are scaled, or its code.
  Operand coefficients(i32 ptr, i32 cof) const { return {.ptr{i32s, ptr}, .cof{f64s, cof}}; }
  Operand coded(i32 ptr, i32 codeptr, i32 code, i32 cconst) const
  {
    return {.ptr{i32s, ptr},
            .codeptr{i32s, codeptr},
            .code{i32s, code},
            .cconst{f64s, cconst},
            .atom_slots = atom_slots(code, cconst)};
  }
  i64 atom_slots(i32 code, i32 cconst) const
  {
    return i32s.stride == 1 && f64s.stride == 1 ? std::min(i32s.count - code, f64s.count - cconst) : 0;
  }
};

// The three arrays of the stack that a result is written to.
struct ResultArrays {
  I32 i32s{};
  I64 i64s{};
  F64 f64s{};

  // A dense result and a sparse one, each with code and without.
  Writer writer(i32 rptr, i32 rnidxs, i32 rcof, i32 rcodeptr, i32 rcode, i32 rcconst, Counts from = {}) const
  {
    Writer result = writer(rptr, rnidxs, rcof, from);
    result.codeptr = {i32s, rcodeptr};
    result.code = {i32s, rcode};
    result.cconst = {f64s, rcconst};
    return result;
  }
  Writer writer(i32 rptr, i32 rnidxs, i32 rcof, Counts from = {}) const
  {
    Writer result{from};
    result.ptr = {i32s, rptr};
    result.nidxs = {i64s, rnidxs};
    result.cof = {f64s, rcof};
    return result;
  }
  Writer sparse_writer(i32 rptr, i32 rsp, i32 rnidxs, i32 rcof, i32 rcodeptr, i32 rcode, i32 rcconst,
                       Counts from = {}) const
  {
    Writer result = writer(rptr, rnidxs, rcof, rcodeptr, rcode, rcconst, from);
    result.sp = {i64s, rsp};
    return result;
  }
  Writer sparse_writer(i32 rptr, i32 rsp, i32 rnidxs, i32 rcof, Counts from = {}) const
  {
    Writer result = writer(rptr, rnidxs, rcof, from);
    result.sp = {i64s, rsp};
    return result;
  }
  // A sparse one whose coefficients are zeroed as a whole.
  Writer sparse_writer_without_cof(i32 rptr, i32 rsp, i32 rnidxs, i32 rcodeptr, i32 rcode, i32 rcconst,
                                   Counts from = {}) const
  {
    Writer result = code_writer(rcodeptr, rcode, rcconst, from);
    result.ptr = {i32s, rptr};
    result.sp = {i64s, rsp};
    result.nidxs = {i64s, rnidxs};
    return result;
  }
  // The terms alone, of an element that the caller closes.
  Writer term_writer(i32 rnidxs, i32 rcof, i32 rcodeptr, i32 rcode, i32 rcconst, Counts from = {}) const
  {
    Writer result = code_writer(rcodeptr, rcode, rcconst, from);
    result.nidxs = {i64s, rnidxs};
    result.cof = {f64s, rcof};
    return result;
  }
  // The coefficients and their elements, of terms whose variables are copied as a whole.
  Writer coefficient_writer(i32 rptr, i32 rcof, Counts from = {}) const
  {
    Writer result{from};
    result.ptr = {i32s, rptr};
    result.cof = {f64s, rcof};
    return result;
  }
  // The code alone, of terms that are written elsewhere.
  Writer code_writer(i32 rcodeptr, i32 rcode, i32 rcconst, Counts from = {}) const
  {
    Writer result{from};
    result.codeptr = {i32s, rcodeptr};
    result.code = {i32s, rcode};
    result.cconst = {f64s, rcconst};
    return result;
  }
};

}  // namespace fragments
