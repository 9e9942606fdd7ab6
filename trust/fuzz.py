#!/usr/bin/env python3
"""Fuzzes the frame over all kernels.

A trial takes a recorded legal call, puts its arguments into carriers drawn by chance, and plants up to three faults. A
faulty call has to be refused with the exception and the text that the first fault asks for, and to leave all memory as
it was; a legal one has to give the recorded result and to change nothing else. Either way no reference and no view is
left behind, and views are released in reverse order.
"""

import random
import sys
from dataclasses import replace

import numpy as np

import fragments_kernels
import recorder
from calls import KERNELS, call_text, command_line, load
from carriers import RELEASED, Assembly, bad_values
from frame_model import entries, expectation, without_traceback
from workers import command

KINDS = ("refused", "carried out")
# Values that the interpreter shares.
PLAIN = (bool, int, float, complex, str, bytes, tuple, type, type(None), type(...))
TABLES = 20  # how much more often kernels with an array of arrays have their turn, since there are only three


class Fuzzer:
    """Trials by number, the same for the same seed and calls.

    calls: {number: [Call]}; function(number) gives what is called; checked: whether it checks bounds.
    """

    def __init__(self, calls, seed, function=fragments_kernels.kernel, checked=False):
        self.calls, self.seed, self.function, self.checked = calls, seed, function, checked
        self.turns = [n for n in sorted(calls) for _ in range(TABLES if has_table(KERNELS[n]) else 1)]

    def prepare(self, trial):
        """(number, Assembly, keywords, whether a fault is planted) of a trial."""
        rng = random.Random(f"{self.seed} {trial}")
        number = self.turns[trial % len(self.turns)]
        assembly = Assembly(rng.choice(self.calls[number]), KERNELS[number], rng)
        faults = rng.choice((0, 1, 1, 1, 2, 3))
        for _ in range(faults):
            plant(assembly, rng)
        keywords = {}
        if rng.random() < 0.05:
            faults += 1
            keywords = miscount(assembly, rng)
        return number, assembly, keywords, faults > 0

    def describe(self, trial):
        number, assembly, keywords, _ = self.prepare(trial)
        arguments = [*assembly.arguments, *(f"{name}={value!r}" for name, value in keywords.items())]
        return call_text(number, map(shown, arguments))

    def play(self, trial):
        """(one of KINDS, a finding or None)."""
        number, assembly, keywords, is_faulty = self.prepare(trial)
        arguments = tuple(assembly.arguments)
        if keywords:
            expected, taken = (TypeError, f"_c_closure_{number}() takes no keyword arguments"), []
        else:
            expected, taken = expectation(KERNELS[number], arguments, self.checked)
        assert bool(expected) == is_faulty or self.checked, f"{self.describe(trial)}: {expected}"
        faults = [*self.faults(number, assembly, arguments, keywords, expected, taken)]
        kind = "refused" if expected else "carried out"
        del arguments, taken
        assembly.arguments.clear()
        keywords.clear()
        faults += [f"{assembly.name(place)} is still viewed" for place, m in assembly.every_memory() if m.is_held()]
        return kind, "\n".join([self.describe(trial), *faults]) if faults else None

    def faults(self, number, assembly, arguments, keywords, expected, taken):
        """What is wrong about the call, with the arguments at hand."""
        watched = [x for value in arguments for x in (value, *parts(value)) if not isinstance(x, PLAIN)]
        assembly.log.clear()
        function = self.function(number)
        counts = [sys.getrefcount(x) for x in watched]
        result = error = None
        try:
            result = function(*arguments, **keywords)
        except BaseException as raised:
            error = type(raised), str(without_traceback(raised))
        after = [sys.getrefcount(x) for x in watched]

        if error != expected and not (self.checked and names_the_same(error, expected)):
            yield f"raised {error}, and not {expected}"
        elif not error and repr(result) != repr(assembly.call.result):
            yield f"gave {result}, and not {assembly.call.result}"
        yield from (
            f"{shown(x)} has {now} references, and not {before}"
            for x, before, now in zip(watched, counts, after)
            if before != now
        )
        for place, memory, image in assembly.images(bool(error)):
            if memory.bytes != image:
                byte = next(k for k, (x, y) in enumerate(zip(memory.bytes, image)) if x != y) - memory.offset
                yield f"{assembly.name(place)} is not as it has to be after the call from byte {byte} on"
        names = [[assembly.log.names[id(x)] for x in views if isinstance(x, recorder.Buffer)] for views in taken]
        log = [f"+{name}" for views in names for name in views]
        log += [f"-{name}" for views in reversed(names) for name in views]
        if assembly.log != log:
            yield f"took and released views in the order {assembly.log}, and not {log}"


def names_the_same(error, expected):
    """Whether both are the refusal of the same array: with bounds checking its name stands in another text."""
    return error and expected and error[0] is expected[0] is ValueError and expected[1].split("'")[-2:][0] in error[1]


def has_table(declared):
    return any(parameter.kind == "i32*" for parameter in declared.takes)


def parts(value):
    """The entries, if it is an array of arrays."""
    array = value.obj if isinstance(value, memoryview) and value is not RELEASED else value
    return entries(array) if isinstance(array, np.ndarray) and array.dtype.char == "O" and array.ndim == 1 else ()


def plant(assembly, rng):
    """Replaces an argument, or an entry of a table, by one that is refused."""
    parameters = assembly.declared.takes
    tables = [place for place, parameter in enumerate(parameters) if parameter.kind == "i32*"]
    place = tables[0] if tables and rng.random() < 0.7 else rng.randrange(len(parameters))
    parameter, given = parameters[place], assembly.arguments[place]
    if parameter.kind == "i32*" and len(parts(given)) and isinstance(given, np.ndarray) and rng.random() < 0.5:
        entry = replace(parameter, kind="i32", read_only=True)
        given[rng.randrange(len(given))] = next(bad_values(entry, assembly.log, rng))
    else:
        assembly.arguments[place] = next(bad_values(parameter, assembly.log, rng))


def miscount(assembly, rng):
    """Drops or adds arguments. The keywords to call with."""
    which = rng.randrange(4)
    if which == 0:
        del assembly.arguments[rng.randrange(len(assembly.arguments)) :]
    elif which == 1:
        assembly.arguments += [rng.choice((None, 0, "more"))] * rng.choice((1, 2, 40))
    elif which == 2:
        return {assembly.declared.takes[-1].name: assembly.arguments.pop()}
    else:
        return {"more": 0}
    return {}


def shown(value):
    """An argument in a few words."""
    try:
        view = memoryview(value)
    except Exception:
        return repr(value)
    form = f"format {view.format!r}, {view.itemsize} bytes, shape {view.shape}, strides {view.strides}"
    return f"<{type(value).__name__}: {form}{', read-only' * view.readonly}>"


def main():
    options = command_line(__doc__, 100_000, has_trials=True)
    fuzzer = Fuzzer(load(options.recorded), options.seed, checked=fragments_kernels.checked)
    command("fuzz", fuzzer, KINDS, options)


if __name__ == "__main__":
    main()
