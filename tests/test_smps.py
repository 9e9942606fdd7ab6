"""The SMPS reader: what it makes of every kind of random data, and what it says of broken files."""

import itertools

import numpy as np
import pytest

from support import ROOT  # first: it finds the scripts of examples/

from mps import MpsError
from smps import read_smps
from two_stage import ScenarioSet, sides

CORE = """NAME          SAMPLE
ROWS
 N  COST
 L  CAP
 G  DEM
 E  BAL
 L  LIM
COLUMNS
    X         COST               1.0   CAP                2.0
    X         DEM                3.0
    Z         COST               4.0   CAP                1.0
    Y1        COST               5.0   DEM                6.0
    Y1        BAL               -7.0
    Y2        COST               8.0   BAL                9.0
    Y2        LIM               10.0
RHS
    RIGHT     CAP               11.0   DEM              -12.0
    RIGHT     LIM               13.0
RANGES
    RNG       LIM                3.0   BAL               -2.0
BOUNDS
 UP BND       Y1                20.0
ENDATA
"""
TIME = """TIME          SAMPLE
PERIODS
    X         CAP                      NOW
    Y1        DEM                      LATER
ENDATA
"""
STOCH = """* text
STOCH         SAMPLE
INDEP         DISCRETE
    RIGHT     LIM              -14.0   LATER             0.25
    RIGHT     LIM               15.0   LATER             0.75
    Z         BAL               1.D1   LATER              0.5
    Z         BAL               20.0   LATER              0.5
BLOCKS        DISCRETE
 BL B1        LATER              0.5
    Y1        COST              -5.5   DEM               60.0
    Y2        COST               8.5
 BL B1        LATER             0.25
    Y2        COST               9.5
 BL B1        LATER             0.25
    Y1        DEM               61.0
    RHS       DEM               -1.0
    Y2        DEM                2.0
ENDATA
"""
FREE = "\n".join(line if line[:1] != " " else " " + " ".join(line.split()) for line in STOCH.split("\n"))


def read(tmp_path, core=CORE, time=TIME, stoch=STOCH):
    paths = [tmp_path / name for name in ("m.cor", "m.tim", "m.sto")]
    for path, text in zip(paths, (core, time, stoch)):
        path.write_text(text)
    return read_smps(*map(str, paths))


def dense(program):
    """All scenarios: probability, T, W, cost, lower and upper bounds of the rows."""
    scenarios, T, W, n = ScenarioSet(program), program.technology, program.second.matrix, len(program.second.cost)
    for s in range(scenarios.count):
        outcomes, (weight,) = scenarios.draw(s, s + 1)
        data = np.concatenate([T.val, W.val, program.second.cost, program.second.rhs])
        for block, outcome in zip(program.random, outcomes[0]):
            data[block.places] = block.values[outcome]
        tval, wval, cost, rhs = np.split(data, np.cumsum([len(T.val), len(W.val), n]))
        arrays = [np.zeros((m.rows, m.cols)) for m in (T, W)]
        for array, m, val in zip(arrays, (T, W), (tval, wval)):
            array[m.subi, m.subj] = val
        yield (weight, *(array.tolist() for array in (*arrays, cost, *sides(program.second, rhs))))


def expected():
    """The same of the files above."""
    outcomes = [(0.5, -5.5, 60.0, 8.5, -12.0, 0.0), (0.25, -5.5, 60.0, 9.5, -12.0, 0.0),
                (0.25, -5.5, 61.0, 8.5, -1.0, 2.0)]
    for (p1, lim), (p2, z), (p3, c1, y1, c2, dem, y2) in itertools.product(
            [(0.25, -14.0), (0.75, 15.0)], [(0.5, 10.0), (0.5, 20.0)], outcomes):
        yield (p1 * p2 * p3, [[3.0, 0.0], [0.0, z], [0.0, 0.0]], [[y1, y2], [-7.0, 9.0], [0.0, 10.0]], [c1, c2],
               [dem, -2.0, lim - 3.0], [np.inf, 0.0, lim])


