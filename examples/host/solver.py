"""Solves an assembled model with HiGHS, and reads the solution back by variables and constraints.

HiGHS takes numbers from 1e20 on for infinite, refuses coefficients from 1e15 on and takes those up to 1e-9 for zero. It
does so without a word, and the solution would be that of another problem: such numbers are refused here by name.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
from scipy.optimize import Bounds, LinearConstraint, linprog, milp
from scipy.sparse import diags, hstack, identity, vstack

from . import kernels
from .model import Constraint, Problem, Variable

INFINITE, _LARGE, _SMALL = 1e20, 1e15, 1e-9

_STATUS = {0: "optimal", 1: "limit reached", 2: "infeasible", 3: "unbounded"}


@dataclass(frozen=True)
class Solution:
    """What the solver found. Without the status "optimal" all numbers are NaN, and with integers the duals are.

    status: "optimal", "infeasible", "unbounded", or words on what else happened, in one line; why: the cause, where it
    is one row or variable that can be named, or "".
    objective: with the constant, in the problem's own sense.
    xx: values of all variables by number, place 0 unused; xc: values of all rows; slc, suc: duals of the rows' lower
    and upper bounds, whose difference is the change of the objective for each unit by which a row's bounds move up.
    """

    status: str
    objective: float
    xx: np.ndarray
    xc: np.ndarray
    slc: np.ndarray
    suc: np.ndarray
    problem: Problem
    why: str = ""

    def value(self, x: Variable) -> np.ndarray:
        """Values of an array of variables, in its shape. Raises ValueError if the problem does not have them."""
        numbers = self.problem.numbers_of(x)
        res = np.zeros(len(numbers))
        kernels.gather_scalar_values(len(res), numbers, 0, res, self.xx)
        return res.reshape(x.shape)

    def activity(self, constraint: Constraint) -> np.ndarray:
        """Values of an array of constraints, without the constants of their expressions, in its shape."""
        rows = self.problem.rows_of(constraint)
        res = np.zeros(len(rows))
        kernels.gather_constraint_values(None, None, None, None, None, len(res), rows, 0, res, self.xc)
        return res.reshape(constraint.shape)

    def dual(self, constraint: Constraint) -> np.ndarray:
        """Duals of an array of constraints, in its shape."""
        rows = self.problem.rows_of(constraint)
        y, res = np.zeros(len(self.slc)), np.zeros(len(rows))
        kernels.subtract_constraint_duals(len(y), self.slc, self.suc, y)
        kernels.gather_constraint_duals(None, None, None, None, None, len(res), rows, 0, res, y)
        return res.reshape(constraint.shape)


def solve(p: Problem) -> Solution:
    """Solves the problem, as a linear program where no variable is an integer.

    Raises TypeError for anything but the problem of a linear model, ValueError for numbers that the solver changes.
    """
    if not isinstance(p, Problem):
        raise TypeError(f"a Problem is solved here, which Model.problem() makes, not a {type(p).__name__}; "
                        "cone_solver.solve takes those of conic models")
    _check_numbers(p)
    m, n = p.A.shape
    sign = -1.0 if p.sense == "max" else 1.0  # the solver minimises
    x, slc, suc = None, np.full(m, np.nan), np.full(m, np.nan)
    why = p.contradiction() or _parallel_contradiction(p)
    if why:
        status = "infeasible"
    elif n == 0:
        status, x = ("infeasible", None) if np.any((p.lo > 0.0) | (p.hi < 0.0)) else ("optimal", np.zeros(0))
    elif p.integer.any():
        status, x = _solve_integer(p, sign * p.c)
    else:
        status, x, slc, suc = _solve_linear(p, sign * p.c)
    if x is None:
        return Solution(status, np.nan, np.full(n + 1, np.nan), np.full(m, np.nan), slc, suc, p, why)
    return Solution(status, float(p.c @ x) + p.constant, np.append(np.nan, x), p.A @ x, sign * slc, sign * suc, p)


def _check_numbers(p: Problem) -> None:
    """Raises ValueError, with the name of the row or column, for a number that the solver takes for another."""
    p.check_magnitudes(INFINITE)
    ends = p.A.indptr
    largest = np.zeros(len(p.lo))
    full = np.flatnonzero(np.diff(ends))
    if len(full):
        largest[full] = np.maximum.reduceat(np.abs(p.A.data), ends[full])
    for refused, what in ((np.flatnonzero(largest >= _LARGE), f"a coefficient of {_LARGE:g} or more, too large"),
                          (np.flatnonzero((largest > 0.0) & (largest <= _SMALL)),
                           f"no coefficient above {_SMALL:g}, which the solver takes for zero")):
        if len(refused):
            raise ValueError(f"{p.row(refused[0])} has {what}: it wants scaling")


def _parallel_contradiction(p: Problem) -> str:
    """Words for two rows that are multiples of each other with bounds that exclude each other, or "" if there are none.

    HiGHS would find them too, but its presolve crashes on some.
    """
    A = p.A.copy()
    A.eliminate_zeros()
    filled = np.flatnonzero(np.diff(A.indptr))
    if not len(filled):
        return ""
    first = A.data[A.indptr[filled]]
    unit = diags(1.0 / first) @ A[filled]
    key = unit @ np.random.default_rng(0).random(A.shape[1])  # alike for multiples
    order = np.argsort(key)
    group = np.flatnonzero(np.append(True, np.diff(key[order]) > 1e-12 * np.abs(key[order][1:])))
    ends = np.sort(np.stack([p.lo[filled], p.hi[filled]]) / first, axis=0)[:, order]
    lo, hi = np.maximum.reduceat(ends[0], group), np.minimum.reduceat(ends[1], group)
    for k in np.flatnonzero(lo > hi + 1e-7 * (1.0 + np.abs(hi))):
        members = slice(group[k], group[k + 1] if k + 1 < len(group) else None)
        i, j = order[members][[ends[0][members].argmax(), ends[1][members].argmin()]]
        difference = unit[i] - unit[j]
        if not difference.nnz or np.abs(difference.data).max() <= 1e-9:
            return f"{p.row(filled[i])} contradicts {p.row(filled[j])}"
    return ""


def _solve_linear(p: Problem, c: np.ndarray):
    """Status, values, duals of the rows' lower and upper bounds."""
    # The solver's form has equations and upper bounds only.
    equal = p.lo == p.hi
    above, below = np.isfinite(p.hi) & ~equal, np.isfinite(p.lo) & ~equal
    result = linprog(c, A_ub=vstack([p.A[above], -p.A[below]]), b_ub=np.concatenate([p.hi[above], -p.lo[below]]),
                     A_eq=p.A[equal], b_eq=p.hi[equal], bounds=np.column_stack([p.lower, p.upper]), method="highs",
                     options={"presolve": _presolves(p)})
    slc, suc = np.zeros(len(p.lo)), np.zeros(len(p.lo))
    if result.x is None:
        return _status(p, result), None, slc * np.nan, suc * np.nan
    inequalities, equations = result.ineqlin.marginals, result.eqlin.marginals
    suc[above], slc[below] = np.split(-inequalities, [np.count_nonzero(above)])
    slc[equal], suc[equal] = np.maximum(equations, 0.0), np.maximum(-equations, 0.0)
    return _status(p, result), result.x, slc, suc


