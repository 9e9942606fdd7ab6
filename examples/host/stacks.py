"""The three stacks of the expression evaluator, and the records that lie on them.

Every evaluated expression is a record: an N-dimensional array whose elements are sparse linear forms over numbered
variables. Its fields are runs of slots on three arrays (int32, int64, float64) that grow and shrink together as one
stack:

    field     array  length          content
    shape     i32    nd              extents, outermost first; elements are numbered row-major in this shape
    ptr       i32    nelem + 1       the terms of stored element i are ptr[i] .. ptr[i+1]-1
    codeptr   i32    nnz + 1         the atoms of term t, only if ncodeatom > 0
    code      i32    ncodeatom       opcodes of the coefficient code, only if ncodeatom > 0
    sp        i64    nelem           flat numbers of the stored elements, ascending, only if hassp; all others are zero
    nidxs     i64    nnz             the variable of each term, 0 for the constant
    cof       f64    nnz             the constant coefficient of each term
    cconst    f64    ncodeatom       operands of the coefficient code, only if ncodeatom > 0

An operator reads its operands on the w stack, writes its result on the r stack and uses the x stack as scratch. Kernels
get the arrays and plain positions in them; finding room and knowing the tops is the business of this module.

Results are moved to w without copying where that can be: if the operands were all that lay there, r and w change
places, and what has no operands is written on w at once. Memory that is fresh from the operating system costs about as
much time as the kernel that fills it, so keep stacks for many models.

Positions have 32 bits: an array of a stack has fewer than 2^31 slots. What would pass them is refused by OverflowError
before any memory is asked for. A model has room for more rows than one record: make its constraints in blocks of rows.
"""

from __future__ import annotations

import math
import os
from dataclasses import dataclass, fields, replace
from typing import Dict, List, Optional, Sequence, Tuple

from fragments_kernels.records import check_record, mark_unwritten
import numpy as np

MOST_SLOTS = np.iinfo(np.int32).max  # of an array, which 32-bit positions can tell apart

Sizes = Tuple[int, int, int]  # numbers of int32, int64 and float64 slots

# With FRAGMENTS_DEBUG=1 in the environment every record is checked before it becomes an operand: RecordError says what
# is wrong where.
DEBUG = os.environ.get("FRAGMENTS_DEBUG", "0") not in ("", "0")


@dataclass(frozen=True)
class Record:
    """Scalars of a record, the positions of its fields, and the slots that were reserved for it in each of the arrays.

    Whatever lies behind `start` on w belongs to it or to later records.
    """

    nd: int
    nelem: int
    nnz: int
    ncodeatom: int
    hassp: bool
    shape: int
    ptr: int
    codeptr: int
    code: int
    sp: int
    nidxs: int
    cof: int
    cconst: int
    start: Sizes
    size: Sizes


