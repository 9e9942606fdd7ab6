"""What tools/kernels.py writes of the kernels, and that all of them are explained."""

import ast
import re
import subprocess
import sys
from pathlib import Path

import pytest

import fragments
import fragments_kernels
from support import CHECKED, KERNELS, ROOT, f64, read_kernels

from kernels import check, describe, find, names_stub, stub  # noqa: E402
from search import WORDS, kernels_for  # noqa: E402

ALL = read_kernels()
MYPY = Path("/usr/bin/mypy")

# Calls by the types that the stub gives, and behind them calls that mypy is to refuse, one a line.
RIGHT = """\
from array import array
import numpy as np
from fragments_kernels import call, zero_slots
from fragments_kernels.records import check_record
from fragments import _c_closure_44, _c_closure_245, _c_closure_330, _c_closure_445, _c_closure_454

ints, longs, doubles, objects = np.zeros(4, np.int32), np.zeros(4, np.int64), np.zeros(4), np.zeros(4, np.object_)
badidx, badorder = _c_closure_454(False, 1, 2, np.int32(3), 4, ints, array("i"))
both: bool = badidx or badorder
_c_closure_454([], None, 2, 3, 4, memoryview(b""), None)
_c_closure_330(3, doubles, 1)
_c_closure_330(3, array("d"), np.float32(0.5))
_c_closure_44(1, 2, longs, ints.reshape(2, 2), None)
_c_closure_445(0, None, objects)
zero_slots(0, doubles, 4)
call("zero_slots", top=0, rf64=doubles, n=4)
check_record((ints, None, doubles.data), {}, variables=3)
"""
WRONG = """\
_c_closure_330(3, None)
_c_closure_330(3, None, 0.5, 0.5)
_c_closure_330(n=3, vals=None, value=0.5)
_c_closure_330(3, 3, 0.5)
_c_closure_330(longs, None, 0.5)
_c_closure_330(0.5, None, 0.5)
_c_closure_330(3, ints, 0.5)
_c_closure_330(3, [0.5], 0.5)
_c_closure_44(1, 2, doubles, None, None)
_c_closure_44(1, 2, ints, None, None)
zero_slots(0, longs, 4)
zero_slots(top=0, rf64=doubles, n=4)
call()
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

// Does nothing.
KERNEL((2), (), call, bool bad)

// Does nothing.
KERNEL((3), (), call, bool bad)
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
f.cpp:20 call: has a name that means something else in fragments_kernels
f.cpp:23 call: has the name of f.cpp:20
f.cpp:23 call: has a name that means something else in fragments_kernels
src/parameters.md: explains unused, which no kernel needs
"""


def test_every_kernel_is_explained():
    assert check(ALL) == []


def test_the_check_finds_what_is_unexplained_or_wrong(tmp_path):
    (tmp_path / "f.cpp").write_text(FAULTY)
    (tmp_path / "parameters.md").write_text("- n:i, unused (count): the entries\n")
    assert [fault.replace(f"{tmp_path}/", "") for fault in check(read_kernels(tmp_path))] == FAULTS.splitlines()


def test_the_stub_is_python_and_holds_every_kernel():
    functions = [node for node in ast.parse(stub(ALL)).body if isinstance(node, ast.FunctionDef)]
    assert [node.name for node in functions] == [f"_c_closure_{number}" for number in sorted(KERNELS)]
    for node, number in zip(functions, sorted(KERNELS)):
        assert [argument.arg.rstrip("_") for argument in node.args.posonlyargs] == [
            name.rstrip("_") for name, _ in KERNELS[number].parameters
        ]


@pytest.mark.skipif(not MYPY.exists(), reason="no mypy")
def test_the_stub_tells_right_calls_from_wrong_ones(tmp_path):
    (tmp_path / "fragments.pyi").write_text(stub(ALL))
    package = tmp_path / "fragments_kernels"
    package.mkdir()
    (package / "__init__.py").write_text((ROOT / "fragments_kernels" / "init.py").read_text())
    (package / "records.py").write_text((ROOT / "fragments_kernels" / "records.py").read_text())
    (package / "_names.pyi").write_text(names_stub(ALL))
    (tmp_path / "calls.py").write_text(RIGHT + WRONG)
    run = subprocess.run([MYPY, "--strict", "calls.py"], cwd=tmp_path, capture_output=True, text=True)
    faults = [line for line in run.stdout.splitlines()[:-1] if ": note: " not in line]
    refused = {int(line.split(":")[1]) if line.startswith("calls.py:") else line for line in faults}
    first = RIGHT.count("\n") + 1
    assert refused == {*range(first, first + WRONG.count("\n"))}, run.stdout + run.stderr


