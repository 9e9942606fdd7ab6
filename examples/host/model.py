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

Variables and constraints may be named, and messages call them so. What cannot be right is refused before anything is
changed: by ValueError (a variable of another model, NaN, a bound of the wrong length, an expression left on the stack)
or TypeError (a list for a variable). Bounds that contradict each other are no error but make the problem infeasible.

A large model is built in blocks of rows, one constraint each: what a block takes up on the stacks is used again by the
next, and the rows grow in arrays of their own that `problem` hands over without a copy.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import List, Optional, Sequence, Tuple, Union

import numpy as np
from scipy.sparse import csr_matrix

import fragments_kernels as kernels
from .checks import extents, flags, floats, integers, label
from .operators import SparseMatrix, add, constant, multiply, multiply_variable, variable
from .stacks import Record, Stacks, check_slots, grown

Values = Union[float, np.ndarray]

_MOST = np.finfo(np.float64).max  # which solvers refuse by name
LARGE = 1 << 22  # terms of a record beyond which the stacks do not keep its memory for the next


@dataclass(frozen=True)
class Domain:
    """Bounds for the n elements of an array: lower <= element <= upper, with -inf and inf for none.

    lower, upper: one number for all elements; or n numbers, row-major; or, with `coordinates` (integers, shape
    (k, nd)), one for each of the k elements named there, all others being free.
    """

    lower: Values
    upper: Values
    coordinates: Optional[np.ndarray] = None

    def bounds(self, shape: Sequence[int], whose: str = "the array") -> Tuple[np.ndarray, np.ndarray]:
        """Lower and upper bounds of all elements of an array of this shape, row-major.

        Raises ValueError if they do not fit the shape or leave no value: NaN, a lower bound of inf, an upper of -inf.
        """
        n, extent = math.prod(shape), np.array(shape, dtype=np.int32)
        coordinates = self.coordinates
        if coordinates is not None:
            coordinates = integers(coordinates, f"the coordinates of bounds of {whose}", np.int32)
            if coordinates.ndim != 2 or coordinates.shape[1] != len(shape):
                raise ValueError(f"coordinates of bounds of {whose} have the shape (k, {len(shape)}), "
                                 f"not {coordinates.shape}")
            if kernels.has_coordinate_outside(coordinates, len(coordinates), extent, False):
                raise ValueError(f"a bound lies outside {whose} of shape {tuple(shape)}")
            if len(np.unique(coordinates, axis=0)) < len(coordinates):
                raise ValueError(f"an element of {whose} is bounded twice")
        scalar = coordinates is None and np.ndim(self.lower) == np.ndim(self.upper) == 0
        count = 1 if scalar else n if coordinates is None else len(coordinates)
        lower, upper = (self._side(side, count, f"the {name} bound{'s' * (not scalar)} of {whose}", impossible)
                        for side, name, impossible in ((self.lower, "lower", np.inf), (self.upper, "upper", -np.inf)))
        lo, hi = np.empty(n), np.empty(n)
        if coordinates is not None:
            lo[:], hi[:] = -np.inf, np.inf
        kernels.write_bounds(lo, hi, coordinates is None, lower, scalar, coordinates, upper, len(shape), n, extent, 0)
        return lo, hi

    @staticmethod
    def _side(values: Values, count: int, what: str, impossible: float) -> np.ndarray:
        """One side as `count` floats."""
        side = floats(values, what, finite=False).reshape(-1)
        if len(side) not in (count, 1) or (len(side) != count and np.ndim(values)):
            raise ValueError(f"{what}: {len(side)} numbers for {count} elements")
        if np.any(side == impossible):
            raise ValueError(f"{what}: {impossible} leaves no value; -inf and inf stand for no bound")
        return np.ascontiguousarray(np.broadcast_to(side, (count,)))


@dataclass(frozen=True)
class Variable:
    """An array of variables: its shape and the number of each element, row-major (int64, from 1 on).

    name: what messages call it; owner: the mark of the model that it belongs to.
    """

    shape: Tuple[int, ...]
    nidxs: np.ndarray
    name: str = ""
    owner: object = None

    def __str__(self) -> str:
        return f"variable {self.name}"


