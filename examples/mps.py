"""Reads linear programs from MPS files, in fixed columns or in free format.

The reader is our own: GLPK's, the one at hand as a library, refuses much that solvers write today (an OBJSENSE section,
entries without a set name, blank lines, section names in lower case, a missing NAME line), drops free rows, takes the
blanks out of names and gives the objective's right-hand side the other sign, so that it would need a rewritten copy of
the file and repairs after it.

Read: NAME, OBJSENSE, OBJNAME, ROWS, COLUMNS with integer markers, RHS, RANGES, BOUNDS (UP LO FX FR MI PL BV LI UI),
ENDATA; plain or gzip-compressed. Not read, and refused by name: quadratic terms, special ordered sets, indicators,
semi-continuous columns.
"""

from __future__ import annotations

import gzip
import math
import re
import zlib
from dataclasses import dataclass
from typing import Callable, Dict, List, Optional, Tuple, TypeVar

import numpy as np

INFINITE = 1e20  # bounds and right-hand sides from here on mean "no bound", as they do to solvers

T = TypeVar("T")
_NUMBER = re.compile(r"[+-]?(\d+\.?\d*|\.\d+)([ED][+-]?\d+)?|[+-]?INF(INITY)?")
_CONTROL = re.compile(r"[\x00-\x08\x0b\x0e-\x1f\x7f]")
_FIXED_FIELDS = ((1, 3), (4, 12), (14, 22), (24, 36), (39, 47), (49, 61))  # column ranges of the fixed format
_FIXED_GAPS = (0, 3, 12, 13, 22, 23, 36, 37, 38, 47, 48)
_SENSES = {"MIN": "min", "MINIMIZE": "min", "MINIMISE": "min", "MAX": "max", "MAXIMIZE": "max", "MAXIMISE": "max"}


class MpsError(ValueError):
    """A file that cannot be read: `path`, `line` (from 1, None where no line is at fault), `what` is wrong."""

    def __init__(self, path: str, line: Optional[int], what: str) -> None:
        super().__init__(f"{path}:{line}: {what}" if line else f"{path}: {what}")
        self.path, self.line, self.what = path, line, what


@dataclass(frozen=True)
class LinearProgram:
    """Optimise c'x + constant over lo <= A x <= hi, lower <= x <= upper: m rows, n columns, z stored entries of A.

    The objective is no row of A; further rows of type N are, and are free. -inf and inf stand for a missing bound.
    """

    name: str
    sense: str  # "min" or "max"
    objective: str  # the name of its row
    rhs_name: str  # of the set of right-hand sides
    row_names: List[str]  # m
    row_types: List[str]  # m, each of N L G E
    lo: np.ndarray  # m, float64
    hi: np.ndarray  # m, float64
    rhs: np.ndarray  # m, float64: what lo and hi were made from, with
    ranges: np.ndarray  # m, float64: NaN where a row has no range
    subi: np.ndarray  # z, int32: entries of A sorted by row, then column, without zeros
    subj: np.ndarray  # z, int32
    val: np.ndarray  # z, float64
    col_names: List[str]  # n
    c: np.ndarray  # n, float64
    constant: float
    lower: np.ndarray  # n, float64
    upper: np.ndarray  # n, float64
    integer: np.ndarray  # n, bool


def read_mps(path: str) -> LinearProgram:
    """The linear program in the file at `path`; MpsError for anything that cannot be read as one.

    Free format is tried first, as it also reads fixed columns as long as no name has a blank in it; then fixed columns.
    If both fail, the fault of the reading that got further is the one reported.
    """
    return in_either_format(path, lambda lines, fields_of: _Reader(path, lines, fields_of).read())


def in_either_format(path: str, read: Callable[[List[str], Callable[[str, str], List[str]]], T]) -> T:
    """What `read` makes of the lines of a file in free format or else in fixed columns, by the function for fields."""
    lines = text_lines(path)
    try:
        return read(lines, free_fields)
    except MpsError as free:
        try:
            return read(lines, fixed_fields)
        except MpsError as fixed:
            raise (fixed if (fixed.line or math.inf) > (free.line or math.inf) else free) from None


