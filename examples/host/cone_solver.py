"""Solves a conic model with CVXOPT, and reads the solution back by variables and constraints.

The solver's form is  min c'u  subject to  G u + s = h,  A u = b,  s in a cone, and its dual is
max -h'z - b'y  subject to  G'z + A'y + c = 0,  z in the cone. The model goes in as the dual: a row of it is an entry
of u, a scalar variable one of y, and the semidefinite matrices are blocks of z, as are the slacks of rows and cones. So
the size of the solver's system is the number of rows, not that of the many entries of the matrices.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Dict, List, Tuple

import cvxopt
import cvxopt.solvers
import numpy as np
from scipy.sparse import coo_matrix, csr_matrix, diags, hstack, identity, vstack

from . import kernels
from .cones import ConicProblem, places
from .model import Constraint, Variable

# What the solver says of its own form holds for the dual of the model.
_STATUS = {"optimal": "optimal", "primal infeasible": "unbounded", "dual infeasible": "infeasible",
           "unknown": "not solved to the wanted accuracy"}


@dataclass(frozen=True)
class ConicSolution:
    """What the solver found. Without the status "optimal" all numbers are NaN.

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

    def value(self, x: Variable) -> np.ndarray:
        """Values of an array of variables, in its shape."""
        res = np.zeros(len(x.nidxs))
        kernels.gather_variable_values(self.barx, len(res), x.nidxs, 0, res, self.xx)
        return res.reshape(x.shape)

    def reduced_cost(self, x: Variable) -> np.ndarray:
        """Duals of an array of variables, in its shape: of their bounds, or of the cones that they live in."""
        p, res = self.problem, np.zeros(len(x.nidxs))
        kernels.gather_variable_duals(p.accptr, self.accy, self.bars, len(res), x.nidxs, 0, res,
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
        p, res = self.problem, np.zeros(len(constraint.rows))
        gather(p.accptr, conic, p.acon_elm_accid, p.acon_elm_ofs, p.acon_elm_scale, len(res), constraint.rows, 0, res,
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


def solve(p: ConicProblem, tolerance: float = 1e-8) -> ConicSolution:
    """Solves the problem; `tolerance` is the relative gap and infeasibility that the solver stops at."""
    linear, n = p.linear, len(p.linear.c)
    sign = -1.0 if linear.sense == "max" else 1.0
    rows = _Rows()
    sides = _add_bounded(rows, linear.A, p.barA, linear.lo, linear.hi)
    bounds = _add_bounded(rows, identity(n, format="csr"), csr_matrix((n, p.barA.shape[1])), linear.lower, linear.upper)
    entries, direction = _add_cones(rows, p)

    # Scaled rows, the slacks and the semidefinite matrices make up G' and A'.
    scalar, bar = vstack([part[0] for part in rows.parts]), vstack([part[1] for part in rows.parts])
    right = np.concatenate([part[2] for part in rows.parts])
    slacks = {kind: [_slack(rows.count, block) for block in blocks] for kind, blocks in rows.slacks.items()}
    order = [*slacks["l"], *slacks["q"], bar, *slacks["s"]]
    G = hstack(order).T
    dims = {"l": sum(len(block) for block in rows.slacks["l"]), "q": [len(block) for block in rows.slacks["q"]],
            "s": [*p.dim.tolist(), *(len(block) for block in rows.slacks["s"])]}
    h = np.zeros(G.shape[0])
    first = dims["l"] + sum(dims["q"])
    h[first:first + len(p.barc)] = sign * p.barc
    try:
        found = cvxopt.solvers.conelp(
            cvxopt.matrix(-right), _sparse(G), cvxopt.matrix(h), dims, _sparse(scalar.T),
            cvxopt.matrix(sign * linear.c), options={
                "show_progress": False, "feastol": tolerance, "reltol": tolerance, "abstol": tolerance})
        status = _STATUS[found["status"]]
    except ValueError:  # the solver refuses matrices without full rank
        status = "equations or variables are linearly dependent"
    ok = status == "optimal"
    x, u, z, s = (np.array(found[k]).reshape(-1) if ok else np.full(size, np.nan)
                  for k, size in (("y", n), ("x", rows.count), ("z", len(h)), ("s", len(h))))
    X, slack = z[first:first + len(p.barc)], s[first:first + len(p.barc)]
    lower, upper = places(p.dim, p.barj, p.j, p.i), places(p.dim, p.barj, p.i, p.j)
    X[upper] = X[lower]  # the solver stores matrices by columns and keeps their lower triangles only
    yx, y = np.zeros(n), np.zeros(len(linear.lo))
    kernels.subtract_variable_duals(n, *_duals(u, bounds, n), yx)
    kernels.subtract_constraint_duals(len(y), *_duals(u, sides, len(y)), y)
    scale = _entry_scale(p)
    accx = (p.F[p.accafeidxs] @ np.append(1.0, x) + p.barF[p.accafeidxs] @ X) / scale
    return ConicSolution(
        p, status, float(linear.c @ x + p.barc @ X) + linear.constant, np.append(np.nan, x),
        np.append(np.nan, sign * yx), X[lower], sign * slack[lower], linear.A @ x + p.barA @ X, sign * y, accx,
        sign * direction * u[entries])


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
