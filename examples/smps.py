"""Reads two-stage stochastic linear programs from SMPS files: a core (.cor), its periods (.tim), random data (.sto).

The core is an MPS file, whose rows and columns stand in the order of the periods; the time file names the first column
and row of each; the stochastic file replaces data of the second period. Read are two periods, and in the stochastic
file sections INDEP DISCRETE (each entry is random by itself) and BLOCKS DISCRETE (the entries of a block are random
together; an entry that an outcome does not name is as in the block's first outcome), for right-hand sides, costs and
matrix entries. Everything else is refused by name and line.

Files are in fixed columns or in free format, plain or gzip-compressed, as those of `mps`.
"""

from __future__ import annotations

import math
from typing import Callable, Dict, List, Tuple

import numpy as np

from host.operators import SparseMatrix
from mps import LinearProgram, MpsError, in_either_format, number, read_mps, row_bounds, shown, text_lines
from two_stage import RandomBlock, Stage, TwoStage

TOLERANCE = 1e-6  # how far the probabilities of a block may be from adding up to one

# A datum of the second stage: what it is and its row and column, counted in the whole core.
Place = Tuple[str, int, int]  # ("entry", i, j), ("cost", 0, j), ("rhs", i, 0)
Outcome = Tuple[float, Dict[Place, float]]  # its probability and values
FieldsOf = Callable[[str, str], List[str]]


def read_smps(core: str, time: str, stochastic: str) -> TwoStage:
    """The program in three files; MpsError, a ValueError with `path` and `line`, for anything that cannot be read."""
    lp = read_mps(core)
    periods = in_either_format(time, lambda lines, fields_of: _TimeReader(time, lines, fields_of, lp).read())
    rows, columns = periods[1][1:]
    crossing = np.flatnonzero((lp.subi < rows) & (lp.subj >= columns))
    if len(crossing):
        row, column = lp.row_names[lp.subi[crossing[0]]], lp.col_names[lp.subj[crossing[0]]]
        line = next((k for k, text in enumerate(text_lines(core), 1) if _names(text, column, row)), None)
        raise MpsError(core, line, f"row {shown(row)} of the first period has column {shown(column)} of the second")
    blocks = in_either_format(
        stochastic, lambda lines, fields_of: _StochasticReader(stochastic, lines, fields_of, lp, periods).read())
    return _program(lp, rows, columns, blocks)


def _names(line: str, column: str, row: str) -> bool:
    """Whether a line of the core holds an entry of a column in a row."""
    words = line.split()
    return words[:1] == [column] and row in words[1:] or line[4:12].strip() == column and row in line[14:]


class _SectionReader:
    """One reading of a file of sections, that ends with ENDATA; faults are reported with their line."""

    def __init__(self, path: str, lines: List[str], fields_of: FieldsOf, lp: LinearProgram) -> None:
        self.path, self.lines, self.fields_of, self.lp = path, lines, fields_of, lp
        self.row_of = {name: i for i, name in enumerate(lp.row_names)}
        self.column_of = {name: j for j, name in enumerate(lp.col_names)}
        self.section = ""
        self.seen: List[str] = []
        self.line_number = 0

    def read(self):
        for self.line_number, line in enumerate(self.lines, 1):
            if not line.strip() or line[0] == "*":
                continue
            try:
                if line[0].isspace():
                    self.data_line(line)
                    continue
                words = line.split()
                self.section = words[0].upper()
                if self.section == "ENDATA":
                    return self.result()
                self.start_section(words)
                self.seen.append(self.section)
            except MpsError:
                raise
            except ValueError as fault:
                raise MpsError(self.path, self.line_number, str(fault)) from None
        raise MpsError(self.path, self.line_number, "the file ends without ENDATA")

    def row(self, name: str) -> int:
        if name not in self.row_of:
            raise ValueError(f"unknown row {shown(name)}")
        return self.row_of[name]

    def column(self, name: str) -> int:
        if name not in self.column_of:
            raise ValueError(f"unknown column {shown(name)}")
        return self.column_of[name]


