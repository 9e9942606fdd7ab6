#!/usr/bin/env python3
"""Counts all references of the interpreter over rounds of calls of all kernels, legal and refused.

This is for a debug interpreter (python3-dbg) and a module that is built for it. NumPy is not: the references that it
takes and drops are not counted, so that no argument here is one of its objects.
"""

import sys

from calls import command_line, load
from rounds import culprits, repeated_calls

WARM_UP = 3  # rounds
CALLS = 300_000


def main():
    options = command_line(__doc__, CALLS)
    if not hasattr(sys, "gettotalrefcount"):
        raise SystemExit("this is for a debug interpreter, python3-dbg")
    repeated = repeated_calls(load(options.recorded), options.seed, 4, 100, plain=True)
    rounds = max(options.calls // len(repeated), 2 * WARM_UP)
    totals = [0] * rounds
    for done in range(rounds):
        for call in repeated:
            call.make()
        totals[done] = sys.gettotalrefcount()
    grown = totals[-1] - totals[WARM_UP - 1]
    what = f"{rounds * len(repeated):,} calls, {len(repeated):,} different ones, seed {options.seed}"
    print(f"refleak: {what}; references {grown:+,} after {rounds - WARM_UP} rounds")
    if abs(grown) > rounds:
        for growth, text in culprits(repeated, sys.gettotalrefcount)[:20]:
            print(f"{growth:+,} references in 200 calls of {text}")
        raise SystemExit("refleak: references are left behind, or dropped too often")


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        print("refleak: interrupted")
        raise SystemExit(130)
