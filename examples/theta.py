#!/usr/bin/env python3
"""Computes the Lovász theta number of Kneser graphs K(N, K) as a semidefinite program.

The vertices are the subsets of K out of N things, and disjoint ones are adjacent. The theta number is the largest sum
of the elements of a positive semidefinite matrix of trace 1 that is zero at every edge; for N >= 2 K it is known to be
C(N-1, K-1). The model is built through the kernels of `fragments`, the solver is CVXOPT.

Exit status: 0 if every value agrees with the exact one, 1 if not.
"""

import argparse
import math
import re
import sys
from itertools import combinations
from typing import List, Optional, Tuple

import numpy as np

from host import operators as op
from host.cone_solver import ConicSolution, solve
from host.cones import ConicModel
from host.model import Domain

GRAPHS = ["5,2", "6,2", "7,2", "7,3"]


def kneser(n: int, k: int) -> Tuple[int, np.ndarray]:
    """The number of vertices, and the edges as pairs (int32, one row each, the larger vertex first)."""
    vertices = [frozenset(subset) for subset in combinations(range(n), k)]
    edges = [(j, i) for i, j in combinations(range(len(vertices)), 2) if vertices[i].isdisjoint(vertices[j])]
    return len(vertices), np.array(edges, dtype=np.int32).reshape(-1, 2)


def theta(size: int, edges: np.ndarray) -> ConicSolution:
    """The semidefinite program of a graph, solved."""
    model = ConicModel()
    s = model.stacks
    X = model.semidefinite(size)

    model.push(X)
    op.pick(s, np.arange(size, dtype=np.int64) * (size + 1))
    op.sum_blocks(s)
    model.constraint(Domain(1.0, 1.0))

    model.push(X)
    op.pick(s, edges)
    model.constraint(Domain(0.0, 0.0))

    model.push(X)
    op.sum_blocks(s, 2)
    model.objective("max")
    return solve(model.problem())


def graph(text: str) -> Tuple[int, int]:
    match = re.fullmatch(r"(\d+),(\d+)", text)
    n, k = map(int, match.groups()) if match else (0, 0)
    if not n >= 2 * k >= 2:
        raise argparse.ArgumentTypeError(f"a graph is told as N,K with N >= 2 K and K >= 1, not as {text!r}")
    return n, k


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("graphs", nargs="*", type=graph, metavar="N,K", default=list(map(graph, GRAPHS)),
                        help="Kneser graphs (default: " + " ".join(GRAPHS) + ")")
    graphs = parser.parse_args(arguments).graphs
    status = 0
    print(f"{'graph':<10}{'vertices':>10}{'edges':>10}{'theta':>16}{'exact':>10}")
    for n, k in graphs:
        size, edges = kneser(n, k)
        value, exact = theta(size, edges).objective, math.comb(n - 1, k - 1)
        print(f"{f'K({n}, {k})':<10}{size:>10}{len(edges):>10}{value:>16.8f}{exact:>10}")
        if not abs(value - exact) <= 1e-5 * exact:
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
