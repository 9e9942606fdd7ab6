"""Sparsity patterns: sorted by axes, transposed, restricted, shifted into stacks, pushed with their values."""

import numpy as np
import pytest
from support import UNTOUCHED, blank, call, f64, i32, i64, kinds, layout, placed


@kinds
@pytest.mark.parametrize("passes", ((299, 300, 301, 302), (220, 221, 222, 223), (241, 242, 243, 244)), ids=str)
@pytest.mark.parametrize("order", ((0, 1, 2, 3), (2, 0, 3, 1)))
@pytest.mark.parametrize("density, most", ((0, 0), (1, 1), (0.4, 99)))
def test_sort_by_axes(kind, passes, order, density, most):
    """A stable pass for each axis, the least significant first, sorts by all of them, whatever the order before."""
    rng = np.random.default_rng(62)
    shape = (3, 5, 2, 4)
    positions = rng.permutation(np.flatnonzero(rng.random(np.prod(shape)) < density))[:most]
    n = len(positions)
    rshape, strides, sp = layout(i32(shape), kind), layout(i64([0, 0, 0, 1]), kind), layout(i64(positions), kind)
    call(297, n=4, rshape=rshape, rstrides=strides)
    buckets = call(296, init=shape[0], n=4, rshape=rshape)
    source, target, ptr = blank(n + 1, kind), blank(n + 1, kind), blank(buckets + 2, kind)
    call(298, perm=source, n=n)
    table = {"rshape": rshape, "rstrides": strides, "s": strides, "sp": sp, "rsp": sp, "ptr": ptr, "nnz": n}
    clear, count, add_up, place = passes
    coordinates = np.unravel_index(positions, shape)
    for d in reversed(order):
        permutations = {"perm": source, "curperm": source, "perm2": target, "tgtperm": target}
        call(clear, {"n": shape[d], "d": d}, table)
        call(count, {"n": n, "d": d}, table)
        call(add_up, {"n": shape[d], "d": d}, table)
        call(place, {"n": n, "d": d}, table, permutations)
        ends = np.cumsum(np.bincount(coordinates[d], minlength=shape[d]))
        assert ptr[: shape[d] + 1].tolist() == [*ends, n] and ptr[-1] == UNTOUCHED
        source, target = target, source
    assert source.tolist() == [*np.lexsort([coordinates[d] for d in reversed(order)]), UNTOUCHED]


@kinds
@pytest.mark.parametrize("rows, columns", ((6, 5), (1, 7), (7, 1)))
def test_transpose(kind, rows, columns):
    matrix = np.random.default_rng(321).integers(0, 3, (rows, columns))
    sp = np.flatnonzero(matrix)
    ptr, tnidxs, tsp = blank(columns + 1, kind), blank(len(sp) + 1, kind), blank(len(sp) + 1, kind, i64)
    source = {"ptr": ptr, "sp": layout(i64(sp), kind), "d2": columns}
    call(299, n=columns, ptr=ptr)
    call(321, source)
    call(322, n=columns, ptr=ptr)
    call(323, source, d1=rows, nidxs=layout(i32(matrix.ravel()[sp]), kind), tnidxs=tnidxs, tsp=tsp)
    wanted = np.flatnonzero(matrix.T)
    assert tsp.tolist() == [*wanted, UNTOUCHED] and tnidxs.tolist() == [*matrix.T.ravel()[wanted], UNTOUCHED]


@kinds
def test_restrict(kind):
    """Native indices are those found; positions are read at the slot written, and agree at the front of `sp` only."""
    native, sp = layout(i32([10, 11, 12, 13, 14]), kind), layout(i64([3, 5, 8, 9, 20]), kind)
    for k, lo, hi, found, positions in (
        (0, 2, 9, [10, 11, 12], [1, 3, 6]),
        (0, 8, 21, [12, 13, 14], [-5, -3, 0]),
        (1, 8, 10, [12, 13], [-3, 0]),
        (2, 6, 6, [], []),
    ):
        rnidxs, rsp = blank(6, kind), blank(6, kind, i64)
        end = call(324, acc=k, sp=sp, lo=lo, hi=hi)
        assert call(325, k=k, nidxs=native, rnidxs=rnidxs, rsp=rsp, sp=sp, lo=lo, hi=hi) == end == k + len(found)
        assert np.array_equal(rnidxs, placed(6, k, i32(found))) and np.array_equal(rsp, placed(6, k, i64(positions)))


