"""The MPS reader: what it makes of every kind of entry, and what it says of broken files."""

import gzip
import sys
from dataclasses import replace

import numpy as np
import pytest

from support import ROOT

sys.path.insert(0, str(ROOT / "examples"))
from mps import MpsError, read_mps  # noqa: E402

INF = np.inf

GOOD = """NAME          SAMPLE
ROWS
 N  COST
 L  LIM1
 G  LIM2
 E  MYEQN
 N  OTHER
COLUMNS
    X         COST               1.5   LIM1               1.0
    X         LIM2               1.0   OTHER              9.0
    MARKER                 'MARKER'                 'INTORG'
    Y         COST               2.0   LIM1               1.0
    Y         MYEQN             -1.0
    MARKER                 'MARKER'                 'INTEND'
    Z         COST              -1.0   MYEQN              1.0
    Z         LIM1               0.0
RHS
    RHS       LIM1               4.0   LIM2              -1.0
    RHS       MYEQN              7.0   COST             -10.0
RANGES
    RNG       LIM1               2.5
BOUNDS
 UP BND       X                  4.0
 LO BND       Y                 -1.0
 UP BND       Y                  1.0
ENDATA
"""


def read(tmp_path, text):
    path = tmp_path / "model.mps"
    path.write_bytes(text if isinstance(text, bytes) else text.encode())
    return read_mps(str(path))


def edited(old, new, text=GOOD):
    assert text.count(old) >= 1, old
    return text.replace(old, new, 1)


def assert_same(a, b):
    for field in vars(a):
        np.testing.assert_array_equal(getattr(a, field), getattr(b, field), err_msg=field)


def test_every_section(tmp_path):
    lp = read(tmp_path, GOOD)
    assert (lp.name, lp.sense, lp.constant) == ("SAMPLE", "min", 10.0)
    assert (lp.row_names, lp.row_types) == (["LIM1", "LIM2", "MYEQN", "OTHER"], ["L", "G", "E", "N"])
    assert (lp.col_names, lp.integer.tolist()) == (["X", "Y", "Z"], [False, True, False])
    assert (lp.lo.tolist(), lp.hi.tolist()) == ([1.5, -1.0, 7.0, -INF], [4.0, INF, 7.0, INF])
    assert (lp.lower.tolist(), lp.upper.tolist()) == ([0.0, -1.0, 0.0], [4.0, 1.0, INF])
    assert lp.c.tolist() == [1.5, 2.0, -1.0]
    entries = list(zip(lp.subi.tolist(), lp.subj.tolist(), lp.val.tolist()))
    assert entries == [(0, 0, 1.0), (0, 1, 1.0), (1, 0, 1.0), (2, 1, -1.0), (2, 2, 1.0), (3, 0, 9.0)]


FREE = "\n".join(line if line[:1] != " " else " " + " ".join(line.split()) for line in GOOD.split("\n"))
RANGES = GOOD[GOOD.index("RANGES"):GOOD.index("BOUNDS")]

SAME = {
    "free format": FREE,
    "tabs": FREE.replace(" ", "\t"),
    "CRLF": GOOD.replace("\n", "\r\n"),
    "text after ENDATA": GOOD + "anything\n",
    "lower-case keywords": GOOD.replace("ROWS", "rows").replace(" UP ", " up ").replace(" N ", " n "),
    "comments and blank lines": edited("COLUMNS\n", "* text\n\nCOLUMNS\n   \n"),
    "D exponent": edited("-10.0", "-1.0D1"),
    "no set names": FREE.replace(" RHS ", " ").replace(" RNG ", " ").replace(" BND ", " "),
    "blank set names": GOOD.replace(" RHS  ", "      ").replace(" RNG  ", "      ").replace(" BND  ", "      "),
    "further sets": edited("RANGES\n", "    RHS2      LIM1  99.0\nRANGES\n"),
    "RANGES before RHS": edited("RHS\n", RANGES + "RHS\n", GOOD.replace(RANGES, "")),
    "OBJSENSE MIN": edited("ROWS\n", "OBJSENSE MIN\nROWS\n"),
    "compressed": gzip.compress(GOOD.encode()),
}


