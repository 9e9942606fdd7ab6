"""The cases of the bench: what the kernel, the hand-written loop and NumPy or SciPy each do in the same work.

A family is a function of a number of terms and of what its variants fix; it returns a Case. Its numpy() returns the
result by name, which also tells what room the other two need for theirs.
"""

import ctypes
import functools
import struct
import sys
from collections import ChainMap, namedtuple
from pathlib import Path

import numpy as np
import scipy.sparse

import fragments

sys.path.append(str(Path(__file__).resolve().parent.parent / "tools"))
from declarations import read_kernels  # noqa: E402

RNG = np.random.default_rng(7)
LOOPS = ctypes.PyDLL(str(Path(fragments.__file__).parent / "libhand_written.so"))
PARAMETERS = {number: declared.parameters for declared in read_kernels() for number in declared.numbers}
EMPTY = {"i": 0, "L": 0, "d": 0.0, "p": False}

# The fields of a record, first those that a hand-written loop takes, and the array of a stack that holds each.
FIELDS = {"sp": "i64", "ptr": "i32", "nidxs": "i64", "cof": "f64", "codeptr": "i32", "code": "i32", "cconst": "f64"}
FIELDS["shape"] = "i32"
LENGTHS = {"1 term": {"length": 1}, "3 terms": {"length": 3}, "12 terms": {"length": 12}}
FAMILIES = []


# Three calls that do the same work: `written` is what the kernel writes by name, `by_hand` what the loop writes.
Case = namedtuple("Case", "units kernel hand numpy written by_hand")
Family = namedtuple("Family", "name kernels variants sized make")


def family(name, kernels, variants=LENGTHS, sized=True):
    """Registers a family; `variants` maps texts to keyword arguments."""
    return lambda make: FAMILIES.append(Family(name, kernels, variants, sized, make)) or make


# ------------------------------------------------------------------------------------------------------ the three sides


class Stack:
    """Records in the three arrays of a stack: `arguments` for a kernel that takes one record or numbered ones, `tables`
    for one that takes any number, `records` as they stand in the arrays."""

    def __init__(self, letter, *records):
        self.records, self.arguments, self.tables = [{} for _ in records], {}, {}
        scalars = [dict.fromkeys(FIELDS, 0) for _ in records]
        for kind, dtype in (("i32", np.int32), ("i64", np.int64), ("f64", np.float64)):
            fields = [(k, name) for k, record in enumerate(records) for name in record if FIELDS[name] == kind]
            ends = starts([len(records[k][name]) for k, name in fields])
            self.arguments[letter + kind] = array = np.zeros(ends[-1], dtype)
            for (k, name), begin, end in zip(fields, ends, ends[1:]):
                scalars[k][name] = int(begin)
                self.records[k][name] = array[begin:end]
                array[begin:end] = records[k][name]
        for k, record in enumerate(records):
            number = k + 1 if len(records) > 1 else ""
            scalars[k] |= {"hassp": "sp" in record, "ncodeatom": len(record.get("code", ()))}
            scalars[k] |= {"nelem": len(record["ptr"]) - 1}
            self.arguments |= {f"{'r' * (letter == 'r')}{name}{number}": value for name, value in scalars[k].items()}
        for name in scalars[0]:
            table = name + "_base" if name in ("sp", "ptr", "nidxs", "cof", "shape") else name
            self.tables[table] = np.array([values[name] for values in scalars], np.int32)


def kernel(number, *mappings):
    """A call of a kernel for arguments by name; arrays as memoryviews, as host layers keep them."""
    given = ChainMap(*mappings)
    arguments = [given.get(name, EMPTY.get(kind)) for name, kind in PARAMETERS[number]]
    arguments = [memoryview(a) if isinstance(a, np.ndarray) else a for a in arguments]
    return functools.partial(getattr(fragments, f"_c_closure_{number}"), *arguments)