@kinds
@pytest.mark.parametrize("axis", (0, 1, 2))
def test_shift_into_stack(kind, axis):
    """Dense arrays of distinct numbers are stacked for reference, one of them without stored elements."""
    rng = np.random.default_rng(axis)
    items = []
    for k, (extent, density) in enumerate(((2, 1), (3, 0.5), (1, 0), (4, 0.4))):
        shape = [extent if d == axis else full for d, full in enumerate((3, 2, 4))]
        item = 100 * (k + 1) + np.arange(np.prod(shape)).reshape(shape)
        items.append(item * (rng.random(shape) < density))
    whole = np.concatenate(items, axis)
    wanted = [UNTOUCHED, *(np.flatnonzero(whole == v)[0] for item in items for v in item[item != 0]), UNTOUCHED]
    positions = i64([UNTOUCHED, *np.concatenate([np.flatnonzero(item) for item in items]), UNTOUCHED])
    extents, counts = [item.shape[axis] for item in items], [np.count_nonzero(item) for item in items]
    ends, inner = 1 + np.cumsum(counts), int(np.prod(whole.shape[axis + 1 :]))

    sp, offset = layout(positions, kind), 0
    dimsizes, sizes = layout(i32(extents), kind), layout(i64([item.size for item in items]), kind)
    for k, item in enumerate(items):
        run = {"item": k, "n": counts[k], "start": int(ends[k]) - counts[k], "dimsizes": dimsizes, "itemsizes": sizes}
        end = call(295, run, axis_inner=axis, inner=inner, total=sum(extents), offset=offset, sp=sp)
        assert end == offset + (extents[k] if axis else item.size)
        offset = end
    assert sp.tolist() == wanted

    offsets = layout(i32(np.cumsum([0, *extents])), kind)
    table = {"numnz": layout(i32(counts), kind), "rsp": layout(positions, kind)}
    assert call(238, table, p=sum(extents), q=inner, pos=1, n=4, offset=offsets, sdims=dimsizes) == ends[-1]
    assert table["rsp"].tolist() == wanted
    if axis == 0:
        table["rsp"], pos = layout(positions, kind), 1
        for k in range(4):
            pos = call(235, table, k=k, pos=pos, add=int(offsets[k]) * inner)
        assert pos == ends[-1] and table["rsp"].tolist() == wanted


@pytest.mark.parametrize("sp, positions", (([2, 0, 3], [2, 0, 3]), (None, [0, 1, 2]), ([], [])))
def test_positions_of_elements(sp, positions):
    dest = blank(6, make=i64)
    call(314, dest=dest, nidxs=i32([5, 6, 7]), base=2, sp=sp if sp is None else i64(sp))
    assert np.array_equal(dest, placed(6, 2, i64(positions)))


@kinds
@pytest.mark.parametrize("hassp", (False, True))
@pytest.mark.parametrize("n", (0, 3))
def test_push_parameters(kind, hassp, n):
    ri32, ri64, rf64 = blank(30, kind), blank(16, kind, i64), blank(16, kind, f64)
    fields = {"rshape": 1, "rptr": 4, "rcodeptr": 12, "rcode": 20, "rnidxs": 2, "rsp": 8, "rcof": 1, "rcconst": 9}
    record = {"nidxs": layout(i32([40, 2, 9]), kind), "shape": i32([2, 9]), "sp": layout(i64([1, 6, 2**40]), kind)}
    call(313, fields, record, hassp=hassp, nd=2, n=n, ri32=ri32, ri64=ri64, rf64=rf64)
    ints, longs, doubles = (np.full_like(array, UNTOUCHED) for array in (ri32, ri64, rf64))
    ints[1:3], ints[4 : 5 + n] = (2, 9), range(n + 1)
    if n:  # a record without elements has no code
        ints[12:16], ints[20:23], longs[2:5], doubles[1:4], doubles[9:12] = range(4), 1, 0, 0.0, record["nidxs"]
        longs[8:11] = record["sp"] if hassp else UNTOUCHED
    assert np.array_equal(ri32, ints) and np.array_equal(ri64, longs) and np.array_equal(rf64, doubles)


def test_stored_values():
    values, nidxs, sp = f64([10, 11, 12, 13]), i32([5, 6]), i64([3, 0, 1])
    gathered, filled, appended = blank(3, make=f64), blank(4, make=f64), blank(4)
    call(329, cvals=gathered, nidxs=nidxs, sp=sp, values=values)
    call(330, n=3, vals=filled, value=2.5)
    call(326, dst=appended, nidxs=nidxs, base=1)
    assert gathered.tolist() == [13, 10, -7] and filled.tolist() == [2.5, 2.5, 2.5, -7]
    assert appended.tolist() == [-7, 5, 6, -7]
