#!/usr/bin/env python3
"""Builds the extensive form of a two-stage stochastic linear program on a Dask cluster, and solves it with HiGHS.

Blocks of scenarios are built by workers, through the kernels of `fragments`, and put together here in their order. By
default the script starts a cluster of its own: one process for each core, on the loopback address. Without files it
reads the farmer's problem beside this script. A worker that dies loses nothing: its blocks are built again elsewhere,
and the matrix is the same bit for bit, which the printed digest shows.

Exit status: 0 if the program was solved to optimality, or built and too large to solve; 1 if it is infeasible or
unbounded or was not solved; 2 if a file cannot be read or written, or the cluster failed.
"""

from __future__ import annotations

import argparse
import hashlib
import logging
import os
import signal
import sys
import tempfile
import time
import warnings
from collections import deque
from contextlib import ExitStack, contextmanager
from multiprocessing import resource_tracker
from pathlib import Path
from typing import Callable, Deque, Iterator, List, Optional

import numpy as np
from distributed import CancelledError, Client, Future, LocalCluster, TimeoutError, wait
from distributed.scheduler import KilledWorker

from host.blocks import RowStore
from host.model import Constraint, Problem, Variable
from host.solver import solve
from memory import resident
from mps import MpsError
from smps import read_smps
from two_stage import ScenarioSet, Shard

FARMER = [str(Path(__file__).with_name("farmer" + suffix)) for suffix in (".cor", ".tim", ".sto")]
START = 60.0  # seconds that workers of a cluster of its own have to start
IN_FLIGHT = 3  # blocks for each thread of the cluster: one is built, one waits, one is on its way here


class ClusterError(Exception):
    """The cluster cannot build the program: what failed, in one line."""


# ---- The cluster


@contextmanager
def connect(scheduler: Optional[str], workers: int, direct: bool = False) -> Iterator[Client]:
    """A client of the scheduler at an address, or of one with so many workers that ends with the context.

    direct: whether results come from the workers themselves, not by way of the scheduler at the address.
    """
    direct |= scheduler is None
    for noisy in ("asyncio", "distributed", "tornado"):  # tracebacks of tasks that end with a dying worker
        logging.getLogger(noisy).setLevel(logging.CRITICAL)
    with ExitStack() as stack:
        if scheduler is None:
            # Workers may spill results to disk; what they leave goes with the directory, however they end.
            scratch = stack.enter_context(tempfile.TemporaryDirectory(prefix="scenarios-", ignore_cleanup_errors=True))
            with _signals_held():
                scheduler = stack.enter_context(_local_cluster(workers, scratch))
        try:
            client = stack.enter_context(Client(scheduler, timeout=5, direct_to_workers=direct))
        except (OSError, ValueError) as fault:
            raise ClusterError(f"no scheduler answers at {scheduler}: {_line(fault)}") from None
        yield client


def _local_cluster(workers: int, scratch: str) -> LocalCluster:
    """A cluster on the loopback address. ClusterError if a worker does not start: Dask waits for ever, without
    `death_timeout`, for one that dies on its way."""
    try:
        return LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, host="127.0.0.1",
                            dashboard_address="127.0.0.1:0", scheduler_kwargs={"dashboard": False},
                            local_directory=scratch, silence_logs=50, death_timeout=START)
    except (RuntimeError, TimeoutError):
        raise ClusterError(f"a worker has not started within {START:g} s") from None


@contextmanager
def _signals_held() -> Iterator[None]:
    """Holds SIGINT and SIGTERM back while processes start, which otherwise nobody would end.

    SIGINT, which a terminal sends to all processes at once, stays blocked in those that start here.
    """
    resource_tracker.ensure_running()  # of multiprocessing, which unblocks SIGINT when it starts
    held: List[int] = []
    handler = signal.signal(signal.SIGTERM, lambda number, _: held.append(number))
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})
    try:
        yield
    finally:
        signal.signal(signal.SIGTERM, handler)
        signal.pthread_sigmask(signal.SIG_UNBLOCK, {signal.SIGINT})
        for number in held:
            signal.raise_signal(number)