def by_hand(name, *arguments):
    """A call of a hand-written loop, its arguments packed; records, which are dicts, and lists of them by address."""
    kept = []  # what the addresses lead to

    def keep(data):
        kept.append(ctypes.create_string_buffer(data))
        return struct.pack("P", ctypes.addressof(kept[-1]))

    def pack(value):
        if isinstance(value, np.ndarray):
            kept.append(value)
            return struct.pack("P", value.ctypes.data)
        if isinstance(value, dict):  # the zeros are a Result's counts
            return keep(b"".join(pack(value.get(name)) for name in FIELDS if name != "shape") + bytes(16))
        if isinstance(value, list):
            return keep(b"".join(map(pack, value)))
        return struct.pack("d", value) if isinstance(value, float) else struct.pack("q", value or 0)

    keep(b"".join(map(pack, arguments)))
    call = functools.partial(getattr(LOOPS, name), kept[-1])
    call.kept = kept
    return call


def in_turn(calls):
    """One call that makes all calls."""
    return calls[0] if len(calls) == 1 else lambda: [call() for call in calls]


def operator(numbers, loop, w, arguments, numpy, /, **named):
    """The case of kernels that take records on w to one on r: `arguments` are those of the loop but for the result,
    `named` those of the kernels but for the records."""
    r, h = (Stack("r", {name: np.zeros(len(values)) for name, values in numpy().items()}) for _ in range(2))
    calls = in_turn([kernel(number, named, w.arguments, r.arguments) for number in numbers])
    hand = by_hand(loop, *arguments, h.records[0])
    return Case(len(r.records[0]["cof"]), calls, hand, numpy, r.records[0], h.records[0])


def over_arrays(units, calls, loop, arguments, numpy, /, **room):
    """The case of kernels that write plain arrays: `calls` makes their calls from the arrays of `room`, in which the
    result comes in as zeros; `arguments` are those of the loop but for these arrays."""
    copy = {name: array.copy() for name, array in room.items()}
    return Case(units, in_turn(calls(room)), by_hand(loop, *arguments, *copy.values()), numpy, room, copy)


# ------------------------------------------------------------------------------------------- operands and the NumPy way


def starts(lengths):
    """Where runs of these lengths begin, and where the last one ends."""
    return np.concatenate([[0], np.cumsum(lengths)]).astype(np.int64)


def runs(first, lengths):
    """The numbers first[k] .. first[k] + lengths[k] - 1 for all k."""
    ends = starts(lengths)
    return np.arange(ends[-1]) + np.repeat(first - ends[:-1], lengths)


def record(nelem, length, atoms=0, **fields):
    """A record of `length` terms an element on average and, with `atoms`, so many atoms a term."""
    ptr = starts(RNG.integers(1, 2 * length, nelem) if length > 1 else np.ones(nelem))
    fields |= {"ptr": ptr, "nidxs": RNG.integers(1, 10**6, ptr[-1]), "cof": RNG.normal(size=ptr[-1])}
    if atoms:
        codeptr = starts(RNG.integers(1, 2 * atoms, ptr[-1]))
        fields |= {"codeptr": codeptr, "code": np.ones(codeptr[-1]), "cconst": RNG.random(codeptr[-1])}
    return fields


def pattern(size, density):
    return np.flatnonzero(RNG.random(size) < density)


def matrix(rows, columns, d0):
    """A matrix of ten entries a row, and d0."""
    step, nnz = columns // 10, 10 * rows
    subj = np.arange(10) * step + RNG.integers(0, step, (rows, 10))
    subi, subj = np.repeat(np.arange(rows), 10).astype(np.int32), subj.ravel().astype(np.int32)
    return {"d0": d0, "d1": columns, "mnnz": nnz, "msubi": subi, "msubj": subj, "mval": RNG.normal(size=nnz)}


def elements(e, f, every=1):
    """The elements f of a record, `every` so many of them in one."""
    lengths = np.diff(e["ptr"])[f]
    terms = runs(e["ptr"][f], lengths)
    return {"ptr": starts(lengths)[::every], "nidxs": e["nidxs"][terms], "cof": e["cof"][terms]}


def joined(records, factors=None):
    """Records one behind the other, times their factors."""
    cof = [e["cof"] * c for e, c in zip(records, factors)] if factors is not None else [e["cof"] for e in records]
    lengths = np.concatenate([np.diff(e["ptr"]) for e in records])
    return {"ptr": starts(lengths), "nidxs": np.concatenate([e["nidxs"] for e in records]), "cof": np.concatenate(cof)}


def grouped(result, position):
    """A result, ordered by position, with all elements of one position in one."""
    first = np.flatnonzero(np.diff(position, prepend=-1))
    return result | {"ptr": np.append(result["ptr"][first], result["ptr"][-1]), "sp": position[first]}


