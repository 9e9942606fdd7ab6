#!/usr/bin/env python3
"""Changes one thing in a legal call, on the build with bounds checking under the address and undefined-behaviour
sanitizers.

A trial takes a recorded call and changes one scalar or one entry of an array, or shortens an array or leaves it out.
The call may return or raise IndexError, ValueError or MemoryError; a report of a sanitizer, a crash or another
exception is a finding. Calls that loop for longer than --limit seconds without touching anything are counted only.
"""

import random

import numpy as np

import fragments_kernels
from calls import KERNELS, Same, call_text, command_line, load
from workers import command

KINDS = ("returned", "IndexError", "ValueError", "MemoryError", "other exceptions")

# Values that an integer of a width may change to: as offsets from what it was, and as they are.
NEAR = (-2, -1, 1, 2, 7, 64)
FAR = (0, -1, 1, 1000, 10**6, 2**30, 2**31 - 2, 2**31 - 1, -(2**31), -(2**31) + 1, -1000)
WIDE = (2**31, 2**32, -(2**32) - 1, 2**40, 2**62, 2**63 - 1, -(2**63))
DOUBLES = (0.0, -1.0, 0.5, 1e308, float("inf"), float("-inf"), float("nan"))


class Mutator:
    """Trials by number, the same for the same seed and calls ({number: [Call]})."""

    def __init__(self, calls, seed):
        self.calls, self.seed, self.numbers = calls, seed, sorted(calls)

    def prepare(self, trial):
        """(number, arguments, change): the changed call, and what was changed in words."""
        rng = random.Random(f"{self.seed} {trial}")
        number = self.numbers[trial % len(self.numbers)]
        arguments = list(rng.choice(self.calls[number]).arguments)
        takes = KERNELS[number].takes
        places = [place for place, value in enumerate(arguments) if value is not None and not isinstance(value, Same)]
        place = rng.choice(places)
        changed, change = mutated(arguments[place], takes[place], rng)
        arguments[place] = changed
        for k, value in enumerate(arguments):
            if isinstance(value, Same):
                arguments[k] = arguments[value.place]
        return number, arguments, f"{takes[place].name}: {change}"

    def describe(self, trial):
        number, arguments, change = self.prepare(trial)
        return f"{call_text(number, map(shown, arguments))}\nchanged {change}"

    def play(self, trial):
        """(one of KINDS, a finding or None)."""
        number, arguments, _ = self.prepare(trial)
        objects = {}
        arguments = [objects.setdefault(id(value), handed_over(value, trial)) for value in arguments]
        try:
            fragments_kernels.kernel(number)(*arguments)
            return "returned", None
        except (IndexError, ValueError, MemoryError) as error:
            return type(error).__name__, None
        except Exception as error:
            return "other exceptions", f"{self.describe(trial)}\n{type(error).__name__}: {error}"


def mutated(value, parameter, rng):
    """(an argument with one change, the change in words)."""
    if isinstance(value, list):
        place = rng.randrange(len(value)) if value else 0
        if not value or rng.random() < 0.3:
            return value[:place], f"cut to {place} arrays"
        entry, change = (None, "None") if value[place] is None else mutated(value[place], parameter, rng)
        return [*value[:place], entry, *value[place + 1 :]], f"entry {place}: {change}"
    if not isinstance(value, np.ndarray):
        new = changed_number(value, parameter.letter, rng)
        return new, f"{value!r} to {new!r}"
    if not value.size or rng.random() < 0.3:
        rows = rng.choice((0, len(value) // 2, max(len(value) - 1, 0), None))
        return (None, "None") if rows is None else (value[:rows], f"cut from {len(value)} to {rows}")
    new = value.copy()
    place = rng.randrange(value.size)
    if rng.random() < 0.2:
        place = rng.choice((0, value.size - 1))
    letter = {"i4": "i", "i8": "L", "f8": "d"}[value.dtype.str[1:]]
    new.flat[place] = changed_number(value.flat[place].item(), letter, rng)
    return new, f"[{place}] from {value.flat[place]} to {new.flat[place]}"


def changed_number(value, letter, rng):
    if letter == "p":
        return not value
    if letter == "d":
        return rng.choice(DOUBLES)
    bits = 31 if letter == "i" else 63
    which = rng.random()
    if which < 0.4:
        new = value + rng.choice(NEAR)
    elif which < 0.48:
        new = rng.randrange(-20, 20)
    elif which < 0.52:
        new = -value
    else:
        new = rng.choice(FAR if letter == "i" or which < 0.75 else WIDE)
    return max(-(2**bits), min(new, 2**bits - 1))


def handed_over(value, trial):
    """An argument with memory of its own and not a byte more, every third time in descending order."""
    if isinstance(value, list):
        table = np.empty(len(value), object)
        for place, entry in enumerate(value):
            table[place] = handed_over(entry, trial)
        return table
    if not isinstance(value, np.ndarray):
        return value
    if trial % 3 == 0:
        backwards = (slice(None, None, -1),) * value.ndim
        return value[backwards].copy()[backwards]
    return value.copy()


def shown(value):
    return str(value.tolist()) if isinstance(value, np.ndarray) else repr(value)


def main():
    options = command_line(__doc__, 20_000, has_trials=True, limit=1.0)
    if not fragments_kernels.checked:
        raise SystemExit("this is for the build with bounds checking: every other one may crash at a changed call")
    command("mutations", Mutator(load(options.recorded), options.seed), KINDS, options)


if __name__ == "__main__":
    main()
