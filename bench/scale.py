#!/usr/bin/env python3
"""Measures how building grows from 10^4 nonzeros on: in one process, in blocks, and on a cluster of processes.

The model is a sample of the farmer's problem (examples/farmer.cor), as many scenarios as it takes, of 10 nonzeros each.
Each run is a process of its own, so that its peak of memory is its own. Prints a table of times, without the start of
clusters, and peaks of the process and its workers together; then the line through the times of each way. A run is left
out if ten times the last one of its way would not fit into the seconds that are left.
"""

import argparse
import json
import math
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "examples"))

WAYS = {
    "at once": "one process, all rows in one block",
    "blocks": "one process, block by block into memory",
    "file": "one process, block by block into a file",
    "1 worker": "one worker, rows sent to this process",
    "2 workers": "two workers, rows sent to this process",
    "1 stays": "one worker, rows stay there",
    "2 stay": "two workers, rows stay there",
}
BLOCK = 50000  # scenarios, of half a million nonzeros


def peak() -> float:
    """The most memory that this process has had, in MB."""
    from memory import resident

    return resident("VmHWM") / 2**20


def measure(way: str, nonzeros: int) -> dict:
    """Builds in this process; seconds without the start of a cluster, and peaks of memory in MB."""
    from distributed import wait

    from host.blocks import RowStore
    from scenarios import FARMER, assemble, connect, shards
    from smps import read_smps
    from two_stage import ScenarioSet

    scenarios = ScenarioSet(read_smps(*FARMER), nonzeros // 10)
    bounds = [(first, min(first + BLOCK, scenarios.count)) for first in range(0, scenarios.count, BLOCK)]
    with tempfile.TemporaryDirectory(dir=ROOT / "build") as folder:
        path = os.path.join(folder, "model.h5") if way == "file" else None
        if way in ("at once", "blocks", "file"):
            start = time.perf_counter()
            if way == "at once":
                bounds = [(0, scenarios.count)]
            with RowStore(scenarios.nrows, scenarios.nnz, scenarios.ncols, path) as store:
                assemble(scenarios, (scenarios.build(*block) for block in bounds), store)
            return {"seconds": time.perf_counter() - start, "memory": peak(), "workers": None}
        with connect(None, int(way[0])) as client:
            next(shards(client, ScenarioSet(scenarios.program, 1), 1))  # the workers import what they need
            client.run(lambda: __import__("two_stage").ScenarioSet)
            start = time.perf_counter()
            if "stay" in way:
                remote = client.submit(ScenarioSet, scenarios.program, scenarios.sample)
                kept = [client.submit(ScenarioSet.build, remote, *block, pure=False) for block in bounds]
                wait(kept)
            else:
                with RowStore(scenarios.nrows, scenarios.nnz, scenarios.ncols) as store:
                    assemble(scenarios, shards(client, scenarios, BLOCK), store)
            seconds = time.perf_counter() - start
            return {"seconds": seconds, "memory": peak(), "workers": sum(client.run(peak).values())}


def growth(points: list) -> str:
    """The line seconds = a + b * nonzeros that has the least relative errors, in words."""
    n, seconds = (np.array([point[key] for point in points], dtype=float) for key in ("nonzeros", "seconds"))
    terms = np.column_stack([np.ones(len(n)), n]) / seconds[:, None]
    (a, b), *_ = np.linalg.lstsq(terms, np.ones(len(n)), rcond=None)
    return f"{a:.3f} s + {1e9 * b:.1f} ns a nonzero, within {abs(terms @ (a, b) - 1.0).max():.0%}"


def draw(results: dict, path: str) -> None:
    import matplotlib
    matplotlib.use("svg")
    import matplotlib.pyplot as plt

    plt.rcParams["svg.fonttype"] = "none"
    figure, (left, right) = plt.subplots(1, 2, figsize=(10, 4.2), layout="constrained")
    for way, points in results.items():
        n = [point["nonzeros"] for point in points]
        left.loglog(n, [point["seconds"] for point in points], "o-", label=way)
        right.loglog(n, [point["memory"] + (point["workers"] or 0.0) for point in points], "o-", label=way)
    for axes in (left, right):
        axes.minorticks_off()
    left.set(xlabel="nonzeros", ylabel="seconds")
    right.set(xlabel="nonzeros", ylabel="peak memory of all processes, MB")
    left.legend()
    figure.savefig(path)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--nonzeros", type=int, default=10**8, help="the most (default: %(default)s)")
    parser.add_argument("--ways", nargs="*", default=list(WAYS), choices=list(WAYS), help="(default: all)")
    parser.add_argument("--seconds", type=float, default=540.0, help="for all runs (default: %(default)s)")
    parser.add_argument("--plot", metavar="FILE", help="an SVG picture")
    parser.add_argument("--one", nargs=2, help=argparse.SUPPRESS)  # a way and a number of nonzeros: one run, as JSON
    options = parser.parse_args()
    if options.one:
        print(json.dumps(measure(options.one[0], int(options.one[1]))))
        return 0

    end = time.monotonic() + options.seconds
    results: dict = {way: [] for way in options.ways}
    took = dict.fromkeys(options.ways, 0.0)
    print(f"{'way':<12}{'nonzeros':>12}{'seconds':>10}{'ns/nonzero':>12}{'MB here':>10}{'MB workers':>12}")
    for power in range(4, int(math.log10(max(options.nonzeros, 10**4)) + 1e-9) + 1):
        for way in options.ways:
            if 10 * took[way] > end - time.monotonic():
                print(f"{way:<12}{10**power:>12}   left out: no time")
                continue
            start = time.monotonic()
            command = [sys.executable, __file__, "--one", way, str(10**power)]
            run = subprocess.run(command, capture_output=True, text=True)
            if run.returncode:
                print(f"{way:<12}{10**power:>12}   failed: {run.stderr.strip().splitlines()[-1:]}")
                return 1
            took[way] = time.monotonic() - start
            point = {"nonzeros": 10**power, **json.loads(run.stdout)}
            results[way].append(point)
            workers = "" if point["workers"] is None else f"{point['workers']:.0f}"
            print(f"{way:<12}{10**power:>12}{point['seconds']:>10.3f}{1e9 * point['seconds'] / 10**power:>12.1f}"
                  f"{point['memory']:>10.0f}{workers:>12}", flush=True)
    print()
    for way, points in results.items():
        if len(points) > 1:
            print(f"{way:<12}{WAYS[way]:<42}{growth(points)}")
    if options.plot:
        draw(results, options.plot)
    return 0


if __name__ == "__main__":
    sys.exit(main())
