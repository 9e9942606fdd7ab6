"""Models that outgrow a process, built block by block: few rows at a time are evaluated, then moved to a store.

    with RowStore(rows, terms, model.columns, "model.h5") as store:
        peak = build_in_blocks(model, (part(block) for block in row_blocks(matrix, 10**6)), store)
    store = RowStore.open("model.h5")              # mapped into memory, read where it is looked at
    store.matrix()

Positions on a stack are 32-bit and so are the row starts of a `Model`: neither holds 2^31 terms. The stacks of a block
are as large as the block, whatever the size of the model, and a store has 64-bit row starts. The matrix in a store is
that of `Model.matrix()`: the same terms in the same order, bit for bit, however the rows were cut into blocks.
"""

from __future__ import annotations

import os
from dataclasses import replace
from typing import Callable, Dict, Iterable, Iterator, NamedTuple, Optional, Tuple

import h5py
import numpy as np
from scipy.sparse import csr_matrix

from .checks import count
from .model import Model, Problem
from .operators import SparseMatrix, sparse_matrix_arguments
from .stacks import Stacks

_TYPES = {"ptr": np.int64, "subj": np.int32, "cof": np.float64, "lo": np.float64, "hi": np.float64}


def _sizes(rows: int, terms: int) -> Tuple[int, ...]:
    """Lengths of the arrays of so many rows and terms."""
    return rows + 1, terms, terms, rows, rows


class RowBlock(NamedTuple):
    """Rows of a matrix and their bounds lo <= row <= hi: the terms of row i are ptr[i] .. ptr[i+1]-1, ptr[0] is 0."""

    ptr: np.ndarray  # rows + 1, int32
    subj: np.ndarray  # terms, int32: columns
    cof: np.ndarray  # terms, float64
    lo: np.ndarray  # rows, float64
    hi: np.ndarray  # rows, float64


class RowStore:
    """One matrix with bounds of its rows, to which blocks of rows are appended: in memory, or in an HDF5 file.

    rows, terms: the room, which may be more than is used, as neither memory nor disk is taken before it is written;
    columns: of the matrix. A file gets its name when the store is closed without a fault; before, ".partial" is
    behind it. After closing, the rows are there through `RowStore.open` alone, which maps them into memory. `more` is
    for further arrays of the model, by name; they go to the file when it is closed.
    """

    def __init__(self, rows: int, terms: int, columns: int, path: Optional[str] = None) -> None:
        rows, terms = count(rows, "the number of rows"), count(terms, "the number of terms")
        if not 0 <= columns < 2**31:
            raise ValueError(f"{columns} columns: columns are numbered in 32 bits, below 2^31")
        self.columns, self.path = columns, path
        self.nrows = self.nnz = 0
        self.more: Dict[str, np.ndarray] = {}
        self._file = h5py.File(path + ".partial", "w") if path else None
        self._arrays: Dict = {
            name: self._file.create_dataset(name, (size,), kind) if self._file else np.empty(size, kind)
            for (name, kind), size in zip(_TYPES.items(), _sizes(rows, terms))}
        self._arrays["ptr"][:1] = 0

    @classmethod
    def open(cls, path: str) -> RowStore:
        """The store in a closed file, its arrays mapped into memory, read-only. ValueError if it is no such file."""
        store = cls.__new__(cls)
        try:
            with h5py.File(path, "r") as file:
                store.more = {name: file[name][:] for name in file.keys() - _TYPES.keys()}
                store.nrows, store.nnz, store.columns = (int(file.attrs[name]) for name in ("rows", "terms", "columns"))
                store._arrays = {name: np.memmap(path, kind, "r", file[name].id.get_offset(), (size,))
                                 if size else np.empty(0, kind)
                                 for (name, kind), size in zip(_TYPES.items(), _sizes(store.nrows, store.nnz))}
        except (OSError, KeyError, TypeError, ValueError) as fault:
            if isinstance(fault, FileNotFoundError):
                raise
            raise ValueError(f"{path}: no file of a row store: {fault}") from None
        store.path, store._file = path, None
        return store

    def append(self, block: RowBlock) -> None:
        """Appends the rows of a block. Raises ValueError, and leaves the store as it is, if they do not fit."""
        if self.path and not self._file:
            raise ValueError(f"{self.path}: the store is closed")
        rows, nnz = self.nrows + len(block.lo), self.nnz + len(block.cof)
        if rows > len(self._arrays["lo"]) or nnz > len(self._arrays["cof"]):
            raise ValueError(f"{rows} rows with {nnz} terms do not fit a store with room for "
                             f"{len(self._arrays['lo'])} rows with {len(self._arrays['cof'])} terms")
        if len(block.subj) and not 0 <= block.subj.min() <= block.subj.max() < self.columns:
            raise ValueError(f"a term in column {block.subj.max()} of a store with {self.columns} columns")
        self._arrays["ptr"][self.nrows + 1:rows + 1] = block.ptr[1:].astype(np.int64) + self.nnz
        for name in ("subj", "cof"):
            self._arrays[name][self.nnz:nnz] = getattr(block, name)
        for name in ("lo", "hi"):
            self._arrays[name][self.nrows:rows] = getattr(block, name)
        self.nrows, self.nnz = rows, nnz

    def matrix(self, first: int = 0, last: Optional[int] = None) -> csr_matrix:
        """The rows first .. last-1, by default all. Terms share the memory, or stay in the file until they are used."""
        last = self.nrows if last is None else last
        if not 0 <= first <= last <= self.nrows:
            raise ValueError(f"rows {first} up to {last} of a store with {self.nrows} rows")
        ptr = self._arrays["ptr"][first:last + 1]
        begin, end = (int(ptr[0]), int(ptr[-1]))
        # From 2^31 terms on the row starts stay 64-bit, and then SciPy copies the columns to 64 bits too.
        ptr = (ptr - begin).astype(np.int32 if end - begin < 2**31 else np.int64)
        return csr_matrix((self._arrays["cof"][begin:end], self._arrays["subj"][begin:end], ptr),
                          shape=(last - first, self.columns))

    def bounds(self) -> Tuple[np.ndarray, np.ndarray]:
        """Lower and upper bounds of all rows."""
        return self._arrays["lo"][:self.nrows], self._arrays["hi"][:self.nrows]

    def close(self) -> None:
        """Ends the file, if there is one, and gives it its name."""
        if self._file:
            for name, array in self.more.items():
                self._file[name] = array
            self._file.attrs.update(rows=self.nrows, terms=self.nnz, columns=self.columns)
            self._file.close()
            os.replace(self.path + ".partial", self.path)
            self._file = None

    def __enter__(self) -> RowStore:
        return self

    def __exit__(self, kind, *_) -> None:
        if kind is None:
            self.close()
        elif self._file:
            self._file.close()
            os.remove(self.path + ".partial")


