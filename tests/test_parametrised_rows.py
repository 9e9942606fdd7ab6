"""The table of parametrised rows: filing, taking out, replacing, and what the machine makes of it."""

import numpy as np
import pytest

from records import FIRST, PARAMETERS, Record, Stack, random_record, run_code
from support import blank, call, i32, kernel, kinds, layout

ROWS = 9


class Table:
    """The host layer's arrays of a parameter table and its two counters."""

    def __init__(self, kind):
        self.kind = kind
        self.c = self.k = 0
        self.arrays = {name: layout(np.zeros(ROWS, np.int32), kind) for name in ("row_param_ptrb", "row_param_ptre")}
        self.arrays["row_code_ptr"] = blank(ROWS, kind)
        for name, dtype in (("param_code_sizes", "i4"), ("param_varidx", "i8"), ("code", "i4"), ("cconst", "f8")):
            self.arrays[name] = np.zeros(0, dtype)

    def grow(self, terms, atoms):
        sizes = {"param_code_sizes": terms, "param_varidx": terms, "code": atoms, "cconst": atoms}
        for name, size in sizes.items():
            old = self.arrays[name]
            self.arrays[name] = layout(np.r_[old, np.full(size - len(old), -7, old.dtype)], self.kind)

    def file(self, r, native, allnonneg=True):
        """Appends the rows of the record on r, element i as row native[i]; the flag that comes back."""
        fields = r.fields(0)
        nativeidxs = layout(i32(native), self.kind)
        terms, atoms = len(self.arrays["param_varidx"]), len(self.arrays["code"])  # holes are not used again
        k, c = call(135, r.arrays, fields, k=terms, c=atoms)
        assert call(136, r.arrays, fields, self.arrays, nativeidxs=nativeidxs, c=atoms, k=terms) == (c, k)
        self.grow(k, c)
        at = {"cconstpos": fields["cconst"], "codepos": fields["code"], "codeptr": fields["codeptr"]}
        named = {name: fields[name] for name in ("nelem", "nidxs", "ptr")}
        flag = call(137, r.arrays, at, named, self.arrays, nativeidxs=nativeidxs, allnonneg=allnonneg)
        self.k, self.c = self.k + k - terms, self.c + c - atoms
        r.assert_only_written()
        return flag

    def triplets(self):
        terms = len(self.arrays["param_varidx"])
        subi, subj, val = blank(terms), blank(terms), np.zeros(terms)
        k, _ = call(134, self.arrays, param_value=PARAMETERS, subi=subi, subj=subj, val=val, xf64=np.zeros(20))
        return sorted(zip(subi[:k].tolist(), subj[:k].tolist(), val[:k].tolist()))


def parametrised(record, native):
    """The (row, variable, value) that the table is to hold of a record, variables cut to 32 bits, and the number of
    atoms."""
    entries, atoms = [], 0
    for i, row in enumerate(native):
        for t in range(record.ptr[i], record.ptr[i + 1]):
            a, b = record.codeptr[t], record.codeptr[t + 1]
            if b - a != 1 or record.code[a] != 2:
                entries.append((row, int(record.nidxs[t]) % FIRST, run_code(record.code[a:b], record.cconst[a:b])))
                atoms += b - a
    return entries, atoms


@kinds
@pytest.mark.parametrize("seed", range(4))
@pytest.mark.parametrize("take_out", [138, 144])
def test_rows_filed_taken_out_and_replaced(kind, seed, take_out):
    rng = np.random.default_rng(seed)
    table = Table(kind)
    records = [random_record(rng, (n,), code=True) for n in (5, 3)]
    natives = [rng.permutation(ROWS)[: len(record.ptr) - 1].tolist() for record in records]
    stacks = [Stack("r", rng, [record], kind) for record in records]

    assert table.file(stacks[0], natives[0])
    entries, atoms = parametrised(records[0], natives[0])
    assert table.triplets() == sorted(entries)
    assert (table.k, table.c) == (len(entries), atoms)

    # The second record replaces its rows: those of the first that it has go out before.
    staying = [entry for entry in entries if entry[0] not in natives[1]]
    going = layout(i32(natives[1]), kind)
    if take_out == 138:
        table.c, table.k = call(138, table.arrays, nativeidxs=going, c=table.c, k=table.k)
        assert table.c == sum(call(139, table.arrays, c=0, row=row) for row in range(ROWS))
    else:
        table.k = call(144, table.arrays, nativeidxs=going, nelem=len(going), k=table.k)
    assert table.k == len(staying) and table.triplets() == sorted(staying)
    table.file(stacks[1], natives[1])
    entries, _ = parametrised(records[1], natives[1])
    assert table.triplets() == sorted(staying + entries)