def shards(client: Client, scenarios: ScenarioSet, block: int, patience: float = 60.0) -> Iterator[Shard]:
    """Shards of `block` scenarios each, in their order, which the workers build a few ahead.

    A shard whose worker dies is built again. ClusterError if a shard was the death of too many workers, as the
    scheduler's setting allowed-failures has it, or if there is no worker for `patience` seconds.
    """
    # The program goes to the workers as the result of a task, not as scattered data, which a death might lose.
    with warnings.catch_warnings(), _cluster_faults():
        warnings.filterwarnings("ignore", "Large object")
        remote = client.submit(ScenarioSet, scenarios.program, scenarios.sample, scenarios.seed, pure=False)
        ahead: Deque[Future] = deque()
        for first in range(0, scenarios.count, block):
            last = min(first + block, scenarios.count)
            ahead.append(client.submit(ScenarioSet.build, remote, first, last, pure=False))
            if len(ahead) >= IN_FLIGHT * max(1, sum(client.nthreads().values())):
                yield _result(client, ahead.popleft(), patience)
        while ahead:
            yield _result(client, ahead.popleft(), patience)


def _result(client: Client, future: Future, patience: float) -> Shard:
    """The result of a task, once it is there."""
    seen = time.monotonic()  # a worker
    while time.monotonic() < seen + patience:
        try:
            wait(future, timeout=1.0)
            return future.result(timeout=patience)
        except TimeoutError:
            if client.nthreads():
                seen = time.monotonic()
    raise ClusterError(f"there has been no worker at {client.scheduler.address} for {patience:g} s")


@contextmanager
def _cluster_faults() -> Iterator[None]:
    """Turns what Dask raises for a cluster that fails into ClusterError."""
    try:
        yield
    except KilledWorker as fault:
        raise ClusterError(f"{fault.allowed_failures + 1} workers died of one block, the last of them at "
                           f"{fault.last_worker.address}: out of memory? Try smaller blocks") from None
    except CancelledError:
        raise ClusterError("the scheduler is gone") from None
    except ImportError as fault:
        raise ClusterError(f"a worker cannot import the builder ({_line(fault)}): "
                           "start workers with examples and the module fragments on PYTHONPATH") from None
    except OSError as fault:
        raise ClusterError(f"the scheduler does not answer: {_line(fault)}") from None


# ---- The program


