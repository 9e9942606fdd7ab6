"""Recorded legal calls: what trust/record.py writes and the tools here play back.

A call holds its arguments as plain values: scalars; None; contiguous NumPy arrays; a list of arrays and None for an
array of arrays; and Same(place) for an argument that is the very array of an earlier one.
"""

import argparse
import pickle
import sys
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

ROOT = Path(__file__).resolve().parent.parent
RECORDED = ROOT / "build" / "calls.pkl"
sys.path.insert(0, str(ROOT / "tools"))

from declarations import read_kernels  # noqa: E402

KERNELS = {number: declared for declared in read_kernels() for number in declared.numbers}

# Of each kind of array: the first characters of the formats that it takes, its item size, its dimensions, its dtype.
ARRAYS = {
    "i32": ("il", 4, 1, "i4"),
    "i64": ("ql", 8, 1, "i8"),
    "f64": ("d", 8, 1, "f8"),
    "i32x2": ("il", 4, 2, "i4"),
    "f64x2": ("d", 8, 2, "f8"),
    "i32*": ("O", 8, 1, "O"),
}


@dataclass
class Same:
    """The array that stands at an earlier place of the call."""

    place: int


@dataclass
class Call:
    """One legal call of _c_closure_N: its arguments before, its result, by place the arrays that it changed, after."""

    number: int
    arguments: list
    result: Any
    after: dict

    def arrays(self):
        """(place, array) of each one- or two-dimensional array that stands in the call itself."""
        return [(place, value) for place, value in enumerate(self.arguments) if isinstance(value, np.ndarray)]

    def is_substantial(self):
        """Whether it gives or takes more than empty arrays."""
        return bool(self.after) or any(array.size for _, array in self.arrays())


def call_text(number, arguments):
    """A call as text, its arguments being texts."""
    return f"_c_closure_{number}({', '.join(arguments)})"


def load(path=RECORDED):
    """{number: [Call]} of all kernels. SystemExit if the file is not there."""
    if not Path(path).exists():
        raise SystemExit(f"{path} is not there: run `make calls`")
    with open(path, "rb") as file:
        return pickle.load(file)


def command_line(text, calls, has_trials=False, limit=None):
    """The options of a tool. calls: how many it makes if none are asked for; has_trials: whether they are numbered, the
    range of their numbers being the option `trials`; limit: the seconds that one may take."""
    parser = argparse.ArgumentParser(description=text, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--calls", type=int, default=calls, help=f"how many calls; {calls:,} if not given")
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--recorded", type=Path, default=RECORDED, metavar="FILE")
    if has_trials:
        parser.add_argument("--only", type=int, metavar="N", help="call N alone, of the same seed and recorded calls")
        parser.add_argument("--processes", type=int, help="as many as there are processors, if not given")
        parser.add_argument("--most", type=int, default=20, help="ends after so many findings")
        parser.add_argument("--limit", type=float, default=limit, help="the seconds that a call may take")
    options = parser.parse_args()
    if has_trials:
        options.trials = range(options.calls) if options.only is None else range(options.only, options.only + 1)
    return options
