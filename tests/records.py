"""Random expression records, the stacks that hold them, what a record means, and random constant matrices.

    record, w = random_operand(rng, (3, 4), sparse=True, code=True, kind="strided")
    atoms, elements, terms = call(467, w.arguments, d0=3, d1=4, ...)
    r = result(rng, (2, 3), (atoms, elements, terms), "strided")
    call(472, w.arguments, r.arguments, d0=3, d1=4, ...)
    check(r, expected, w)

All coefficients, constants and parameter values are small integers, so that any order of adding them up is exact.
"""

from dataclasses import dataclass

import numpy as np
import pytest

from support import i32, kinds, layout

VARIABLES = 12
FIRST = 2**33  # what variable 1 and all behind it are counted from, so that none fits into 32 bits
PARAMETERS = np.array([3.0, -2.0, 5.0, 7.0])
SENTINELS = {"i32": np.int32(-77_777), "i64": np.int64(-7_777_777_777), "f64": np.float64(-7.75e77)}

ONE_ATOM = "one atom"  # a record of one term, whose code is one atom: the least that counts as code
codes = pytest.mark.parametrize("code", [False, True, ONE_ATOM], ids=["plain", "code", ONE_ATOM])
patterns = pytest.mark.parametrize("sparse", [False, True], ids=["dense", "sparse"])


def every_operand(test):
    """Runs a test with dense and sparse operands, with and without code, in every layout."""
    return kinds(codes(patterns(test)))


# The array of a stack that holds each field.
FIELDS = {
    "shape": "i32", "sp": "i64", "ptr": "i32", "nidxs": "i64",
    "cof": "f64", "codeptr": "i32", "code": "i32", "cconst": "f64",
}  # fmt: skip


@dataclass
class Record:
    """The fields of a record; `sp` is None in a dense one, the code's three fields are None in one without code."""

    shape: tuple
    sp: np.ndarray | None
    ptr: np.ndarray
    nidxs: np.ndarray
    cof: np.ndarray
    codeptr: np.ndarray | None = None
    code: np.ndarray | None = None
    cconst: np.ndarray | None = None

    @property
    def nelem(self):
        return len(self.ptr) - 1

    @property
    def nnz(self):
        return len(self.nidxs)

    @property
    def ncodeatom(self):
        return 0 if self.code is None else len(self.code)

    @property
    def hassp(self):
        return self.sp is not None


@dataclass
class Room:
    """The sizes of a record that a kernel is going to write. Of the fields `preset` the host layer, that is Stack, sets
    the shape and slot 0 of the pointers."""

    shape: tuple = ()
    nelem: int = 0
    nnz: int = 0
    ncodeatom: int = 0
    hassp: bool = False
    preset: tuple = ("shape", "ptr", "codeptr")


def lengths(sizes):
    """How many slots each field of a record (or of a room for one) has."""
    hascode = sizes.ncodeatom > 0
    return {
        "shape": len(sizes.shape),
        "sp": sizes.nelem if sizes.hassp else 0,
        "ptr": sizes.nelem + 1,
        "nidxs": sizes.nnz,
        "cof": sizes.nnz,
        "codeptr": sizes.nnz + 1 if hascode else 0,
        "code": sizes.ncodeatom,
        "cconst": sizes.ncodeatom,
    }


def random_code(rng):
    """The (opcode, operand) atoms of one coefficient; about half of the terms have no parameter."""
    unused = SENTINELS["f64"]
    p, c, d = float(rng.integers(len(PARAMETERS))), float(rng.integers(-4, 5)), float(rng.integers(-4, 5))
    shapes = [
        [(2, 0.0)],
        [(2, 0.0)],
        [(1, p)],
        [(1, p), (2, c), (5, unused)],
        [(2, c), (1, p), (3, unused), (4, unused)],
        [(1, p), (2, c), (5, unused), (2, d), (1, p), (8, 3.0)],
    ]
    return shapes[rng.integers(len(shapes))]


def random_variables(rng, n):
    numbers = rng.integers(0, VARIABLES, n)
    return numbers + FIRST * (numbers > 0)


def single_term(rng, shape, sparse):
    """A record of one term, whose code is one atom."""
    place = int(rng.integers(np.prod(shape)))
    ptr = i32([0, 1]) if sparse else i32(np.arange(np.prod(shape) + 1) > place)
    p = np.array([rng.integers(len(PARAMETERS))], float)
    sp = np.array([place]) if sparse else None
    return Record(tuple(shape), sp, ptr, random_variables(rng, 1), np.array([2.0]), i32([0, 1]), i32([1]), p)