def test_a_description_shows_every_parameter_and_result():
    for number, declared in KERNELS.items():
        first_words = {line.split(" ")[0] for line in describe([declared], [number]).splitlines()}
        assert declared.own_names() - {""} <= first_words, number


@pytest.mark.parametrize("phrase, first", [
    ("sum along", 534), ("stack along", 235), ("linear form", 401), ("symmetrize", 564), ("Symmetrised", 564),
    ("transpose", 422), ("concatenate", 427), ("gather", 15), ("dual", 16), ("write_sparse_product", 472),
    ("sort by mirrored", 564), ("binary search", 311), ("NaN", 395)])  # fmt: skip
def test_kernels_are_found_by_words(phrase, first):
    assert first in kernels_for(phrase, ALL)[0].numbers


def test_words_describe_kernels():
    assert {kernel.family.key for kernel in ALL} == WORDS.keys()
    described = describe(ALL, ["472", "write_bounds", "_c_closure_17", "symmetrize"])
    heads = re.findall(r"^_c_closure_(\d+)", described, re.MULTILINE)
    assert heads[:3] == ["472", "82", "17"] and "572" in heads and "--- src/stack/symmetrise.cpp" in described
    assert "write_triangle" in describe(ALL, ["tril", "dual"])  # not one phrase, but two words
    assert "describe some of them" in describe(ALL, ["sum"])
    assert find(ALL, ["sum", "along"]).splitlines()[1].startswith("534 ")
    for nothing in ("700", "-4", "determinant"):
        with pytest.raises(SystemExit, match=nothing):
            describe(ALL, ["472", nothing])


@pytest.mark.parametrize("target", ["table", "find WORD=sum", "describe N=472"])
def test_targets_end_quietly_when_their_reader_stops(target):
    command = f"make -s -C {ROOT} PYTHON={sys.executable} {target} | head -c 1"
    run = subprocess.run(["bash", "-o", "pipefail", "-c", command], capture_output=True, text=True)
    assert (run.returncode, len(run.stdout), run.stderr) == (0, 1, "")


def test_the_companion_has_every_kernel_under_its_name():
    assert fragments_kernels.checked == CHECKED
    assert f"version: '{fragments_kernels.__version__}'" in (ROOT / "meson.build").read_text()
    for number, declared in KERNELS.items():
        first = getattr(fragments, f"_c_closure_{declared.numbers[0]}")
        assert getattr(fragments_kernels, declared.name) is fragments_kernels.kernel(declared.name) is first
        assert fragments_kernels.kernel(number) is getattr(fragments, f"_c_closure_{number}")


def test_calls_by_name_say_all_that_is_wrong_at_once():
    call, slots = fragments_kernels.call, f64([1, 2, 3])
    call("zero_slots", n=1, rf64=slots, top=1)
    assert slots.tolist() == [1, 0, 3]
    with pytest.raises(TypeError) as fault:
        call(373, topp=0, m=1, n=2)
    assert str(fault.value) == (
        "zero_slots (333, 373, 378): missing: top (i), rf64 (f64); unknown: topp (did you mean top?), m")
    with pytest.raises(TypeError, match="given twice: from$"):
        call("copy_record_extents", n=0, ri32=None, to=0, from_=0, wi32=None, **{"from": 0})
    with pytest.raises(TypeError, match="array|argument|integer"):
        call("zero_slots", n=[1], rf64=slots, top=1)
    for unknown, hint in [("zero_slot", "did you mean zero_slots"), (652, "652"), ("_c_closure_1", "no kernel")]:
        with pytest.raises(LookupError, match=hint):
            call(unknown)