def test_every_kind_of_random_data(tmp_path):
    program = read(tmp_path)
    assert list(dense(program)) == list(expected())
    assert (program.name, program.sense, program.constant) == ("SAMPLE", "min", 0.0)
    assert (program.first.cost.tolist(), program.first.rhs.tolist(), program.first.matrix.val.tolist()) == (
        [1.0, 4.0], [11.0], [2.0, 1.0])
    assert program.second.upper.tolist() == [20.0, np.inf]


BLOCKS = STOCH[STOCH.index("BLOCKS"):STOCH.index("ENDATA")]


@pytest.mark.parametrize("core, time, stoch", [
    (CORE, " ".join(TIME.split(" ")), FREE),
    (CORE, TIME.replace("    X         CAP ", "    X         COST"), STOCH.replace("LATER ", "      ")),
    (CORE, TIME.replace("PERIODS", "periods LP"), FREE.replace("DISCRETE", "discrete REPLACE").replace(" BL", " bl")),
    (CORE.replace("Y1", "Y 1").replace("B AL", "BAL"), TIME.replace("Y1", "Y 1"), STOCH.replace("Y1 ", "Y 1")),
    (CORE, TIME, STOCH.replace("    Y1        COST              -5.5   DEM               60.0",
                               "    Y1        COST              -5.5\n    Y1        DEM               60.0")),
    (CORE, TIME, FREE.replace(" RHS DEM", " DEM").replace("\n", "\r\n"))],
    ids=["free format", "no periods", "keywords", "names with blanks", "single pairs", "no sets"])
def test_other_spellings_of_the_same_program(tmp_path, core, time, stoch):
    if "BL B1               " in stoch:  # only entries of INDEP may do without their period
        stoch = stoch.replace("BL B1              ", "BL B1        LATER")
    core = core.replace("Y 1 ", "Y 1") if "Y 1" in core else core
    assert list(dense(read(tmp_path, core, time.replace("Y 1 ", "Y 1"), stoch))) == list(expected())


