"""Parameters: values that may change after a model was built, and coefficients that depend on them.

    parameters = Parameters()
    p = parameters.array((3,))
    table = ParameterTable(parameters, nrows=3)
    model.push(x)
    multiply_elementwise(model.stacks, p)          # p * x, on the w stack: coefficients as code
    fixed = table.file(model.stacks, rows)         # takes the record off the stack
    parameters.set(p, values)
    subi, subj, val = table.evaluate()             # the coefficients for these values

A product with a parameter leaves a term's number behind as the first atom of its code. Whatever other operators make of
the code, `compact` folds it in the end: a term without a parameter gets its coefficient back as a plain number, every
other term has all of its coefficient in code. Only the latter go into the table, which is evaluated as often as the
parameters change, without any expression being built again.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import List, Optional, Sequence, Tuple

import numpy as np

import fragments_kernels as kernels
from .checks import count, extents, floats, integers, label
from .operators import check_pattern
from .stacks import Record, Stacks, check_slots

Triplets = Tuple[np.ndarray, np.ndarray, np.ndarray]  # row (int32), variable number (int32), coefficient


@dataclass(frozen=True)
class Parameter:
    """An array of parameters: its shape and the number of each stored element (int32).

    sp: int64, flat positions of the stored elements, ascending; without it all elements are stored. Others are zero.
    name: what messages call it; owner: the mark of the parameters that it belongs to.
    """

    shape: Tuple[int, ...]
    numbers: np.ndarray
    sp: Optional[np.ndarray] = None
    name: str = ""
    owner: object = None

    def __str__(self) -> str:
        return f"parameter {self.name}"

    @property
    def positions(self) -> np.ndarray:
        """Flat positions of all stored elements (int64)."""
        return np.arange(len(self.numbers), dtype=np.int64) if self.sp is None else self.sp


class Parameters:
    """All parameters of a model and their values, numbered from 0 on. A parameter is NaN until it is set."""

    def __init__(self) -> None:
        self.values = np.zeros(0)
        self.arrays: List[Parameter] = []
        self.owner = object()

    def array(self, shape: Sequence[int], sp: Optional[np.ndarray] = None, name: str = "") -> Parameter:
        """Adds an array of parameters, dense or with the stored elements `sp`."""
        name = label(name, len(self.arrays) + 1)
        first, n = len(self.values), math.prod(extents(shape)) if sp is None else np.size(sp)
        check_slots("the list of all parameters", first + n)
        shape, sp = check_pattern(shape, sp, n)
        self.values = np.append(self.values, np.full(n, np.nan))
        self.arrays.append(Parameter(shape, np.arange(first, first + n, dtype=np.int32), sp, name, self.owner))
        return self.arrays[-1]

    def set(self, parameter: Parameter, values) -> None:
        """Sets the stored elements of an array of parameters, row-major; one number sets all of them.

        Raises ValueError for numbers that are not finite, and for a parameter that is not among these.
        """
        numbers, values = self._numbers(parameter), floats(values, str(parameter)).reshape(-1)
        if len(values) not in (1, len(numbers)):
            raise ValueError(f"{len(values)} values for {parameter}, which has {len(numbers)}")
        kernels.set_parameters(numbers, self.values, np.broadcast_to(values, (len(numbers),)))

    def get(self, parameter: Parameter) -> np.ndarray:
        """Values of the stored elements of an array of parameters, row-major."""
        values = np.zeros(len(self._numbers(parameter)))
        kernels.read_parameters(parameter.numbers, self.values, values)
        return values

    def _numbers(self, parameter: Parameter) -> np.ndarray:
        if _checked_parameter(parameter).owner is not self.owner:
            raise ValueError(f"{parameter} belongs to other parameters")
        return parameter.numbers


def _checked_parameter(parameter: Parameter) -> Parameter:
    if not isinstance(parameter, Parameter):
        raise TypeError(f"a Parameter is wanted, not a {type(parameter).__name__}")
    return parameter


# ---- Products with parameters


def scale(s: Stacks, parameter: Parameter) -> Record:
    """Replaces an array E by the product of a single parameter and E."""
    w, r, e = s.w, s.r, s.operands(1)[0]
    if len(_checked_parameter(parameter).numbers) != 1 or math.prod(parameter.shape) != 1:
        raise ValueError(f"only a single parameter can scale an array, not {parameter} of shape {parameter.shape}")
    s.claim("parameters", parameter.owner)
    result = r.reserve_record(e.nd, e.nelem, e.nnz, _atoms(e, e.nnz, e.ncodeatom), hassp=e.hassp)
    kernels.write_parameter_times_expression(
        e.cconst, e.code, e.cof, e.ncodeatom, e.nidxs, e.nnz, int(parameter.numbers[0]), e.ptr, e.codeptr,
        result.cconst, result.code, result.codeptr, result.cof, r.f64, e.hassp, r.i32, r.i64, result.ncodeatom,
        result.nd, result.nelem, result.nidxs, result.nnz, result.ptr, result.shape, result.sp,
        e.shape, e.sp, w.f64, w.i32, w.i64)
    return s.finish(1, result)


def spread(s: Stacks, parameter: Parameter) -> Record:
    """Replaces a record E of one stored element by the array of parameters with every element times E."""
    w, r, e = s.w, s.r, s.operands(1)[0]
    if math.prod(w.extents(e)) != 1 or e.nelem != 1:
        raise ValueError(f"only a single expression can be spread over parameters, not one of shape {w.extents(e)}")
    n, nd = len(_checked_parameter(parameter).numbers), len(parameter.shape)
    r.check_counts(n * e.nnz, n * _atoms(e, e.nnz, e.ncodeatom))
    s.claim("parameters", parameter.owner)
    _, param = _push_parameter(s, parameter)
    result = r.reserve_record(nd, n, n * e.nnz, n * _atoms(e, e.nnz, e.ncodeatom), hassp=parameter.sp is not None)
    kernels.push_extents(nd, r.i32, result.shape, np.array(parameter.shape, dtype=np.int32))
    kernels.push_pattern(result.hassp, n, r.i64, result.sp, parameter.sp)
    kernels.zero_slots(result.cof, r.f64, result.nnz)
    kernels.write_even_ptr(e.nnz, r.i32, n, result.ptr)
    kernels.repeat_variables(e.nidxs, e.nnz, r.i64, n, result.nidxs, w.i64)
    kernels.write_parameters_times_element_code(
        e.cconst, e.code, e.cof, e.ncodeatom, e.nnz, param, e.codeptr, result.cconst, result.code, result.codeptr,
        r.f64, r.i32, n, w.f64, w.i32, s.x.i32)
    return s.finish(1, result)


def inner_product(s: Stacks, parameter: Parameter) -> Record:
    """Replaces an array E by the sum of its products with the parameters, element by element: one element, shape ()."""
    w, r, e = s.w, s.r, _operand_like(s, parameter)
    psp, param = _push_parameter(s, parameter)
    x, n = s.x, len(parameter.numbers)
    ncodeatom, nnz = kernels.measure_inner_product(
        e.codeptr, e.hassp, e.ncodeatom, e.nelem, n, psp, e.ptr, 0, 0, e.sp, w.i32, w.i64, x.i64)
    result = r.reserve_record(0, 1, nnz, ncodeatom)
    if e.hassp:
        kernels.write_inner_product(
            e.cconst, e.code, 0, e.codeptr, e.cof, 0, e.ncodeatom, e.nelem, e.nidxs, 0, 0, param, n, psp, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs,
            e.sp, w.f64, w.i32, w.i64, x.i32, x.i64)
    else:
        kernels.write_inner_product_of_dense(
            e.cconst, e.code, 0, e.codeptr, e.cof, e.ncodeatom, e.nidxs, 0, param, n, psp, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs,
            w.f64, w.i32, w.i64, x.i32, x.i64)
    r.i32[result.ptr + 1] = nnz
    return s.finish(1, result)


def multiply_elementwise(s: Stacks, parameter: Parameter) -> Record:
    """Replaces an array E by its product with the parameters, element by element; a sparse array."""
    w, r, e = s.w, s.r, _operand_like(s, parameter)
    psp, param = _push_parameter(s, parameter)
    x, n = s.x, len(parameter.numbers)
    ncodeatom, nelem, nnz = kernels.measure_elementwise_parameter_product(
        e.codeptr, e.hassp, e.ncodeatom, e.nelem, n, psp, e.ptr, 0, 0, 0, e.sp, w.i32, w.i64, x.i64)
    if not e.hassp:
        nelem = n  # every parameter meets an element
    result = r.reserve_record(e.nd, nelem, nnz, ncodeatom, hassp=True)
    kernels.copy_record_extents(e.nd, r.i32, result.shape, e.shape, w.i32)
    if e.hassp:
        kernels.write_elementwise_parameter_product(
            e.cconst, e.code, 0, e.codeptr, e.cof, 0, 0, e.ncodeatom, e.nelem, e.nidxs, 0, 0, param, n, psp, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs, result.ptr,
            result.sp, e.sp, w.f64, w.i32, w.i64, x.i32, x.i64)
    else:
        kernels.write_elementwise_parameter_product_of_dense(
            e.cconst, e.code, 0, e.codeptr, e.cof, e.ncodeatom, e.nidxs, 0, param, n, psp, e.ptr,
            result.cconst, result.code, result.codeptr, result.cof, r.f64, r.i32, r.i64, result.nidxs, result.ptr,
            result.sp, w.f64, w.i32, w.i64, x.i32, x.i64)
    return s.finish(1, result, without_pattern=nelem == math.prod(parameter.shape))


def _atoms(e: Record, terms: int, atoms: int) -> int:
    """Atoms of `terms` terms of E, which have `atoms` themselves, after each was multiplied by a parameter."""
    return 4 * terms + atoms if e.ncodeatom else 3 * terms


def _operand_like(s: Stacks, parameter: Parameter) -> Record:
    """The last record, which has the shape of the parameters. Raises ValueError if it has another."""
    e = s.operands(1)[0]
    if s.w.extents(e) != _checked_parameter(parameter).shape:
        raise ValueError(f"{parameter} of shape {parameter.shape} does not fit an array of shape {s.w.extents(e)}")
    s.r.check_counts(e.nnz, _atoms(e, e.nnz, e.ncodeatom))
    s.claim("parameters", parameter.owner)
    return e


def _push_parameter(s: Stacks, parameter: Parameter) -> Tuple[int, int]:
    """Copies the pattern and the numbers to the x stack; their positions."""
    x, n = s.x, len(parameter.numbers)
    param, psp, _ = x.reserve(n32=n, n64=n)
    x.i32[param:param + n] = parameter.numbers
    x.i64[psp:psp + n] = parameter.positions
    return psp, param


# ---- Compaction


def compact(s: Stacks) -> Record:
    """Folds the coefficient code of the last record, in which terms that turn out to be zero disappear.

    What is left of a term's code is the mark of a plain number, which is in `cof`, or else code for all of its
    coefficient, with 0 in `cof`. Raises ValueError if some code does not compute exactly one value.
    """
    w, r, x, e = s.w, s.r, s.x, s.operands(1)[0]
    if not e.ncodeatom:
        return e
    longest = kernels.longest_element(0, e.nnz, e.codeptr, w.i32)
    slots = 2 * longest + 1  # a folding sum makes two nodes, and there is one more start of children than nodes
    atoms = e.ncodeatom + 2 * e.nnz  # a coefficient that moves into its code costs a constant and an addition
    code, _, cconst = x.reserve(n32=atoms, nf64=atoms)
    codeptr, opcodes, starts, children, stack = (x.reserve(n32=n)[0] for n in (e.nnz + 1, slots, slots, slots, slots))
    _, _, values = x.reserve(nf64=slots)
    x.i32[codeptr] = 0
    _, fail, _, _ = kernels.compact_code(
        children, starts, w.i32, e.code, w.f64, e.cconst, 0, -1, w.f64, e.cof, e.nnz, w.i32, e.codeptr, stack, 0,
        x.i32, code, x.f64, cconst, x.i32, codeptr, values, opcodes, 0, x.f64, x.i32)
    if fail >= 0:
        x.top = (0, 0, 0)
        raise ValueError("some coefficient's code does not compute exactly one value")
    ncodeatom, nelem, nnz = kernels.measure_kept_terms(
        e.cof, e.nelem, e.ptr, 0, 0, 0, w.f64, w.i32, code, codeptr, x.i32)
    result = r.reserve_record(e.nd, nelem if e.hassp else e.nelem, nnz, ncodeatom, hassp=e.hassp)
    kernels.copy_record_extents(e.nd, r.i32, result.shape, e.shape, w.i32)
    kernels.write_kept_terms(
        0, e.cof, 0, e.hassp, e.nelem, e.nidxs, 0, e.ptr, result.cconst, result.code, result.codeptr, result.cof,
        r.f64, e.hassp, r.i32, r.i64, result.nidxs, result.ptr, result.sp, e.sp, w.f64, w.i32, w.i64,
        cconst, code, codeptr, x.f64, x.i32)
    return s.finish(1, result)


# ---- The table


class ParameterTable:
    """The terms of `nrows` rows whose coefficients depend on parameters.

    Row i has the terms ptrb[i] .. ptre[i]-1, and its atoms follow each other from code_ptr[i] on. Rows are filed behind
    all others; a row that is taken out leaves a hole, and holes are closed when room gets short.
    """

    def __init__(self, parameters: Parameters, nrows: int) -> None:
        if not isinstance(parameters, Parameters):
            raise TypeError(f"Parameters are wanted, not a {type(parameters).__name__}")
        nrows = count(nrows, "the number of rows of a table")
        check_slots("a table", nrows)
        self.parameters = parameters
        self.ptrb, self.ptre, self.code_ptr = (np.zeros(nrows, dtype=np.int32) for _ in range(3))
        self.sizes, self.varidx = np.zeros(8, dtype=np.int32), np.zeros(8, dtype=np.int64)  # of terms
        self.code, self.cconst = np.zeros(8, dtype=np.int32), np.zeros(8)  # of atoms
        self.terms = self.atoms = 0  # in use
        self._end_terms = self._end_atoms = 0  # in use or lost in holes
        self._make_room_for_result()

    def file(self, s: Stacks, rows: np.ndarray) -> Triplets:
        """Takes the last record off the w stack and puts element i into row rows[i], in place of what was there.

        Its code is compacted first. The terms that turn out not to depend on parameters are not stored but returned.
        Raises ValueError for rows outside the table and for parameters other than the table's.
        """
        e, w = s.operands(1)[0], s.w
        size, rows = math.prod(w.extents(e)), self._checked(rows)
        if len(rows) != size or len(np.unique(rows)) != size:
            raise ValueError(f"{len(np.unique(rows))} different rows for {size} elements")
        code, operands = (a[at:at + e.ncodeatom] for a, at in ((w.i32, e.code), (w.f64, e.cconst)))
        s.claim("parameters", self.parameters.owner)
        if not np.all(operands[code == 1] < len(self.parameters.values)):  # opcode 1 pushes a parameter
            raise ValueError("the expression has parameters other than those of the table")
        e, w = compact(s), s.w
        self.remove(rows)
        flat, ptr, nidxs, cof = s.terms(e)
        rows = rows[flat]
        term_rows, plain = np.repeat(rows, np.diff(ptr)), np.ones(e.nnz, dtype=bool)
        if e.ncodeatom:
            terms, atoms = kernels.count_parametrised_terms(e.code, e.codeptr, e.nelem, 0, 0, e.ptr, w.i32)
            self._make_room(terms, atoms)
            kernels.lay_out_rows(e.code, e.codeptr, self._end_atoms, self._end_terms, rows, e.nelem, e.ptr, w.i32,
                                 self.code_ptr, self.ptrb, self.ptre)
            kernels.file_rows(
                self.cconst, e.cconst, self.code, e.code, e.codeptr, rows, e.nelem, e.nidxs, True, self.sizes,
                self.varidx, e.ptr, w.f64, w.i32, w.i64, self.code_ptr, self.ptrb)
            self.terms, self._end_terms = self.terms + terms, self._end_terms + terms
            self.atoms, self._end_atoms = self.atoms + atoms, self._end_atoms + atoms
            self._make_room_for_result()
            first = w.i32[e.code:e.code + e.ncodeatom][w.i32[e.codeptr:e.codeptr + e.nnz]]
            plain = first == 10  # compaction marks a plain number so
        s.pop()
        return term_rows[plain], nidxs[plain].astype(np.int32), cof[plain]

    def remove(self, rows: np.ndarray) -> None:
        """Takes the terms of some rows out."""
        self.atoms, self.terms = kernels.take_out_rows(
            self.atoms, self._checked(rows), self.sizes, self.ptrb, self.ptre, self.terms)

    def _checked(self, rows: np.ndarray) -> np.ndarray:
        """Row numbers as kernels take them. Raises ValueError if one lies outside the table."""
        rows = integers(rows, "rows", np.int32).reshape(-1)
        if len(rows) and not 0 <= np.min(rows) <= np.max(rows) < len(self.ptrb):
            raise ValueError(f"rows lie outside a table of {len(self.ptrb)} rows")
        return np.ascontiguousarray(rows)

    def evaluate(self) -> Triplets:
        """The coefficients of all rows for the current values, by rows: views that the next evaluation overwrites.

        Raises ValueError if one of them is NaN, because a parameter has no value, or infinite. Variable number 0 stands
        for the constant of a row. A variable may be met more than once in a row.
        """
        count, _ = kernels.evaluate_all_rows(
            self.cconst, self.code, 0, self.sizes, self.parameters.values, self.varidx, self.code_ptr, self.ptrb,
            self.ptre, 0, 0, self._subi, self._subj, self._val, self._machine)
        self._check_values(count)
        return self._subi[:count], self._subj[:count], self._val[:count]

    def evaluate_first(self, nrows: int) -> Tuple[np.ndarray, np.ndarray]:
        """Variable numbers and coefficients of the first `nrows` rows, as `evaluate` gives them."""
        if not 0 <= nrows <= len(self.ptrb):
            raise ValueError(f"{nrows} rows of a table of {len(self.ptrb)}")
        count, _ = kernels.evaluate_rows(
            self.cconst, self.code, self.varidx, self.code_ptr, self.sizes, 0, nrows, self.parameters.values,
            self.ptrb, self.ptre, 0, 0, self._subj, self._val, self._machine)
        self._check_values(count)
        return self._subj[:count], self._val[:count]

    def _check_values(self, count: int) -> None:
        """Raises ValueError if one of the first `count` coefficients that were evaluated is NaN or infinite."""
        values = self._val[:count]
        with np.errstate(all="ignore"):
            if np.isfinite(values.sum()):
                return
        if np.isinf(values).any():
            raise ValueError(f"a coefficient is {values[np.isinf(values)][0]}: the parameters' values are too large")
        if np.isnan(values).any():
            unset = [str(a) for a in self.parameters.arrays if np.isnan(self.parameters.values[a.numbers]).any()]
            raise ValueError(f"a coefficient is NaN; without a value: {', '.join(unset) or 'no parameter'}")

    def _make_room(self, terms: int, atoms: int) -> None:
        """Sees to it that so many more terms and atoms fit behind the last ones."""
        if self._end_terms + terms > len(self.sizes) or self._end_atoms + atoms > len(self.code):
            self._close_holes()
        self.sizes, self.varidx = (_grown(a, self._end_terms + terms) for a in (self.sizes, self.varidx))
        self.code, self.cconst = (_grown(a, self._end_atoms + atoms) for a in (self.code, self.cconst))

    def _close_holes(self) -> None:
        """Moves the rows together, in the order of their numbers."""
        if self._end_terms == self.terms:
            return
        used = np.flatnonzero(self.ptrb < self.ptre)
        begin, counts = self.ptrb[used], (self.ptre - self.ptrb)[used]
        sums = np.append(0, np.cumsum(self.sizes[:self._end_terms], dtype=np.int64))
        atom_begin, atom_counts = self.code_ptr[used], sums[self.ptre[used]] - sums[begin]
        terms, atoms = _runs(begin, counts), _runs(atom_begin, atom_counts)
        self.sizes[:self.terms], self.varidx[:self.terms] = self.sizes[terms], self.varidx[terms]
        self.code[:self.atoms], self.cconst[:self.atoms] = self.code[atoms], self.cconst[atoms]
        self.ptre[used] = np.cumsum(counts)
        self.ptrb[used] = self.ptre[used] - counts
        self.code_ptr[used] = np.cumsum(atom_counts) - atom_counts
        self._end_terms, self._end_atoms = self.terms, self.atoms

    def _make_room_for_result(self) -> None:
        """Makes the arrays that evaluations write, and the stack of the machine."""
        self._subi, self._subj = (np.zeros(self.terms, dtype=np.int32) for _ in range(2))
        self._val = np.zeros(self.terms)
        self._machine = np.zeros(self.sizes[:self._end_terms].max(initial=1))  # no run is deeper than it is long


def _runs(begin: np.ndarray, counts: np.ndarray) -> np.ndarray:
    """All indices of the runs of `counts` indices from `begin` on, one run after the other."""
    ends = np.cumsum(counts)
    return np.repeat(begin - (ends - counts), counts) + np.arange(counts.sum())


def _grown(array: np.ndarray, needed: int) -> np.ndarray:
    """The array with zeros behind it, once or more often doubled until it has `needed` slots."""
    grown = np.zeros(kernels.grown_capacity(len(array), needed), dtype=array.dtype)
    grown[:len(array)] = array
    return grown
