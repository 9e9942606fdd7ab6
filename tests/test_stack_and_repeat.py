"""Stacks of records along an axis, and repetitions: held against NumPy on the elements as they stand."""

import numpy as np
import pytest

from records import Stack, check, codes, elements, every_operand, random_operand, random_record, result
from support import blank, call, i32, i64, kinds, layout

SHAPES = [(), (3,), (2, 3), (2, 3, 2), (1, 2, 2, 3)]
CODES = {"plain": [False], "code": [True], "some code": [True, False]}


def sort_keys(r, kind, nelem, extents, tables, arrays, **operator):
    """The x stack of a sparse stack along an inner axis, its keys sorted, and the positions on it."""
    rshape = r.arguments["rshape"]
    buckets = call(440, r.arrays, n=len(extents), top=rshape)
    assert buckets == max(extents)
    at = {"opnum": 1, "elnum": 1 + nelem, "order": 1 + 2 * nelem, "other": 1 + 3 * nelem, "bucket": 1 + 4 * nelem}
    x = {"xi32": blank(at["bucket"] + buckets + 2, kind), "xi64": blank(nelem + 2, kind, i64)}
    call(441, tables, arrays, at, x, operator, key=1)
    order, other = call(442, r.arrays, at, x, key=1, n=nelem, nd=len(extents), rshape=rshape)
    assert {order, other} == {at["order"], at["other"]}
    assert x["xi32"][0] == x["xi32"][-1] == x["xi64"][0] == x["xi64"][-1] == -7
    return {**at, **x, "order": order, "key": 1}


def stack(records, dim, kind, rng):
    """Stacks by the kernels in their order; `dim` at the number of axes is a new axis."""
    n, nd = len(records), len(records[0].shape)
    w = Stack("w", rng, records, kind)
    tables = {name: layout(table, kind) for name, table in w.tables().items()}
    first = w.fields(0)["shape"]
    agreement = dict(dim=dim, n=n, nd=nd, nds=tables["nd"], hassp=tables["hassp"], shape=first)
    alldense, bad = call(428, w.arrays, agreement, tables, alldense=not records[0].hassp, bad=False)
    assert (alldense, bad) == (not any(record.hassp for record in records), False)

    shape = layout(i32([-1] * (nd + 1)), kind)
    call(427, n=nd, shape=shape, shape_=layout(i32(records[0].shape), kind))
    assert shape[nd] == -1
    shape[dim] = call(429, w.arrays, tables, dim=dim, n=n, nd=nd, total=0)
    shape = shape[: max(nd, dim + 1)]
    hascode, *sizes = call(430, tables, n=n)
    r = result(rng, shape, sizes, kind, not alldense, preset=("shape",))
    d1s = layout(i32([record.shape[dim] if dim < nd else 1 for record in records]), kind)
    d0 = call(424, w.arrays, init=1, n=dim, top=first)
    assert d0 == call(437, w.arrays, init=1, n=dim, top=first)
    d2 = call(425, w.arrays, init=1, dim=dim, nd=nd, top=first)
    assert d2 == call(438, w.arrays, init=1, dim=dim, nd=nd, top=first)
    operator = dict(n=n, d0=d0, d1s=d1s, d2=d2, nd=nd, hascode=hascode, rhascode=int(hascode))
    if not hascode:
        operator |= dict.fromkeys(["code", "codeptr", "cconst"])
    if not alldense and dim > 0:
        operator |= {"offset": layout(i32([0] + [-1] * (n - 1)), kind), "rdim": call(433, init=0, d1s=d1s, n=n)}
        assert operator["rdim"] == shape[dim]
        call(432, operator)
        operator |= sort_keys(r, kind, sizes[1], shape, tables, w.arrays, **operator)
    writer = 436 if alldense else 439 if dim == 0 else 443
    assert call(writer, operator, w.arrays, r.arguments, tables) is None
    operands = [elements(record, zero_code=hascode) for record in records]
    if dim == nd:
        operands = [operand[..., None] for operand in operands]
    check(r, np.concatenate(operands, axis=dim), w, meaning=elements)


@kinds
@pytest.mark.parametrize("codes", CODES)
@pytest.mark.parametrize("sparse", [False, True], ids=["dense", "dense and sparse"])
@pytest.mark.parametrize("seed", range(3))
def test_stack(sparse, codes, kind, seed):
    """Along every axis, with operands of several extents there (0 is one), and along a new one."""
    rng = np.random.default_rng(seed)
    for shape in SHAPES:
        for dim in range(len(shape) + 1):
            records = []
            for k in range(rng.integers(1, 5)):
                extents = list(shape)
                if dim < len(shape):
                    extents[dim] = rng.integers(0, 4)
                code = CODES[codes][k % len(CODES[codes])]
                records.append(random_record(rng, extents, sparse and (k == 0 or rng.random() < 0.7), code))
            stack(records, dim, kind, rng)