def build_in_blocks(model: Model, blocks: Iterable[Callable[[Model], None]], store: RowStore) -> int:
    """Calls each of `blocks`, which constrain expressions of the model, and moves its rows to the store.

    Returns the bytes of the model's stacks at their largest, after a block; of blocks of more than `model.LARGE` terms
    they keep nothing.
    """
    peak = stack_bytes(model.stacks)
    for block in blocks:
        block(model)
        store.append(RowBlock(*model.take_rows()))
        peak = max(peak, stack_bytes(model.stacks))
    return peak


def problem_of(model: Model, store: RowStore) -> Problem:
    """The model with the rows of a store as one matrix, as `Model.problem` gives it."""
    A = store.matrix().copy()
    A.sum_duplicates()
    lo, hi = store.bounds()
    return replace(model.problem(), A=A, lo=np.array(lo), hi=np.array(hi))


def stack_bytes(stacks: Stacks) -> int:
    """Bytes of all arrays of the stacks, which never shrink."""
    return sum(array.nbytes for s in (stacks.r, stacks.w, stacks.x) for array in (s.i32, s.i64, s.f64))


def row_blocks(matrix: SparseMatrix, terms: int) -> Iterator[Tuple[int, SparseMatrix]]:
    """Cuts a matrix into blocks of whole rows, each of at most `terms` entries (but one row at least), in their order.

    Yields the number of the first row and the block, which shares the memory of the matrix but for its row numbers.
    """
    sparse_matrix_arguments(matrix)
    ptr = np.searchsorted(matrix.subi, np.arange(matrix.rows + 1))
    first = 0
    while first < matrix.rows:
        last = max(first + 1, int(np.searchsorted(ptr, ptr[first] + terms, side="right")) - 1)
        entries = slice(ptr[first], ptr[last])
        yield first, SparseMatrix(last - first, matrix.cols, matrix.subi[entries] - np.int32(first),
                                  matrix.subj[entries], matrix.val[entries])
        first = last
