"""A linear model: variables with numbers and bounds, constraints from expression records, their assembly in one matrix.

    model = Model()
    x = model.variable((3,), Domain(0.0, np.inf))
    model.push(x)                                  # the record of x, on the w stack
    multiply(model.stacks, matrix)                 # matrix @ x
    rows = model.constraint(Domain(-np.inf, b))    # takes the record off the stack
    model.push(x), sum_blocks(model.stacks)
    model.objective("max")
    problem = model.problem()

Variables are numbered from 1 on, because 0 stands for the constant in a record; rows are numbered from 0 on. There are
no cones and no semidefinite variables in this layer, and coefficients with code are refused: code has to be run before
rows are made.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import List, Optional, Sequence, Tuple, Union

import numpy as np
from scipy.sparse import csr_matrix

from . import kernels
from .operators import SparseMatrix, add, constant, multiply, multiply_variable, variable
from .stacks import Record, Stacks, grown

Values = Union[float, np.ndarray]


@dataclass(frozen=True)
class Domain:
    """Bounds for the n elements of an array: lower <= element <= upper, with -inf and inf for none.

    lower, upper: one float for all elements; or n floats, row-major; or, with `coordinates` (int32, shape (k, nd)), one
    float for each of the k elements named there, all others being free.
    """

    lower: Values
    upper: Values
    coordinates: Optional[np.ndarray] = None

    def bounds(self, shape: Sequence[int]) -> Tuple[np.ndarray, np.ndarray]:
        """Lower and upper bounds of all elements of an array of this shape, row-major."""
        n = math.prod(shape)
        scalar = self.coordinates is None and np.ndim(self.lower) == np.ndim(self.upper) == 0
        count = 1 if scalar else n if self.coordinates is None else len(self.coordinates)
        lower = np.array(np.broadcast_to(np.asarray(self.lower, dtype=np.float64), (count,)))
        upper = np.array(np.broadcast_to(np.asarray(self.upper, dtype=np.float64), (count,)))
        if self.coordinates is not None and (
                self.coordinates.shape[1] != len(shape)
                or kernels.has_coordinate_outside(self.coordinates, count, np.array(shape, dtype=np.int32), False)):
            raise ValueError(f"a bound lies outside an array of shape {tuple(shape)}")
        lo, hi = np.empty(n), np.empty(n)
        if self.coordinates is not None:
            lo[:], hi[:] = -np.inf, np.inf
        kernels.write_bounds(lo, hi, self.coordinates is None, lower, scalar, self.coordinates, upper,
                             len(shape), n, np.array(shape, dtype=np.int32), 0)
        return lo, hi


@dataclass(frozen=True)
class Variable:
    """An array of variables: its shape and the number of each element, row-major (int64, from 1 on)."""

    shape: Tuple[int, ...]
    nidxs: np.ndarray


@dataclass(frozen=True)
class Constraint:
    """An array of constraints: its shape and the row number of each element, row-major (int32, from 0 on)."""

    shape: Tuple[int, ...]
    rows: np.ndarray


@dataclass(frozen=True)
class Problem:
    """Optimise c'x + constant over lo <= A x <= hi, lower <= x <= upper; column j is the variable numbered j + 1."""

    sense: str  # "min" or "max"
    A: csr_matrix  # m x n
    lo: np.ndarray  # m
    hi: np.ndarray  # m
    c: np.ndarray  # n
    constant: float
    lower: np.ndarray  # n
    upper: np.ndarray  # n
    integer: np.ndarray  # n, bool


class Rows:
    """Rows of a matrix, appended below each other: `subj` and `cof` hold the columns and coefficients of all terms."""

    def __init__(self) -> None:
        self.subj, self.cof = np.empty(0, dtype=np.int32), np.empty(0)
        self.nnz = 0
        self._ends = [np.zeros(1, dtype=np.int32)]  # of the terms of each row

    def reserve(self, n: int, terms: int, kind: type = np.int32) -> np.ndarray:
        """Makes room for at most `terms` terms of n rows; an array for the `ptr` of these rows, its first slot set."""
        self.subj = grown(self.subj, self.nnz, self.nnz + terms)
        self.cof = grown(self.cof, self.nnz, self.nnz + terms)
        return np.full(n + 1, self.nnz, dtype=kind)

    def enter(self, ptr: np.ndarray) -> None:
        """Appends rows by their `ptr`, once their terms have been written into the room for them."""
        self.nnz = int(ptr[-1])
        self._ends.append(ptr[1:])

    def parts(self) -> Tuple[np.ndarray, np.ndarray, np.ndarray]:
        """`ptr`, columns and coefficients of all rows. The latter share their memory."""
        return np.concatenate(self._ends), self.subj[:self.nnz], self.cof[:self.nnz]

    def matrix(self, ncols: int) -> csr_matrix:
        """The matrix of all rows. It shares their memory."""
        ptr, subj, cof = self.parts()
        return csr_matrix((cof, subj, ptr), shape=(len(ptr) - 1, ncols))


