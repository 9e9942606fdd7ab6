"""Products of a constant matrix and a plain variable, on both sides, dense and sparse."""

import numpy as np
import pytest

from records import Record, Stack, check, evaluate, random_matrix, random_variables, result
from support import call, f64, i32, i64, kinds, layout

FILL = 77  # of the scratch array; as an end of a group it would take in slots behind it
vectors = pytest.mark.parametrize("vector", [False, True], ids=["matrix x", "vector x"])


def plain_variable(rng, shape, sparse):
    """A record with one term of coefficient 1 an element, of which the products read only `nidxs` and `sp`."""
    size = int(np.prod(shape))
    sp = np.flatnonzero(rng.random(size) < 0.6) if sparse else None
    nelem = len(sp) if sparse else size
    return Record(shape, sp, np.arange(nelem + 1), random_variables(rng, nelem), np.ones(nelem))


def operand(name, rng, record, kind):
    """A plain variable on a stack, and the arguments for it; its i32 array is room for the sorts."""
    stack = Stack(name, rng, [record], kind)
    xnd, xd0, xd1 = len(record.shape), *(1, *record.shape)[-2:]
    places = {"perm": 1, "mcolptr": 41, "mrowptr": 41, "rowptr": 61, "colptr": 61, "rows": 81, "cols": 131}
    scratch = {name + "i32": layout(i32([FILL] * 200), kind), "xnd": xnd, "xd0": xd0, "xd1": xd1}
    return stack, {**stack.arguments, **places, **scratch, "xshape": i32(record.shape) if xnd == 2 else None}


@kinds
@vectors
@pytest.mark.parametrize("sparse_matrix, sparse", [(False, True), (True, False), (True, True)])
@pytest.mark.parametrize("seed", range(6))
def test_right_product(sparse_matrix, sparse, vector, kind, seed):
    rng = np.random.default_rng(seed)
    xd0, xd1 = (1 if vector else rng.integers(1, 5)), rng.integers(1, 5)
    mdimj = rng.integers(1, 5) if seed else 1
    dense, matrix = random_matrix(rng, (xd1, mdimj), sparse_matrix, kind)
    record = plain_variable(rng, (xd1,) if vector else (xd0, xd1), sparse)
    x, arguments = operand("w", rng, record, kind)
    arguments |= {**matrix, "mcof": matrix["mval"], "xd1": xd1, "rhassp": True}
    if not sparse_matrix:
        rows = call(476, arguments, n=record.nelem, d1=xd1)
        sizes, write = (rows * mdimj, record.nelem * mdimj), 477
    else:
        call(478, {**arguments, "msubj": None if mdimj == 1 else matrix["msubj"]}, nb=mdimj)
        if sparse:
            call(481, arguments, top=arguments["rowptr"], n=xd0)
            call(482, arguments, nb=xd0)
            sizes, write = call(483, arguments), 484
        else:
            columns = call(479, arguments, n=matrix["mnnz"])
            sizes, write = (columns * xd0, matrix["mnnz"] * xd0), 480
    r = result(rng, (xd0, mdimj), (0, *sizes), kind, preset=("shape",) if write == 477 else ("shape", "ptr"))
    assert call(write, r.arguments, arguments) in (None, sizes)
    check(r, np.einsum("tjv,jc->tcv", evaluate(record).reshape(xd0, xd1, -1), dense), x)


@kinds
@vectors
@pytest.mark.parametrize("sparse", [False, True])
@pytest.mark.parametrize("seed", range(6))
def test_left_product(sparse, vector, kind, seed):
    rng = np.random.default_rng(seed)
    mdimi, mdimj, xd1 = rng.integers(1, 5), rng.integers(1, 5), (1 if vector else rng.integers(1, 5))
    dense, matrix = random_matrix(rng, (mdimi, mdimj), True, kind)
    record = plain_variable(rng, (mdimj,) if vector else (mdimj, xd1), sparse)
    x, arguments = operand("x", rng, record, kind)
    arguments |= {**matrix, "mcof": matrix["mval"], "xd1": xd1}
    sizes = call(485 if sparse else 486, arguments)
    if sparse:  # the sort leaves rows and columns of all elements, and nothing behind them
        for place, coordinates in ((81, record.sp // xd1), (131, record.sp % xd1)):
            assert arguments["xi32"][place : place + record.nelem + 1].tolist() == [*coordinates, FILL]
    r = result(rng, (mdimi, xd1), (0, *sizes), kind)
    call(487 if sparse else 488, r.arguments, arguments)
    check(r, np.einsum("ij,jcv->icv", dense, evaluate(record).reshape(mdimj, xd1, -1)), x)


def test_zeros_stay_and_the_pattern_is_optional():
    rng = np.random.default_rng(0)
    _, arguments = operand("w", rng, Record((1, 1), i64([0]), i32([0, 1]), i64([5]), f64([1])), "contiguous")
    arguments |= {"mcof": f64([0.0]), "msubi": i32([0]), "msubj": i32([0]), "mnnz": 1, "mdimj": 1}
    call(478, arguments, nb=1)
    call(481, arguments, top=arguments["rowptr"], n=1)
    call(482, arguments, nb=1)
    assert call(483, arguments) == (1, 1)
    r = result(rng, (), (0, 1, 1), hassp=False)
    call(484, arguments, r.arguments)
    assert r.read(0).nidxs.tolist() == [5] and r.read(0).cof.tolist() == [0.0]
    r.assert_only_written(0)


def test_counts_of_stored_rows():
    sp = {"sp": 1, "wi64": i64([9, 0, 1, 5, 9]), "res": 7}
    assert call(476, sp, n=4, xnd=2, d1=3) == 3
    assert call(476, sp, n=4, xnd=2, d1=1) == 4
    assert call(476, sp, n=4, xnd=1, d1=3) == 1
    assert call(476, sp, n=0, xnd=2, d1=3) == 7