def row_of(*terms, variable=3):
    """A record of one element whose terms have these codes."""
    atoms = [atom for term in terms for atom in term]
    ends = np.cumsum([0] + [len(term) for term in terms])
    code, cconst = i32([c for c, _ in atoms]), np.array([v for _, v in atoms], float)
    nidxs, cof = np.full(len(terms), variable), np.zeros(len(terms))
    return Record((1,), None, i32([0, len(terms)]), nidxs, cof, ends, code, cconst)


@pytest.mark.parametrize(
    "term, is_filed",
    [
        ([(2, 4.0)], False),
        ([(10, 0.0)], False),
        ([(1, 0.0)], True),
        ([(9, 0.0)], True),
        ([(2, 4.0), (7, 0.0)], True),
        ([], True),
    ],
)
def test_which_terms_are_trivial(term, is_filed):
    table = Table("contiguous")
    table.file(Stack("r", np.random.default_rng(0), [row_of([(2, 0.0)], term, [(2, 1.0)])]), [4])
    assert (table.k, table.c) == (is_filed, is_filed * len(term))
    assert table.arrays["param_code_sizes"].tolist() == [len(term)] * is_filed
    assert table.arrays["row_code_ptr"][4] == (0 if is_filed else -7)


@pytest.mark.parametrize("variable, flag, expected", [(0, True, True), (-999, True, False), (3, False, False)])
def test_a_negative_variable_clears_the_flag(variable, flag, expected):
    r = Stack("r", np.random.default_rng(0), [row_of([(1, 0.0)], variable=variable)])
    assert Table("contiguous").file(r, [4], flag) is expected
    trivial = Stack("r", np.random.default_rng(0), [row_of([(2, 0.0)], variable=variable)])
    assert Table("contiguous").file(trivial, [4], flag) is flag


def test_nothing_is_taken_out_without_a_table():
    rows, pointers = i32([0, 1]), i32([3, 4])
    assert call(138, nativeidxs=rows, c=5, k=6) == (5, 6)
    assert call(138, row_param_ptrb=pointers, row_param_ptre=pointers, c=5, k=6) == (5, 6)
    assert call(144, nativeidxs=rows, nelem=2, row_param_ptrb=pointers, row_param_ptre=pointers, k=6) == 6
    assert call(144, row_code_ptr=pointers, nelem=-1, k=6) == 6
    assert pointers.tolist() == [3, 4]


def test_capacities():
    for capacity, need, expected in ((8, 8, 8), (8, 9, 16), (1, 1000, 1024), (3, -5, 3)):
        assert kernel(140)(capacity, need) == kernel(141)(need, capacity) == expected
    for top, capacity, need, expected in ((6, 8, 3, 16), (6, 8, 2, 8), (0, 8, 9, 16), (-4, 8, 12, 8), (9, 8, 0, 16)):
        assert kernel(142)(top, capacity, need) == kernel(143)(need, top, capacity) == expected
    # Both the free room and the doubled capacity are 32-bit numbers that wrap around.
    assert kernel(142)(-3, 2**31 - 1, -5) == -2


@pytest.mark.parametrize("last", ["ptr", "codeptr", "code"])
@pytest.mark.parametrize("atoms", [[], [0], [0, 0], [0, 1], [1, 0], [1, 0, 2, 1, 0], [0, 3, 1, 0]])
def test_no_opcode_is_read_that_no_field_holds(last, atoms):
    ends, code = np.cumsum([0, *atoms]), ([2, 1, 5] * sum(atoms))[: sum(atoms)]
    fields = {"ptr": [0, len(atoms)], "codeptr": ends if atoms else [], "code": code}  # no terms have no `codeptr`
    order = sorted(fields, key=lambda name: name == last)
    at = {name: sum(len(fields[before]) for before in order[:k]) for k, name in enumerate(order)}
    ri32 = i32(np.concatenate([fields[name] for name in order]))
    filed = [n for n, first in zip(atoms, ends) if not (n == 1 and code[first] == 2)]
    assert call(135, at, ri32=ri32, nelem=1, k=4, c=6) == (4 + len(filed), 6 + sum(filed))
    rows = {name: i32([0]) for name in ("row_code_ptr", "row_param_ptrb", "row_param_ptre")}
    assert call(136, at, rows, ri32=ri32, nelem=1, nativeidxs=i32([0])) == (sum(filed), len(filed))