class Model:
    """Collects variables, constraints and an objective; `stacks` is where their expressions are evaluated.

    Models that are built one after the other may share their stacks, which saves time: see `stacks`.
    """

    def __init__(self, stacks: Optional[Stacks] = None) -> None:
        self.stacks = stacks or Stacks()
        self.sense = "min"
        self.constant = 0.0
        self._objective = (np.zeros(0, dtype=np.int32), np.zeros(0))  # columns and coefficients
        self._columns: List[Tuple[np.ndarray, np.ndarray, np.ndarray]] = []  # lower, upper, integer
        self._bounds: List[Tuple[np.ndarray, np.ndarray]] = []  # lo, hi of rows
        self._rows = Rows()
        self._ncols = self._nrows = 0

    def variable(self, shape: Sequence[int], domain: Domain, integer: Union[bool, np.ndarray] = False) -> Variable:
        """Adds an array of variables; `integer` marks all of them or, as n flags, row-major, some."""
        lower, upper = domain.bounds(shape)
        self._columns.append((lower, upper, np.broadcast_to(np.asarray(integer, dtype=bool), lower.shape)))
        nidxs = np.arange(self._ncols + 1, self._ncols + 1 + len(lower), dtype=np.int64)
        self._ncols += len(lower)
        return Variable(tuple(shape), nidxs)

    def push(self, x: Variable) -> None:
        """Pushes the record of `x` on the w stack."""
        variable(self.stacks, x.shape, x.nidxs)

    def constraint(self, domain: Domain) -> Constraint:
        """Takes the last record off the w stack and bounds its elements by `domain`, one row for each.

        Raises ValueError, and leaves the record, if the domain does not fit it or it has coefficients with code.
        """
        shape = self.stacks.w.extents(self.stacks.operands(1)[0])
        lo, hi = domain.bounds(shape)
        fixed = self._append_rows(self._rows)
        lo -= fixed  # the constant of an element goes to the other side
        hi -= fixed
        self._bounds.append((lo, hi))
        first, self._nrows = self._nrows, self._nrows + len(lo)
        return Constraint(shape, np.arange(first, self._nrows, dtype=np.int32))

    def objective(self, sense: str) -> None:
        """Takes the last record, of one element, off the w stack as the objective; sense is "min" or "max"."""
        self._check_objective(sense)
        rows = Rows()
        fixed = self._append_rows(rows)
        self.sense, self.constant = sense, float(fixed.sum())
        self._objective = (rows.subj[:rows.nnz], rows.cof[:rows.nnz])

    def _check_objective(self, sense: str) -> None:
        """Raises ValueError unless the last record can be an objective."""
        shape = self.stacks.w.extents(self.stacks.operands(1)[0])
        if math.prod(shape) != 1 or sense not in ("min", "max"):
            raise ValueError(f"an objective has one element and the sense min or max, not shape {shape} and {sense}")

    def _append_rows(self, rows: Rows) -> np.ndarray:
        """Takes the last record off w and appends a row for each of its elements; the elements' constants."""
        s, w, e = self.stacks, self.stacks.w, self.stacks.operands(1)[0]
        if e.ncodeatom:
            raise ValueError("a row has coefficients with code, which must be run before the row is made")
        ptr, fixed = rows.reserve(e.nelem, e.nnz), np.zeros(e.nelem)
        kernels.split_linear_and_constant_terms(
            fixed, rows.cof, e.cof, e.nelem, e.nidxs, e.ptr, ptr, w.f64, w.i32, w.i64, rows.subj)
        rows.subj[ptr[0]:ptr[-1]] -= 1  # column j is the variable numbered j + 1
        ptr = s.ptr_of_all(e, ptr)
        rows.enter(ptr)
        if e.hassp:
            fixed = np.bincount(s.positions(e), weights=fixed, minlength=len(ptr) - 1)
        s.pop()
        return fixed

    def matrix(self) -> csr_matrix:
        """The coefficients of all rows so far, in a matrix that shares the model's memory.

        The entries of a row stand in the order of its terms, and those of one variable are not added up.
        """
        return self._rows.matrix(self._ncols)

    def take_rows(self) -> Tuple[np.ndarray, ...]:
        """Takes all rows so far out of the model: `ptr`, columns, coefficients, lo and hi. Rows are numbered on."""
        rows, bounds, self._rows, self._bounds = self._rows, self._bounds, Rows(), []
        return (*rows.parts(), *_joined(bounds, (np.float64, np.float64)))

    def problem(self) -> Problem:
        """The model as one matrix with bounds. Terms of one row on the same variable are added up here."""
        A = self.matrix().copy()
        A.sum_duplicates()
        lo, hi = _joined(self._bounds, (np.float64, np.float64))
        lower, upper, integer = _joined(self._columns, (np.float64, np.float64, bool))
        columns, cof = self._objective
        return Problem(self.sense, A, lo, hi,
                       np.bincount(columns, weights=cof, minlength=self._ncols), self.constant, lower, upper, integer)