class Stack:
    """Three growable arrays with one top each. They are replaced when they grow: fetch them for every call."""

    def __init__(self, name: str = "") -> None:
        self.name = name
        self.i32 = np.empty(64, dtype=np.int32)
        self.i64 = np.empty(64, dtype=np.int64)
        self.f64 = np.empty(64, dtype=np.float64)
        self.top: Sizes = (0, 0, 0)

    def reserve(self, n32: int = 0, n64: int = 0, nf64: int = 0) -> Sizes:
        """Pushes so many slots of undefined content; the position of the first new slot in each array.

        Raises OverflowError, and changes nothing, if an array would pass `MOST_SLOTS`.
        """
        start = self.top
        top = (start[0] + n32, start[1] + n64, start[2] + nf64)
        if max(top) > MOST_SLOTS or min(n32, n64, nf64) < 0:
            for array, at, n in zip(("int32", "int64", "float64"), start, (n32, n64, nf64)):
                # Kernels count in 32 bits: what they count beyond them comes back negative.
                check_slots(f"the {array} array of the {self.name} stack", at + (n if n >= 0 else n + 2**32))
        self.i32 = grown(self.i32, start[0], top[0])
        self.i64 = grown(self.i64, start[1], top[1])
        self.f64 = grown(self.f64, start[2], top[2])
        self.top = top
        if DEBUG:
            mark_unwritten(*(array[b:e] for array, b, e in zip((self.i32, self.i64, self.f64), start, top)))
        return start

    def reserve_record(self, nd: int, nelem: int, nnz: int, ncodeatom: int = 0, hassp: bool = False) -> Record:
        """Pushes room for a record. `ptr[0]` and `codeptr[0]` are set to 0, all else is the kernels' to write."""
        coded = ncodeatom > 0
        size = (nd + nelem + 1 + (nnz + 1 + ncodeatom) * coded, nnz + nelem * hassp, nnz + ncodeatom)
        start = self.reserve(*size)
        i32, i64, f64 = start
        ptr = i32 + nd
        codeptr = ptr + nelem + 1
        record = Record(nd=nd, nelem=nelem, nnz=nnz, ncodeatom=ncodeatom, hassp=hassp,
                        shape=i32, ptr=ptr, codeptr=codeptr, code=codeptr + nnz + 1,
                        nidxs=i64, sp=i64 + nnz, cof=f64, cconst=f64 + nnz, start=start, size=size)
        self.i32[ptr] = 0
        if coded:
            self.i32[codeptr] = 0
        return record

    def check_counts(self, nnz: int, ncodeatom: int = 0) -> None:
        """Raises OverflowError if a record of so many terms and atoms would not fit, which kernels count in 32 bits."""
        check_slots(f"the float64 array of the {self.name} stack", self.top[2] + nnz + ncodeatom)

    def extents(self, record: Record) -> Tuple[int, ...]:
        """The shape of a record that lies on this stack."""
        return tuple(self.i32[record.shape:record.shape + record.nd].tolist())


class Stacks:
    """The r, w and x stacks, and the records on w, the last pushed at the end of `records`.

    `finish` may exchange r and w: fetch them anew after every operator.
    """

    def __init__(self) -> None:
        self.r, self.w, self.x = Stack("r"), Stack("w"), Stack("x")
        self.records: List[Record] = []
        self._owners: Dict[str, object] = {}

    def claim(self, what: str, owner: object) -> None:
        """Notes whose variables or parameters the records have, until there is no record any more.

        Raises ValueError if they already have those of another owner.
        """
        if not self.records:
            self._owners.clear()
        if self._owners.setdefault(what, owner) is not owner:
            raise ValueError(f"the stack holds expressions in the {what} of another model")

    def claimed_by(self, what: str) -> object:
        """Who claimed the records, or None."""
        return self._owners.get(what)

    def operands(self, count: int) -> List[Record]:
        """The last `count` records on w, the last pushed at the end. Raises ValueError if there are fewer."""
        if not 0 <= count <= len(self.records):
            raise ValueError(f"{count} expression{'s' * (count != 1)} wanted from the stack, which holds "
                             f"{len(self.records) or 'none'}")
        return self.records[len(self.records) - count:]

    def small_operands(self, count: int) -> List[Record]:
        """The same for operators whose kernels multiply extents in 32 bits. ValueError for 2^31 elements or more."""
        operands = self.operands(count)
        for extents in map(self.w.extents, operands):
            if math.prod(extents) > MOST_SLOTS:
                raise ValueError(f"an array of shape {extents} has too many elements for this operator, 2^31 or more")
        return operands

    def finish(self, operands: int, result: Record, without_pattern: bool = False) -> Record:
        """Ends an operator: pops its operands off w, moves `result` from r to w, empties r and x; the moved record.

        `without_pattern` turns a record whose pattern names every element into a dense one.
        """
        self._drop(operands)
        if not self.records:
            self.r, self.w = self.w, self.r
            self.r.name, self.w.name = "r", "w"
            return self.push(result, without_pattern)
        start = self.w.reserve(*result.size)
        for target, source, to, at, n in zip((self.w.i32, self.w.i64, self.w.f64), (self.r.i32, self.r.i64, self.r.f64),
                                             start, result.start, result.size):
            target[to:to + n] = source[at:at + n]
        d32, d64, df64 = (to - at for to, at in zip(start, result.start))
        return self.push(replace(
            result, start=start,
            shape=result.shape + d32, ptr=result.ptr + d32, codeptr=result.codeptr + d32, code=result.code + d32,
            sp=result.sp + d64, nidxs=result.nidxs + d64, cof=result.cof + df64, cconst=result.cconst + df64),
            without_pattern)

    def push(self, record: Record, without_pattern: bool = False) -> Record:
        """Enters a record that lies on top of w and empties r and x; `without_pattern` as in `finish`."""
        if without_pattern:
            record = replace(record, hassp=False)
        if DEBUG:
            check_record(self.w, record)
        self.records.append(record)
        self.r.top = self.x.top = (0, 0, 0)
        return record

    def pop(self, count: int = 1) -> None:
        """Takes the last `count` records off w. Raises ValueError if there are fewer."""
        self._drop(count)
        if not self.records:
            self._owners.clear()

    def _drop(self, count: int) -> None:
        if count:
            self.w.top = self.operands(count)[0].start
            del self.records[len(self.records) - count:]

    def release(self) -> None:
        """Gives the memory of r and x back, which are empty between operators, and that of w if no record is left."""
        self.r, self.x = Stack("r"), Stack("x")
        if not self.records:
            self.w = Stack("w")

    def positions(self, record: Record) -> np.ndarray:
        """Flat numbers of the stored elements of a record on w, a copy (int64)."""
        return self.w.i64[record.sp:record.sp + record.nelem].copy() if record.hassp else np.arange(record.nelem)

    def ptr_of_all(self, record: Record, ptr: np.ndarray) -> np.ndarray:
        """Where the terms of all elements of a record on w begin, from `ptr`, which tells it for the stored ones."""
        if not record.hassp:
            return ptr
        return ptr[np.searchsorted(self.positions(record), np.arange(math.prod(self.w.extents(record)) + 1))]

    def terms(self, record: Optional[Record] = None) -> Tuple[np.ndarray, np.ndarray, np.ndarray, np.ndarray]:
        """Copies of the last record's (or `record`'s) elements: flat numbers, `ptr`, `nidxs` and `cof`."""
        record = record or self.operands(1)[0]
        w, n, nnz = self.w, record.nelem, record.nnz
        return (self.positions(record), w.i32[record.ptr:record.ptr + n + 1].copy(),
                w.i64[record.nidxs:record.nidxs + nnz].copy(), w.f64[record.cof:record.cof + nnz].copy())


