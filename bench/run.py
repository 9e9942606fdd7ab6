#!/usr/bin/env python3
"""Hold kernels against hand-written loops and against NumPy or SciPy, as a table or as a picture over sizes.

A line is a case: nanoseconds a term in the kernel, in the hand-written loop (bench/hand_written.cpp) and in NumPy or
SciPy, each the median of rounds in which the three take turns, and how many times as long as the kernel the other two
take. Before anything is timed the kernel's result must be the loop's bit for bit, and NumPy's but for rounding.
"""

import argparse
import gc
import json
import os
import platform
import re
import sys
import time
from pathlib import Path
from statistics import median

import numpy as np
import scipy

import fragments
from cases import FAMILIES

ROOT = Path(__file__).resolve().parent.parent
SIDES = "kernel_ns", "hand_ns", "numpy_ns"
SIZES = {"large arrays": 2_000_000, "inside the caches": 10_000}
LINE = "{:38} {:24} {:>8} {:>8} {:>8} {:>11} {:>12}"
# The families of the picture, and the variant of each.
PICTURE = {
    "sparse product": "3 terms", "weighted sum, dense": "3 terms", "sum along an axis": "3 terms", "pick": "3 terms",
    "triplets to CSR": "any order", "evaluation of code": "a mix",
}  # fmt: skip


def check(case, what):
    """Runs each side once and ends the program if their results differ."""
    case.kernel()
    case.hand()
    result = case.numpy()
    for name, written in case.written.items():
        if written.tobytes() != case.by_hand[name].tobytes():
            sys.exit(f"{what}: the kernel and the hand-written loop differ in {name}")
        if name in result and not np.allclose(written, result[name]):
            sys.exit(f"{what}: the kernel and NumPy differ in {name}")


def timed(call, repeat):
    start = time.perf_counter()
    for _ in range(repeat):
        call()
    return (time.perf_counter() - start) / repeat


def measure(case, seconds, rounds):
    """Nanoseconds a unit of each side: medians of so many rounds at least, and of so many seconds if there are any."""
    calls = case.kernel, case.hand, case.numpy
    repeats = [max(1, int(1e-4 / timed(call, 1))) if seconds else 1 for call in calls]
    times, turn, end = [[], [], []], 0, time.perf_counter() + seconds
    gc.disable()
    while turn < rounds or time.perf_counter() < end:
        for side in (turn % 3, (turn + 1) % 3, (turn + 2) % 3):
            times[side].append(timed(calls[side], repeats[side]))
        turn += 1
    gc.enable()
    return [median(side) / case.units * 1e9 for side in times]


def progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def run(family, variant, arrays, size, seconds, rounds):
    """Measures one case; its line of the JSON file."""
    case = family.make(size, **family.variants[variant])
    check(case, f"{family.name}, {variant}")
    times = measure(case, seconds, rounds)
    line = {"family": family.name, "kernels": family.kernels, "variant": variant, "arrays": arrays}
    line |= {"units": case.units, **dict(zip(SIDES, times))}
    return line | {"hand_over_kernel": times[1] / times[0], "numpy_over_kernel": times[2] / times[0]}


def table(quick):
    """Prints the table line by line; all lines."""
    blocks = [(arrays, 300 if quick else size) for arrays, size in SIZES.items()] + [("a call", 1)]
    todo = [(*block, family, variant) for block in blocks for family in FAMILIES if family.sized == (block[1] > 1)
            for variant in family.variants]  # fmt: skip
    lines = []
    for arrays, size, family, variant in todo:
        if not lines or lines[-1]["arrays"] != arrays:
            head = f"{arrays}: ns a term" if size > 1 else "a call: ns"
            print("\n" + LINE.format(head, "variant", "kernel", "hand", "NumPy", "hand/kernel", "NumPy/kernel"))
        progress(f"{len(lines)} of {len(todo)}: {family.name}, {variant}")
        line = run(family, variant, arrays, size, *((0, 1) if quick else (0.3, 5)))
        lines.append(line)
        progress("")
        figures = [f"{value:.2f}" for value in list(line.values())[-5:]]
        print(LINE.format(f"{family.name} ({family.kernels})", variant, *figures), flush=True)
    return lines


def picture(file, quick):
    """Draws the cost of a term over the number of terms; all points."""
    import matplotlib

    matplotlib.use("svg")
    import matplotlib.pyplot as plt

    sizes = [round(10 ** (k / 2)) for k in (range(4, 6) if quick else range(6, 15))]
    figure, axes = plt.subplots(2, 3, figsize=(13, 8), sharex=True, sharey=True, layout="constrained")
    lines = []
    for axis, family in zip(axes.flat, (family for family in FAMILIES if family.name in PICTURE)):
        variant, points = PICTURE[family.name], []
        for size in sizes:
            progress(f"{family.name}, {size} terms")
            points.append(run(family, variant, "", size, *((0, 1) if quick else (0.3, 3))))
        x = [point["units"] for point in points]
        for side, style, label in zip(SIDES, ("o-", "s--", "^:"), ("kernel", "hand-written loop", "NumPy or SciPy")):
            axis.loglog(x, [point[side] for point in points], style, label=label)
        axis.set_title(f"{family.name}, {variant} ({family.kernels})")
        axis.grid(which="both", alpha=0.2)
        lines += points
    plt.setp(axes[:, 0], ylabel="ns a term")
    plt.setp(axes[-1], xlabel="terms")
    axes[0, 0].legend()
    figure.suptitle("Cost of a term by the number of terms")
    figure.savefig(file)
    progress("")
    return lines


def machine():
    """What the figures depend on."""
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    module = Path(fragments.__file__)
    compiler = re.search(rb"GCC: [ -~]+|clang version [ -~]+", module.read_bytes())
    version = re.search(r"version: '(.*?)'", (ROOT / "meson.build").read_text())
    return {
        "machine": f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} cores",
        "compiler": compiler[0].decode() if compiler else "unknown", "fragments": version[1],
        "python": platform.python_version(), "numpy": np.__version__, "scipy": scipy.__version__,
    }  # fmt: skip


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--json", type=Path, help="where to write all lines")
    parser.add_argument("--plot", type=Path, help="draw this picture (SVG) instead of the table")
    parser.add_argument("--quick", action="store_true", help="small sizes, one round: a test, not a measurement")
    arguments = parser.parse_args()
    facts = machine()
    print(", ".join(f"{name} {value}" for name, value in facts.items()))
    lines = picture(arguments.plot, arguments.quick) if arguments.plot else table(arguments.quick)
    if arguments.json:
        arguments.json.write_text(json.dumps({**facts, "lines": lines}, indent=1))


if __name__ == "__main__":
    main()
