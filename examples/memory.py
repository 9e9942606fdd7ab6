#!/usr/bin/env python3
"""Builds a linear program of a million rows and ten million nonzeros through the host layer and measures the memory.

It is built twice, each time in a process of its own: as one constraint of a matrix that is there before, and in blocks
of rows that are made as they are needed. Printed are rows, nonzeros, the bytes of the matrix in CSR form, how far the
resident size rose above that of the process before the build (with the matrix, if it was there), the ratio, and the
time of the build.

Exit status: 0 if the ratios are at most --most, 1 if not.
"""

import argparse
import subprocess
import sys
import time
from typing import List, Optional, Tuple

import numpy as np

from host.model import Domain, Model, Problem
from host.operators import SparseMatrix, multiply, sum_blocks

POSITIVE = Domain(0.0, np.inf)


def random_rows(rng: np.random.Generator, rows: int, cols: int, entries: int) -> SparseMatrix:
    """A matrix of rows x cols with `entries` of them in each row, one in each of so many equal runs of columns."""
    run = cols // entries
    subj = rng.integers(0, run, (rows, entries), dtype=np.int32) + np.arange(0, run * entries, run, dtype=np.int32)
    return SparseMatrix(rows, cols, np.repeat(np.arange(rows, dtype=np.int32), entries), subj.reshape(-1),
                        rng.random(rows * entries))


def build(rows: int, cols: int, entries: int, block: int) -> Tuple[Problem, int, float]:
    """min sum x over A x >= 1, x >= 0 in blocks of so many rows; also the resident size before and the seconds."""
    rng = np.random.default_rng(1)
    matrix = random_rows(rng, rows, cols, entries) if block == rows else None
    before, start = resident("VmRSS"), time.perf_counter()
    model = Model()
    x = model.variable((cols,), POSITIVE, name="x")
    for first in range(0, rows, block):
        model.push(x)
        multiply(model.stacks, matrix or random_rows(rng, min(block, rows - first), cols, entries))
        model.constraint(Domain(1.0, np.inf))
    model.push(x)
    sum_blocks(model.stacks)
    model.objective("min")
    return model.problem(), before, time.perf_counter() - start


def resident(which: str) -> int:
    """The resident size of this process in bytes: now, "VmRSS", or the largest so far, "VmHWM"."""
    with open("/proc/self/status") as status:
        return next(1024 * int(line.split()[1]) for line in status if line.startswith(which))


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rows", type=int, default=1000000, help="default: %(default)s")
    parser.add_argument("--columns", type=int, default=1000000, help="default: %(default)s")
    parser.add_argument("--entries", type=int, default=10, help="of a row (default: %(default)s)")
    parser.add_argument("--most", type=float, default=3.0, help="the highest ratio (default: %(default)s)")
    parser.add_argument("--block", type=int, help="build once, in blocks of so many rows, in this process")
    options = parser.parse_args(arguments)
    if not 0 < options.entries <= options.columns or options.rows < 1 or (options.block or 1) < 1:
        parser.error("there are rows, and no more entries in one than columns")
    if options.block is None:
        print(f"{'rows':>10}{'nonzeros':>12}{'blocks of':>12}{'CSR, MB':>10}{'peak, MB':>10}{'ratio':>8}{'seconds':>9}")
        command = [sys.executable, __file__, *(sys.argv[1:] if arguments is None else arguments)]
        blocks = (options.rows, max(1, options.rows // 50))
        return max(subprocess.run([*command, "--block", str(block)]).returncode for block in blocks)

    problem, before, seconds = build(options.rows, options.columns, options.entries, min(options.block, options.rows))
    A, peak = problem.A, resident("VmHWM") - before
    size = A.data.nbytes + A.indices.nbytes + A.indptr.nbytes
    print(f"{A.shape[0]:>10}{A.nnz:>12}{options.block:>12}{size / 1e6:>10.1f}{peak / 1e6:>10.1f}{peak / size:>8.2f}"
          f"{seconds:>9.2f}", flush=True)
    return 0 if peak <= options.most * size else 1


if __name__ == "__main__":
    sys.exit(main())
