"""A conic model: a linear one with semidefinite matrices of variables and with expressions bound to cones.

    model = ConicModel()
    X = model.semidefinite(5)
    model.push(X)                             # a record of shape (5, 5) like any other
    multiply(model.stacks, matrix)
    rows = model.constraint(Domain(0.0, 0.0))
    model.push(x)
    ball = model.conic("quadratic")           # x[0] >= |x[1:]|

In a record the negative number ~v stands for the element v of the semidefinite matrices, which are numbered through
all of them, lower triangles by columns; both (i, j) and (j, i) are that one element. A linear row keeps its terms on
them as symmetric matrices A_r: <A_r, X> is what they come to.

An element of a conic constraint is an affine expression of its own, bound to a place of a cone. In an array of
constraints a number at or above 0 is a linear row, and ~a the conic element a. An entry of a semidefinite cone is its
element divided by the element's scale, which is sqrt(1/2) off the diagonal, so that inner products of packed
triangles are those of the matrices.

What cannot be right is refused as in `model`, before anything is changed.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import List, Optional, Sequence, Tuple

import numpy as np
from scipy.sparse import csr_matrix

import fragments_kernels as kernels
from .checks import count as checked_count
from .checks import extents, flags, floats, label, number
from .model import Constraint, Domain, Model, Problem, Rows, Values, Variable, element_name, assemble
from .stacks import Record, check_slots
from .sums import merge_terms

CONES = ("nonnegative", "nonpositive", "quadratic", "semidefinite")


@dataclass(frozen=True)
class SemidefiniteVariable(Variable):
    """Symmetric matrices of variables: shape (d, d) or (n, d, d); `matrices` are their numbers (int32, from 0 on)."""

    matrices: Optional[np.ndarray] = None


@dataclass(frozen=True)
class ConicProblem:
    """The linear problem, with terms on semidefinite matrices, and affine expressions in cones.

    X is the vector of all entries of all matrices, each matrix in full.
    """

    linear: Problem
    barA: csr_matrix  # rows x entries: the rows are lo <= A x + barA X <= hi
    barc: np.ndarray  # entries of the objective
    dim: np.ndarray  # order of each semidefinite matrix
    barj: np.ndarray  # matrix, row and column of each element
    i: np.ndarray
    j: np.ndarray
    F: csr_matrix  # expressions x (1 + variables), the constants in column 0
    barF: csr_matrix  # expressions x entries
    cones: List[Tuple[str, int]]  # kind and order of each conic constraint: entries, or rows of a matrix
    accptr: np.ndarray  # its first entry, and the number of all at the end
    accafeidxs: np.ndarray  # the expression of each entry
    accb: np.ndarray  # what is subtracted from it
    acon_elm_accid: np.ndarray  # constraint, place in it and scale of each conic element
    acon_elm_ofs: np.ndarray
    acon_elm_scale: np.ndarray
    var_elm_acc_idx: np.ndarray  # the constraint that each variable lives in, -1 for none, and its place there
    var_elm_acc_ofs: np.ndarray

    def check_finite(self) -> None:
        """Raises ValueError, with the name of the constraint, for a coefficient or constant of an expression in a cone
        or a coefficient of a semidefinite variable that is NaN or infinite."""
        for matrix, name in ((self.barA, self.linear.row), (self.F, self._entry), (self.barF, self._entry)):
            if not np.isfinite(matrix.data).all():
                matrix = matrix if name == self.linear.row else matrix[self.accafeidxs]
                bad = np.flatnonzero(~np.isfinite(matrix.data))
                if len(bad):  # none if it is in the upper triangle of a matrix in a cone
                    row = np.searchsorted(matrix.indptr, bad[0], side="right") - 1
                    raise ValueError(f"{name(row)} has the coefficient {matrix.data[bad[0]]}")
        floats(self.barc, "the objective's coefficients of semidefinite variables")

    def _entry(self, k: int) -> str:
        """What messages call the entry k of the conic constraints."""
        a = np.flatnonzero(self.accptr[self.acon_elm_accid] + self.acon_elm_ofs == k)[0]
        return next(element_name(c, int(at[0])) for c in self.linear.constraints
                    for at in [np.flatnonzero(c.rows.reshape(-1) == ~a)] if len(at))


@dataclass(frozen=True)
class _Entries:
    """Entries of lower triangles of symmetric matrices: row of the model, matrix, row and column in it, value."""

    rows: np.ndarray
    barj: np.ndarray
    i: np.ndarray
    j: np.ndarray
    cof: np.ndarray


class ConicModel(Model):
    """Collects what `Model` does, semidefinite matrices of variables and conic constraints."""

    def __init__(self) -> None:
        super().__init__()
        none, no_values = np.zeros(0, dtype=np.int32), np.zeros(0)
        self._semidefinite: List[SemidefiniteVariable] = []
        self._barj = self._i = self._j = self._dim = none
        self._barA: List[_Entries] = []
        self._barc = _Entries(none, none, none, none, no_values)
        self._nafe = 0
        self._F = Rows()
        self._barF: List[_Entries] = []
        self._cones: List[Tuple[str, int]] = []
        self._accptr = [0]
        self._accafeidxs, self._accb = none, no_values
        self._accid = self._ofs = self._afe = none
        self._scale = no_values
        self._var_acc, self._var_ofs = np.full(1, -1, dtype=np.int32), np.zeros(1, dtype=np.int32)

    # ---- Variables

    def variable(self, shape: Sequence[int], domain: Domain, integer: bool = False, name: str = "") -> Variable:
        """Adds an array of variables that live in no cone; none may be an integer."""
        if flags(integer, "the integers of a variable").any():
            raise ValueError("a conic model has no integers")
        x = super().variable(shape, domain, integer, name)
        self._var_acc, self._var_ofs = _longer(len(x.nidxs), self._var_acc, self._var_ofs)
        kernels.remove_variables(len(x.nidxs), x.nidxs, self._var_acc)
        return x

    def variable_in_cone(self, shape: Sequence[int], cone: str, name: str = "") -> Variable:
        """Adds an array of variables that live in "nonnegative", "nonpositive" or "quadratic" cones, see `conic`."""
        if cone == "semidefinite":
            raise ValueError("a semidefinite matrix of variables is made by semidefinite()")
        _cones_of(cone, extents(shape, "the shape of a variable"))
        x = self.variable(shape, Domain(-np.inf, np.inf), name=name)
        first = len(self._cones)
        self.push(x)
        self.conic(cone, name=name)
        accidxs = np.arange(first, len(self._cones), dtype=np.int32)
        if len(x.nidxs):
            kernels.enter_variables(accidxs, len(x.nidxs) // len(accidxs), len(x.nidxs), x.nidxs,
                                    self._var_acc, self._var_ofs)
        return x

    def semidefinite(self, d: int, n: Optional[int] = None, name: str = "") -> SemidefiniteVariable:
        """Adds a positive semidefinite matrix of variables of order d, at least 1, or n of them in one array."""
        name = label(name, len(self._semidefinite) + 1)
        d = checked_count(d, "the order of a semidefinite matrix", 1)
        count = 1 if n is None else checked_count(n, "the number of semidefinite matrices")
        first, size = len(self._dim), len(self._barj)
        elements = count * (d * (d + 1) // 2)
        check_slots("the list of all elements of semidefinite matrices", count * d * d + size)
        self._barj, self._i, self._j = _longer(elements, self._barj, self._i, self._j)
        self._dim, = _longer(count, self._dim)
        nativeidxs, matrices = np.zeros(elements, dtype=np.int64), np.zeros(count, dtype=np.int32)
        kernels.number_semidefinite_variables(matrices, first, count)
        kernels.fill_semidefinite_block(self._barj, self._i, self._j, np.array([size], dtype=np.int32), self._dim,
                                        0, d, first, nativeidxs, count)
        nidxs = _symmetric(~nativeidxs.astype(np.int32), count, d).astype(np.int64)
        self._nbar = len(self._barj)
        shape = (d, d) if n is None else (count, d, d)
        self._semidefinite.append(SemidefiniteVariable(shape, nidxs, name, self._owner, matrices))
        return self._semidefinite[-1]

    # ---- Linear rows and the objective

    def _append_rows(self, rows: Rows) -> np.ndarray:
        """Does what that of `Model` does, and keeps the terms on semidefinite elements in `_barA`."""
        s = self.stacks
        e = merge_terms(s)  # brings terms on semidefinite elements to the front
        nmat, _, nbar = kernels.measure_rows_by_term(0, self._barj, 0, e.nelem, e.nidxs, e.ptr, s.w.i32, s.w.i64, 0)
        entries = self._matrices(e, kernels.write_row_matrices, np.zeros(e.nelem + 1, dtype=np.int32),
                                 nmat, nbar, self._nrows + s.positions(e))
        fixed = super()._append_rows(rows)
        self._barA.append(entries)
        return fixed

    def _matrices(self, e: Record, write, ptr: np.ndarray, nmat: int, nbar: int, rows: np.ndarray) -> _Entries:
        """The terms of a record on semidefinite elements; the elements' rows in the model are `rows`."""
        w = self.stacks.w
        barsubj, dim, nnz = (np.zeros(nmat, dtype=np.int32) for _ in range(3))
        i, j, cof = np.zeros(nbar, dtype=np.int32), np.zeros(nbar, dtype=np.int32), np.zeros(nbar)
        write(0, 0, barsubj, self._barj, self._i, self._j, self._dim, e.cof, cof, dim, nnz, i, j,
              e.nidxs, e.nelem, ptr, e.ptr, w.f64, w.i32, w.i64)
        return _Entries(np.repeat(np.repeat(rows, np.diff(ptr)), nnz), np.repeat(barsubj, nnz), i, j, cof)

    def objective(self, sense: str) -> None:
        """Takes the last record, of one element, off the w stack as the objective; sense is "min" or "max"."""
        s = self.stacks
        self._check_objective(sense)
        e, w = merge_terms(s), s.w
        nlin, nbar = kernels.measure_row(0, e.nidxs, e.nnz, 0, w.i64)
        subj, cof = np.zeros(nlin, dtype=np.int32), np.zeros(nlin)
        kernels.split_row(cof, e.cof, e.nidxs, e.nnz, w.f64, w.i64, subj)
        barj, i, j = (np.zeros(nbar, dtype=np.int32) for _ in range(3))
        barcof = np.zeros(nbar)
        kernels.write_semidefinite_terms(  # merged terms stand in the order of their numbers, the negative ones first
            self._barj, self._i, self._j, e.cof, e.nidxs, nbar, w.f64, w.i64, barj, i, j, barcof)
        fixed = number(cof[subj == 0].sum(), "the constant of the objective")
        s.pop()
        self.sense, self.constant = sense, fixed
        self._objective = (subj[subj > 0] - 1, cof[subj > 0])
        self._barc = _Entries(np.zeros_like(barj), barj, i, j, barcof)

    # ---- Conic constraints

    def conic(self, cone: str, b: Values = 0.0, name: str = "") -> Constraint:
        """Takes the last record off the w stack; its elements less `b` lie in cones.

        cone: "nonnegative" or "nonpositive", one cone for all elements; "quadratic", a cone x[0] >= |x[1:]| for each
        run along the last axis; "semidefinite", a cone for each matrix of the last two axes, read in its lower
        triangle. b: a number, or an array that can be broadcast to the shape of the record; finite.
        """
        name = label(name, len(self._constraints) + 1)
        shape = self.stacks.w.extents(self._expression(f"constraint {name}"))
        b = _broadcast(b, shape, f"the right side of constraint {name}")
        count, d = _cones_of(cone, shape)
        if cone == "semidefinite":
            return self._semidefinite_cones(shape, b, count, d, name)
        afeidxs = self._expressions()
        aconidxs = self._enter(afeidxs, b.reshape(-1).copy(), [(cone, d)] * count, d)
        return self._entered(Constraint(shape, ~aconidxs, name, self._owner))

    def _semidefinite_cones(self, shape: Tuple[int, ...], b: np.ndarray, count: int, d: int, name: str) -> Constraint:
        """Binds the `count` matrices of order d of the last record, of this shape, to cones of their own."""
        entries = d * (d + 1) // 2
        row, column = np.tril_indices(d)
        full = self._expressions().reshape(count, d, d)
        afeidxs = np.zeros(count * entries, dtype=np.int32)
        kernels.pack_triangles(full[:, row, column].reshape(-1), afeidxs, entries, count, d, 1, d, 1, 0, False)
        column, row = np.triu_indices(d)
        aconidxs = self._enter(afeidxs, b.reshape(count, d, d)[:, row, column].reshape(-1),
                               [("semidefinite", d)] * count, entries)
        kernels.scale_triangle_elements(self._scale, aconidxs, 1, d, count, d, 1, 0, math.sqrt(0.5))
        return self._entered(Constraint(shape, _symmetric(~aconidxs, count, d), name, self._owner))

    def between(self, lower: Values, upper: Values, name: str = "") -> Tuple[Constraint, Constraint]:
        """Takes the last record off the w stack: lower <= element <= upper, both finite, as two cones."""
        name = label(name, len(self._constraints) + 1)
        shape = self.stacks.w.extents(self._expression(f"constraint {name}"))
        lb, ub = (_broadcast(v, shape, f"the {side} bounds of constraint {name}").reshape(-1).copy()
                  for v, side in ((lower, "lower"), (upper, "upper")))
        afeidxs, n, start = self._expressions(), len(lb), len(self._accb)
        aconidxs = self._enter(np.tile(afeidxs, 2), None, [("nonnegative", n), ("nonpositive", n)], n)
        kernels.bind_ranged_expressions(self._accafeidxs, self._accb, afeidxs, 0, start, lb, n, ub)
        return (self._entered(Constraint(shape, ~aconidxs[:n], name, self._owner)),
                self._entered(Constraint(shape, ~aconidxs[n:], name, self._owner)))

    def _enter(self, afeidxs: np.ndarray, b: Optional[np.ndarray], cones: List[Tuple[str, int]], d: int) -> np.ndarray:
        """Adds constraints of d entries each; the numbers of their elements. Without `b` binding is the caller's."""
        n, start, element = len(cones) * d, len(self._accb), len(self._accid)
        accidxs = np.arange(len(self._cones), len(self._cones) + len(cones), dtype=np.int32)
        aconidxs = np.arange(element, element + n, dtype=np.int32)
        self._accafeidxs, self._accb = _longer(n, self._accafeidxs, self._accb)
        self._accid, self._ofs, self._afe, self._scale = _longer(n, self._accid, self._ofs, self._afe, self._scale)
        if b is not None:
            kernels.bind_expressions(self._accafeidxs, self._accb, afeidxs, 0, start, b, n)
        kernels.enter_elements(accidxs, self._accid, self._afe, self._ofs, self._scale, aconidxs, afeidxs,
                               d, len(cones))
        self._cones += cones
        self._accptr += [start + d * (k + 1) for k in range(len(cones))]
        return aconidxs

    def _expressions(self) -> np.ndarray:
        """Takes the last record off w as affine expressions, one for each element; their numbers."""
        s = self.stacks
        e = merge_terms(s)
        w, size = s.w, math.prod(s.w.extents(e))
        nmat, nlin, nbar = kernels.measure_rows_by_coefficient(
            0, self._barj, e.cof, 0, e.nelem, e.nidxs, e.ptr, w.f64, w.i32, w.i64, 0)
        ptr = self._F.reserve(e.nelem, nlin, np.int64)
        kernels.split_nonzero_terms(
            self._F.cof, e.cof, e.nelem, e.nidxs, e.ptr, ptr, w.f64, w.i32, w.i64, self._F.subj)
        rows = (self._nafe + s.positions(e)).astype(np.int32)
        self._F.enter(s.ptr_of_all(e, ptr))
        self._barF.append(self._matrices(e, kernels.write_row_matrices_wide, np.zeros_like(ptr), nmat, nbar, rows))
        s.pop()
        first, self._nafe = self._nafe, self._nafe + size
        return np.arange(first, self._nafe, dtype=np.int32)

    # ---- Assembly

    def problem(self) -> ConicProblem:
        """The linear part as that of `Model`, with what is conic beside it."""
        made = ConicProblem(
            super().problem(), self._in_full(self._barA, self._nrows),
            self._in_full([self._barc], 1).toarray().reshape(-1), self._dim, self._barj, self._i, self._j,
            self._F.matrix(self._ncols + 1), self._in_full(self._barF, self._nafe),
            self._cones, np.array(self._accptr, dtype=np.int32), self._accafeidxs, self._accb,
            self._accid, self._ofs, self._scale, self._var_acc, self._var_ofs)
        made.check_finite()
        return made

    def take_rows(self) -> Tuple[np.ndarray, ...]:
        """Raises TypeError: rows of a conic model are more than a store of rows has room for."""
        raise TypeError("a conic model is not built in blocks of rows, only a Model is")

    def _in_full(self, parts: List[_Entries], nrows: int) -> csr_matrix:
        """Symmetric matrices in full, one row for each: an entry off the diagonal stands at (i, j) and (j, i)."""
        subi, subj, val = [np.zeros(0, dtype=np.int32)], [np.zeros(0, dtype=np.int32)], [np.zeros(0)]
        for part in parts:
            off = part.i != part.j
            for chosen, i, j in ((np.ones_like(off), part.i, part.j), (off, part.j, part.i)):
                subi.append(part.rows[chosen].astype(np.int32))
                subj.append(places(self._dim, part.barj, i, j)[chosen].astype(np.int32))
                val.append(part.cof[chosen])
        size = int((self._dim.astype(np.int64) ** 2).sum())
        return assemble(np.concatenate(subi), np.concatenate(subj), np.concatenate(val), nrows, size)


