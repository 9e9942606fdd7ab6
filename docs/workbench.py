"""What the examples of the operators stand on: records on three arrays, kernels called by names of parameters.

    w = operand((3,), [{7: 1.0}, {8: 1.0}, {9: 1.0}])    a record of three elements on a w stack
    r = room((2, 1), elements=2, terms=3, sp=True)       room for a result on an r stack
    run("write_sparse_product", w, r, d0=1, ...)         arguments that are not given come from the records
    show(r)                                              prints the record as formulas
"""

import math
from collections import ChainMap

import numpy as np

from fragments_kernels import SIGNATURES, call
from fragments_kernels.records import mark_unwritten, show_record


class OnStack(dict):
    """A record or scratch on a stack, as the arguments of kernels: names of parameters and what they are given."""

    def __init__(self, prefix, i32=0, i64=0, f64=0):
        self.arrays = np.zeros(i32, np.int32), np.zeros(i64, np.int64), np.zeros(f64)
        super().__init__(zip((f"{prefix}i32", f"{prefix}i64", f"{prefix}f64"), self.arrays))


def place(stack, prefix, shape, nelem, nnz, ncodeatom, sp):
    """A record's positions: one field behind the other in each array."""
    nd, coded = len(shape), ncodeatom > 0
    ptr = nd
    codeptr = ptr + nelem + 1
    record = OnStack(stack, codeptr + (nnz + 1 + ncodeatom) * coded, nnz + nelem * sp, nnz + ncodeatom)
    mark_unwritten(*record.arrays)
    i32, _, _ = record.arrays
    i32[:nd], i32[ptr] = shape, 0  # slot 0 of `ptr` and `codeptr` is the caller's
    if coded:
        i32[codeptr] = 0
    record.fields = {
        "shape": 0, "ptr": ptr, "codeptr": codeptr, "code": codeptr + nnz + 1, "nidxs": 0, "sp": nnz,
        "cof": 0, "cconst": nnz, "nd": nd, "nelem": nelem, "nnz": nnz, "ncodeatom": ncodeatom, "hassp": sp,
    }  # fmt: skip
    record.update((prefix + name, value) for name, value in record.fields.items())
    return record


def operand(shape, forms, sp=None):
    """A record on w: one {variable: coefficient} for each stored element, whose flat positions are `sp`."""
    record = place("w", "", shape, len(forms), sum(map(len, forms)), 0, sp is not None)
    i32, i64, f64 = record.arrays
    i32[len(shape) + 1 :] = np.cumsum([len(form) for form in forms])
    i64[:] = [variable for form in forms for variable in form] + list(sp if sp is not None else [])
    f64[:] = [coefficient for form in forms for coefficient in form.values()]
    return record


ARRAY_OF = {"shape": 0, "ptr": 0, "codeptr": 0, "code": 0, "nidxs": 1, "sp": 1, "cof": 2, "cconst": 2}


def together(*operands):
    """Operands on one w stack, one behind the other: the fields of the first two with 1 and 2 behind their names, and a
    table of each field, whose name ends in `_base` but for `codeptr`, `code` and `cconst`."""
    record = OnStack("w")
    record.arrays = [np.concatenate(arrays) for arrays in zip(*(operand.arrays for operand in operands))]
    record.update(zip(("wi32", "wi64", "wf64"), record.arrays))
    start, rows = (0, 0, 0), []
    for operand in operands:
        fields = operand.fields.items()
        rows.append({name: start[ARRAY_OF[name]] + at if name in ARRAY_OF else at for name, at in fields})
        start = [top + len(array) for top, array in zip(start, operand.arrays)]
    for number, row in enumerate(rows, 1):
        record.update((f"{name}{number}", value) for name, value in row.items())
    for name in ARRAY_OF.keys() | {"nd", "nelem", "nnz", "ncodeatom", "hassp"}:
        table = name + "_base" if name in ("shape", "ptr", "nidxs", "sp", "cof") else name
        record[table] = np.array([row[name] for row in rows], np.int32)
    return record


def room(shape, elements=None, terms=0, atoms=0, sp=False):
    """Room for a record on r; a dense one has all elements of its shape."""
    record = place("r", "r", shape, math.prod(shape) if elements is None else elements, terms, atoms, sp)
    record["rhascode"] = record["hascode"] = int(atoms > 0)
    return record


def as_operand(result):
    """A finished result as the operand of the next operator: the r stack becomes the w stack."""
    record = OnStack("w")
    record.arrays, record.fields = result.arrays, result.fields
    record.update(zip(("wi32", "wi64", "wf64"), result.arrays), **result.fields)
    return record


def scratch(i32=0, i64=0, f64=0):
    """An x stack."""
    return OnStack("x", i32, i64, f64)


def run(name, *records, **arguments):
    """Calls a kernel with the arguments and, for its other parameters, what the records have under their names."""
    known = ChainMap(arguments, *records)
    parameters = [parameter.split(":")[0] for parameter in SIGNATURES[name][1].split()]
    return call(name, **{**arguments, **{p: known[p] for p in parameters if p in known}})


def show(record):
    """Prints a finished record as formulas."""
    show_record(record.arrays, record.fields)
