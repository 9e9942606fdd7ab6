#!/usr/bin/env python3
"""Records legal calls of all kernels while the tests run on the build with bounds checking, into build/calls.pkl.

A call counts as legal if that build lets it through. What it is given may hold slots that no one has set, so that two
recordings differ in them; a finding of the other tools belongs to the file that they played.
"""

import argparse
import functools
import pickle
import time
from collections import Counter
from dataclasses import replace
from pathlib import Path

import numpy as np
import pytest

import fragments
import recorder
from calls import ARRAYS, KERNELS, RECORDED, ROOT, Call, Same

# Tests of calls without data, of the references that a call holds, and of kernels in other processes.
UNUSED = ("bench", "docs", "frame", "host", "kernel_table", "readme", "trust")

# Calls of kernels that no test calls by number.
BY_HAND = {381: (2, 1, np.zeros(4, np.int32), 0, np.array([9, 0, 3, 5], np.int32))}


class Keeper:
    """A plugin of pytest that stands between the tests and the kernels and keeps some calls of each. It leaves alone
    the buffers by which the tests watch the frame.

    per_kernel: the most calls of one kernel; per_test: the most that one test gives of them; room: the most bytes of
    arrays in one call.
    """

    def __init__(self, per_kernel=24, per_test=3, room=1 << 15):
        self.per_kernel, self.per_test, self.room = per_kernel, per_test, room
        self.calls = {number: {} for number in KERNELS}
        self.empty = {}
        self.of_this_test = Counter()
        for number in KERNELS:
            name = f"_c_closure_{number}"
            setattr(fragments, name, self.recording(number, getattr(fragments, name)))

    def pytest_runtest_setup(self):
        self.of_this_test.clear()

    def recording(self, number, function):
        calls = self.calls[number]

        @functools.wraps(function)
        def record(*arguments, **named):
            enough = len(calls) == self.per_kernel or self.of_this_test[number] == self.per_test
            if enough or named or any(isinstance(value, recorder.Buffer) for value in arguments):
                return function(*arguments, **named)
            taken = taken_down(KERNELS[number], arguments, self.room)
            result = function(*arguments)
            if taken is not None:
                self.keep(number, taken, arguments, result)
            return result

        return record

    def keep(self, number, taken, arguments, result):
        after = {
            place: array
            for place, value in enumerate(taken)
            if isinstance(value, np.ndarray)
            and (array := np.array(memoryview(arguments[place]), order="C")).tobytes() != value.tobytes()
        }
        call = Call(number, taken, result, after)
        if call.is_substantial():
            key = pickle.dumps(taken)
            self.of_this_test[number] += key not in self.calls[number]
            self.calls[number].setdefault(key, call)
        else:
            self.empty.setdefault(number, call)

    def result(self):
        """{number: [Call]}: its own ones, then those of the other numbers of its body, since few are called much. A
        kernel without any other has one with nothing in it."""
        result = {}
        for number, declared in KERNELS.items():
            shared = [call for other in declared.numbers for call in self.calls[other].values()]
            shared = [replace(call, number=number) for call in [*self.calls[number].values(), *shared]]
            distinct = {pickle.dumps(call.arguments): call for call in reversed(shared)}
            if distinct or number in self.empty:
                result[number] = [*reversed(distinct.values())][: self.per_kernel] or [self.empty[number]]
        return result


def taken_down(declared, arguments, room):
    """The arguments as a Call holds them, or None for those that it can't hold: of a wrong number or kind, too large,
    or arrays that share a part of their memory."""
    if len(arguments) != len(declared.takes):
        return None
    taken, seen, entries = [], {}, []

    def overlaps(view, others):
        return any(np.may_share_memory(view, other) for other in others)

    for place, (value, parameter) in enumerate(zip(arguments, declared.takes)):
        try:
            if parameter.letter != "O":
                taken.append({"i": int, "L": int, "d": float, "p": bool}[parameter.letter](value))
            elif value is None:
                taken.append(None)
            elif parameter.kind == "i32*":
                room -= 100 * len(memoryview(value))
                if room < 0:
                    return None
                entries += [np.asarray(memoryview(entry)) for entry in np.asarray(value) if entry is not None]
                if any(overlaps(view, entries) for _, view in seen.values()):
                    return None
                taken.append([None if entry is None else copied(entry, "i32") for entry in np.asarray(value)])
            else:
                view = np.asarray(memoryview(value))
                place_in_memory = (view.__array_interface__["data"][0], view.strides, view.shape, view.dtype.str)
                if view.size and place_in_memory in seen:
                    taken.append(Same(seen[place_in_memory][0]))
                elif overlaps(view, [*entries, *(other for _, other in seen.values())]):
                    return None
                else:
                    seen[place_in_memory] = place, view
                    taken.append(copied(value, parameter.kind))
                    room -= taken[-1].nbytes
        except (TypeError, ValueError, BufferError):
            return None
    return taken if room >= 0 else None


def copied(value, kind):
    """A contiguous copy of a buffer that binds as the kind. ValueError for others."""
    array = np.array(memoryview(value), order="C")
    formats, _, dimensions, dtype = ARRAYS[kind]
    if array.ndim != dimensions or array.dtype != np.dtype(dtype):
        raise ValueError("not of the kind")
    return array


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--to", type=Path, default=RECORDED, help="the file that is written")
    options = parser.parse_args()
    start = time.monotonic()
    keeper = Keeper()
    for number, arguments in BY_HAND.items():
        getattr(fragments, f"_c_closure_{number}")(*arguments)
    unused = [f"--ignore={ROOT}/tests/test_{name}.py" for name in UNUSED]
    status = pytest.main(["-q", "--no-header", "-p", "no:cacheprovider", *unused, f"{ROOT}/tests"], plugins=[keeper])
    if status:
        raise SystemExit("the tests fail, so that nothing is recorded")
    calls = keeper.result()
    with open(options.to, "wb") as file:
        pickle.dump(calls, file)
    count = sum(map(len, calls.values()))
    print(f"{count:,} calls of {len(calls)} kernels in {options.to}, {time.monotonic() - start:.0f} s")
    missing = [number for number in KERNELS if number not in calls]
    if missing:
        raise SystemExit(f"no call of {missing}")


if __name__ == "__main__":
    main()