def random_record(rng, shape, sparse=False, code=False, density=0.6, terms=3):
    """A record of up to `terms` terms an element, some elements being empty. A sparse one stores about `density` of its
    elements. Variables are 0 (the constant term) and FIRST + 1 on, unsorted and repeating."""
    size = int(np.prod(shape))
    if code == ONE_ATOM and size:
        return single_term(rng, shape, sparse)
    sp = np.flatnonzero(rng.random(size) < density) if sparse else None
    nelem = len(sp) if sparse else size
    counts = rng.integers(0, terms + 1, nelem)
    nnz = int(counts.sum())
    record = Record(
        shape=tuple(shape),
        sp=sp,
        ptr=np.r_[0, np.cumsum(counts, dtype=int)],
        nidxs=random_variables(rng, nnz),
        cof=rng.integers(-5, 6, nnz).astype(float),
    )
    if code and nnz:
        atoms = [random_code(rng) for _ in range(nnz)]
        record.codeptr = np.r_[0, np.cumsum([len(run) for run in atoms])]
        record.code, record.cconst = (np.array(column) for column in zip(*(atom for run in atoms for atom in run)))
    return record


def random_matrix(rng, shape, sparse, kind="contiguous"):
    """A constant matrix for NumPy, and the kernels' arguments for it: dense or with about half of its entries."""
    dense = rng.integers(-4, 5, shape).astype(float)
    mdimi, mdimj = shape
    if not sparse:
        arguments = {"mval": layout(dense.ravel(), kind), "msubi": None, "msubj": None, "mnnz": 0}
    else:
        stored = rng.random(shape) < 0.5
        dense *= stored
        msubi, msubj = np.nonzero(stored)
        arguments = {"mval": layout(dense[stored], kind), "mnnz": len(msubi)}
        arguments |= {"msubi": layout(i32(msubi), kind), "msubj": layout(i32(msubj), kind)}
    return dense, {**arguments, "mdimi": mdimi, "mdimj": mdimj}


def run_code(code, cconst, parameters=PARAMETERS):
    """The value of one term's atoms."""
    stack = []
    for opcode, operand in zip(code, cconst):
        if opcode == 1:
            stack.append(parameters[int(operand)])
        elif opcode == 2:
            stack.append(operand)
        elif opcode == 3:
            stack.append(stack.pop() + stack.pop())
        elif opcode == 4:
            stack.append(-stack.pop())
        elif opcode == 5:
            stack.append(stack.pop() * stack.pop())
        elif opcode == 6:
            stack.append(1.0 / stack.pop())
        elif opcode == 8:
            stack.append(sum(stack.pop() for _ in range(int(operand))))
    return stack[0]


def coefficients(record):
    """The coefficient of every term: its `cof` plus the value of its code."""
    if record.code is None:
        return record.cof
    runs = zip(record.codeptr, record.codeptr[1:])
    return record.cof + [run_code(record.code[b:e], record.cconst[b:e]) for b, e in runs]


def evaluate(record):
    """The record's meaning: an array of its shape with one more axis, the coefficient of each variable."""
    forms = np.zeros((int(np.prod(record.shape)), VARIABLES))
    flat = np.arange(record.nelem) if record.sp is None else record.sp
    variables = np.where(record.nidxs == 0, 0, record.nidxs - FIRST)
    np.add.at(forms, (np.repeat(flat, np.diff(record.ptr)), variables), coefficients(record))
    return forms.reshape(*record.shape, VARIABLES)


def elements(record):
    """The record's elements as they stand: an array of its shape whose items are tuples of terms (variable,
    coefficient, atoms), None where nothing is stored."""
    array = np.full(int(np.prod(record.shape)), None, dtype=object)
    atoms = [()] * record.nnz
    if record.code is not None:
        run = list(zip(record.code.tolist(), record.cconst.tolist()))
        atoms = [tuple(run[b:e]) for b, e in zip(record.codeptr, record.codeptr[1:])]
    terms = list(zip(record.nidxs.tolist(), record.cof.tolist(), atoms))
    flat = range(record.nelem) if record.sp is None else record.sp
    for f, b, e in zip(flat, record.ptr, record.ptr[1:]):
        array[f] = tuple(terms[b:e])
    return array.reshape(record.shape)


