"""The MPS reader: what it makes of every kind of entry, and what it says of broken files."""

import gzip
import sys

import numpy as np
import pytest

from support import ROOT

sys.path.insert(0, str(ROOT / "examples"))
from mps import MpsError, read_mps  # noqa: E402

INF = np.inf
DATA = ROOT.parent / "shared" / "data"

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
    "no last line end": GOOD.rstrip("\n"),
    "text after ENDATA": GOOD + "anything\n",
    "lower-case keywords": "\n".join(line if line[:1] == " " else line.lower() for line in GOOD.split("\n")).replace("sample", "SAMPLE"),
    "comments and blank lines": edited("COLUMNS\n", "* text\n\nCOLUMNS\n   \n"),
    "D exponent": edited("-10.0", "-1.0D1"),
    "no set names": FREE.replace(" RHS ", " ").replace(" RNG ", " ").replace(" BND ", " "),
    "blank set names": GOOD.replace("    RHS  ", "         ").replace("    RNG  ", "         ").replace(" BND  ", "      "),
    "further sets": edited("RANGES\n", "    RHS2      LIM1  99.0\nRANGES\n"),
    "RANGES before RHS": edited("RHS\n", RANGES + "RHS\n", GOOD.replace(RANGES, "")),
    "OBJSENSE MIN": edited("ROWS\n", "OBJSENSE MIN\nROWS\n"),
    "OBJNAME": edited(" N  OTHER\n", "", edited("ROWS\n", "OBJNAME\n    COST\nROWS\n N  OTHER\n")),
    "compressed": gzip.compress(GOOD.encode()),
}


@pytest.mark.parametrize("text", SAME.values(), ids=SAME)
def test_other_spellings_of_the_same_model(tmp_path, text):
    lp, expected = read(tmp_path, text), read(tmp_path, GOOD)
    if lp.row_names != expected.row_names:  # OBJNAME: the objective need not be the first row
        order = np.array([lp.row_names.index(name) for name in expected.row_names])
        assert lp.lo[order].tolist() == expected.lo.tolist()
        assert lp.c.tolist() == expected.c.tolist()
    else:
        assert_same(lp, expected)


@pytest.mark.parametrize("section", ["OBJSENSE\n    MAX\n", "OBJSENSE MAXIMIZE\n", "objsense\n  max\n"])
def test_maximisation(tmp_path, section):
    assert read(tmp_path, edited("ROWS\n", section + "ROWS\n")).sense == "max"


def test_names_with_blanks_and_a_missing_name(tmp_path):
    lp = read(tmp_path, GOOD.replace("LIM1 ", "L M1 ").replace("LIM1", "L M1").replace("NAME          SAMPLE\n", ""))
    assert (lp.name, lp.row_names[0]) == ("", "L M1")
    assert_same(lp.__class__(**{**vars(lp), "name": "SAMPLE", "row_names": ["LIM1", *lp.row_names[1:]]}), read(tmp_path, GOOD))


@pytest.mark.parametrize("row, rhs, width, lo, hi", [
    ("LIM1", 4, -3, 1, 4), ("LIM2", 1, -3, 1, 4), ("MYEQN", 7, 3, 7, 10), ("MYEQN", 7, -3, 4, 7), ("MYEQN", 7, 0, 7, 7),
    ("LIM1", 1e30, 3, -INF, INF), ("LIM1", 4, 1e30, -INF, 4)])
def test_ranges(tmp_path, row, rhs, width, lo, hi):
    text = edited("RHS\n", f"RHS\n RHS {row} {rhs}\nRANGES\n RNG {row} {width}\n", FREE.split("RHS\n")[0] + "RHS\nENDATA\n")
    lp = read(tmp_path, text)
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
    """The same fault at the same line, whether the file can only be read in fixed columns (a name has a blank) or not."""
    text = edited(old, new)
    if blanks:
        text = edited(" N  OTHER\n", " N  OT ER\n", text).replace(" OTHER", " OT ER") if " N  OTHER\n" in text else text
    with pytest.raises(MpsError) as caught:
        read(tmp_path, text)
    message = str(caught.value)
    assert caught.value.line == line and word in message and "\n" not in message