@dataclass(frozen=True)
class Constraint:
    """An array of constraints: its shape and the row number of each element, row-major (int32, from 0 on).

    name: what messages call it; owner: the mark of the model that it belongs to.
    """

    shape: Tuple[int, ...]
    rows: np.ndarray
    name: str = ""
    owner: object = None

    def __str__(self) -> str:
        return f"constraint {self.name}"


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
    variables: Sequence[Variable]  # in the order of their columns
    constraints: Sequence[Constraint]  # in the order of their rows
    owner: object  # the mark of the model

    def column(self, j: int) -> str:
        """What messages call column j."""
        return next(element_name(x, j + 1 - x.nidxs[0]) for x in self.variables if j + 1 in _span(x.nidxs))

    def row(self, i: int) -> str:
        """What messages call row i."""
        return next(element_name(c, i - c.rows[0]) for c in self.constraints if i in _span(c.rows))

    def contradiction(self) -> str:
        """Words for bounds of one row or column that exclude each other, or "" if there are none."""
        for lo, hi, name in ((self.lo, self.hi, self.row), (self.lower, self.upper, self.column)):
            crossed = np.flatnonzero(lo > hi)
            if len(crossed):
                k = crossed[0]
                return f"{name(k)} has the lower bound {lo[k]:g} above the upper bound {hi[k]:g}"
        return ""

    def check_magnitudes(self, most: float) -> None:
        """Raises ValueError, with the name of the row or column, for a number of such a size that solvers take it for
        infinite."""
        for values, name in ((self.lo, self.row), (self.hi, self.row), (self.lower, self.column),
                             (self.upper, self.column), (self.c, self.column)):
            large = np.flatnonzero(np.isfinite(values) & (np.abs(values) >= most))
            if len(large):
                what = "objective coefficient" if values is self.c else "bound"
                raise ValueError(f"{name(large[0])}: the solver takes the {what} {values[large[0]]:g} for infinite, as "
                                 f"all numbers from {most:g} on; no bound is -inf or inf, others want scaling")

    def check_finite(self) -> None:
        """Raises ValueError, with the name of the row or column, for a coefficient that is NaN or infinite."""
        if not np.isfinite(self.A.data.sum()):
            bad = np.flatnonzero(~np.isfinite(self.A.data))
            if len(bad):
                row = np.searchsorted(self.A.indptr, bad[0], side="right") - 1
                raise ValueError(f"{self.row(row)} has the coefficient {self.A.data[bad[0]]}")
        bad = np.flatnonzero(~np.isfinite(self.c))
        if len(bad):
            raise ValueError(f"{self.column(bad[0])} has the objective coefficient {self.c[bad[0]]}")

    def numbers_of(self, x: Variable, semidefinite: int = 0) -> np.ndarray:
        """The numbers of an array of variables of this problem, which has so many semidefinite elements.

        Raises TypeError for anything else and ValueError for variables that the problem does not have.
        """
        return self._known(x, Variable, getattr(x, "nidxs", None), -semidefinite, len(self.c))

    def rows_of(self, constraint: Constraint, conic: int = 0) -> np.ndarray:
        """The same for the row numbers of an array of constraints; the problem has so many elements of conic ones."""
        return self._known(constraint, Constraint, getattr(constraint, "rows", None), -conic, len(self.lo) - 1)

    def _known(self, thing, kind: type, numbers: np.ndarray, least: int, most: int) -> np.ndarray:
        if not isinstance(thing, kind):
            raise TypeError(f"a {kind.__name__} is wanted, not a {type(thing).__name__}")
        if thing.owner is not self.owner:
            raise ValueError(f"{thing} belongs to another model")
        if len(numbers) and not least <= numbers.min() <= numbers.max() <= most:
            raise ValueError(f"{thing} was added after the problem had been made")
        return numbers


def _span(numbers: np.ndarray) -> range:
    """The numbers of an array of variables or constraints that has consecutive ones."""
    return range(numbers[0], numbers[-1] + 1) if len(numbers) else range(0)


def element_name(thing: Union[Variable, Constraint], k: int) -> str:
    """What messages call element k, row-major, of an array of variables or constraints."""
    if math.prod(thing.shape) == 1:
        return str(thing)
    at = tuple(int(i) for i in np.unravel_index(k, thing.shape))
    return f"element {at[0] if len(at) == 1 else at} of {thing}"


