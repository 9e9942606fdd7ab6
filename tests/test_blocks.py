"""Models built block by block: the same matrix, bit for bit, in memory and in a file, from stacks of bounded size."""

import numpy as np
import pytest
from scipy.sparse import random as random_csr

from support import f64, i32  # first: it finds the scripts of examples/

from host.blocks import RowBlock, RowStore, build_in_blocks, problem_of, row_blocks, stack_bytes
from host.model import Domain, Model
from host.operators import SparseMatrix, add, constant, multiply, multiply_variable

ROWS, COLS = 300, 40


@pytest.fixture
def matrix():
    """Its entries, with zero rows, and one row that is longer than most blocks."""
    A = random_csr(ROWS, COLS, 0.1, random_state=3, format="lil")
    A[5] = np.arange(1.0, COLS + 1)
    A[[0, 7, 8, ROWS - 1]] = 0.0
    A = A.tocoo()
    order = np.lexsort((A.col, A.row))
    return SparseMatrix(ROWS, COLS, A.row[order].astype(np.int32), A.col[order].astype(np.int32), A.data[order])


def constrain(model, x, y, part, b, first):
    """part (2 x + y) + part y - b >= 0 of the rows from `first` on: each variable of y is met twice in a row."""
    s = model.stacks
    model.push(x), model.push(y), add(s, 2.0, 1.0), multiply(s, part)
    multiply_variable(s, part, y.shape, y.nidxs), add(s)
    constant(s, (part.rows,), b[first:first + part.rows]), add(s, 1.0, -1.0)
    return model.constraint(Domain(0.0, np.inf))


def variables(model):
    return model.variable((COLS,), Domain(0.0, 1.0)), model.variable((COLS,), Domain(-1.0, np.inf))


def same(a, b):
    return a.dtype == b.dtype and a.tobytes() == b.tobytes()


@pytest.mark.parametrize("terms", (1, 17, 100, 10**9))
@pytest.mark.parametrize("in_file", (False, True), ids=("in memory", "in a file"))
def test_blocks_give_the_matrix_of_the_whole(tmp_path, matrix, terms, in_file):
    b = np.random.default_rng(1).normal(size=ROWS)
    whole = Model()
    constrain(whole, *variables(whole), matrix, b, 0)
    expected, problem = whole.matrix(), whole.problem()

    model = Model()
    x, y = variables(model)
    rows = []
    blocks = (lambda model, first=first, part=part: rows.extend(constrain(model, x, y, part, b, first).rows)
              for first, part in row_blocks(matrix, terms))
    path = str(tmp_path / "model.h5") if in_file else None
    with RowStore(ROWS + 5, 5 * len(matrix.val), 2 * COLS, path) as store:
        peak = build_in_blocks(model, blocks, store)
    if in_file:
        assert [p.name for p in tmp_path.iterdir()] == ["model.h5"]
        store = RowStore.open(path)
        assert not store.matrix().data.flags.writeable and not store.matrix().data.flags.owndata
    assert rows == list(range(ROWS))
    found, again = store.matrix(), problem_of(model, store)
    assert all(same(getattr(found, name), getattr(expected, name)) for name in ("indptr", "indices", "data"))
    assert found.shape == expected.shape and same(store.matrix(3, 9).data, expected[3:9].data)
    assert all(same(getattr(again.A, name), getattr(problem.A, name)) for name in ("indptr", "indices", "data"))
    assert all(same(getattr(again, name), getattr(problem, name)) for name in ("lo", "hi", "lower", "upper", "c"))
    assert peak == stack_bytes(model.stacks) and (terms > 100 or 4 * peak < stack_bytes(whole.stacks))


@pytest.mark.parametrize("terms", (1, 39, 40, 41, 10**9))
def test_blocks_have_whole_rows_and_no_more_terms_than_allowed(matrix, terms):
    blocks = list(row_blocks(matrix, terms))
    assert np.cumsum([0] + [part.rows for _, part in blocks]).tolist() == [first for first, _ in blocks] + [ROWS]
    assert all(len(part.val) <= terms or part.rows == 1 for _, part in blocks)
    assert same(np.concatenate([first + part.subi for first, part in blocks]).astype(np.int32), matrix.subi)
    assert same(np.concatenate([part.val for _, part in blocks]), matrix.val)


BLOCK = RowBlock(i32([0, 2, 3]), i32([0, 3, 1]), f64([1, 2, 3]), f64([0, 0]), f64([1, 1]))


def test_row_starts_beyond_32_bits(tmp_path):
    """A file with a hole where the first 2^31 - 1 terms would be."""
    path = str(tmp_path / "model.h5")
    with RowStore(6, 2**31 + 5, 4, path) as store:
        store.append(BLOCK)
        store.nnz = 2**31 - 1
        store.append(BLOCK)
        store.append(BLOCK)
    store = RowStore.open(path)
    assert store.nnz == 2**31 + 5
    assert store.matrix(4).toarray().tolist() == store.matrix(0, 2).toarray().tolist() == [[1, 0, 0, 2], [0, 3, 0, 0]]


def test_what_a_store_refuses(tmp_path):
    with pytest.raises(ValueError, match="2147483648 columns"):
        RowStore(1, 1, 2**31)
    path = str(tmp_path / "model.h5")
    for rows, terms in ((3, 9), (9, 5)):
        with pytest.raises(ValueError, match="4 rows with 6 terms do not fit"), RowStore(rows, terms, 4, path) as store:
            store.append(BLOCK)
            store.append(BLOCK)
        assert (store.nrows, store.nnz, list(tmp_path.iterdir())) == (2, 3, [])
    (tmp_path / "text").write_text("no HDF5 file")
    with pytest.raises(ValueError, match="text: no file of a row store"):
        RowStore.open(str(tmp_path / "text"))
    with RowStore(0, 0, 0, path):
        pass
    assert RowStore.open(path).matrix().shape == (0, 0)