@pytest.mark.parametrize(
    "dim, nds, extents, hassp, incoming, expected",
    [
        (1, [2, 2], [[3, 4], [5, 4]], [0, 0], (True, False), (True, True)),
        (2, [2, 2], [[3, 4], [3, 5]], [0, 0], (True, False), (True, True)),  # a new axis: all must agree
        (0, [2, 3], [[3, 4], [3, 4]], [0, 0], (True, False), (True, True)),  # another number of axes
        (1, [2, 3], [[3, 4], [3, 4]], [0, 0], (True, False), (True, False)),  # not looked at: operand 1, dim 1
        (1, [2, 3], [[3, 4], [9, 4]], [0, 0], (True, False), (True, True)),  # but its extents are
        (0, [2, 2], [[3, 4]] * 2, [1, 0], (True, False), (True, False)),  # the first operand is the caller's
        (0, [2, 2, 2], [[3, 4]] * 3, [0, 0, 1], (True, True), (False, True)),  # bad stays, alldense is still found
    ],
)
def test_agreement(dim, nds, extents, hassp, incoming, expected):
    arrays = {"wi32": i32([x for shape in extents for x in shape]), "shape_base": i32(range(0, 2 * len(nds), 2))}
    tables = {"nds": i32(nds), "hassp": i32(hassp)}
    alldense, bad = incoming
    assert call(428, arrays, tables, dim=dim, n=len(nds), nd=2, shape=0, alldense=alldense, bad=bad) == expected


def test_sizes_start_from_what_comes_in():
    tables = {"ncodeatom": i32([0, 5]), "nelem": i32([2, 3]), "nnz": i32([4, 1])}
    assert call(430, tables, n=2, hascode=False, c=100, e=10, k=20) == (True, 109, 15, 25)
    assert call(430, tables, n=1, hascode=False, c=100, e=10, k=20) == (False, 100, 12, 24)
    assert call(430, tables, n=1, hascode=True, c=100, e=10, k=20) == (True, 104, 12, 24)
    extents = {"wi32": i32([3, 4, 5, 6]), "shape_base": i32([0, 2])}
    assert call(429, extents, dim=1, n=2, nd=2, total=7) == 17
    assert call(429, extents, dim=2, n=2, nd=2, total=7) == 2  # a new axis: what comes in is replaced
    assert call(535, extents, init=2, n=3) == 120 and call(536, extents, init=2, dim=1, nd=4) == 60
    assert call(440, ri32=i32([3, 9, 4]), init=5, n=3) == 9 and call(440, init=5) == 5


@kinds
@pytest.mark.parametrize("extents", [(), (7,), (3, 1), (4, 1, 3), (2, 5, 3, 2)])
def test_sort_of_keys(extents, kind):
    """A stable sort with a pass for every axis, also one of extent 1; the buckets are left by the pass of axis 0."""
    rng = np.random.default_rng(len(extents))
    n, key, bucket = 40, 3, 82
    keys = rng.integers(0, int(np.prod(extents)), n) if extents else rng.integers(0, 9, n)
    xi32 = blank(bucket + 9, kind)
    xi64 = layout(np.r_[[0] * key, keys], kind)
    place, other = call(
        442, order=1, other=41, key=key, bucket=bucket, n=n, nd=len(extents), ri32=i32(extents), xi32=xi32, xi64=xi64
    )
    assert (place, other) == ((41, 1) if len(extents) % 2 else (1, 41))
    expected = np.argsort(keys, kind="stable") if extents else np.arange(n)
    assert np.array_equal(xi32[place : place + n], expected)
    assert xi32[0] == xi32[-1] == -7
    if extents:
        coordinates = keys // int(np.prod(extents[1:]))
        ends = [np.count_nonzero(coordinates <= b) for b in range(extents[0])]
        assert xi32[bucket : bucket + extents[0] + 1].tolist() == ends + [n]


@every_operand
@pytest.mark.parametrize("shape", SHAPES[1:])
def test_repeat(shape, sparse, code, kind):
    rng = np.random.default_rng(len(shape))
    for dim in range(len(shape)):
        for n in range(4):
            record, w = random_operand(rng, shape, sparse, code, kind=kind)
            atoms, *sizes = [n * size for size in (record.ncodeatom, record.nelem, record.nnz)]
            repeated = shape[:dim] + (n * shape[dim],) + shape[dim + 1 :]
            r = result(rng, repeated, (atoms, *sizes), kind, sparse, preset=())
            first = w.arguments["shape"]
            folded = {"d0": call(431, w.arrays, init=1, n=dim, top=first), "d1": shape[dim]}
            folded["d2"] = call(434, w.arrays, init=1, dim=dim, nd=len(shape), top=first)
            call(426, w.arguments, r.arguments, folded, dim=dim, n=n, rdim=repeated[dim], rhascode=int(atoms > 0))
            assert tuple(r.slots(0, "shape")) == repeated
            times = [n if d == dim else 1 for d in range(len(shape))]
            check(r, np.tile(elements(record), times), w, meaning=elements)
