#!/usr/bin/env python3
"""The efficient frontier of a long-only portfolio with a factor risk model; its model is built once for all points.

Risk aversion and expected returns are parameters. For each point of the frontier they are set anew, the kernels
evaluate the coefficients that depend on them, and CVXOPT solves. Prints the times of the first build and of a
re-evaluation, and draws the frontier.
"""

import argparse
import time
from dataclasses import dataclass
from pathlib import Path
from typing import List, Optional, Tuple

import numpy as np
from cvxopt import matrix, solvers, spmatrix

from host.model import Domain, Model
from host.operators import SparseMatrix, add, multiply, sum_blocks
from host.parameters import Parameters, ParameterTable, inner_product, scale

OUTPUT = Path(__file__).resolve().parent.parent / "build" / "efficient_frontier.png"


@dataclass(frozen=True)
class Market:
    """The covariance of n assets' returns is loadings @ loadings.T + diag(deviation ** 2)."""

    returns: np.ndarray  # n, expected
    loadings: np.ndarray  # n x factors
    deviation: np.ndarray  # n, of the part that no factor explains

    def risk(self, x: np.ndarray) -> float:
        """Standard deviation of the return of a portfolio."""
        return float(np.hypot(np.linalg.norm(self.loadings.T @ x), np.linalg.norm(self.deviation * x)))


def random_market(assets: int, factors: int, seed: int = 1) -> Market:
    """A market in which assets that carry more risk tend to return more."""
    rng = np.random.default_rng(seed)
    loadings = rng.normal(scale=0.05, size=(assets, factors))
    loadings[:, 0] = rng.uniform(0.08, 0.22, assets)  # the market as a whole
    deviation = rng.uniform(0.08, 0.40, assets)
    total = np.sqrt((loadings ** 2).sum(axis=1) + deviation ** 2)
    return Market(0.02 + 0.25 * total + rng.normal(scale=0.02, size=assets), loadings, deviation)


class Frontier:
    """Minimise |a S (x, y)|^2 / 2 - returns'x over x >= 0 with sum x = 1 and y = loadings'x.

    S is diagonal, with the deviations of x and 1 for y; the parameters are `a`, the root of the risk aversion, and the
    returns. So the rows of a S (x, y) and of returns'x are parametrised, and the constraints are not.
    """

    def __init__(self, market: Market) -> None:
        n, factors = market.loadings.shape
        model, parameters = Model(), Parameters()
        s = model.stacks
        x = model.variable((n,), Domain(0.0, np.inf))
        y = model.variable((factors,), Domain(-np.inf, np.inf))
        self._parameters, self._n = parameters, n
        self._a, self._returns = parameters.array(()), parameters.array((n,))

        model.push(x)
        sum_blocks(s)
        model.constraint(Domain(1.0, 1.0))
        model.push(x)
        multiply(s, np.ascontiguousarray(market.loadings.T))
        model.push(y)
        add(s, 1.0, -1.0)
        model.constraint(Domain(0.0, 0.0))

        self._risk = ParameterTable(parameters, n + factors)
        diagonal = np.arange(n, dtype=np.int32)
        model.push(x)
        multiply(s, SparseMatrix(n, n, diagonal, diagonal, market.deviation))
        scale(s, self._a)
        self._risk.file(s, np.arange(n, dtype=np.int32))
        model.push(y)
        scale(s, self._a)
        self._risk.file(s, np.arange(n, n + factors, dtype=np.int32))
        self._gain = ParameterTable(parameters, 1)
        model.push(x)
        inner_product(s, self._returns)
        self._gain.file(s, np.zeros(1, dtype=np.int32))

        problem = model.problem()
        A = problem.A.tocoo()
        bounded = np.flatnonzero(np.isfinite(problem.lower))
        self._A = spmatrix(A.data, A.row, A.col, A.shape)
        self._b = matrix(problem.lo)
        self._G = spmatrix(-1.0, range(len(bounded)), bounded, (len(bounded), n + factors))
        self._h = matrix(-problem.lower[bounded])
        self._P = spmatrix(0.0, range(n + factors), range(n + factors))
        self._q = matrix(0.0, (n + factors, 1))

    def evaluate(self, aversion: float, returns: np.ndarray) -> None:
        """Sets the parameters and brings the solver's data up to date."""
        self._parameters.set(self._a, np.sqrt(aversion))
        self._parameters.set(self._returns, returns)
        _, column, val = self._risk.evaluate()  # one term in each row: the Gram matrix of the rows is diagonal
        size = self._q.size[0]
        self._P.V = matrix(np.bincount(column - 1, weights=val * val, minlength=size))
        column, val = self._gain.evaluate_first(1)
        self._q = matrix(np.bincount(column - 1, weights=-val, minlength=size))

    def solve(self) -> np.ndarray:
        """The portfolio for the parameters that were evaluated last."""
        options = {"show_progress": False, "abstol": 1e-9, "reltol": 1e-9, "feastol": 1e-9}
        result = solvers.qp(self._P, self._q, self._G, self._h, self._A, self._b, kktsolver="chol2", options=options)
        if result["status"] != "optimal":
            raise RuntimeError(f"the solver stopped with the status {result['status']}")
        return np.array(result["x"]).reshape(-1)[:self._n]


