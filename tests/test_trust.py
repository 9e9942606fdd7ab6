"""The tools of trust/: what they are there to find, they find."""

import os
import signal
import sys
import time

import numpy as np
import pytest

from support import CHECKED, ROOT, f64, i32, kernel

sys.path.insert(0, str(ROOT / "trust"))

from calls import Call  # noqa: E402
from fuzz import Fuzzer  # noqa: E402
from workers import run  # noqa: E402

TABLE = [i32([2, 3]), i32([4, 5, 6]), None]
CALLS = {
    231: [Call(231, [1, 2, i32([9, 10]), TABLE], None, {2: i32([9, 10 + 3 + 5])})],
    330: [Call(330, [3, f64([1, 2, 3, 4]), 0.5], None, {1: f64([0.5, 0.5, 0.5, 4])})],
}
kept = []


def written_first(*arguments):
    for value in arguments:
        if isinstance(value, np.ndarray) and value.size and value.flags.writeable and value.dtype.char != "O":
            value.flat[0] = 7


def refusing_other(error):
    """What a frame would do that refuses in another way."""

    def wrap(function):
        def call(*arguments, **keywords):
            try:
                return function(*arguments, **keywords)
            except ValueError as raised:
                error(raised)

        return call

    return wrap


def raise_other_type(raised):
    raise TypeError(str(raised))


def raise_other_text(raised):
    raise ValueError(f"{raised}.")


def before(action):
    """What a frame would do that does something first."""

    def wrap(function):
        def call(*arguments, **keywords):
            action(*arguments)
            return function(*arguments, **keywords)

        return call

    return wrap


def keep_view(*arguments):
    for value in arguments:
        if isinstance(value, np.ndarray) and value.dtype.char in "idl":
            kept.append(memoryview(value))


FAULTS = {
    "accepts what it has to refuse": (refusing_other(lambda raised: None), "raised None"),
    "other exception": (refusing_other(raise_other_type), "raised (<class 'TypeError'>"),
    "other text": (refusing_other(raise_other_text), "'.\")"),
    "keeps a reference": (before(lambda *arguments: kept.extend(arguments)), "references, and not"),
    "keeps a view": (before(keep_view), "is still viewed"),
    "writes before all is bound": (before(written_first), "is not as it has to be"),
    "other result": (lambda function: lambda *arguments, **keywords: function(*arguments, **keywords) or 1, "gave 1"),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_the_fuzzer_finds_a_fault_of_the_frame(fault):
    if CHECKED and fault == "other text":
        pytest.skip("with bounds checking the texts tell more")
    wrap, told = FAULTS[fault]
    right = Fuzzer(CALLS, seed=1, checked=CHECKED)
    wrong = Fuzzer(CALLS, seed=1, function=lambda number: wrap(kernel(number)), checked=CHECKED)
    assert not any(right.play(trial)[1] for trial in range(200))
    assert any(told in (wrong.play(trial)[1] or "") for trial in range(200))
    kept.clear()


def test_a_trial_that_crashes_or_hangs_is_named_and_the_others_go_on():
    def play(trial):
        if trial == 5:
            os.kill(os.getpid(), signal.SIGKILL)
        if trial == 8:
            time.sleep(60)
        return "odd" if trial % 2 else "even", "found" if trial == 2 else None

    outcome = run(range(20), play, ("odd", "even"), processes=2, limit=0.5, describe=lambda trial: f"trial {trial}")
    assert outcome.counts == {"odd": 9, "even": 9, "crashed": 1, "too slow": 1}
    assert sorted(outcome.findings) == [(2, "found"), (5, "trial 5\nthe process ended by SIGKILL")]