def assemble(scenarios: ScenarioSet, parts: Iterator[Shard], store: RowStore,
             done: Callable[[int], None] = lambda scenario: None) -> None:
    """Puts the rows of the first stage and all shards in the store, with cost and bounds of the columns.

    `done` is told the number of scenarios after each shard.
    """
    program = scenarios.program
    first, second = program.first, program.second
    nx, ny = len(first.cost), len(second.cost)
    store.append(scenarios.build_first())
    cost, here = np.concatenate([first.cost, np.empty(scenarios.count * ny)]), nx
    for part in parts:
        store.append(part.rows)
        cost[here:here + len(part.cost)] = part.cost
        here += len(part.cost)
        done((here - nx) // ny)
    store.more["cost"] = cost
    for name in ("lower", "upper", "integer"):
        store.more[name] = np.concatenate([getattr(first, name), np.tile(getattr(second, name), scenarios.count)])


def problem(scenarios: ScenarioSet, store: RowStore) -> Problem:
    """The whole program, whose first variable and constraint are those of the first stage."""
    program, more = scenarios.program, store.more
    nx, m = len(program.first.cost), len(program.first.rhs)
    variables = [Variable((nx,), np.arange(1, nx + 1), "x"), Variable((store.columns - nx,),
                                                                      np.arange(nx + 1, store.columns + 1), "y")]
    constraints = [Constraint((m,), np.arange(m, dtype=np.int32), "first stage"),
                   Constraint((store.nrows - m,), np.arange(m, store.nrows, dtype=np.int32), "scenarios")]
    return Problem(program.sense, store.matrix(), *store.bounds(), more["cost"], program.constant, more["lower"],
                   more["upper"], more["integer"], variables, constraints, None)


def digest(store: RowStore) -> str:
    """A fingerprint of the matrix, all bounds and the cost, bit for bit."""
    A = store.matrix()
    hashed = hashlib.blake2b(digest_size=16)
    more = [store.more[name] for name in sorted(store.more)]
    for array in (A.indptr.astype(np.int64), A.indices, A.data, *store.bounds(), *more):
        hashed.update(np.ascontiguousarray(array))
    return hashed.hexdigest()


class Progress:
    """Tells on the standard error output how much is done: a bar on a terminal, or else a line for every tenth."""

    def __init__(self, total: int) -> None:
        self.total, self.tenth, self.start = total, -1, time.monotonic()

    def __call__(self, done: int) -> None:
        text = f"{done} of {self.total} scenarios, {time.monotonic() - self.start:.1f} s"
        if sys.stderr.isatty():
            bar = "#" * (40 * done // self.total)
            print(f"\r[{bar:<40}] {text}", end="\n" if done == self.total else "", file=sys.stderr, flush=True)
        elif 10 * done // self.total > self.tenth:
            self.tenth = 10 * done // self.total
            print(text, file=sys.stderr, flush=True)


def run(options: argparse.Namespace) -> int:
    program = read_smps(*options.files)
    scenarios = ScenarioSet(program, options.scenarios, options.seed)
    block = options.block or max(1, 500000 // max(1, scenarios.terms_of_scenario))
    start = time.perf_counter()
    with RowStore(scenarios.nrows, scenarios.nnz, scenarios.ncols, options.file) as store:
        with connect(options.scheduler, options.workers, options.direct) as client:
            started = time.perf_counter()
            assemble(scenarios, shards(client, scenarios, block), store, Progress(scenarios.count))
            built = time.perf_counter()
    if options.file:
        store = RowStore.open(options.file)
    peak = resident("VmHWM") / 2**20
    lines = [
        ("name", program.name or options.files[0]),
        ("scenarios", f"{scenarios.count}" + (f", a sample, seed {options.seed}" if options.scenarios else "")),
        ("rows", store.nrows),
        ("columns", store.columns),
        ("nonzeros", store.nnz),
        ("cluster", f"{started - start:.2f} s"),
        ("build", f"{built - started:.2f} s"),
        ("memory", f"{peak:.0f} MB at most in this process"),
        ("digest", digest(store)),
    ]
    status = "not solved, as it has more nonzeros than --solve"
    if store.nnz <= options.solve:
        start = time.perf_counter()
        solution = solve(problem(scenarios, store))
        lines.append(("solve", f"{time.perf_counter() - start:.2f} s"))
        status = solution.status
    lines.append(("status", status))
    if status == "optimal":
        lines.append(("objective", f"{solution.objective:.10g}"))
    for label, value in lines:
        print(f"{label:<12}{value}")
    return 0 if status == "optimal" or store.nnz > options.solve else 1


def _line(fault: BaseException) -> str:
    return " ".join(str(fault).split()) or type(fault).__name__


def _positive(text: str) -> int:
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError(f"{value} is less than 1")
    return value


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", metavar="FILE", help="three SMPS files: .cor .tim .sto")
    parser.add_argument("--scenarios", type=_positive, metavar="N",
                        help="a sample of so many scenarios (default: all combinations of outcomes)")
    parser.add_argument("--seed", type=int, default=0, help="of the sample (default: %(default)s)")
    parser.add_argument("--workers", type=_positive, metavar="N", default=os.cpu_count(),
                        help="processes of a cluster of its own (default: %(default)s)")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a running cluster, such as tcp://HOST:8786")
    parser.add_argument("--direct", action="store_true",
                        help="with --scheduler: fetch rows from the workers, which have to be in reach of this machine")
    parser.add_argument("--block", type=_positive, metavar="N",
                        help="scenarios of a block (default: what has about 500000 nonzeros)")
    parser.add_argument("--file", metavar="PATH", help="an HDF5 file for the matrix, instead of memory")
    parser.add_argument("--solve", type=int, metavar="NONZEROS", default=500000,
                        help="the most nonzeros that are solved (default: %(default)s)")
    options = parser.parse_args(arguments)
    if len(options.files) not in (0, 3) or options.seed < 0:
        parser.error("three files are needed, .cor .tim .sto, or none" if options.seed >= 0 else "a seed is 0 or more")
    options.files = options.files or FARMER
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))  # so that workers and files go too
    try:
        return run(options)
    except (MpsError, ClusterError, OSError, ValueError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 128 + signal.SIGINT


if __name__ == "__main__":
    sys.exit(main())