class _TimeReader(_SectionReader):
    """Reads periods: the name of each, and the numbers of its first row and column."""

    def __init__(self, *arguments) -> None:
        super().__init__(*arguments)
        self.periods: List[Tuple[str, int, int]] = []

    def start_section(self, words: List[str]) -> None:
        if self.section not in ("TIME", "PERIODS"):
            raise ValueError(f"unknown section {shown(words[0])}")
        if self.section in self.seen or (self.section == "PERIODS") != ("TIME" in self.seen):
            raise ValueError(f"section {self.section} is out of place: one TIME section, then one PERIODS section")
        if self.section == "PERIODS" and [word.upper() for word in words[1:]] not in ([], ["IMPLICIT"], ["LP"]):
            raise ValueError(f"PERIODS {shown(words[1])} is not read, only periods in the order of the core")

    def data_line(self, line: str) -> None:
        if self.section != "PERIODS":
            raise ValueError("data before the PERIODS section")
        fields = [field for field in self.fields_of(line, self.section) if field]
        if len(fields) != 3:
            raise ValueError("an incomplete line: a period needs its first column, its first row and a name")
        column, row, name = fields
        j = self.column(column)
        i = 0 if row == self.lp.objective and not self.periods else self.row(row)
        if len(self.periods) == 2:
            raise ValueError(f"a third period {shown(name)}: only two are read")
        if not self.periods and (i or j):
            raise ValueError(f"period {shown(name)} does not begin with the first row and column of the core")
        if self.periods and name == self.periods[0][0]:
            raise ValueError(f"a second period {shown(name)}")
        if self.periods and not j:
            raise ValueError(f"period {shown(self.periods[0][0])} has no columns")
        self.periods.append((name, i, j))

    def result(self) -> List[Tuple[str, int, int]]:
        if len(self.periods) != 2:
            raise ValueError(f"{len(self.periods)} periods: two are read")
        return self.periods


class _StochasticReader(_SectionReader):
    """Reads the outcomes of all blocks; an entry of an INDEP section is a block by itself."""

    def __init__(self, path: str, lines: List[str], fields_of: FieldsOf, lp: LinearProgram,
                 periods: List[Tuple[str, int, int]]) -> None:
        super().__init__(path, lines, fields_of, lp)
        (self.first_period, _, _), (self.period, self.first_row, self.first_column) = periods
        self.blocks: Dict[str, List[Outcome]] = {}
        self.last_line: Dict[str, int] = {}  # of each block
        self.block_of: Dict[Place, str] = {}
        self.block = ""  # whose outcome is read

    def start_section(self, words: List[str]) -> None:
        if self.section not in ("STOCH", "INDEP", "BLOCKS"):
            raise ValueError(f"section {shown(words[0])} is not read, only INDEP DISCRETE and BLOCKS DISCRETE")
        if (self.section == "STOCH") != (not self.seen):
            raise ValueError(f"section {self.section} is out of place: a file begins with one STOCH section")
        kind = [word.upper() for word in words[1:]]
        if self.section != "STOCH" and kind not in (["DISCRETE"], ["DISCRETE", "REPLACE"]):
            kind = shown(" ".join(words[1:]))
            raise ValueError(f"{self.section} {kind} is not read, only DISCRETE data that replace")
        self.block = ""

    def data_line(self, line: str) -> None:
        fields = self.fields_of(line, "BOUNDS" if line.split()[0].upper() == "BL" else self.section)
        if self.section not in ("INDEP", "BLOCKS"):
            raise ValueError("data before the first section of random data")
        kind = fields[0].upper()
        if kind == "BL" and self.section == "BLOCKS" and fields[0] not in self.column_of:
            if len(fields) != 4:
                raise ValueError("an incomplete line: an outcome needs its block, a period and a probability")
            self.check_period(fields[2])
            self.block = f"block {shown(fields[1])}"
            self.start_outcome(fields[3])
        elif kind or (fields[1].upper() in ("UP", "LO", "FX", "FR", "MI", "PL", "BV", "LI", "UI")
                      and fields[1] not in self.column_of):
            raise ValueError(f"random bounds are not read: {shown(kind or fields[1])}")
        elif self.section == "INDEP":
            self.independent([fields[1], *(field for field in fields[2:] if field)])
        else:
            self.values(fields[1:])

    def independent(self, fields: List[str]) -> None:
        """A line of INDEP: column, row, value, period (which may be missing), probability."""
        if len(fields) not in (4, 5):
            raise ValueError("an incomplete line: it needs a column, a row, a value, a period and a probability")
        if len(fields) == 5:
            self.check_period(fields[3])
        self.block = f"the entry {shown(fields[0])}, {shown(fields[1])}"
        self.start_outcome(fields[-1])
        self.values(fields[:3])

    def values(self, fields: List[str]) -> None:
        """A line of values for the outcome that is read: column, then pairs of row and value."""
        if len(fields) % 2 == 0 and fields[0] in self.row_of:
            fields = ["", *fields]  # right-hand sides without the name of their set
        if len(fields) < 3 or len(fields) % 2 == 0:
            raise ValueError("an incomplete line: it needs a column and pairs of row and value")
        if not self.block:
            raise ValueError("a value before the first BL line")
        for row, text in zip(fields[1::2], fields[2::2]):
            place, value = self.place(fields[0], row), number(text)
            if math.isinf(value):
                raise ValueError(f"value {shown(text)} is not finite")
            what = f"the entry {shown(fields[0])}, {shown(row)}"
            if self.block_of.setdefault(place, self.block) != self.block:
                raise ValueError(f"{what} is in {self.block_of[place]} already")
            outcome = self.blocks[self.block][-1][1]
            if place in outcome:
                raise ValueError(f"a second value for {what} in one outcome")
            outcome[place] = value
        self.last_line[self.block] = self.line_number

    def start_outcome(self, text: str) -> None:
        probability = number(text)
        if not 0.0 <= probability <= 1.0:
            raise ValueError(f"probability {shown(text)} is not between 0 and 1")
        outcomes = self.blocks.setdefault(self.block, [])
        outcomes.append((probability, {}))
        total = math.fsum(p for p, _ in outcomes)
        if total > 1.0 + TOLERANCE:
            raise ValueError(f"the probabilities of {self.block} add up to {total:.10g}, more than 1")
        self.last_line[self.block] = self.line_number

    def check_period(self, name: str) -> None:
        if name == self.first_period:
            raise ValueError(f"random data of the first period {shown(name)} are not read")
        if name != self.period:
            raise ValueError(f"unknown period {shown(name)}")

    def place(self, column: str, row: str) -> Place:
        """What a column, or the name of a set of right-hand sides, and a row stand for."""
        right_side = column not in self.column_of and column.upper() in ("", "RHS", self.lp.rhs_name.upper())
        j = 0 if right_side else self.column(column)
        if row == self.lp.objective:
            if right_side:
                raise ValueError(f"a random constant of the objective {shown(row)} is not read")
            if j < self.first_column:
                raise ValueError(f"column {shown(column)} belongs to the first period: its cost cannot be random")
            return "cost", 0, j
        i = self.row(row)
        if i < self.first_row:
            raise ValueError(f"row {shown(row)} belongs to the first period: its data cannot be random")
        return ("rhs", i, 0) if right_side else ("entry", i, j)

    def result(self) -> Dict[str, List[Outcome]]:
        if not self.blocks:
            raise ValueError("no random data: an INDEP or BLOCKS section with values is missing")
        for block, outcomes in self.blocks.items():
            total = math.fsum(p for p, _ in outcomes)
            if total < 1.0 - TOLERANCE:
                raise MpsError(self.path, self.last_line[block],
                               f"the probabilities of {block} add up to {total:.10g}, less than 1")
        return self.blocks


