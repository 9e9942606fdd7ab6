"""Products of a constant matrix and a plain variable, on both sides, dense and sparse."""

import numpy as np
import pytest

from records import SENTINELS, VARIABLES, Record, Room, Stack, evaluate, random_matrix
from support import LAYOUTS, call, f64, i32, i64, layout


def plain_variable(rng, shape, sparse):
    """A record with one term of coefficient 1 an element, of which the products read only `nidxs` and `sp`."""
    size = int(np.prod(shape))
    sp = np.flatnonzero(rng.random(size) < 0.6) if sparse else None
    nelem = len(sp) if sparse else size
    return Record(shape, sp, np.arange(nelem + 1), rng.integers(0, VARIABLES, nelem), np.ones(nelem))


class Operand:
    """A plain variable on a stack whose i32 array has room for the sorts."""

    def __init__(self, name, rng, record, kind):
        self.stack = Stack(name, rng, [record], kind)
        self.scratch = layout(np.full(200, SENTINELS["i32"]), kind)
        positions = {"perm": 1, "mcolptr": 41, "mrowptr": 41, "rowptr": 61, "colptr": 61, "rows": 81, "cols": 131}
        xnd = len(record.shape)
        xd0, xd1 = record.shape if xnd == 2 else (1, record.shape[0])
        self.arguments = {
            **self.stack.arrays,
            **self.stack.fields(0),
            **positions,
            name + "i32": self.scratch,
            "xnd": xnd,
            "xd0": xd0,
            "xd1": xd1,
            "xshape": i32(record.shape) if xnd == 2 else None,
        }


def written(rng, shape, sizes, kind, numbers, *arguments):
    """The record that the kernels write, and their last result."""
    r = Stack("r", rng, [Room(shape, *sizes, 0, True)], kind)
    r.slots(0, "shape")[:] = shape
    for number in numbers:
        result = call(number, r.arrays, r.fields(0, "r"), *arguments, {"rhassp": True})
    record = r.read(0)
    r.assert_only_written(0)
    return evaluate(record), result


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("sparse_matrix, sparse", [(False, True), (True, False), (True, True)])
@pytest.mark.parametrize("vector", [False, True], ids=["matrix x", "vector x"])
@pytest.mark.parametrize("seed", range(6))
def test_right_product(sparse_matrix, sparse, vector, kind, seed):
    rng = np.random.default_rng(seed)
    xd0, xd1 = (1 if vector else rng.integers(1, 5)), rng.integers(1, 5)
    mdimj = rng.integers(1, 5) if seed else 1
    dense, matrix = random_matrix(rng, (xd1, mdimj), sparse_matrix, kind)
    matrix["mcof"] = matrix["mval"]
    record = plain_variable(rng, (xd1,) if vector else (xd0, xd1), sparse)
    x = Operand("w", rng, record, kind)
    common = {**x.arguments, **matrix}
    if not sparse_matrix:
        rows = call(476, common, n=record.nelem, d1=xd1)
        sizes, write = (rows * mdimj, record.nelem * mdimj), 477
    else:
        assert call(489, matrix, ok=True)
        call(478, {**common, "msubj": None if mdimj == 1 else matrix["msubj"]}, nb=mdimj)
        if sparse:
            call(481, common, top=common["rowptr"], n=xd0)
            call(482, common, nb=xd0)
            sizes, write = call(483, common, rnelem=0, rnnz=0), 484
        else:
            columns = call(479, common, n=matrix["mnnz"])
            sizes, write = (columns * xd0, matrix["mnnz"] * xd0), 480
    values, result = written(rng, (xd0, mdimj), sizes, kind, [write], common)
    assert result in (None, sizes)
    np.testing.assert_array_equal(values, np.einsum("tjv,jc->tcv", evaluate(record).reshape(xd0, xd1, -1), dense))
    x.stack.assert_only_written()


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("sparse", [False, True])
@pytest.mark.parametrize("vector", [False, True], ids=["matrix x", "vector x"])
@pytest.mark.parametrize("seed", range(6))
def test_left_product(sparse, vector, kind, seed):
    rng = np.random.default_rng(seed)
    mdimi, mdimj, xd1 = rng.integers(1, 5), rng.integers(1, 5), (1 if vector else rng.integers(1, 5))
    dense, matrix = random_matrix(rng, (mdimi, mdimj), True, kind)
    matrix["mcof"] = matrix["mval"]
    record = plain_variable(rng, (mdimj,) if vector else (mdimj, xd1), sparse)
    x = Operand("x", rng, record, kind)
    common = {**x.arguments, **matrix, "xd1": xd1}
    sizes = call(485 if sparse else 486, common)
    values, _ = written(rng, (mdimi, xd1), sizes, kind, [487 if sparse else 488], common)
    np.testing.assert_array_equal(values, np.einsum("ij,jcv->icv", dense, evaluate(record).reshape(mdimj, xd1, -1)))
    x.stack.assert_only_written()


def test_zeros_stay_and_the_pattern_is_optional():
    x = Operand("w", np.random.default_rng(0), Record((1, 1), i64([0]), i32([0, 1]), i64([5]), f64([1])), "contiguous")
    matrix = {"mcof": f64([0.0]), "msubi": i32([0]), "msubj": i32([0]), "mnnz": 1, "mdimj": 1}
    call(478, x.arguments, matrix, nb=1)
    call(481, x.arguments, top=x.arguments["rowptr"], n=1)
    call(482, x.arguments, nb=1)
    assert call(483, x.arguments, matrix) == (1, 1)
    r = Stack("r", np.random.default_rng(0), [Room((), 1, 1)])
    call(484, x.arguments, matrix, r.arrays, r.fields(0, "r"), rhassp=False)
    assert r.read(0).nidxs.tolist() == [5] and r.read(0).cof.tolist() == [0.0]
    r.assert_only_written(0)


def test_counts_of_stored_rows():
    sp = {"sp": 1, "wi64": i64([9, 0, 1, 5, 9]), "res": 7}
    assert call(476, sp, n=4, xnd=2, d1=3) == 3
    assert call(476, sp, n=4, xnd=2, d1=1) == 4
    assert call(476, sp, n=4, xnd=1, d1=3) == 1
    assert call(476, sp, n=0, xnd=2, d1=3) == 7


@pytest.mark.parametrize(
    "msubi, msubj, badidx, badorder",
    [
        ([], [], False, False),
        ([2], [0], True, False),
        ([0, 0, 1], [0, 2, 0], False, False),
        ([0, 1, 1], [0, 2, 2], False, True),
        ([1, 0], [0, 3], True, True),
        ([0, 0], [-1, 1], True, False),
    ],
)
def test_checks(msubi, msubj, badidx, badorder):
    """One flag is cleared by any fault; the two others are set by theirs, and none comes back by itself."""
    matrix = {"mdimi": 2, "mdimj": 3, "msubi": i32(msubi), "msubj": i32(msubj)}
    assert call(489, matrix, ok=True) == (not badidx and not badorder) and not call(489, matrix, ok=False)
    assert call(490, matrix) == badidx and call(490, matrix, badidx=True)
    assert call(491, matrix) == badorder and call(491, matrix, badorder=True)