def test_unreadable_files(tmp_path):
    contents = {"empty": b"", "blank": b" \n\n", "cut": gzip.compress(GOOD.encode())[:-20], "random": bytes(range(256)) * 9}
    for name, content in contents.items():
        (tmp_path / name).write_bytes(content)
    for name in [*contents, "", "missing"]:
        with pytest.raises(MpsError) as caught:
            read_mps(str(tmp_path / name))
        assert str(caught.value).startswith(str(tmp_path)) and "\n" not in str(caught.value)


@pytest.mark.skipif(not DATA.exists(), reason="the classic problems are not at hand")
@pytest.mark.parametrize("name, rows, cols, nonzeros", [("afiro", 28, 32, 88), ("stair", 357, 467, 3857), ("25fv47", 822, 1571, 11127)])
def test_classic_problems_have_the_published_size(name, rows, cols, nonzeros):
    lp = read_mps(str(DATA / f"{name}.mps"))
    assert (len(lp.lo) + 1, len(lp.c), len(lp.val) + np.count_nonzero(lp.c)) == (rows, cols, nonzeros)


@pytest.mark.parametrize("free", [False, True])
def test_files_written_by_glpk(tmp_path, free):
    """A random model with every kind of row and bound comes back from a file that another program has written."""
    glpk = pytest.importorskip("swiglpk")
    rng = np.random.default_rng(7)
    m, n = 30, 40
    dense = np.where(rng.random((m, n)) < 0.3, rng.integers(-9, 9, (m, n)) / 4, 0.0)
    c, integer = rng.integers(1, 9, n) / 8, rng.random(n) < 0.3
    kinds = {glpk.GLP_FR: (False, False), glpk.GLP_LO: (True, False), glpk.GLP_UP: (False, True), glpk.GLP_DB: (True, True)}

    def bounds(count, some_kinds):
        lo = rng.integers(-9, 0, count) / 2
        return rng.choice(some_kinds, count), lo, lo + rng.integers(1, 9, count)

    glpk.glp_term_out(glpk.GLP_OFF)
    p = glpk.glp_create_prob()
    glpk.glp_add_rows(p, m), glpk.glp_add_cols(p, n)
    row_kinds, lo, hi = bounds(m, list(kinds)[1:])  # no free rows: GLPK would write the first one as the objective
    col_kinds, lower, upper = bounds(n, list(kinds))
    for i in range(m):
        nonzero = np.flatnonzero(dense[i])
        indices, values = glpk.intArray(n + 1), glpk.doubleArray(n + 1)
        for k, j in enumerate(nonzero, 1):
            indices[k], values[k] = int(j) + 1, float(dense[i, j])
        glpk.glp_set_mat_row(p, i + 1, len(nonzero), indices, values)
        glpk.glp_set_row_bnds(p, i + 1, int(row_kinds[i]), float(lo[i]), float(hi[i]))
    for j in range(n):
        glpk.glp_set_obj_coef(p, j + 1, float(c[j]))
        glpk.glp_set_col_kind(p, j + 1, glpk.GLP_IV if integer[j] else glpk.GLP_CV)
        glpk.glp_set_col_bnds(p, j + 1, int(col_kinds[j]), float(lower[j]), float(upper[j]))
    path = str(tmp_path / "glpk.mps")
    assert glpk.glp_write_mps(p, glpk.GLP_MPS_FILE if free else glpk.GLP_MPS_DECK, None, path) == 0
    glpk.glp_delete_prob(p)

    lp = read_mps(path)
    matrix = np.zeros((m, n))
    matrix[lp.subi, lp.subj] = lp.val
    np.testing.assert_array_equal(matrix, dense)
    np.testing.assert_array_equal(lp.c, c)
    np.testing.assert_array_equal(lp.integer, integer)
    for read_lo, read_hi, chosen, low, high in [(lp.lo, lp.hi, row_kinds, lo, hi), (lp.lower, lp.upper, col_kinds, lower, upper)]:
        np.testing.assert_array_equal(read_lo, [low[k] if kinds[kind][0] else -INF for k, kind in enumerate(chosen)])
        np.testing.assert_array_equal(read_hi, [high[k] if kinds[kind][1] else INF for k, kind in enumerate(chosen)])