def _program(lp: LinearProgram, m: int, n: int, blocks: Dict[str, List[Outcome]]) -> TwoStage:
    """The program whose second period begins with row m and column n of the core."""
    entries = {(int(i), int(j)): value for i, j, value in zip(lp.subi, lp.subj, lp.val)}
    for outcomes in blocks.values():
        for _, values in outcomes:
            for what, i, j in values:
                if what == "entry":
                    entries.setdefault((i, j), 0.0)  # the core has no entry there
    keys = sorted(entries)
    first = [key for key in keys if key[0] < m]
    technology = [key for key in keys if key[0] >= m and key[1] < n]
    recourse = [key for key in keys if key[0] >= m and key[1] >= n]

    def matrix(keys: List[Tuple[int, int]], i: int, j: int, rows: int, cols: int) -> SparseMatrix:
        sub = np.array(keys, dtype=np.int32).reshape(-1, 2) - np.array([i, j], dtype=np.int32)
        return SparseMatrix(rows, cols, np.ascontiguousarray(sub[:, 0]), np.ascontiguousarray(sub[:, 1]),
                            np.array([entries[key] for key in keys], dtype=np.float64))

    rows, columns = len(lp.rhs) - m, len(lp.c) - n
    slack = np.array([row_bounds(kind, 0.0, None if math.isnan(width) else width)
                      for kind, width in zip(lp.row_types, lp.ranges)]).reshape(-1, 2)

    def stage(matrix: SparseMatrix, of_rows: slice, of_columns: slice) -> Stage:
        return Stage(matrix, lp.c[of_columns], lp.lower[of_columns], lp.upper[of_columns], lp.integer[of_columns],
                     lp.rhs[of_rows], slack[of_rows, 0], slack[of_rows, 1])

    place_of = {("entry", i, j): k for k, (i, j) in enumerate(technology + recourse)}
    place_of.update({("cost", 0, n + j): len(place_of) + j for j in range(columns)})
    place_of.update({("rhs", m + i, 0): len(place_of) + i for i in range(rows)})
    datum = np.concatenate([[entries[key] for key in technology + recourse], lp.c[n:], lp.rhs[m:]])
    random = []
    for outcomes in blocks.values():
        places = sorted({place_of[place] for _, values in outcomes for place in values})
        table = np.tile(datum[places], (len(outcomes), 1))
        column_of = {place: k for k, place in enumerate(places)}
        for o, (_, values) in enumerate(outcomes):
            for place, value in values.items():
                # What the first outcome names holds for all others, as far as they do not name it themselves.
                table[o if o else slice(None), column_of[place_of[place]]] = value
        random.append(RandomBlock(np.array([p for p, _ in outcomes]), np.array(places, dtype=np.int64), table))
    return TwoStage(lp.name, lp.sense, lp.constant,
                    stage(matrix(first, 0, 0, m, n), slice(0, m), slice(0, n)),
                    stage(matrix(recourse, m, n, rows, columns), slice(m, None), slice(n, None)),
                    matrix(technology, m, 0, rows, n), random)
