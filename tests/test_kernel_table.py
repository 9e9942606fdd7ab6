"""What tools/kernels.py writes of the kernels, and that all of them are explained."""

import ast
import subprocess
import sys
from pathlib import Path

import pytest

from support import KERNELS, ROOT, read_kernels

from kernels import check, describe, stub  # noqa: E402

MYPY = Path("/usr/bin/mypy")

# Calls by the types that the stub gives, and behind them calls that mypy is to refuse, one a line.
RIGHT = """\
from array import array
import numpy as np
from fragments import _c_closure_44, _c_closure_245, _c_closure_330, _c_closure_445, _c_closure_454

ints, longs, doubles, objects = np.zeros(4, np.int32), np.zeros(4, np.int64), np.zeros(4), np.zeros(4, np.object_)
badidx, badorder = _c_closure_454(False, 1, 2, np.int32(3), 4, ints, array("i"))
both: bool = badidx or badorder
_c_closure_454([], None, 2, 3, 4, memoryview(b""), None)
_c_closure_330(3, doubles, 1)
_c_closure_330(3, array("d"), np.float32(0.5))
_c_closure_44(1, 2, longs, ints.reshape(2, 2), None)
_c_closure_445(0, None, objects)
"""
WRONG = """\
_c_closure_330(3, None)
_c_closure_330(3, None, 0.5, 0.5)
_c_closure_330(n=3, vals=None, value=0.5)
_c_closure_330(3, 3, 0.5)
_c_closure_330(longs, None, 0.5)
_c_closure_330(0.5, None, 0.5)
_c_closure_330(3, ints, 0.5)
_c_closure_330(3, None, doubles)
_c_closure_245(True, 3, doubles)
_c_closure_245(True, 3, ints)
_c_closure_445(0, array("d"), None)
_c_closure_445(0, None, doubles)
"""

FAULTY = """\
// A family.
//
// - bad, size (flag): whether there is a fault
// - other (count): of nothing

// Sums n entries, see 472 and 700.
//
// - a (array; n): the entries
// - n (number): their count
// - lost
KERNEL((1), (i32 total, i32), sums, bool bad, I32 a, i32 n)

// The same backwards.
//
// - a (cursor): where it is
// - p (position in wi32): where they begin
KERNEL((472), (i64 n), sums_back, i32 a, i32 n, i32 p, CI32 size)
"""
FAULTS = """\
f.cpp:1 head: explains other, which is not there
f.cpp:11 sums: not an entry: - lost
f.cpp:11 sums: gives n the unknown role number
f.cpp:11 sums: names 700, which is no kernel
f.cpp:11 sums: does not explain total:i
f.cpp:11 sums: has a result i32 without a name
f.cpp:17 sums_back: leans on another comment: The same
f.cpp:17 sums_back: does not give the cursor a back
f.cpp:17 sums_back: gives n back, which is no count then
f.cpp:17 sums_back: has no array for p, position in wi32
f.cpp:17 sums_back: takes size:i32 for: flag
f.cpp:17 sums_back: gives n back in another type
src/parameters.md: explains unused, which no kernel needs
"""


def test_every_kernel_is_explained():
    assert check(read_kernels()) == []


def test_the_check_finds_what_is_unexplained_or_wrong(tmp_path):
    (tmp_path / "f.cpp").write_text(FAULTY)
    (tmp_path / "parameters.md").write_text("- n:i, unused (count): the entries\n")
    assert [fault.replace(f"{tmp_path}/", "") for fault in check(read_kernels(tmp_path))] == FAULTS.splitlines()


def test_the_stub_is_python_and_holds_every_kernel():
    functions = [node for node in ast.parse(stub(read_kernels())).body if isinstance(node, ast.FunctionDef)]
    assert [node.name for node in functions] == [f"_c_closure_{number}" for number in sorted(KERNELS)]
    for node, number in zip(functions, sorted(KERNELS)):
        assert [argument.arg.rstrip("_") for argument in node.args.posonlyargs] == [
            name.rstrip("_") for name, _ in KERNELS[number].parameters
        ]


@pytest.mark.skipif(not MYPY.exists(), reason="no mypy")
def test_the_stub_tells_right_calls_from_wrong_ones(tmp_path):
    (tmp_path / "fragments.pyi").write_text(stub(read_kernels()))
    (tmp_path / "calls.py").write_text(RIGHT + WRONG)
    run = subprocess.run([MYPY, "calls.py"], cwd=tmp_path, capture_output=True, text=True)
    refused = {int(line.split(":")[1]) for line in run.stdout.splitlines() if line.startswith("calls.py:")}
    first = RIGHT.count("\n") + 1
    assert refused == {*range(first, first + WRONG.count("\n"))}, run.stdout + run.stderr


def test_a_description_shows_every_parameter_and_result():
    for number, declared in KERNELS.items():
        first_words = {line.split(" ")[0] for line in describe([declared], [number]).splitlines()}
        assert declared.own_names() - {""} <= first_words, number


def test_the_table_ends_quietly_when_its_reader_stops():
    command = f"{sys.executable} {ROOT}/tools/kernels.py table | head -1"
    run = subprocess.run(["bash", "-o", "pipefail", "-c", command], capture_output=True, text=True)
    assert (run.stdout, run.stderr) == ("number\tbody\tformat\tparameters\tresult\n", "")