@dataclass(frozen=True)
class OperandTables:
    """The fields of several records for the kernels that take many operands: int32 arrays, entry k for operand k."""

    nd: np.ndarray
    nelem: np.ndarray
    nnz: np.ndarray
    ncodeatom: np.ndarray
    hassp: np.ndarray
    shape: np.ndarray
    ptr: np.ndarray
    codeptr: np.ndarray
    code: np.ndarray
    sp: np.ndarray
    nidxs: np.ndarray
    cof: np.ndarray
    cconst: np.ndarray

    @classmethod
    def of(cls, records: Sequence[Record]) -> OperandTables:
        """The tables of some records, in their order."""
        return cls(**{field.name: int32_array([getattr(e, field.name) for e in records]) for field in fields(cls)})


def int32_array(values: Sequence[int]) -> np.ndarray:
    """The values as kernels take extents and operand tables."""
    return np.array(values, dtype=np.int32)


def check_slots(what: str, wanted: int) -> None:
    """Raises OverflowError if `what`, an array that kernels get positions in, would have too many slots."""
    if wanted > MOST_SLOTS:
        raise OverflowError(f"{what} would need {wanted} slots, more than the {MOST_SLOTS} that 32-bit positions can "
                            "tell apart: build the model in blocks of fewer rows")


def grown(array: np.ndarray, used: int, needed: int) -> np.ndarray:
    """`array` if it has `needed` slots, or else a longer one with the first `used` slots of it.

    Half as much again is asked for; the operating system provides no memory for slots before they are written.
    """
    if needed <= array.size:
        return array
    grown = np.empty(needed + needed // 2, dtype=array.dtype)
    grown[:used] = array[:used]
    return grown
