"""Two-stage stochastic linear programs: their data, their scenarios, and rows of the extensive form.

    minimise  c x + sum_s p_s q_s y_s    over  A x in [lo, hi],  T_s x + W_s y_s in [lo_s, hi_s],  bounds on x and y_s

The decision x is made before a scenario s is known, y_s after that. The extensive form is the linear program with all
scenarios side by side: its columns are x, then y_0, y_1, ...; its rows those of A, then those of scenario 0, 1, ....
Scenarios share no row, so any run of them can be built by itself, anywhere: `ScenarioSet.build`.
"""

from __future__ import annotations

import math
import threading
from dataclasses import dataclass
from typing import List, NamedTuple, Optional, Tuple

import numpy as np

from host.blocks import RowBlock
from host.model import Domain, Model
from host.operators import SparseMatrix, add, multiply_variable
from host.stacks import Stacks

FREE = Domain(-np.inf, np.inf)
kept = threading.local()  # the stacks of each thread that builds


@dataclass(frozen=True)
class Stage:
    """The n columns and m rows of a stage: the rows are matrix @ columns, between rhs + below and rhs + above."""

    matrix: SparseMatrix  # m x n
    cost: np.ndarray  # n
    lower: np.ndarray  # n
    upper: np.ndarray  # n
    integer: np.ndarray  # n, bool
    rhs: np.ndarray  # m, infinite where a row is free
    below: np.ndarray  # m, 0 or less
    above: np.ndarray  # m, 0 or more


@dataclass(frozen=True)
class RandomBlock:
    """Data that are random together, and independent of all others: outcome o puts values[o] in the places `places`.

    A place counts along the data of a scenario: the entries of T, those of W, the cost, the right-hand sides.
    """

    probabilities: np.ndarray  # outcomes
    places: np.ndarray  # k, int64
    values: np.ndarray  # outcomes x k


@dataclass(frozen=True)
class TwoStage:
    """A two-stage program: the second stage is as it is without random data, which may replace any of them."""

    name: str
    sense: str  # "min" or "max"
    constant: float
    first: Stage
    second: Stage
    technology: SparseMatrix  # T: m of the second stage x n of the first
    random: List[RandomBlock]


class Shard(NamedTuple):
    """Rows of successive scenarios, with the cost of their columns, weighted by probability."""

    rows: RowBlock
    cost: np.ndarray


class ScenarioSet:
    """Scenarios of a program, numbered from 0: all combinations of outcomes, or a sample of equal weights.

    A sample draws each scenario from a stream of random numbers at a place of its own: scenario s is the same for any
    size of the sample and wherever it is built. ValueError if the extensive form has 2^31 columns or more.
    """

    def __init__(self, program: TwoStage, sample: Optional[int] = None, seed: int = 0) -> None:
        self.program, self.sample, self.seed = program, sample, seed
        self._outcomes = tuple(len(block.probabilities) for block in program.random)
        self.count = math.prod(self._outcomes) if sample is None else sample
        self.nrows = len(program.first.rhs) + self.count * len(program.second.rhs)
        self.ncols = len(program.first.cost) + self.count * len(program.second.cost)
        self.terms_of_scenario = len(program.technology.val) + len(program.second.matrix.val)
        self.nnz = len(program.first.matrix.val) + self.count * self.terms_of_scenario
        if self.ncols >= 2**31:
            raise ValueError(f"{self.count} scenarios have {self.ncols} columns, which are numbered below 2^31: sample")

    def draw(self, first: int, last: int) -> Tuple[np.ndarray, np.ndarray]:
        """The outcomes of the random blocks in the scenarios first .. last-1, one row each, and their probabilities."""
        blocks, n = self.program.random, last - first
        if self.sample is None:
            outcomes = np.transpose(np.unravel_index(np.arange(first, last), (1, *self._outcomes)))[:, 1:]
            weights = np.ones(n)
            for block, outcome in zip(blocks, outcomes.T):
                weights *= block.probabilities[outcome]
            return outcomes, weights
        steps = -(-len(blocks) // 4)  # of the stream for a scenario: each step gives four numbers
        stream = np.random.Generator(np.random.Philox(key=self.seed).advance(first * steps))
        uniform = stream.random((n, 4 * steps))
        outcomes = np.zeros((n, len(blocks)), dtype=np.int64)
        for k, block in enumerate(blocks):
            ends = np.cumsum(block.probabilities)[:-1]
            outcomes[:, k] = np.searchsorted(ends, uniform[:, k], side="right")
        return outcomes, np.full(n, 1.0 / self.count)

    def build_first(self) -> RowBlock:
        """The rows of the first stage."""
        stage, model = self.program.first, Model()
        x = model.variable((len(stage.cost),), FREE)
        multiply_variable(model.stacks, stage.matrix, x.shape, x.nidxs)
        model.constraint(Domain(*sides(stage, stage.rhs)))
        return RowBlock(*model.take_rows())

    def build(self, first: int, last: int) -> Shard:
        """The rows of the scenarios first .. last-1, in the columns of the whole."""
        program, stage, n = self.program, self.program.second, last - first
        T, W, m, nx, ny = program.technology, stage.matrix, len(stage.rhs), len(program.first.cost), len(stage.cost)
        outcomes, weights = self.draw(first, last)
        data = np.tile(np.concatenate([T.val, W.val, stage.cost, stage.rhs]), (n, 1))
        for block, outcome in zip(program.random, outcomes.T):
            data[:, block.places] = block.values[outcome]
        tval, wval, cost, rhs = np.split(data, np.cumsum([len(T.val), len(W.val), ny]), axis=1)

        model = Model(kept.__dict__.setdefault("stacks", Stacks()))
        x, y = model.variable((nx,), FREE), model.variable((n * ny,), FREE)
        multiply_variable(model.stacks, SparseMatrix(n * m, nx, _repeated(T.subi, n, m), _repeated(T.subj, n, 0),
                                                     tval.reshape(-1)), x.shape, x.nidxs)
        multiply_variable(model.stacks, SparseMatrix(n * m, n * ny, _repeated(W.subi, n, m), _repeated(W.subj, n, ny),
                                                     wval.reshape(-1)), y.shape, y.nidxs)
        add(model.stacks)
        model.constraint(Domain(*sides(stage, rhs)))
        rows = RowBlock(*model.take_rows())
        rows.subj[rows.subj >= nx] += np.int32(first * ny)  # the model here has the columns of its own scenarios only
        return Shard(rows, (weights[:, None] * cost).reshape(-1))


def sides(stage: Stage, rhs: np.ndarray) -> Tuple[np.ndarray, np.ndarray]:
    """Lower and upper bounds of the rows of a stage for right-hand sides, m or n x m of them, in one dimension."""
    free = np.isinf(rhs)
    finite = np.where(free, 0.0, rhs)
    lower, upper = np.where(free, -np.inf, finite + stage.below), np.where(free, np.inf, finite + stage.above)
    return lower.reshape(-1), upper.reshape(-1)


def _repeated(numbers: np.ndarray, n: int, step: int) -> np.ndarray:
    """n times the numbers, moved on by `step` each time."""
    return (numbers + step * np.arange(n, dtype=np.int32)[:, None]).reshape(-1)