def _joined(parts: List[Tuple[np.ndarray, ...]], types: Sequence) -> List[np.ndarray]:
    """The first arrays of all parts in one, the second ones, and so on; of these types even if there is no part."""
    return [np.concatenate([np.zeros(0, dtype=kind), *(part[k] for part in parts)]) for k, kind in enumerate(types)]


def assemble(subi: np.ndarray, subj: np.ndarray, val: np.ndarray, nrows: int, ncols: int) -> csr_matrix:
    """The nrows x ncols matrix of triplets in any order (int32, int32, float64), with repeated entries added up.

    Two stable counting sorts, by column and then by row, bring equal entries side by side. The bucket arrays count two
    places up, so that after adding up place k + 1 holds the start of bucket k and, moved along while placing, ends as
    its end.
    """
    nnz = len(val)
    by_row, by_column = np.zeros(nrows + 2, dtype=np.int64), np.zeros(ncols + 2, dtype=np.int64)
    kernels.count_rows_and_columns(by_column, nnz, by_row, subi, subj)
    kernels.add_up_rows(nrows, by_row)
    kernels.add_up_columns(by_column, ncols)
    columns, order = np.zeros(nnz, dtype=np.int32), np.zeros(nnz, dtype=np.int32)
    kernels.place_by_column(columns, by_column, nnz, subj)
    kernels.place_by_row(columns, by_column, ncols, order, by_row, subi)

    merged = kernels.count_merged(nnz, min(nnz, 1), order, subi, subj)
    tsubi, tsubj, tval = np.zeros(merged, dtype=np.int32), np.zeros(merged, dtype=np.int32), np.zeros(merged)
    if nnz:
        tsubi[0], tsubj[0], tval[0] = subi[order[0]], subj[order[0]], val[order[0]]
        kernels.merge_repeated(1, nnz, order, subi, subj, tsubi, tsubj, tval, val)
    row_ptr = np.zeros(nrows + 2, dtype=np.int64)
    kernels.count_rows(merged, row_ptr, tsubi)
    kernels.add_up_rows(nrows + 1, row_ptr)
    return csr_matrix((tval, tsubj, row_ptr[1:].astype(np.int32)), shape=(nrows, ncols))


def build(lp) -> Tuple[Model, Variable, Constraint]:
    """The model of a linear program from a file (`mps.LinearProgram`): its columns and its rows as one array each."""
    m, n = len(lp.lo), len(lp.c)
    model = Model()
    s = model.stacks
    x = model.variable((n,), Domain(lp.lower, lp.upper), lp.integer)

    model.push(x)
    multiply(s, SparseMatrix(m, n, lp.subi, lp.subj, lp.val))
    rows = model.constraint(Domain(lp.lo, lp.hi))

    used = np.flatnonzero(lp.c).astype(np.int32)
    multiply_variable(s, SparseMatrix(1, n, np.zeros_like(used), used, lp.c[used]), x.shape, x.nidxs)
    constant(s, (1,), np.array([lp.constant]))
    add(s)
    model.objective(lp.sense)
    return model, x, rows