def _solve_integer(p: Problem, c: np.ndarray):
    """Status and values."""
    result = _milp(p, c)
    return _status(p, result), result.x


def _milp(p: Problem, c: np.ndarray):
    """What the solver for integers finds for the problem with the objective c."""
    rows = [LinearConstraint(p.A, p.lo, p.hi)] if len(p.lo) else []
    return milp(c, constraints=rows, bounds=Bounds(p.lower, p.upper), integrality=p.integer,
                options={"presolve": _presolves(p)})


def _presolves(p: Problem) -> bool:
    """Whether HiGHS simplifies the problem first: a large one, where it pays, for on infeasible ones it may crash."""
    return p.A.nnz > 10000


def _status(p: Problem, result) -> str:
    """The status of a result in the words of `Solution`."""
    if result.status in _STATUS:
        return _STATUS[result.status]
    if _is_infeasible(p):  # the solver left it open
        return "infeasible"
    if "infeasible or unbounded" in result.message:
        return "unbounded" if _milp(p, np.zeros(len(p.c))).status == 0 else "infeasible"
    return " ".join(result.message.split())


def _is_infeasible(p: Problem) -> bool:
    """Whether rows have to be violated, integers or not: a problem of the least violation, which has a solution."""
    m, n = p.A.shape
    above, below, slack = np.isfinite(p.hi), np.isfinite(p.lo), -identity(m, format="csr")
    result = linprog(
        np.repeat([0.0, 1.0], [n, m]),
        A_ub=vstack([hstack([p.A, slack], "csr")[above], hstack([-p.A, slack], "csr")[below]]),
        b_ub=np.concatenate([p.hi[above], -p.lo[below]]), method="highs", options={"presolve": False},
        bounds=np.column_stack([np.append(p.lower, np.zeros(m)), np.append(p.upper, np.full(m, np.inf))]))
    return result.status == 0 and result.fun > 1e-6
