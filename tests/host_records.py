"""Records on the stacks of the example host layer, and matrices for its operators."""

import numpy as np

from records import FIELDS, Record, evaluate
from support import i32

from host import operators


def push(s, record):
    """Pushes a record; its meaning."""
    at = s.r.reserve_record(len(record.shape), record.nelem, record.nnz, record.ncodeatom, record.hassp)
    for name, values in vars(record).items():
        if values is not None:
            getattr(s.r, FIELDS[name])[getattr(at, name) :][: len(values)] = values
    s.finish(0, at)
    return evaluate(record)


def read(s):
    """The last record on w, its tables in order."""
    e, w = s.records[-1], s.w
    ends = {"shape": e.nd, "sp": e.nelem, "ptr": e.nelem + 1, "nidxs": e.nnz, "cof": e.nnz,
            "codeptr": e.nnz + 1, "code": e.ncodeatom, "cconst": e.ncodeatom}  # fmt: skip
    fields = {name: getattr(w, FIELDS[name])[getattr(e, name) :][:count].copy() for name, count in ends.items()}
    for table, end in [("ptr", e.nnz)] + [("codeptr", e.ncodeatom)] * bool(e.ncodeatom):
        assert fields[table][0] == 0 and fields[table][-1] == end and np.all(np.diff(fields[table]) >= 0)
    assert not e.hassp or np.all(np.diff(fields["sp"]) > 0)
    assert e.hassp or e.nelem == np.prod(w.extents(e), dtype=int)
    absent = [] if e.hassp else ["sp"]
    absent += [] if e.ncodeatom else ["codeptr", "code", "cconst"]
    return Record(**{**fields, **dict.fromkeys(absent)})


def meaning(s):
    """The linear forms of the last record."""
    return evaluate(read(s))


def integers(rng, shape=()):
    return rng.integers(-3, 4, shape).astype(float)


def random_sparse_matrix(rng, rows, cols):
    """A sparse matrix, with stored zeros among its entries or with none at all, and the same as an array."""
    subi, subj = np.nonzero(rng.random((rows, cols)) < rng.choice([0.0, 0.5, 0.9]))
    dense = np.zeros((rows, cols))
    dense[subi, subj] = integers(rng, len(subi))
    return operators.SparseMatrix(rows, cols, i32(subi), i32(subj), dense[subi, subj]), dense