def places(dim: np.ndarray, barj: np.ndarray, i: np.ndarray, j: np.ndarray) -> np.ndarray:
    """The places of entries (i, j) of matrices barj in the vector of all entries; dim: the matrices' orders."""
    squares = dim.astype(np.int64) ** 2
    return (np.cumsum(squares) - squares)[barj] + dim[barj] * i.astype(np.int64) + j


def _cones_of(cone: str, shape: Tuple[int, ...]) -> Tuple[int, int]:
    """How many cones an array of this shape lies in, and their order. Raises ValueError if it cannot."""
    if cone not in CONES:
        raise ValueError(f"{cone!r} is none of the cones {', '.join(CONES)}")
    if cone == "semidefinite":
        if len(shape) < 2 or shape[-1] != shape[-2]:
            raise ValueError(f"an array of shape {shape} has no square matrices in its last two axes")
        return math.prod(shape[:-2]), shape[-1]
    if cone == "quadratic":
        if not shape or not shape[-1]:
            raise ValueError(f"an array of shape {shape} has no last axis to lie in quadratic cones")
        return math.prod(shape[:-1]), shape[-1]
    return 1, math.prod(shape)


def _broadcast(values: Values, shape: Tuple[int, ...], what: str) -> np.ndarray:
    values = floats(values, what)
    try:
        return np.broadcast_to(values, shape)
    except ValueError:
        raise ValueError(f"{what}: an array of shape {values.shape} does not fit the shape {shape}") from None


def _symmetric(numbers: np.ndarray, count: int, d: int) -> np.ndarray:
    """Full matrices of order d, row-major, from the numbers (int32) of their lower triangles, listed by columns."""
    full = np.zeros(count * d * d, dtype=np.int32)
    kernels.scatter_triangle(np.array([count, d, 1, d, 1], dtype=np.int32), 0, numbers, full,
                             np.array([d * d, d, d, 1, 1], dtype=np.int32), True)
    return full


def _longer(n: int, *arrays: np.ndarray) -> Tuple[np.ndarray, ...]:
    """The arrays with n zeros more."""
    return tuple(np.concatenate([array, np.zeros(n, dtype=array.dtype)]) for array in arrays)