class Stack:
    """Three arrays, filled with sentinels, with the fields of records (or room for them) at positions of their own.

    The fields stand in random order with random gaps. `arrays` maps the parameters' names ("wi32", ...) to the arrays,
    `arguments` those and the parameters of record 0, which on the r stack have names with an r in front.
    """

    def __init__(self, name, rng, contents, kind="contiguous"):
        self.name = name
        self.contents = contents
        self.positions = [{} for _ in contents]
        tops = dict.fromkeys(SENTINELS, 0)
        places = [(k, field) for k in range(len(contents)) for field in FIELDS]
        for at in rng.permutation(len(places)):
            k, field = places[at]
            top = tops[FIELDS[field]] + int(rng.integers(0, 4))
            self.positions[k][field] = top
            tops[FIELDS[field]] = top + lengths(contents[k])[field]
        self.arrays = {}
        for array, sentinel in SENTINELS.items():
            self.arrays[name + array] = layout(np.full(tops[array] + 3, sentinel), kind)
        for k, content in enumerate(contents):
            if isinstance(content, Record):
                for field, values in vars(content).items():
                    if values is not None:
                        self.slots(k, field)[:] = values
            else:
                for field in content.preset:
                    self.slots(k, field)[: None if field == "shape" else 1] = content.shape if field == "shape" else 0
        self.arguments = {**self.arrays, **self.fields(0, "r" if name == "r" else "")}
        self.before = {array: values.copy() for array, values in self.arrays.items()}

    def slots(self, k, field):
        """The slots of one field of record k, to read or to write."""
        position = self.positions[k][field]
        return self.arrays[self.name + FIELDS[field]][position : position + lengths(self.contents[k])[field]]

    def fields(self, k, prefix="", suffix=""):
        """Positions and scalars of record k by the names of parameters: with prefix "r" `rptr`, `rnelem`, ..., with
        suffix "1" `ptr1`, `nelem1`, ..."""
        content = self.contents[k]
        scalars = {name: getattr(content, name) for name in ("nelem", "nnz", "ncodeatom", "hassp")}
        return {
            prefix + name + suffix: value
            for name, value in {**self.positions[k], **scalars, "nd": len(content.shape)}.items()
        }

    def tables(self):
        """The operand tables of operators on many records: one int32 array a field, one entry a record."""
        names = {field: field if field in ("codeptr", "code", "cconst") else field + "_base" for field in FIELDS}
        rows = [self.fields(k) for k in range(len(self.contents))]
        return {names.get(name, name): np.array([row[name] for row in rows], dtype=np.int32) for name in rows[0]}

    def read(self, k):
        """The record that stands in room k, every slot of it written and its pointers in order. The operands of atoms
        that take none must not be written (random_code() has the same in their place)."""
        room = self.contents[k]
        fields = {field: self.slots(k, field).copy() for field in FIELDS}
        operators = np.isin(fields["code"], (3, 4, 5, 6, 7))
        for field, values in fields.items():
            unwritten = values == SENTINELS[FIELDS[field]]
            assert np.array_equal(unwritten, operators) if field == "cconst" else not np.any(unwritten), field
        for ptr, end in (("ptr", room.nnz), ("codeptr", room.ncodeatom)):
            if len(fields[ptr]):
                assert fields[ptr][0] == 0 and fields[ptr][-1] == end and np.all(np.diff(fields[ptr]) >= 0), ptr
        assert np.all(np.diff(fields["sp"]) > 0)
        if not room.hassp:
            fields["sp"] = None
        if not room.ncodeatom:
            fields["codeptr"] = fields["code"] = fields["cconst"] = None
        return Record(**fields)

    def assert_only_written(self, k=None, fields=FIELDS):
        """No slot has changed outside the given fields of record k; without k, none at all."""
        for array, before in self.before.items():
            after = self.arrays[array]
            changed = (after != before) & ~(np.isnan(after) & np.isnan(before))
            for field in fields if k is not None else ():
                if self.name + FIELDS[field] == array:
                    position = self.positions[k][field]
                    changed[position : position + lengths(self.contents[k])[field]] = False
            assert not np.any(changed), array


def random_operand(rng, shape, sparse=False, code=False, density=0.6, terms=3, kind="contiguous"):
    """A random record and the w stack with it."""
    record = random_record(rng, shape, sparse, code, density, terms)
    return record, Stack("w", rng, [record], kind)


def result(rng, shape, sizes, kind="contiguous", hassp=True, preset=Room.preset):
    """The r stack with room for a record of the measured (atoms, elements, terms)."""
    atoms, elements, terms = sizes
    return Stack("r", rng, [Room(tuple(shape), elements, terms, atoms, hassp, preset)], kind)


def check(r, expected, *operands, meaning=evaluate):
    """The record on r, which must mean what is expected, while nothing has changed beside it or on the operands'
    stacks."""
    record = r.read(0)
    assert np.array_equal(meaning(record), expected)
    r.assert_only_written(0)
    for operand in operands:
        operand.assert_only_written()
    return record
