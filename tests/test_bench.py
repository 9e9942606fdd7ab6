"""The bench runs, and refuses to time what differs."""

import json
import os
import subprocess
import sys
from pathlib import Path

import pytest
from support import ROOT

import fragments

BUILD = Path(fragments.__file__).parent
pytestmark = pytest.mark.skipif(not (BUILD / "libhand_written.so").exists(), reason="the loops are not built here")


def test_every_case(tmp_path):
    """Results of kernels, hand-written loops and NumPy are compared on the way."""
    command = [sys.executable, ROOT / "bench/run.py", "--quick", "--json", tmp_path / "bench.json"]
    subprocess.run(command, env={**os.environ, "PYTHONPATH": str(BUILD)}, check=True, stdout=subprocess.DEVNULL)
    lines = json.loads((tmp_path / "bench.json").read_text())["lines"]
    assert len({line["family"] for line in lines}) >= 18
    assert all(line[side] > 0 for line in lines for side in ("kernel_ns", "hand_ns", "numpy_ns"))


def test_a_difference_ends_the_run(monkeypatch):
    monkeypatch.syspath_prepend(ROOT / "bench")
    import cases
    import run

    case = cases.pick(100, 3)
    run.check(case, "pick")
    case.by_hand["cof"][5] += 1e-16 + case.by_hand["cof"][5] * 1e-15
    with pytest.raises(SystemExit, match="pick: the kernel and the hand-written loop differ in cof"):
        run.check(case._replace(hand=lambda: None), "pick")
    with pytest.raises(SystemExit, match="pick: the kernel and NumPy differ in cof"):
        run.check(case._replace(numpy=lambda: {"cof": case.written["cof"] + 0.1}), "pick")
