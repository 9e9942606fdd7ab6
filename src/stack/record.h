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
// The coefficient of a term is its `cof` plus the value of its code, if the record has code. The r stack takes results,
// the w stack holds operands, the x stack is scratch.
#pragma once

#include "code/opcodes.h"
#include "frame/frame.h"
#include "stack/runs.h"

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

// The fields of an operand that an operator reads.
struct Operand {
  Run<i32> ptr{};
  Run<i64> nidxs{};
  Run<f64> cof{};
  Run<i32> codeptr{};
  Run<i32> code{};
  Run<f64> cconst{};
  bool hascode = false;  // read by append_weighted() alone

  // Atoms of the terms b .. e-1.
  i32 atoms(i32 b, i32 e) const { return codeptr[e] - codeptr[b]; }
};

// What a Writer's functions of the same names will take up, counted beforehand.
struct Size {
  const Operand& operand;
  bool hascode;
  i32 atoms = 0;
  i32 elements = 0;
  i32 terms = 0;

  // The terms of the operand's elements b .. e-1.
  void append_elements(i64 b, i64 e)
  {
    const i32 first = operand.ptr[b], last = operand.ptr[e];
    terms += last - first;
    if (hascode) atoms += operand.atoms(first, last);
  }

  // The terms of the operand's element f, each with a factor behind its code.
  void append_scaled(i64 f)
  {
    const i32 before = terms;
    append_elements(f, f + 1);
    if (hascode) atoms += 2 * (terms - before);
  }

  void close_element() { ++elements; }
};

// The fields of a result and how far they are written. Terms, atoms and elements are appended; slot 0 of `ptr` and
// `codeptr` stays the caller's. `hascode` of the member functions may be a constant from with_constant().
struct Writer {
  Run<i32> ptr{};
  Run<i64> sp{};
  Run<i64> nidxs{};
  Run<f64> cof{};
  Run<i32> codeptr{};
  Run<i32> code{};
  Run<f64> cconst{};
  i32 elements = 0;
  i32 terms = 0;
  i32 atoms = 0;

  void append_term(i64 variable, f64 coefficient)
  {
    nidxs[terms] = variable;
    cof[terms] = coefficient;
    ++terms;
  }

  // Appends the operand's terms b .. e-1 as they are.
  template <class Flag>
  void append(const Operand& from, i32 b, i32 e, Flag hascode)
  {
    if (hascode) copy_code(from, b, e);
    copy_terms(nidxs.from(terms), from.nidxs.from(b), cof.from(terms), from.cof.from(b), e - b,
               [](f64 c) { return c; });
    terms += e - b;
  }

  // Appends the operand's elements b .. e-1 as they are. Neighbours in both records, they move as one run of terms.
  template <class Flag>
  void append_elements(const Operand& from, i64 b, i64 e, Flag hascode)
  {
    if (b >= e) return;
    const i32 first = from.ptr[b], last = from.ptr[e], shift = terms - first;
    copy_run(ptr.from(elements + 1), from.ptr.from(b + 1), e - b, [shift](i32 end) { return end + shift; });
    elements += static_cast<i32>(e - b);
    append(from, first, last, hascode);
  }

  // Appends the operand's terms b .. e-1 times `factor`: the coefficient is multiplied, and so is the code, by the
  // atoms (2, factor) and (5) behind the term's own.
  template <class Flag>
  void append_scaled(const Operand& from, i32 b, i32 e, f64 factor, Flag hascode)
  {
    if (hascode) {
      for (i64 t = b; t < e; ++t) {
        stay_scalar(t);
        nidxs[terms] = from.nidxs[t];
        cof[terms] = from.cof[t] * factor;
        push_scaled_code(from, t, factor);
      }
    } else {
      copy_terms(nidxs.from(terms), from.nidxs.from(b), cof.from(terms), from.cof.from(b), e - b,
                 [factor](f64 c) { return c * factor; });
      terms += e - b;
    }
  }

  // The same to a sum of operands with and without code. A term of an operand without gets the code of
  // append_zero_code().
  void append_weighted(const Operand& from, i32 b, i32 e, f64 factor, bool hascode)
  {
    if (from.hascode) {
      append_scaled(from, b, e, factor, std::true_type{});
    } else {
      append_scaled(from, b, e, factor, std::false_type{});
      if (hascode) append_zero_code(e - b);
    }
  }

  // Only the coefficients of that, where the variables are copied as a whole.
  void append_scaled_coefficients(const Operand& from, i32 b, i32 e, f64 factor)
  {
    copy_run(cof.from(terms), from.cof.from(b), e - b, [factor](f64 c) { return c * factor; });
    terms += e - b;
  }

  // Only the code of that, in a pass over terms that are there already.
  void append_scaled_code(const Operand& from, i32 b, i32 e, f64 factor)
  {
    for (i64 t = b; t < e; ++t) {
      stay_scalar(t);
      push_scaled_code(from, t, factor);
    }
  }

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

  // Appends the terms of the operand's element f times parameter p. A coefficient that depends on a parameter is all
  // code: `cof` is 0, and the code is (2, cof), the term's own code and (3) if it has any, (1, p), (5). So a term costs
  // 3 atoms, or 4 and its own. A writer without `cof` is for a result where it is zeroed as a whole.
  template <class Flag>
  void append_parametrised(const Operand& from, i64 f, i32 p, Flag hascode)
  {
    const i64 e = from.ptr[f + 1];
    for (i64 t = from.ptr[f]; t < e; ++t) {
      stay_scalar(t);
      nidxs[terms] = from.nidxs[t];
      if (cof.data) cof[terms] = 0.0;
      append_parametrised_code(from, t, p, hascode);
    }
  }

  // Only the code of the operand's term t times parameter p.
  template <class Flag>
  void append_parametrised_code(const Operand& from, i64 t, i32 p, Flag hascode)
  {
    push_atom(push_constant, from.cof[t]);
    if (hascode) {
      push_atoms_of(from, t);
      push_operator(add);
    }
    push_atom(push_parameter, p);
    push_operator(multiply);
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
    push_atoms_of(from, t);
    push_atom(push_constant, factor);
    push_operator(multiply);
    close_term();
  }

  // The code of the operand's terms b .. e-1 for the terms appended next. Atoms of neighbouring terms are neighbours,
  // so they move as one run.
  void copy_code(const Operand& from, i32 b, i32 e)
  {
    if (b >= e) return;
    if (e - b == 1) {
      push_atoms_of(from, b);
      codeptr[terms + 1] = atoms;
      return;
    }
    const i32 first = from.codeptr[b], count = from.codeptr[e] - first, shift = atoms - first;
    copy_run(codeptr.from(terms + 1), from.codeptr.from(b + 1), e - b, [shift](i32 end) { return end + shift; });
    copy_run(code.from(atoms), from.code.from(first), count);
    copy_run(cconst.from(atoms), from.cconst.from(first), count);
    atoms += count;
  }
};

// What append_parametrised() of a Writer will take up.
struct ParametrisedSize {
  const Operand& operand;
  bool hascode;
  i32 atoms = 0;
  i32 elements = 0;
  i32 terms = 0;

  // The terms of the operand's elements first .. last-1.
  void append(i64 first, i64 last)
  {
    const i32 b = operand.ptr[first], e = operand.ptr[last];
    terms += e - b;
    atoms += hascode ? 4 * (e - b) + operand.atoms(b, e) : 3 * (e - b);
  }
  void append(i64 f) { append(f, f + 1); }
  void close_element() { ++elements; }
};

}  // namespace fragments