# --------------------------------------------------------------------------------------------------------- the families


CODE = {f"code: {n} x {a} atoms": {"length": n, "atoms": a} for n, a in ((1, 1), (3, 2), (12, 6))}


@family("sparse product", "472", {**LENGTHS, **CODE})
def sparse_product(size, length, atoms=0):
    n = max(10, size // (10 * length * (1 + atoms)))
    m, w = matrix(n, n, 1), Stack("w", record(n, length, atoms))
    e, f = w.records[0], m["msubj"]

    def numpy():
        result = elements(e, f)
        lengths = np.diff(result["ptr"])
        factors = np.repeat(m["mval"], lengths)
        if atoms:
            terms = runs(e["ptr"][f], lengths)
            sizes = np.diff(e["codeptr"])[terms]
            codeptr = starts(sizes + 2)
            code, cconst = np.full(codeptr[-1], 5), np.zeros(codeptr[-1])
            code[codeptr[1:] - 2], cconst[codeptr[1:] - 2] = 2, factors
            source, target = runs(e["codeptr"][terms], sizes), runs(codeptr[:-1], sizes)
            code[target], cconst[target] = e["code"][source], e["cconst"][source]
            result |= {"codeptr": codeptr, "code": code, "cconst": cconst}
        return result | {"ptr": result["ptr"][::10], "sp": m["msubi"][::10], "cof": result["cof"] * factors}

    return operator([472], "sparse_product", w, (*m.values(), e), numpy, **m)


@family("dense product, a row", "468")
def dense_product_row(size, length):
    d = max(1, int((size / length) ** 0.5))
    w, row = Stack("w", record(d * d, length)), RNG.normal(size=d)
    e = w.records[0]
    return operator(
        [468], "dense_product_row", w, (d, d, row, e),
        lambda: {"ptr": e["ptr"][::d], "cof": e["cof"] * np.repeat(np.tile(row, d), np.diff(e["ptr"]))},
        d0=d, d1=d, mval=row,
    )  # fmt: skip


@family("sparse times sparse", "473")
def sparse_sparse_product(size, length):
    m = matrix(max(10, size // (60 * length)), 100, 20)
    sp = pattern(2000, 0.3)
    w = Stack("w", record(len(sp), length, sp=sp))
    e = w.records[0]

    def numpy():
        t, j = np.divmod(sp, 100)
        counts = np.bincount(j, minlength=100)
        matches = counts[m["msubj"]]
        f = np.argsort(j, kind="stable")[runs(starts(counts)[m["msubj"]], matches)]
        position = np.repeat(m["msubi"] * 20, matches) + t[f]
        order = np.argsort(position, kind="stable")
        result = elements(e, f[order])
        result["cof"] *= np.repeat(np.repeat(m["mval"], matches)[order], np.diff(result["ptr"]))
        return grouped(result, position[order])

    return operator([473], "sparse_sparse_product", w, (*m.values(), len(sp), e), numpy, **m)


@family("weighted sum, dense", "504")
def dense_sum(size, length):
    n = size // (2 * length)
    w = Stack("w", record(n, length), record(n, length))
    return operator(
        [504], "dense_sum", w, (n, 2.0, 3.0, *w.records),
        lambda: elements(joined(w.records, (2.0, 3.0)), np.arange(2 * n).reshape(2, n).T.ravel(), every=2),
        c1=2.0, c2=3.0,
    )  # fmt: skip


@family("weighted sum, dense + sparse", "506")
def dense_sparse_sum(size, length):
    n = max(1, 10 * size // (13 * length))
    sp = pattern(n, 0.3)
    w = Stack("w", record(n, length), record(len(sp), length, sp=sp))

    def numpy():
        position = np.concatenate([np.arange(n), sp])
        order = np.argsort(position, kind="stable")
        result = grouped(elements(joined(w.records, (2.0, 3.0)), order), position[order])
        return {name: result[name] for name in ("ptr", "nidxs", "cof")}

    return operator([506], "dense_sparse_sum", w, (n, len(sp), 2.0, 3.0, *w.records), numpy, c1=2.0, c2=3.0)


@family("sum of several, sparse", "525", {f"{n} operands": {"n": n} for n in (3, 10)})
def sum_of_sparse(size, n):
    w = Stack("w", *(record(len(sp), 2, sp=sp) for sp in (pattern(size // n, 0.5) for _ in range(n))))
    weights = RNG.normal(size=n)

    def numpy():
        position = np.concatenate([e["sp"] for e in w.records])
        order = np.argsort(position, kind="stable")
        return grouped(elements(joined(w.records, weights), order), position[order])

    arguments = (n, weights, w.tables["nelem"], w.records)
    return operator([525], "sum_of_sparse", w, arguments, numpy, w=weights, **w.tables, n=n)


@family("stack, dense, side by side", "436")
def dense_stack(size, length):
    rows = max(1, int((size / length / 3) ** 0.5))
    columns = np.array([rows, rows // 2, rows + rows // 2], np.int32)
    w = Stack("w", *(record(rows * n, length) for n in columns))

    def numpy():
        numbers = np.split(np.arange(rows * columns.sum()), rows * np.cumsum(columns)[:-1])
        return elements(joined(w.records), np.hstack([k.reshape(rows, -1) for k in numbers]).ravel())

    arguments = (3, rows, columns, w.records)
    return operator([436], "dense_stack", w, arguments, numpy, n=3, d0=rows, d1s=columns, d2=1, **w.tables)


@family("stack, sparse, first axis", "439")
def sparse_stack(size, length):
    extent = max(4, 2 * size // (3 * length))
    patterns = [pattern(extent, 0.5) for _ in range(3)]
    w = Stack("w", *(record(len(sp), length, sp=sp, shape=[extent]) for sp in patterns))
    return operator(
        [439], "sparse_stack", w, (3, extent, w.tables["nelem"], w.records),
        lambda: joined(w.records) | {"sp": np.concatenate([e["sp"] + k * extent for k, e in enumerate(w.records)])},
        n=3, nd=1, **w.tables,
    )  # fmt: skip


@family("sum along an axis", "539")
def sum_axis(size, length):
    inner = max(1, size // (100 * length))
    w = Stack("w", record(100 * inner, length))
    e = w.records[0]
    return operator(
        [539], "sum_axis", w, (10, 10, inner, e),
        lambda: elements(e, np.arange(100 * inner).reshape(10, 10, inner).swapaxes(1, 2).ravel(), every=10),
        outer=10, ext=10, inner=inner, ext_inner=10 * inner, inner_step=inner, rnelem=0,
    )  # fmt: skip


@family("transposition", "423")
def transpose(size, length):
    rows = max(1, int((size / length / 2) ** 0.5))
    w = Stack("w", record(2 * rows * rows, length))
    e = w.records[0]
    return operator(
        [423], "transpose", w, (rows, 2 * rows, e),
        lambda: elements(e, np.arange(2 * rows * rows).reshape(rows, 2 * rows).T.ravel()), rows=rows, cols=2 * rows,
    )  # fmt: skip


@family("pick", "410")
def pick(size, length):
    n = size // length
    w, idxs = Stack("w", record(n, length)), RNG.integers(0, n, n)
    return operator([410], "pick", w, (n, idxs, w.records[0]), lambda: elements(w.records[0], idxs), idxs=idxs)


@family("slice", "417")
def slice_box(size, length):
    n = max(8, int((2 * size / length) ** 0.5))
    low, high = n // 8, n - n // 8
    w = Stack("w", record(n * n, length, shape=[n, n]))
    e = w.records[0]
    return operator(
        [417], "slice", w, (n, low, high, low, high, e),
        lambda: elements(e, np.arange(n * n).reshape(n, n)[low:high, low:high].ravel()),
        nd=2, first=np.full(2, low, np.int32), last=np.full(2, high, np.int32), st=np.array([n, 1]),
    )  # fmt: skip


MERGES = {f"{n} of {v} variables": {"length": n, "variables": v} for n, v in ((4, 8), (40, 100), (40, 10_000))}


@family("merge terms", "392, 397, 400", MERGES)
def merge_terms(size, length, variables):
    w = Stack("w", record(max(1, size // length), length))
    e = w.records[0]
    e["nidxs"][:] = RNG.integers(1, variables, len(e["nidxs"]))
    nelem, indices = len(e["ptr"]) - 1, e["nidxs"].astype(np.int32)

    def numpy():
        arrays = e["cof"].copy(), indices.copy(), e["ptr"].copy()
        rows = scipy.sparse.csr_matrix(arrays, shape=(nelem, variables))
        rows.sum_duplicates()
        return {"ptr": rows.indptr, "nidxs": rows.indices, "cof": rows.data}

    x = {"perm": 0, "bucket": len(indices), "xi32": np.zeros(len(indices) + 2 * length, np.int32)}
    return operator([392, 397, 400], "merge_terms", w, (nelem, e), numpy, **x)._replace(units=len(indices))


@family("triplets to CSR", "113-128", {"rows in order": {"ordered": True}, "any order": {"ordered": False}})
def triplets_to_csr(size, ordered):
    n = max(1, size // 8)
    subi = RNG.integers(0, n, size).astype(np.int32)
    subi = np.sort(subi) if ordered else subi
    subj = ((subi + RNG.integers(0, 40, size)) % n).astype(np.int32)
    triplets = {"subi": subi, "subj": subj, "val": RNG.normal(size=size)}
    coo = scipy.sparse.coo_matrix((triplets["val"], (subi, subj)), (n, n))

    def numpy():
        csr = coo.tocsr()
        return {"rptr": np.append(0, csr.indptr), "tsubj": csr.indices, "tval": csr.data}

    merged, first = len(numpy()["tval"]), np.lexsort((subj, subi))[0]
    buckets = {"rptrb": np.zeros(n + 2, np.int64), "cptrb": np.zeros(n + 2, np.int64)}
    lists = {"rows": np.zeros(size, np.int32), "cols": np.zeros(size, np.int32)}

    def calls(to):
        def begin():
            for array in (*buckets.values(), to["rptr"]):
                array[:] = 0
            to["tsubi"][0], to["tsubj"][0], to["tval"][0] = subi[first], subj[first], triplets["val"][first]

        sort = [kernel(number, {"n": n, "nnz": size}, triplets, buckets, lists) for number in (113, 114, 115, 123, 126)]
        merge = [kernel(number, {"c": 1, "nnz": size}, triplets, lists, to) for number in (127, 128)]
        result = {"nnz": merged, "subi": to["tsubi"], "rptrb": to["rptr"], "n": n + 1}
        return [begin, *sort, *merge, *(kernel(number, result) for number in (124, 114))]

    room = {"rptr": np.zeros(n + 2, np.int64), "tval": np.zeros(merged)}
    room |= {name: np.zeros(merged, np.int32) for name in ("tsubi", "tsubj")}
    return over_arrays(size, calls, "triplets_to_csr", (size, n, n, *triplets.values()), numpy, **room)


PROGRAMS = {"a constant": ["c"], "c*p": ["cp*"], "c*p*c*c": ["cp*c*c*"], "a sum of 8": ["pppppppps"]}
PROGRAMS["a mix"] = ["c", "p", "cp*", "cp*c+", "pc*p+c*", "pppps"]
VARIANTS = {name: {"programs": programs} for name, programs in PROGRAMS.items()}
VARIANTS["a mix, one row (25)"] = {"programs": PROGRAMS["a mix"], "number": 25}


@family("evaluation of code", "134", VARIANTS)
def evaluate(size, programs, number=134):
    """Rows of eight terms, each term with one of the programs: "c" and "p" push, "s" adds up all."""
    picked, lengths = RNG.integers(0, len(programs), size), np.array([len(program) for program in programs])
    sizes = lengths[picked].astype(np.int32)
    source, codeptr = runs(starts(lengths)[picked], sizes), starts(sizes)
    code = np.array([{"p": 1, "c": 2, "+": 3, "*": 5, "s": 8}[atom] for atom in "".join(programs)], np.int32)[source]
    cconst = np.where(code == 8, np.repeat(lengths - 1, lengths)[source], RNG.integers(0, 10, len(source))) * 1.0
    ends = np.array([0, size]) if number == 25 else np.append(np.arange(0, size, 8), size)
    begin, end, first = (array.astype(np.int32) for array in (ends[:-1], ends[1:], codeptr[ends[:-1]]))
    variables, parameters, stack = RNG.integers(1, 10**6, size), np.zeros(10), np.zeros(16)

    named = {"code": code, "cconst": cconst, "param_value": parameters, "xf64": stack, "nrows": len(begin)}
    named |= {"row_param_ptrb": begin, "row_param_ptre": end, "row_code_ptr": first, "rowptrb": begin, "rowptre": end}
    named |= {"codeptr": first, "param_code_sizes": sizes, "codesizes": sizes}
    named |= {"param_varidx": variables, "codenidx": variables}
    arguments = (len(begin), begin, end, first, sizes, code, cconst, variables, parameters, stack)
    arguments += () if number == 134 else (None,)
    room = {"subi": np.zeros(size, np.int32)} if number == 134 else {}
    room |= {"subj": np.zeros(size, np.int32), "val": np.zeros(size)}
    case = over_arrays(size, lambda to: [kernel(number, named, to)], "evaluate_rows", arguments, None, **room)

    # For SciPy all programs are affine in the parameters: a matrix, made beforehand, and constants.
    columns = []
    for parameters[:] in (np.zeros(10), *np.eye(10)):
        case.kernel()
        columns.append(scipy.sparse.csc_matrix(room["val"][:, None]))
    constants, parameters[:] = columns[0].toarray().ravel(), RNG.normal(size=10)
    matrix = scipy.sparse.hstack([column - columns[0] for column in columns[1:]]).tocsr()
    return case._replace(numpy=lambda: {"val": matrix @ parameters + constants})


@family("linear terms of rows", "76", {"8 terms": {}})
def linear_terms(size):
    n = max(1, size // 8)
    rows = record(n, 8)
    rows["nidxs"][rows["ptr"][:-1:2]] = 0  # a constant in every second row
    w = Stack("r", rows)
    e, named = w.records[0], {"ppos": 0, "n": n}

    def numpy():
        linear = e["nidxs"] > 0
        row = np.searchsorted(e["ptr"], np.flatnonzero(~linear), "right") - 1
        return {
            "bfix": np.bincount(row, e["cof"][~linear], n), "ptrb": starts(linear)[e["ptr"]],
            "subj": e["nidxs"][linear].astype(np.int32), "cof": e["cof"][linear],
        }  # fmt: skip

    linear = len(numpy()["cof"])
    return over_arrays(
        len(e["cof"]), lambda to: [kernel(76, to, named, w.arguments)], "linear_terms", (n, e), numpy,
        bfix=np.zeros(n), ptrb=np.zeros(n + 1, np.int32), subj=np.zeros(linear, np.int32), cof=np.zeros(linear),
    )  # fmt: skip


@family("values of variables", "17", {"any order": {}})
def gather_variables(size):
    numbers, xx = RNG.integers(1, size, size), RNG.normal(size=size)
    return over_arrays(
        size, lambda to: [kernel(17, to, {"n": size, "nativeidxs": numbers, "xx": xx})], "gather_variables",
        (size, numbers, xx), lambda: {"res": np.take(xx, numbers)}, res=np.zeros(size),
    )  # fmt: skip


CALLS = {f"{n} arguments, {kind}": {"n": n, "kind": kind} for n in (2, 30) for kind in ("arrays", "memoryviews")}
CALLS["30 arguments, None"] = {"n": 30, "kind": "None"}


@family("nothing to do", "0, 472", CALLS, sized=False)
def call(_, n, kind):
    """What a call costs by itself."""
    shape, w = np.array([2, 3], np.int32), Stack("w", record(0, 1))
    if n == 2:
        made, numpy = kernel(0, {"acc": 1, "shape": shape}), shape.prod
        hand = by_hand("array_size", 2, shape, np.zeros(1, np.int32))
    else:
        m, numpy = matrix(0, 10, 1), functools.partial(elements, w.records[0], np.zeros(0, np.int64))
        made = kernel(472, w.arguments, Stack("r", record(0, 1)).arguments, m)
        hand = by_hand("sparse_product", *m.values(), w.records[0], w.records[0])
    convert = {"arrays": np.asarray, "memoryviews": memoryview, "None": lambda view: None}[kind]
    arguments = [convert(a) if isinstance(a, memoryview) else a for a in made.args]
    # ctypes calls the loop with as many arguments, pointers for arrays; it uses the first one.
    others = [hand.args[0] if isinstance(a, memoryview) else a for a in made.args[1:]]
    repeat = range(1000)
    return Case(
        len(repeat), lambda: [made.func(*arguments) for _ in repeat], lambda: [hand(*others) for _ in repeat],
        lambda: [numpy() for _ in repeat], {}, {},
    )  # fmt: skip