class Rows:
    """Rows of a matrix, appended below each other: `subj` and `cof` hold the columns and coefficients of all terms."""

    def __init__(self) -> None:
        self.subj, self.cof = np.empty(0, dtype=np.int32), np.empty(0)
        self.nnz = 0
        self._ends = [np.zeros(1, dtype=np.int32)]  # of the terms of each row

    def reserve(self, n: int, terms: int, kind: type = np.int32) -> np.ndarray:
        """Makes room for at most `terms` terms of n rows; an array for the `ptr` of these rows, its first slot set.

        Raises OverflowError, and changes nothing, if the matrix would have 2^31 terms or more.
        """
        check_slots("the matrix of all rows", self.nnz + terms)
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

    Models that are built one after the other may share their stacks, which saves time: see `stacks`. Variables and
    constraints may be added after a problem was made; they are in the next one.
    """

    def __init__(self, stacks: Optional[Stacks] = None) -> None:
        self.stacks = stacks or Stacks()
        self.sense = "min"
        self.constant = 0.0
        self._owner = object()  # the mark of its variables and constraints; the model itself would make a cycle
        self._objective = (np.zeros(0, dtype=np.int32), np.zeros(0))  # columns and coefficients
        self._columns: List[Tuple[np.ndarray, np.ndarray, np.ndarray]] = []  # lower, upper, integer
        self._bounds: List[Tuple[np.ndarray, np.ndarray]] = []  # lo, hi of rows
        self._variables: List[Variable] = []
        self._constraints: List[Constraint] = []
        self._rows = Rows()
        self._ncols = self._nrows = self._nbar = 0  # columns, rows, elements of semidefinite variables

    def variable(self, shape: Sequence[int], domain: Domain, integer: Union[bool, np.ndarray] = False,
                 name: str = "") -> Variable:
        """Adds an array of variables; `integer` marks all of them or, as n flags, row-major, some."""
        name = label(name, len(self._variables) + 1)
        shape = extents(shape, f"the shape of variable {name}")
        check_slots("the list of all variables", self._ncols + math.prod(shape))
        lower, upper = _domain(domain).bounds(shape, f"variable {name}")
        integer = flags(integer, f"the integers of variable {name}").reshape(-1)
        if len(integer) not in (1, len(lower)):
            raise ValueError(f"{len(integer)} flags for the {len(lower)} elements of variable {name}")
        self._columns.append((lower, upper, np.broadcast_to(integer, lower.shape)))
        nidxs = np.arange(self._ncols + 1, self._ncols + 1 + len(lower), dtype=np.int64)
        self._ncols += len(lower)
        self._variables.append(Variable(shape, nidxs, name, self._owner))
        return self._variables[-1]

    def push(self, x: Variable) -> None:
        """Pushes the record of `x` on the w stack. Raises ValueError if it belongs to another model."""
        if not isinstance(x, Variable):
            raise TypeError(f"a Variable is pushed, not a {type(x).__name__}")
        if x.owner is not self._owner:
            raise ValueError(f"{x} belongs to another model")
        self.stacks.claim("variables", self._owner)
        variable(self.stacks, x.shape, x.nidxs)

    def constraint(self, domain: Domain, name: str = "") -> Constraint:
        """Takes the last record off the w stack and bounds its elements by `domain`, one row for each.

        Raises ValueError, and leaves the record, if the domain does not fit it or if it is no expression in variables
        of this model or has coefficients with code.
        """
        name = label(name, len(self._constraints) + 1)
        shape = self.stacks.w.extents(self._expression(f"constraint {name}"))
        lo, hi = _domain(domain).bounds(shape, f"constraint {name}")
        fixed = self._append_rows(self._rows)
        for side in (lo, hi):  # the constant of an element goes to the other side
            told = np.isfinite(side)
            with np.errstate(over="ignore"):
                side -= fixed
            np.clip(side, -_MOST, _MOST, out=side, where=told)  # a bound that overflows does not become none
        self._bounds.append((lo, hi))
        first, self._nrows = self._nrows, self._nrows + len(lo)
        return self._entered(Constraint(shape, np.arange(first, self._nrows, dtype=np.int32), name, self._owner))

    def _entered(self, constraint: Constraint) -> Constraint:
        self._constraints.append(constraint)
        return constraint

    def objective(self, sense: str) -> None:
        """Takes the last record, of one element, off the w stack as the objective; sense is "min" or "max".

        It replaces an earlier one. A model without an objective looks for any point that satisfies the constraints.
        """
        self._check_objective(sense)
        rows = Rows()
        fixed = self._append_rows(rows)
        self.sense, self.constant = sense, float(fixed.sum())
        self._objective = (rows.subj[:rows.nnz], rows.cof[:rows.nnz])

    def _check_objective(self, sense: str) -> None:
        """Raises ValueError unless the last record can be an objective."""
        shape = self.stacks.w.extents(self._expression("the objective"))
        if math.prod(shape) != 1 or sense not in ("min", "max"):
            raise ValueError(f"an objective has one element and the sense min or max, not shape {shape} and {sense}")

    def _expression(self, whose: str) -> Record:
        """The last record. Raises ValueError if its terms cannot be those of rows, which are on variables that the
        model has and without code."""
        s, w, e = self.stacks, self.stacks.w, self.stacks.operands(1)[0]
        s.claim("variables", self._owner)
        if e.ncodeatom:
            raise ValueError(f"{whose} has coefficients with code, which must be run before rows are made")
        numbers = w.i64[e.nidxs:e.nidxs + e.nnz]
        shifted = numbers + self._nbar if self._nbar else numbers
        if e.nnz and shifted.view(np.uint64).max() > self._ncols + self._nbar:  # numbers below 0 are large there
            raise ValueError(f"{whose} has terms on variables that this model does not have")
        return e

    def _append_rows(self, rows: Rows) -> np.ndarray:
        """Takes the last record off w and appends a row for each of its elements; the elements' constants."""
        s, w, e = self.stacks, self.stacks.w, self.stacks.operands(1)[0]
        if e.nnz > LARGE:
            s.release()
        ptr, fixed = rows.reserve(e.nelem, e.nnz), np.zeros(e.nelem)
        kernels.split_linear_and_constant_terms(
            fixed, rows.cof, e.cof, e.nelem, e.nidxs, e.ptr, ptr, w.f64, w.i32, w.i64, rows.subj)
        floats(fixed, "the constants of an expression")
        rows.subj[ptr[0]:ptr[-1]] -= 1  # column j is the variable numbered j + 1
        ptr = s.ptr_of_all(e, ptr)
        rows.enter(ptr)
        if e.hassp:
            fixed = np.bincount(s.positions(e), weights=fixed, minlength=len(ptr) - 1)
        s.pop()
        if e.nnz > LARGE:
            s.release()
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
        """The model as one matrix with bounds, of which further variables and constraints change nothing.

        Terms of one row on the same variable are added up here. Where there are none and those of all rows are in
        order, the matrix shares the model's memory, to be read only. Raises ValueError if an expression is left on the
        stack, or if a coefficient has become NaN or infinite.
        """
        s = self.stacks
        if s.records and s.claimed_by("variables") in (None, self._owner):
            raise ValueError(f"an expression of shape {s.w.extents(s.records[-1])} is left on the stack: it is in no "
                             "constraint and no objective; stacks.pop() drops it")
        A = self.matrix()
        if A.has_canonical_format:
            A.data.flags.writeable = A.indices.flags.writeable = False
        else:
            A = A.copy()
            A.sum_duplicates()
        lo, hi = _joined(self._bounds, (np.float64, np.float64))
        lower, upper, integer = _joined(self._columns, (np.float64, np.float64, bool))
        columns, cof = self._objective
        made = Problem(self.sense, A, lo, hi,
                       np.bincount(columns, weights=cof, minlength=self._ncols), self.constant, lower, upper, integer,
                       tuple(self._variables), tuple(self._constraints), self._owner)
        made.check_finite()
        return made


def _domain(domain: Domain) -> Domain:
    if not isinstance(domain, Domain):
        raise TypeError(f"bounds are a Domain, not a {type(domain).__name__}")
    return domain


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
    x = model.variable((n,), Domain(lp.lower, lp.upper), lp.integer, name="columns")

    model.push(x)
    multiply(s, SparseMatrix(m, n, lp.subi, lp.subj, lp.val))
    rows = model.constraint(Domain(lp.lo, lp.hi), name="rows")

    used = np.flatnonzero(lp.c).astype(np.int32)
    multiply_variable(s, SparseMatrix(1, n, np.zeros_like(used), used, lp.c[used]), x.shape, x.nidxs)
    constant(s, (1,), np.array([lp.constant]))
    add(s)
    model.objective(lp.sense)
    return model, x, rows