@pytest.mark.parametrize("text", SAME.values(), ids=SAME)
def test_other_spellings_of_the_same_model(tmp_path, text):
    assert_same(read(tmp_path, text), read(tmp_path, GOOD))


def test_choice_of_the_objective(tmp_path):
    for section in ("OBJSENSE\n    MAX\n", "OBJSENSE MAXIMIZE\n", "objsense\n  max\n"):
        assert read(tmp_path, edited("ROWS\n", section + "ROWS\n")).sense == "max"
    lp = read(tmp_path, edited("ROWS\n", "OBJNAME\n    OTHER\nROWS\n"))
    assert (lp.c.tolist(), lp.constant, lp.row_names) == ([9, 0, 0], 0.0, ["COST", "LIM1", "LIM2", "MYEQN"])


def test_names_with_blanks_and_a_missing_name(tmp_path):
    lp = read(tmp_path, GOOD.replace("LIM1 ", "L M1 ").replace("LIM1", "L M1").replace("NAME          SAMPLE\n", ""))
    assert (lp.name, lp.row_names[0]) == ("", "L M1")
    assert_same(replace(lp, name="SAMPLE", row_names=["LIM1", *lp.row_names[1:]]), read(tmp_path, GOOD))


@pytest.mark.parametrize("row, rhs, width, lo, hi", [
    ("LIM1", 4, -3, 1, 4), ("LIM2", 1, -3, 1, 4), ("MYEQN", 7, 3, 7, 10), ("MYEQN", 7, -3, 4, 7), ("MYEQN", 7, 0, 7, 7),
    ("LIM1", 1e30, 3, -INF, INF), ("LIM1", 4, 1e30, -INF, 4)])
def test_ranges(tmp_path, row, rhs, width, lo, hi):
    sides = f"RHS\n RHS {row} {rhs}\nRANGES\n RNG {row} {width}\nENDATA\n"
    lp = read(tmp_path, FREE.split("RHS\n")[0] + sides)
    i = lp.row_names.index(row)
    assert (lp.lo[i], lp.hi[i]) == (lo, hi)


@pytest.mark.parametrize("column, bounds, lower, upper, integer", [
    ("X", [], 0, INF, False), ("Y", [], 0, 1, True), ("X", ["UP 3"], 0, 3, False), ("X", ["UP -3"], -INF, -3, False),
    ("X", ["LO 0", "UP -3"], 0, -3, False), ("X", ["LO -2"], -2, INF, False), ("Y", ["LO 2"], 2, INF, True),
    ("X", ["FX 3"], 3, 3, False), ("X", ["FR"], -INF, INF, False), ("X", ["FR 1.0"], -INF, INF, False),
    ("X", ["MI"], -INF, INF, False), ("X", ["MI", "UP 3"], -INF, 3, False), ("X", ["UP 3", "PL"], 0, INF, False),
    ("X", ["BV"], 0, 1, True), ("X", ["LI 2", "UI 5"], 2, 5, True), ("X", ["UP 1e30"], 0, INF, False),
    ("X", ["LO -1e31"], -INF, INF, False), ("X", ["LO -inf"], -INF, INF, False)])
@pytest.mark.parametrize("set_name", ["BND", ""])
def test_bounds(tmp_path, column, bounds, lower, upper, integer, set_name):
    lines = [f" {kind[:2]} {set_name} {column} {kind[2:]}\n" for kind in bounds]
    lp = read(tmp_path, FREE.split("BOUNDS\n")[0] + "BOUNDS\n" + "".join(lines) + "ENDATA\n")
    j = lp.col_names.index(column)
    assert (lp.lower[j], lp.upper[j], lp.integer[j]) == (lower, upper, integer)