@dataclass(frozen=True)
class Run:
    """Points of a frontier, as risk and return, and seconds: one build with its first evaluation, one re-evaluation."""

    points: np.ndarray  # k x 2
    build: float
    evaluation: float
    solution: float


def trace(market: Market, aversions: np.ndarray) -> Run:
    """The frontier for some values of the risk aversion; times of evaluations and solutions are means."""
    start = time.perf_counter()
    frontier = Frontier(market)
    frontier.evaluate(aversions[0], market.returns)
    build = time.perf_counter() - start

    evaluation = solution = 0.0
    points: List[Tuple[float, float]] = []
    for aversion in aversions:
        start = time.perf_counter()
        frontier.evaluate(aversion, market.returns)
        evaluated = time.perf_counter()
        x = frontier.solve()
        evaluation += evaluated - start
        solution += time.perf_counter() - evaluated
        points.append((market.risk(x), float(market.returns @ x)))
    return Run(np.array(points), build, evaluation / len(aversions), solution / len(aversions))


def draw(market: Market, points: np.ndarray, path: Path) -> None:
    """Writes the frontier and the single assets as a picture, whose format the suffix of the path gives."""
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(7.0, 4.5))
    total = np.sqrt((market.loadings ** 2).sum(axis=1) + market.deviation ** 2)
    axes.plot(100 * total, 100 * market.returns, ".", color="0.7", markersize=4, label="assets")
    axes.plot(*(100 * points.T), "-o", markersize=3, label="efficient frontier")
    axes.set_xlabel("standard deviation of the return, %")
    axes.set_ylabel("expected return, %")
    axes.legend()
    figure.tight_layout()
    figure.savefig(path)
    pyplot.close(figure)


def main(arguments: Optional[List[str]] = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--assets", type=_count, default=400, help="default: %(default)s")
    parser.add_argument("--factors", type=_count, default=20, help="default: %(default)s")
    parser.add_argument("--points", type=_count, default=50, help="default: %(default)s")
    parser.add_argument("--output", type=_picture, default=str(OUTPUT), help="a PNG or SVG file")
    options = parser.parse_args(arguments)
    market = random_market(options.assets, options.factors)
    run = trace(market, np.geomspace(0.5, 500.0, options.points))
    draw(market, run.points, options.output)
    print(f"first build {1e3 * run.build:9.3f} ms   re-evaluation {1e3 * run.evaluation:9.3f} ms   "
          f"ratio {run.build / run.evaluation:7.1f}   solution {1e3 * run.solution:9.3f} ms")
    print(f"{options.points} points of {options.assets} assets in {options.output}")


def _picture(text: str) -> Path:
    """The path of a picture that can be written, found out before any work is done."""
    path = Path(text)
    if path.suffix.lower() not in (".png", ".svg"):
        raise argparse.ArgumentTypeError(f"{text!r} ends neither in .png nor in .svg")
    try:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.open("ab").close()
    except OSError as error:
        raise argparse.ArgumentTypeError(f"{text!r} cannot be written: {error.strerror}") from None
    return path


def _count(text: str) -> int:
    count = int(text)
    if count < 1:
        raise argparse.ArgumentTypeError(f"{count} is not a positive number")
    return count


if __name__ == "__main__":
    main()
