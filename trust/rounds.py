"""Rounds of the same calls over all kernels, legal and refused, after each of which the process has to be as before."""

import random

import fragments_kernels
from calls import KERNELS, call_text
from carriers import ANY_LAYOUT, CONTIGUOUS, Assembly, bad_values
from frame_model import expectation, without_traceback


class Repeated:
    """A call that can be made again and again: what it changes is put back each time.

    text: what it is; error: the (type, text) that it is refused with, None for a legal call.
    """

    def __init__(self, assembly):
        number = assembly.call.number
        self.function = fragments_kernels.kernel(number)
        self.arguments, self.log = tuple(assembly.arguments), assembly.log
        self.error, _ = expectation(assembly.declared, self.arguments, fragments_kernels.checked)
        self.result = None if self.error else assembly.call.result
        images = assembly.images(bool(self.error))
        self.changed = [(memory.bytes, memory.before) for _, memory, after in images if after != memory.before]
        self.text = call_text(number, map(repr, self.arguments))[:300]

    def make(self):
        """Makes the call. AssertionError if it ends in another way than it has to."""
        error = None
        try:
            result = self.function(*self.arguments)
        except BaseException as raised:
            if not self.error or type(raised) is not self.error[0]:
                raise
            error, result = self.error, None
            without_traceback(raised)
        assert result == self.result and error == self.error, self.text
        for memory, before in self.changed:
            memory[:] = before
        self.log.clear()


def repeated_calls(calls, seed, legal, refused, plain=False):
    """Up to `legal` legal and `refused` refused calls of each kernel, in an order drawn by chance; plain: without NumPy
    objects among their arguments."""
    rng = random.Random(seed)
    carriers = CONTIGUOUS if plain else ANY_LAYOUT | CONTIGUOUS
    made = []
    for number, declared in KERNELS.items():
        for call in rng.sample(calls[number], min(legal, len(calls[number]))):
            made.append(Repeated(Assembly(call, declared, rng, carriers, plain)))
        for place in rng.sample(range(len(declared.takes)), min(refused, len(declared.takes))):
            assembly = Assembly(rng.choice(calls[number]), declared, rng, carriers, plain)
            assembly.arguments[place] = next(bad_values(declared.takes[place], assembly.log, rng, plain))
            made.append(Repeated(assembly))
            assert made[-1].error, made[-1].text
    rng.shuffle(made)
    return made


def culprits(repeated, measure, times=200):
    """[(growth of the measure over so many calls, the call as text)] of the calls that make it grow."""
    found = []
    for call in repeated:
        call.make()
        before = measure()
        for _ in range(times):
            call.make()
        growth = measure() - before
        if growth >= times:
            found.append((growth, call.text))
    return sorted(found, reverse=True)