# The file at fault, an edit, the line, and what the message must name. Files end in .cor, .tim, .sto.
BROKEN = [
    (".cor", "    Y2        LIM ", "    Y2        CAP ", 15, "row 'CAP' of the first period has column 'Y2'"),
    (".tim", "TIME          SAMPLE\n", "", 1, "PERIODS is out of place"),
    (".tim", "PERIODS\n", "", 2, "before the PERIODS section"),
    (".tim", "PERIODS\n", "PERIODS EXPLICIT\n", 2, "'EXPLICIT'"),
    (".tim", "PERIODS\n", "PERIODS\nROWS\n", 3, "'ROWS'"),
    (".tim", "Y1        DEM ", "Y9        DEM ", 4, "unknown column 'Y9'"),
    (".tim", "Y1        DEM ", "Y1        DIM ", 4, "unknown row 'DIM'"),
    (".tim", "LATER", "NOW", 4, "a second period 'NOW'"),
    (".tim", "LATER", "     ", 4, "incomplete"),
    (".tim", "ENDATA", "    Y2        LIM                      LAST\nENDATA", 5, "third period 'LAST'"),
    (".tim", "    Y1        DEM                      LATER\n", "", 4, "1 periods"),
    (".tim", "X         CAP", "Z         CAP", 3, "'NOW' does not begin"),
    (".tim", "Y1        DEM", "X         DEM", 4, "'NOW' has no columns"),
    (".tim", "ENDATA\n", "", 4, "without ENDATA"),
    (".sto", "STOCH         SAMPLE\n", "", 2, "INDEP is out of place"),
    (".sto", "ENDATA\n", "", 17, "without ENDATA"),
    (".sto", "INDEP         DISCRETE", "INDEP         NORMAL", 3, "'NORMAL'"),
    (".sto", "BLOCKS        DISCRETE", "BLOCKS        DISCRETE ADD", 8, "'DISCRETE ADD'"),
    (".sto", "BLOCKS        DISCRETE", "SCENARIOS     DISCRETE", 8, "section 'SCENARIOS'"),
    (".sto", "INDEP         DISCRETE\n", "", 3, "data before"),
    (".sto", "RIGHT     LIM              -14.0", "WRONG     LIM              -14.0", 4, "unknown column 'WRONG'"),
    (".sto", "Y2        DEM", "Y2        DIM", 17, "unknown row 'DIM'"),
    (".sto", "              1.D1", "              1.X1", 6, "bad number '1.X1'"),
    (".sto", "              1.D1", "              1E40", 6, "'1E40' is not finite"),
    (".sto", "15.0   LATER             0.75", "15.0   LATER              1.5", 5, "'1.5'"),
    (".sto", "15.0   LATER             0.75", "15.0   LATER            -0.75", 5, "'-0.75'"),
    (".sto", "15.0   LATER             0.75", "15.0   LATER             0.76", 5, "'LIM' add up to 1.01, more"),
    (".sto", "20.0   LATER              0.5", "20.0   LATER             0.49", 7, "'Z', 'BAL' add up to 0.99, less"),
    (".sto", "15.0   LATER ", "15.0   LASTER", 5, "unknown period 'LASTER'"),
    (".sto", "BL B1        LATER ", "BL B1        NOW   ", 9, "first period 'NOW'"),
    (".sto", " BL B1        LATER              0.5", " BL B1        LATER", 9, "incomplete"),
    (".sto", " BL B1        LATER              0.5\n", "", 9, "before the first BL line"),
    (".sto", "Y2        COST               8.5", "X         COST               8.5", 11, "'X' belongs to the first"),
    (".sto", "Y2        COST               8.5", "X         CAP                8.5", 11, "'CAP' belongs to the"),
    (".sto", "Y2        COST               8.5", "RHS       COST               8.5", 11, "constant of the objective"),
    (".sto", "Y2        COST               8.5", "Y1        COST               8.5", 11, "second value for"),
    (".sto", "Y2        COST               8.5", "Y2        COST", 11, "incomplete"),
    (".sto", "Y2        COST               8.5", "RIGHT     LIM                8.5", 11, "'LIM' already"),
    (".sto", "    Y2        COST               8.5", " UP BND       Y1                 8.5", 11, "not read: 'UP'"),
    (".sto", BLOCKS, 2 * BLOCKS, 19, "block 'B1' add up to 1.5"),
    (".sto", STOCH[STOCH.index("INDEP"):-7], "", 3, "no random data"),
]  # fmt: skip


@pytest.mark.parametrize("free", (False, True), ids=("fixed", "free"))
@pytest.mark.parametrize("suffix, old, new, line, what", BROKEN)
def test_broken_files(tmp_path, suffix, old, new, line, what, free):
    texts = {".cor": CORE, ".tim": TIME, ".sto": STOCH}
    assert old in texts[suffix]
    texts[suffix] = texts[suffix].replace(old, new, 1)
    if free and suffix == ".sto":
        texts[suffix] = "\n".join(" " * (t[:1] == " ") + " ".join(t.split()) for t in texts[suffix].split("\n"))
    with pytest.raises(MpsError) as fault:
        read(tmp_path, *texts.values())
    assert isinstance(fault.value, ValueError)
    assert fault.value.path.endswith(suffix) and fault.value.line == line and what in str(fault.value)


def test_the_shipped_program_and_a_period_without_rows(tmp_path):
    program = read_smps(*(str(ROOT / "examples" / f"farmer.{suffix}") for suffix in ("cor", "tim", "sto")))
    assert [len(block.probabilities) for block in program.random] == [3] and program.random[0].values.shape == (3, 3)
    core = CORE.replace(" L  CAP\n", "")
    core = core.replace("   CAP                2.0", "").replace("   CAP                1.0", "")
    core = core.replace("RIGHT     CAP               11.0   DEM  ", "RIGHT     DEM  ")
    program = read(tmp_path, core, TIME.replace("CAP ", "COST"))
    assert (program.first.matrix.rows, program.second.matrix.rows) == (0, 3)
