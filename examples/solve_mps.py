#!/usr/bin/env python3
"""Solves linear programs from MPS files: the model is built through the kernels of `fragments`, the solver is HiGHS.

Exit status: 0 if every file was solved to optimality, 1 if some model is infeasible or unbounded or was not solved, 2
if some file could not be read. Files that cannot be read, and models with numbers that the solver cannot take, are
reported in one line each on the standard error output.
"""

import argparse
import sys
import time
from typing import List, Optional

from host.model import build
from host.solver import solve
from mps import MpsError, read_mps


def solve_file(path: str) -> bool:
    """Reads, builds, solves and prints one model; whether it was solved to optimality."""
    lp = read_mps(path)
    start = time.perf_counter()
    model, x, _ = build(lp)
    problem = model.problem()
    built = time.perf_counter()
    solution = solve(problem)
    solved = time.perf_counter()

    lines = [
        ("name", lp.name or path),
        ("rows", len(lp.lo)),
        ("columns", f"{len(lp.c)}" + f", {lp.integer.sum()} integer" * bool(lp.integer.any())),
        ("nonzeros", problem.A.nnz),
        ("build", f"{built - start:.4f} s"),
        ("solve", f"{solved - built:.4f} s"),
        ("status", solution.status),
    ]
    if solution.why:
        lines.append(("because", solution.why))
    if solution.status == "optimal":
        lines.append(("objective", f"{lp.c @ solution.value(x) + lp.constant:.10g}"))
    for label, value in lines:
        print(f"{label:<12}{value}")
    return solution.status == "optimal"


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="+", metavar="FILE", help="an MPS file, plain or gzip-compressed")
    files = parser.parse_args(arguments).files
    sys.stdout.reconfigure(errors="backslashreplace")  # a model may be named in letters that the terminal does not have
    status = 0
    for number, path in enumerate(files):
        if number:
            print()
        try:
            if not solve_file(path):
                status = max(status, 1)
        except MpsError as error:
            print(f"error: {error}", file=sys.stderr)
            status = 2
        except (ValueError, OverflowError) as error:
            print(f"error: {path}: {error}", file=sys.stderr)
            status = max(status, 1)
    return status


if __name__ == "__main__":
    sys.exit(main())
