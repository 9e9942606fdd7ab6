"""Solves a conic model with CVXOPT, and reads the solution back by variables and constraints.

The solver's form is  min c'u  subject to  G u + s = h,  A u = b,  s in a cone, and its dual is
max -h'z - b'y  subject to  G'z + A'y + c = 0,  z in the cone. The model goes in as the dual: a row of it is an entry
of u, a scalar variable one of y, and the semidefinite matrices are blocks of z, as are the slacks of rows and cones. So
the size of the solver's system is the number of rows, not that of the many entries of the matrices.

The solver wants independent equations, and columns of free variables that are independent too. What depends on others
is found beforehand, by a dense factorisation: an equation that says the same as others is left out, one that says
something else makes the model infeasible; a variable that others can stand for is left at 0, and where that has a
price, the objective goes without end.
"""

from __future__ import annotations

from dataclasses import dataclass, replace
from typing import Dict, List, Tuple

import cvxopt
import cvxopt.solvers
import numpy as np
from scipy.linalg import qr, solve_triangular
from scipy.sparse import coo_matrix, csr_matrix, diags, hstack, identity, vstack

import fragments_kernels as kernels
from .checks import number
from .cones import ConicProblem, places
from .model import Constraint, Variable
from .solver import INFINITE

# What the solver says of its own form holds for the dual of the model.
_STATUS = {"optimal": "optimal", "primal infeasible": "unbounded", "dual infeasible": "infeasible",
           "unknown": "not solved to the wanted accuracy"}

# Relative to rows of length 1: what is left of a row that is a combination of others, and how well right sides agree.
_DEPENDENT, _SAME = 1e-11, 1e-8

_LARGE = 1e3  # right sides and costs from which the solver's word that there is no solution is doubted


@dataclass(frozen=True)
class ConicSolution:
    """What the solver found. Without the status "optimal" all numbers are NaN.

    status: "optimal", "infeasible", "unbounded", or words on what else happened, in one line; why: the cause, where it
    is one row or variable that can be named, or "".
    Values and duals of the scalar variables by number (place 0 unused), of the elements of the semidefinite matrices,
    of the linear rows, and of the entries of conic constraints; an entry's value is that of its expression. A dual is
    the change of the objective for each unit by which the right side moves up.
    """

    problem: ConicProblem
    status: str
    objective: float
    xx: np.ndarray
    yx: np.ndarray
    barx: np.ndarray
    bars: np.ndarray
    xc: np.ndarray
    y: np.ndarray
    accx: np.ndarray
    accy: np.ndarray
    why: str = ""

    def value(self, x: Variable) -> np.ndarray:
        """Values of an array of variables, in its shape. Raises ValueError if the problem does not have them."""
        numbers = self.problem.linear.numbers_of(x, len(self.barx))
        res = np.zeros(len(numbers))
        kernels.gather_variable_values(self.barx, len(res), numbers, 0, res, self.xx)
        return res.reshape(x.shape)

    def reduced_cost(self, x: Variable) -> np.ndarray:
        """Duals of an array of variables, in its shape: of their bounds, or of the cones that they live in."""
        p = self.problem
        numbers = p.linear.numbers_of(x, len(self.bars))
        res = np.zeros(len(numbers))
        kernels.gather_variable_duals(p.accptr, self.accy, self.bars, len(res), numbers, 0, res,
                                      p.var_elm_acc_idx, p.var_elm_acc_ofs, self.yx)
        return res.reshape(x.shape)

    def activity(self, constraint: Constraint) -> np.ndarray:
        """Values of an array of constraints, in its shape: of linear rows without the constants, of elements with."""
        return self._constraint(kernels.gather_constraint_values, constraint, self.accx, self.xc)

    def dual(self, constraint: Constraint) -> np.ndarray:
        """Duals of an array of constraints, in its shape."""
        return self._constraint(kernels.gather_constraint_duals, constraint, self.accy, self.y)

    def _constraint(self, gather, constraint: Constraint, conic: np.ndarray, linear: np.ndarray) -> np.ndarray:
        """What `gather` picks for an array of constraints out of the numbers of conic entries and of linear rows."""
        p = self.problem
        rows = p.linear.rows_of(constraint, len(p.acon_elm_accid))
        res = np.zeros(rows.size)
        gather(p.accptr, conic, p.acon_elm_accid, p.acon_elm_ofs, p.acon_elm_scale, len(res), rows, 0, res,
               linear)
        return res.reshape(constraint.shape)