def text_lines(path: str) -> List[str]:
    """The lines of a text file, plain or gzip-compressed; MpsError if it is none."""
    try:
        with open(path, "rb") as file:
            data = file.read()
        if data[:2] == b"\x1f\x8b":
            data = gzip.decompress(data)
    except (OSError, EOFError, zlib.error) as error:
        raise MpsError(path, None, getattr(error, "strerror", None) or f"cannot be decompressed: {error}") from None
    if not data.strip():
        raise MpsError(path, None, "the file is empty")
    try:
        text = data.decode("utf-8-sig")
    except UnicodeDecodeError:
        text = data.decode("latin-1")
    text = text.replace("\r\n", "\n").replace("\r", "\n")
    bad = _CONTROL.search(text)
    if bad:
        line = text.count("\n", 0, bad.start()) + 1
        raise MpsError(path, line, f"control character {bad[0]!r}, this is no text file")
    return text.rstrip("\n").split("\n")


# A data line's fields: the row or bound type ("" in sections without one), the name or set name, then pairs of name and
# number, numbers still as text. Fixed columns keep their blank fields as ""; a set name missing in free format is put
# in later, where the names of rows and columns are known.
Fields = List[str]


def free_fields(line: str, section: str) -> Fields:
    return line.split() if section in ("ROWS", "BOUNDS") else ["", *line.split()]


def fixed_fields(line: str, section: str) -> Fields:
    line = line.expandtabs().rstrip()
    if any(line[gap:gap + 1].strip() for gap in _FIXED_GAPS) or len(line) > 61:
        raise ValueError("text between the columns of the fixed format")
    fields = [line[start:end].strip() for start, end in _FIXED_FIELDS]
    while len(fields) > 2 and not fields[-1]:
        fields.pop()
    return fields


