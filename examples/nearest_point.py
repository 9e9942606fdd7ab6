#!/usr/bin/env python3
"""Finds the point of the simplex {x : x >= 0, sum x = 1} nearest to a random one, by a second-order cone.

The model, min t such that (t, x - point) lies in a quadratic cone, is built through the kernels of `fragments` and
solved with CVXOPT. It is compared with the projection that sorting the coordinates gives.

Exit status: 0 if every solution agrees with the projection, 1 if not.
"""

import argparse
import sys
from typing import List, Optional, Tuple

import numpy as np

from host import operators as op
from host.cone_solver import solve
from host.cones import ConicModel
from host.model import Domain


def nearest(point: np.ndarray) -> Tuple[float, np.ndarray]:
    """The distance and the nearest point of the simplex, from the solver."""
    n = len(point)
    model = ConicModel()
    s = model.stacks
    t = model.variable((1,), Domain(-np.inf, np.inf))
    x = model.variable((n,), Domain(0.0, np.inf))

    model.push(x)
    op.sum_blocks(s)
    model.constraint(Domain(1.0, 1.0))

    op.variable(s, (n + 1,), t.nidxs, sp=np.arange(1, dtype=np.int64))
    op.variable(s, (n + 1,), x.nidxs, sp=np.arange(1, n + 1, dtype=np.int64))
    op.add(s)
    model.conic("quadratic", np.append(0.0, point))

    model.push(t)
    model.objective("min")
    solution = solve(model.problem())
    return solution.objective, solution.value(x)


def projection(point: np.ndarray) -> np.ndarray:
    """The nearest point of the simplex: the positive parts of all coordinates less one common number."""
    descending = np.sort(point)[::-1]
    shifts = (np.cumsum(descending) - 1.0) / np.arange(1, len(point) + 1)
    return np.maximum(point - shifts[np.flatnonzero(descending > shifts)[-1]], 0.0)


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("dimensions", nargs="*", type=int, metavar="N", default=[3, 10, 50], help="(default: 3 10 50)")
    dimensions = parser.parse_args(arguments).dimensions
    if min(dimensions) < 1:
        parser.error("a dimension is 1 or higher")
    status = 0
    print(f"{'dimension':>10}{'distance':>16}{'exact':>16}{'support':>10}")
    for n in dimensions:
        point = np.random.default_rng(n).normal(size=n)
        exact = projection(point)
        distance, x = nearest(point)
        least = np.linalg.norm(exact - point)
        print(f"{n:>10}{distance:>16.8f}{least:>16.8f}{np.count_nonzero(exact):>10}")
        # A distance is flat at its least: the point is known to about half the digits.
        if not abs(distance - least) <= 1e-6 * (1.0 + least) or not np.allclose(x, exact, atol=1e-3 * (1.0 + least)):
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