class _Rows:
    """Rows of the solver's system, and which of them have slacks in which cones.

    A part is some rows' coefficients of the scalar variables, those of the entries of X, and their right sides.
    """

    def __init__(self) -> None:
        self.parts: List[Tuple[csr_matrix, csr_matrix, np.ndarray]] = []
        self.slacks: Dict[str, List[np.ndarray]] = {"l": [], "q": [], "s": []}  # numbers of rows; for "s" in matrices
        self.count = 0

    def add(self, scalar: csr_matrix, bar: csr_matrix, right: np.ndarray) -> np.ndarray:
        """Adds a part; the numbers of its rows."""
        self.parts.append((scalar, bar, right))
        first, self.count = self.count, self.count + len(right)
        return np.arange(first, self.count)

    def finish(self, nscalars: int, nentries: int) -> None:
        """Joins the parts: coefficients, right sides, and the numbers of the rows without slacks, the equations."""
        if not any(block.size for blocks in self.slacks.values() for block in blocks):
            # The solver wants a cone and a row: 0 >= -1.
            self.slacks["l"].append(self.add(csr_matrix((1, nscalars)), csr_matrix((1, nentries)), np.full(1, -1.0)))
        self.scalar, self.bar = (vstack([part[k] for part in self.parts], "csr") for k in (0, 1))
        self.right = np.concatenate([part[2] for part in self.parts])
        self.equations = np.setdiff1d(np.arange(self.count), self.slack_rows("lqs"))

    def slack_rows(self, kinds: str) -> np.ndarray:
        """The numbers of the rows with slacks in these cones."""
        return np.concatenate([np.zeros(0, dtype=np.int64),
                               *(block.reshape(-1) for kind in kinds for block in self.slacks[kind])])

    def violated(self, x: np.ndarray, X: np.ndarray) -> bool:
        """Whether equations or inequalities are violated, each by its own measure."""
        excess, tolerance = self.scalar @ x + self.bar @ X - self.right, 1e-5 * (1.0 + np.abs(self.right))
        lower = np.concatenate([self.equations, self.slack_rows("l")])
        return bool(np.any((excess < -tolerance)[lower]) or np.any((excess > tolerance)[self.equations]))


def solve(p: ConicProblem, tolerance: float = 1e-8) -> ConicSolution:
    """Solves the problem; `tolerance` is the relative gap and infeasibility that the solver stops at.

    Raises TypeError for anything but the problem of a conic model, ValueError for bounds and costs from 1e20 on.
    """
    if not isinstance(p, ConicProblem):
        raise TypeError(f"a ConicProblem is solved here, which ConicModel.problem() makes, not a {type(p).__name__}; "
                        "solver.solve takes those of linear models")
    if number(tolerance, "the tolerance") <= 0.0:
        raise ValueError(f"the tolerance is above 0, not {tolerance}")
    linear, n = p.linear, len(p.linear.c)
    linear.check_magnitudes(INFINITE)
    sign = -1.0 if linear.sense == "max" else 1.0
    rows = _Rows()
    sides = _add_bounded(rows, linear.A, p.barA, linear.lo, linear.hi)
    bounds = _add_bounded(rows, identity(n, format="csr"), csr_matrix((n, p.barA.shape[1])), linear.lower, linear.upper)
    entries, direction = _add_cones(rows, p)
    rows.finish(n, p.barA.shape[1])
    status, why, kept, columns = _presolve(p, rows, sides, bounds, tolerance)

    # The slacks and the semidefinite matrices make up G' and h.
    dims = {"l": sum(len(block) for block in rows.slacks["l"]), "q": [len(block) for block in rows.slacks["q"]],
            "s": [*p.dim.tolist(), *(len(block) for block in rows.slacks["s"])]}
    h = np.zeros(dims["l"] + sum(dims["q"]) + sum(d * d for d in dims["s"]))
    first = dims["l"] + sum(dims["q"])
    h[first:first + len(p.barc)] = sign * p.barc
    found = {}
    for weights, size, price in [] if status else _units(rows, np.append(linear.c, p.barc)):
        status, found = _ask(rows, dims, kept, columns, weights, -rows.right / size, h / price,
                             sign * linear.c / price, tolerance)
        if status == "optimal":
            break
    if status == "unbounded" and (linear.c.any() or p.barc.any()):  # or infeasible as well: is there any point?
        status = _unbounded_or(p, tolerance)
    ok = status == "optimal"
    x, u, z, s = (np.full(count, 0.0 if ok else np.nan) for count in (n, rows.count, len(h), len(h)))
    if ok:
        x[columns], u[kept], z[:], s[:] = (
            unit * np.array(found[k]).reshape(-1)
            for k, unit in (("y", size), ("x", price * weights[kept]), ("z", size), ("s", price)))
    X, slack = z[first:first + len(p.barc)], s[first:first + len(p.barc)]
    lower, upper = places(p.dim, p.barj, p.j, p.i), places(p.dim, p.barj, p.i, p.j)
    X[upper] = X[lower]  # the solver stores matrices by columns and keeps their lower triangles only
    if ok and (rows.violated(x, X) or size * price * found["gap"] > 1e-4 * (1.0 + abs(linear.c @ x + p.barc @ X))):
        status = _STATUS["unknown"]
        for values in (x, u, X, slack):
            values[:] = np.nan
    yx, y = np.zeros(n), np.zeros(len(linear.lo))
    kernels.subtract_variable_duals(n, *_duals(u, bounds, n), yx)
    kernels.subtract_constraint_duals(len(y), *_duals(u, sides, len(y)), y)
    scale = _entry_scale(p)
    accx = (p.F[p.accafeidxs] @ np.append(1.0, x) + p.barF[p.accafeidxs] @ X) / scale
    return ConicSolution(
        p, status, float(linear.c @ x + p.barc @ X) + linear.constant, np.append(np.nan, x),
        np.append(np.nan, sign * yx), X[lower], sign * slack[lower], linear.A @ x + p.barA @ X, sign * y, accx,
        sign * direction * u[entries], why)