class _Reader:
    """One reading of a file. Sections fill dictionaries by name; `read` turns them into arrays at the end."""

    def __init__(self, path: str, lines: List[str], fields_of: Callable[[str, str], Fields]) -> None:
        self.path, self.lines, self.fields_of = path, lines, fields_of
        self.line_number = 0
        self.section = ""
        self.seen: List[str] = []
        self.name, self.sense, self.objective = "", "min", ""
        self.rows: Dict[str, str] = {}  # name -> type, in the order of the file
        self.entries: Dict[str, Dict[str, float]] = {}  # column -> row -> coefficient
        self.integer: Dict[str, bool] = {}
        self.in_integers = False
        self.set_names: Dict[str, str] = {}  # section -> its first set, the only one that counts
        self.rhs: Dict[str, float] = {}
        self.ranges: Dict[str, float] = {}
        self.lower: Dict[str, float] = {}
        self.upper: Dict[str, float] = {}

    def read(self) -> LinearProgram:
        for self.line_number, line in enumerate(self.lines, 1):
            if not line.strip() or line[0] == "*":
                continue
            try:
                if not line[0].isspace():
                    self.start_section(line.split())
                    if self.section == "ENDATA":
                        return self.linear_program()
                else:
                    self.data_line(line)
            except ValueError as fault:
                raise MpsError(self.path, self.line_number, str(fault)) from None
        raise MpsError(self.path, self.line_number, "the file ends without ENDATA")

    def start_section(self, words: List[str]) -> None:
        section = words[0].upper()
        if section not in ("NAME", "OBJSENSE", "OBJNAME", "ROWS", "COLUMNS", "RHS", "RANGES", "BOUNDS", "ENDATA"):
            raise ValueError(f"unknown section {shown(words[0])}")
        if section in self.seen:
            raise ValueError(f"a second {section} section")
        if section in ("COLUMNS", "RHS", "RANGES", "BOUNDS", "ENDATA"):
            for needed in ("ROWS",) if section == "COLUMNS" else ("ROWS", "COLUMNS"):
                if needed not in self.seen:
                    raise ValueError(f"{section} before any {needed} section")
        self.section = section
        self.seen.append(section)
        if section == "NAME":
            self.name = words[1] if len(words) > 1 else ""
        elif section in ("OBJSENSE", "OBJNAME") and len(words) > 1:
            self.set_objective(words[1:])
        elif len(words) > 1 and section != "ENDATA":
            raise ValueError(f"text after the section name {section}")

    def set_objective(self, words: List[str]) -> None:
        if self.section == "OBJNAME":
            self.objective = " ".join(words)
        elif words[0].upper() in _SENSES:
            self.sense = _SENSES[words[0].upper()]
        else:
            raise ValueError(f"unknown objective sense {shown(words[0])}")

    def data_line(self, line: str) -> None:
        if self.section in ("OBJSENSE", "OBJNAME"):
            return self.set_objective(line.split())
        if self.section in ("", "NAME"):
            raise ValueError("data before the first section" if not self.section else "data in the NAME section")
        fields = self.fields_of(line, self.section)
        {"ROWS": self.row, "COLUMNS": self.column, "BOUNDS": self.bound}.get(self.section, self.right_side)(fields)

    def row(self, fields: Fields) -> None:
        if len(fields) != 2 or not fields[1]:
            raise ValueError("a row needs a type and a name")
        kind, name = fields[0].upper(), fields[1]
        if kind not in ("N", "L", "G", "E"):
            raise ValueError(f"unknown row type {shown(fields[0])}")
        if name in self.rows:
            raise ValueError(f"a second row {shown(name)}")
        self.rows[name] = kind

    def column(self, fields: Fields) -> None:
        if "'MARKER'" in [field.upper() for field in fields]:
            kind = fields[-1].upper()
            if kind not in ("'INTORG'", "'INTEND'"):
                raise ValueError(f"unknown marker {shown(fields[-1])}")
            self.in_integers = kind == "'INTORG'"
            return
        name, pairs = fields[1], self.pairs(fields)
        if name not in self.entries:
            self.entries[name] = {}
            self.integer[name] = self.in_integers
        elif name != next(reversed(self.entries)):
            raise ValueError(f"column {shown(name)} is continued after another column")
        for row, text in pairs:
            if row in self.entries[name]:
                raise ValueError(f"a second entry for column {shown(name)} in row {shown(row)}")
            value = number(text)
            if math.isinf(value):
                raise ValueError(f"coefficient {shown(text)} is not finite")
            self.entries[name][row] = value

    def right_side(self, fields: Fields) -> None:
        """A line of RHS or RANGES."""
        if len(fields) % 2 == 1 and fields[1] in self.rows:
            fields.insert(1, "")  # no set name
        pairs = self.pairs(fields)
        if not self.counts(fields[1]):
            return
        values = self.rhs if self.section == "RHS" else self.ranges
        for row, text in pairs:
            value = number(text)
            if row in values:
                raise ValueError(f"a second {self.section} entry for row {shown(row)}")
            loose = (self.rows[row], value) in (("L", math.inf), ("G", -math.inf))
            if self.section == "RHS" and math.isinf(value) and not loose:
                raise ValueError(f"right-hand side {shown(text)} of row {shown(row)} is not finite")
            values[row] = value

    def counts(self, set_name: str) -> bool:
        """Whether a line of this set counts: of several sets of a section only the first one does."""
        return not set_name or self.set_names.setdefault(self.section, set_name) == set_name

    def pairs(self, fields: Fields) -> List[Tuple[str, str]]:
        """The (row, number) pairs of a line, one or two in fixed columns, any number in free format."""
        names, numbers = fields[2::2], fields[3::2]
        if not names or len(names) != len(numbers) or (self.section == "COLUMNS" and not fields[1]):
            raise ValueError("an incomplete line: it needs a name and pairs of row and number")
        for row in names:
            if row not in self.rows:
                raise ValueError(f"unknown row {shown(row)}")
        return list(zip(names, numbers))

    def bound(self, fields: Fields) -> None:
        kind = fields[0].upper()
        if kind not in ("UP", "LO", "FX", "FR", "MI", "PL", "BV", "LI", "UI"):
            raise ValueError(f"unknown bound type {shown(fields[0])}")
        needs_value = kind in ("UP", "LO", "FX", "LI", "UI")
        # In free format the set name may be missing, and a type without a number may carry one all the same.
        unnamed = len(fields) == 2 + needs_value or (len(fields) == 3 and fields[2] not in self.entries)
        if unnamed and fields[1] in self.entries:
            fields.insert(1, "")
        if not 3 + needs_value <= len(fields) <= 4:
            raise ValueError(f"a bound of type {kind} needs a column" + " and a number" * needs_value)
        _, set_name, column, *numbers = fields
        if column not in self.entries:
            raise ValueError(f"unknown column {shown(column)}")
        value = number(numbers[0]) if needs_value else 0.0
        if not self.counts(set_name):
            return
        if (kind in ("LO", "LI", "FX") and value == math.inf) or (kind in ("UP", "UI", "FX") and value == -math.inf):
            raise ValueError(f"bound {shown(numbers[0])} leaves column {shown(column)} no value")
        if kind in ("BV", "LI", "UI"):
            self.integer[column] = True
        if kind in ("LO", "LI", "FX"):
            self.lower[column] = value
        if kind in ("UP", "UI", "FX"):
            self.upper[column] = value
        if kind in ("FR", "MI"):
            self.lower[column] = -math.inf
        if kind in ("FR", "PL"):
            self.upper[column] = math.inf
        if kind == "BV":
            self.lower[column], self.upper[column] = 0.0, 1.0

    def linear_program(self) -> LinearProgram:
        objective = self.objective or next((name for name, kind in self.rows.items() if kind == "N"), "")
        if self.rows.get(objective) != "N":
            fault = f"objective {shown(objective)} is no row of type N" if objective else "no objective row (type N)"
            raise ValueError(fault)
        row_names = [name for name in self.rows if name != objective]
        number_of = {name: i for i, name in enumerate(row_names)}
        triplets = sorted((number_of[row], j, value) for j, column in enumerate(self.entries.values())
                          for row, value in column.items() if row != objective and value != 0.0)
        sides = [row_bounds(self.rows[name], self.rhs.get(name, 0.0), self.ranges.get(name)) for name in row_names]
        bounds = [self.column_bounds(name) for name in self.entries]
        return LinearProgram(
            name=self.name,
            sense=self.sense,
            objective=objective,
            rhs_name=self.set_names.get("RHS", "RHS"),
            row_names=row_names,
            row_types=[self.rows[name] for name in row_names],
            lo=np.array([lo for lo, _ in sides], dtype=np.float64),
            hi=np.array([hi for _, hi in sides], dtype=np.float64),
            rhs=np.array([self.rhs.get(name, 0.0) for name in row_names], dtype=np.float64),
            ranges=np.array([self.ranges.get(name, math.nan) for name in row_names], dtype=np.float64),
            subi=np.array([i for i, _, _ in triplets], dtype=np.int32),
            subj=np.array([j for _, j, _ in triplets], dtype=np.int32),
            val=np.array([value for _, _, value in triplets], dtype=np.float64),
            col_names=list(self.entries),
            c=np.array([column.get(objective, 0.0) for column in self.entries.values()], dtype=np.float64),
            constant=0.0 - self.rhs.get(objective, 0.0),  # as if the objective were a row: c'x = right-hand side
            lower=np.array([lower for lower, _ in bounds], dtype=np.float64),
            upper=np.array([upper for _, upper in bounds], dtype=np.float64),
            integer=np.array([self.integer[name] for name in self.entries], dtype=bool),
        )

    def column_bounds(self, name: str) -> Tuple[float, float]:
        lower, upper = self.lower.get(name), self.upper.get(name)
        if lower is None and upper is None:
            return 0.0, 1.0 if self.integer[name] else math.inf  # integers without any bound are binary
        if lower is None:
            lower = -math.inf if upper < 0.0 else 0.0  # a negative upper bound alone frees the column downwards
        return lower, math.inf if upper is None else upper


def row_bounds(kind: str, rhs: float, width: Optional[float]) -> Tuple[float, float]:
    """Lower and upper bound of a row of type N, L, G or E; width: its range, None if it has none."""
    if kind == "N" or math.isinf(rhs):
        return -math.inf, math.inf
    if kind == "E":  # the sign of a range tells on which side of the right-hand side it lies
        return rhs + min(width or 0.0, 0.0), rhs + max(width or 0.0, 0.0)
    width = math.inf if width is None else abs(width)
    return (rhs - width, rhs) if kind == "L" else (rhs, rhs + width)


def number(text: str) -> float:
    """The value of a number, infinite from INFINITE on; ValueError if it is none."""
    if not _NUMBER.fullmatch(text.upper()):
        raise ValueError(f"bad number {shown(text)}")
    value = float(text.upper().replace("D", "E"))
    return math.copysign(math.inf, value) if abs(value) >= INFINITE else value


def shown(text: str) -> str:
    """A word of a file as messages show it."""
    return repr(text if len(text) <= 40 else text[:40] + "...")