ROWS = GOOD[GOOD.index(" N  COST"):GOOD.index("COLUMNS")]

# What is wrong, the edit that makes it so, the line at fault, and what the message must name.
BROKEN = {
    "unknown row": ("X         LIM2 ", "X         LIMX ", 10, "'LIMX'"),
    "unknown row in RHS": ("RHS       MYEQN", "RHS       MYEQX", 19, "'MYEQX'"),
    "unknown row in RANGES": ("RNG       LIM1", "RNG       LIM9", 21, "'LIM9'"),
    "unknown column in BOUNDS": ("LO BND       Y", "LO BND       W", 24, "'W'"),
    "unknown section": ("RANGES\n", "QUADOBJ\n", 20, "'QUADOBJ'"),
    "unknown row type": (" G  LIM2", " Q  LIM2", 5, "'Q'"),
    "unknown bound type": (" LO BND", " SC BND", 24, "'SC'"),
    "unknown marker": ("'INTORG'", "'INTXXX'", 11, "INTXXX"),
    "unknown sense": ("ROWS\n", "OBJSENSE\n    BEST\nROWS\n", 3, "'BEST'"),
    "unknown objective": ("ROWS\n", "OBJNAME\n    LIM1\nROWS\n", 28, "'LIM1'"),
    "no objective": (ROWS, ROWS.replace(" N ", " L "), 26, "objective"),
    "bad number": ("-10.0", "-1x.0", 19, "'-1x.0'"),
    "not a number": ("-10.0", "nan", 19, "'nan'"),
    "infinite coefficient": ("1.5 ", "inf ", 9, "'inf'"),
    "infinite bound": ("-1.0\n UP", "1e30\n UP", 24, "'1e30'"),
    "second row": (" G  LIM2", " G  LIM1", 5, "'LIM1'"),
    "second entry": ("X         LIM2 ", "X         COST ", 10, "'COST'"),
    "split column": ("    Z         LIM1 ", "    X         MYEQN", 16, "'X'"),
    "second section": ("RANGES\n", "RHS\n", 20, "RHS"),
    "sections out of order": ("COLUMNS\n", "RHS\nCOLUMNS\n", 8, "COLUMNS"),
    "half a pair": ("MYEQN              1.0\n", "MYEQN\n", 15, "incomplete"),
    "bound without number": ("Y                 -1.0\n UP", "Y\n UP", 24, "number"),
    "data before sections": ("NAME          SAMPLE\n", "    X  1.0\n", 1, "section"),
    "control character": ("SAMPLE", "SAMP\x00LE", 1, "\\x00"),
    "missing ENDATA": ("ENDATA\n", "", 25, "ENDATA"),
    "cut off": (GOOD[400:], "", 14, "marker"),
}


@pytest.mark.parametrize("old, new, line, word", BROKEN.values(), ids=BROKEN)
@pytest.mark.parametrize("blanks", [False, True], ids=["", "fixed"])
def test_broken_files_name_the_line(tmp_path, old, new, line, word, blanks):
    """The same fault at the same line, also where a blank in a name leaves fixed columns as the only way to read."""
    text = edited(old, new).replace("  OTHER", "  OT ER") if blanks else edited(old, new)
    with pytest.raises(MpsError) as caught:
        read(tmp_path, text)
    message = str(caught.value)
    assert caught.value.line == line and word in message and "\n" not in message


def test_unreadable_files(tmp_path):
    packed = gzip.compress(GOOD.encode())
    contents = {"empty": b"", "blank": b" \n\n", "cut": packed[:-20], "random": bytes(range(256)) * 9}
    for name, content in contents.items():
        (tmp_path / name).write_bytes(content)
    for name in [*contents, "", "missing"]:
        with pytest.raises(MpsError) as caught:
            read_mps(str(tmp_path / name))
        assert str(caught.value).startswith(str(tmp_path)) and "\n" not in str(caught.value)