def _presolve(p: ConicProblem, rows: _Rows, sides, bounds, tolerance: float):
    """Status and cause, if they are known already, and which rows and columns of scalar variables the solver gets."""
    linear, n = p.linear, len(p.linear.c)
    kept, columns = np.ones(rows.count, dtype=bool), np.ones(n, dtype=bool)
    dependent, conflict = _dependent(hstack([rows.scalar, rows.bar], "csr")[rows.equations], rows.right[rows.equations])
    kept[rows.equations[dependent]] = False
    why = linear.contradiction()
    if len(conflict) and not why:
        which, place = (np.concatenate(pair) for pair in zip(sides[0], bounds[0]))
        at = int(np.flatnonzero(place == rows.equations[conflict[0]])[0])
        name = linear.row if at < len(sides[0][0]) else linear.column
        why = f"{name(which[at])} contradicts other equations"
    if why:
        return "infeasible", why, kept, columns
    free = np.flatnonzero(~np.isfinite(linear.lower) & ~np.isfinite(linear.upper))
    dependent, conflict = _dependent(rows.scalar[kept][:, free].T.tocsr(), linear.c[free])
    columns[free[dependent]] = False
    if not len(conflict):
        return "", "", kept, columns
    # A direction changes nothing but the objective: it is unbounded if there is any feasible point.
    status = _unbounded_or(p, tolerance)
    if status == "unbounded":
        why = f"{linear.column(free[conflict[0]])} can go without end, alone or with others"
    return status, why, kept, columns


def _unbounded_or(p: ConicProblem, tolerance: float) -> str:
    """The status of a problem whose objective has no end where there is any feasible point."""
    anywhere = replace(p, linear=replace(p.linear, c=np.zeros_like(p.linear.c)), barc=np.zeros_like(p.barc))
    status = solve(anywhere, tolerance).status
    return "unbounded" if status == "optimal" else status


def _units(rows: _Rows, costs: np.ndarray) -> List[Tuple[np.ndarray, float, float]]:
    """What to multiply rows by and to divide right sides and costs by, in one attempt or, with large numbers, two.

    Large numbers make the solver take rounding for a proof that there is no solution. Rows with large right sides are
    divided by them; if there seems to be no solution all the same, right sides and costs are told in large units.
    """
    size, weights = np.abs(rows.right), np.ones(rows.count)
    scaled = np.setdiff1d(np.flatnonzero(size > _LARGE), rows.slack_rows("qs"))
    weights[scaled] = 1.0 / size[scaled]
    largest = np.maximum((size.max(), np.abs(costs).max(initial=0.0)), 1.0)
    return [(weights, 1.0, 1.0)] + [(np.ones(rows.count), *largest)] * bool(largest.max() > _LARGE)


def _ask(rows: _Rows, dims, kept: np.ndarray, columns: np.ndarray, weights: np.ndarray, c: np.ndarray, h: np.ndarray,
         b: np.ndarray, tolerance: float) -> Tuple[str, Dict]:
    """The status and what the solver found for the rows and columns that are kept, rows and their c times weights."""
    slacks = {kind: [_slack(rows.count, block) for block in blocks] for kind, blocks in rows.slacks.items()}
    G = hstack([*slacks["l"], *slacks["q"], diags(weights) @ rows.bar, *slacks["s"]], "csr")[kept].T
    A = (diags(weights) @ rows.scalar)[kept][:, columns].T
    try:
        found = cvxopt.solvers.conelp(
            cvxopt.matrix((weights * c)[kept]), _sparse(G), cvxopt.matrix(h), dims, _sparse(A),
            cvxopt.matrix(b[columns]), options={
                "show_progress": False, "feastol": tolerance, "reltol": tolerance, "abstol": tolerance})
    except (ValueError, ArithmeticError) as error:  # numbers of such different sizes that the solver breaks down
        return f"not solved: {error}", {}
    return _STATUS[found["status"]], found


def _dependent(matrix: csr_matrix, right: np.ndarray) -> Tuple[np.ndarray, np.ndarray]:
    """Rows of a matrix that are linear combinations of its others, and those of them with another right side."""
    matrix.eliminate_zeros()
    norms = np.sqrt(np.asarray(matrix.multiply(matrix).sum(axis=1)).reshape(-1))
    norms[norms == 0.0] = 1.0
    used = np.unique(matrix.indices)
    rows, right = (diags(1.0 / norms) @ matrix)[:, used].toarray(), right / norms
    if not rows.size:
        return np.arange(len(right)), np.flatnonzero(np.abs(right) > _SAME)
    R, order = qr(rows.T, mode="r", pivoting=True)
    rank = int(np.count_nonzero(np.abs(np.diag(R)) > _DEPENDENT * np.abs(R[0, 0])))
    kept, rest = order[:rank], order[rank:]
    weights = solve_triangular(R[:rank, :rank], R[:rank, rank:])
    difference = np.abs(right[rest] - right[kept] @ weights)
    return rest, rest[difference > _SAME * (1.0 + np.abs(right[kept]) @ np.abs(weights))]


def _add_bounded(rows: _Rows, scalar: csr_matrix, bar: csr_matrix, lo: np.ndarray, hi: np.ndarray):
    """Adds lo <= row <= hi. For each of the two sides: which rows have it, and their numbers in the system."""
    equal = np.flatnonzero(lo == hi)
    below, above = np.flatnonzero(np.isfinite(lo) & (lo != hi)), np.flatnonzero(np.isfinite(hi) & (lo != hi))
    equations = rows.add(scalar[equal], bar[equal], lo[equal])
    lower = rows.add(scalar[below], bar[below], lo[below])
    upper = rows.add(-scalar[above], -bar[above], -hi[above])
    rows.slacks["l"] += [lower, upper]
    return (np.concatenate([equal, below]), np.concatenate([equations, lower])), (above, upper)


def _duals(u: np.ndarray, sides, count: int) -> List[np.ndarray]:
    """The duals of lower and upper sides; an equation's is told as that of its lower side, of either sign."""
    result = []
    for which, place in sides:
        result.append(np.zeros(count))
        result[-1][which] = u[place]
    return result


def _add_cones(rows: _Rows, p: ConicProblem) -> Tuple[np.ndarray, np.ndarray]:
    """Adds the entries of all conic constraints; their numbers in the system, and -1 where they are negated there."""
    scale = _entry_scale(p)
    direction = np.ones(len(p.accb))
    for k, (cone, _) in enumerate(p.cones):
        if cone == "nonpositive":
            direction[p.accptr[k]:p.accptr[k + 1]] = -1.0
    weights = diags(direction / scale)
    F = p.F[p.accafeidxs]
    entries = rows.add(weights @ F[:, 1:], weights @ p.barF[p.accafeidxs],
                       direction / scale * (p.accb - F[:, [0]].toarray().reshape(-1)))
    for k, (cone, d) in enumerate(p.cones):
        numbers = entries[p.accptr[k]:p.accptr[k + 1]]
        if cone == "semidefinite":
            column, row = np.triu_indices(d)
            full = np.zeros((d, d), dtype=np.int64)
            full[row, column] = full[column, row] = numbers
            rows.slacks["s"].append(full)
        else:
            rows.slacks["q" if cone == "quadratic" else "l"].append(numbers)
    return entries, direction


def _entry_scale(p: ConicProblem) -> np.ndarray:
    """The scale of each entry of the conic constraints, from that of its element."""
    scale = np.ones(len(p.accb))
    scale[p.accptr[p.acon_elm_accid] + p.acon_elm_ofs] = p.acon_elm_scale
    return scale


def _slack(nrows: int, block: np.ndarray) -> coo_matrix:
    """Columns -1 for the slacks of the rows in `block`, or, in a matrix, the packed slacks of its lower triangle."""
    # Both halves of an entry off the diagonal, divided by its scale, give sqrt(2) times the entry.
    value = np.full(block.shape, -1.0)
    if block.ndim == 2:
        value *= np.where(np.eye(len(block), dtype=bool), 1.0, np.sqrt(0.5))
    return coo_matrix((value.reshape(-1), (block.reshape(-1), np.arange(block.size))), shape=(nrows, block.size))


def _sparse(matrix) -> cvxopt.spmatrix:
    """A SciPy matrix of any format as the solver takes it."""
    m = coo_matrix(matrix)
    return cvxopt.spmatrix(m.data.astype(float), m.row.tolist(), m.col.tolist(), m.shape)
