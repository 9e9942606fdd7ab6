"""Flat positions, multi-indices, patterns sorted from them, searches in ascending lists, odometers, axis orders."""

import itertools

import numpy as np
import pytest
from support import LAYOUTS, UNTOUCHED, blank, call, i32, i64, layout, row_major

SHAPE = (3, 4, 5)
STRIDES = (20, 5, 1)


@pytest.fixture(params=LAYOUTS)
def kind(request):
    return request.param


@pytest.fixture
def rng():
    return np.random.default_rng(62)


@pytest.fixture
def rows(kind, rng):
    """12 multi-indices into SHAPE, one twice."""
    table = rng.integers(0, SHAPE, (12, 3)).astype(np.int32)
    table[7] = table[2]
    return layout(table, kind)


def positions(table):
    return np.ravel_multi_index(tuple(np.asarray(table).T), SHAPE)


def test_positions_of_multi_indices(kind, rows):
    shape, strides = layout(i32(SHAPE), kind), layout(i64(STRIDES), kind)
    native = layout(i32(np.arange(60) + 1000), kind)
    expected = positions(rows)
    for row, position in enumerate(expected):
        index = layout(rows[row], kind)
        assert call(258, idxa=index, init=7, n=3, strides=strides) == 7 + position
        assert call(177, row=row, init=2**40, midxs=rows, n=3, strides=strides) == 2**40 + position
        # The entries of `step`, of `key` count the axes.
        longer = i64([*STRIDES, 1000])
        assert call(181, firstidx=i32([*index, 9]), acc=-1, step=i32([0] * 3), strides=longer) == position - 1
        assert call(182, step=index, acc=-1, strides=strides) == position - 1
        assert call(269, key=index, init=int(index[0]), shape=i32([*SHAPE, 9])) == position

        for number, name in ((270, "dest"), (272, "res")):
            split = blank(4, kind)
            call(number, **{name: split}, pos=int(position), shape=shape)
            assert split.tolist() == [*index, UNTOUCHED]
        split = blank(4, kind)
        assert call(271, k=split, n=3, pos=int(position), shape=shape) == index[0]
        assert split.tolist() == [UNTOUCHED, *index[1:], UNTOUCHED]

    # Targets begin with a base, which kernels 578 and 580 keep.
    flat = {"sparsity": rows, "strides": strides, "nd": 3}
    order = layout(i32(np.arange(12)[::-1]), kind)
    calls = {
        44: ("sp", i64, {**flat, "n": 11}, expected[:11]),
        305: ("idxs", i32, {"midxs": rows, "n": 3, "nidxs": native, "strides": strides}, native[expected]),
        176: ("idxs", i64, {"midxs": rows, "nd": 3, "basevar_nativeidxs": native.astype(np.int64), "strides": strides},
              native[expected]),
        619: ("inst_", i64, {"dims_": shape, "sub": rows}, expected),
        578: ("sp", i64, {"n": 11, "m": 3, "s": strides, "sparsity": rows}, expected[:11] + 100),
        580: ("sp", i64, {"n": 11, "m": 3, "s": strides, "sparsity": rows}, expected[:11] + 100),
        55: ("sparsity", i64, {"curperm": order, "midxs": rows, "n": 11, "nd": 3, "strides": i32(STRIDES)},
             expected[:0:-1]),
        68: ("sparsity", i64, {"curperm": order, "midxs": rows, "n": 11, "nd": 3, "strides": i32(STRIDES)},
             expected[:0:-1]),
    }  # fmt: skip
    for number, (name, integers, arguments, values) in calls.items():
        target = layout(integers([100] * 13), kind)
        call(number, **{name: target}, **arguments)
        assert target.tolist() == [*values, *[100] * (13 - len(values))], number


def test_positions_beyond_32_bits():
    far = i32([[2**30, 2]])
    assert call(258, idxa=far[0], init=0, n=2, strides=i64([2**32 + 4, 1])) == 2  # cut to 32 bits
    assert call(177, midxs=far, n=2, strides=i64([8, 1])) == 2**33 + 2
    target = i64([0])
    call(44, nd=2, n=1, sp=target, sparsity=far, strides=i64([8, 1]))
    assert target[0] == 2**33 + 2
    call(55, curperm=i32([0]), midxs=far, n=1, nd=2, sparsity=target, strides=i32([16, 1]))
    assert target[0] == 2**34 + 2
    assert call(269, key=i32([9, 1]), init=2**31, shape=i32([0, 2**31 - 1])) == 2**31 * (2**31 - 1) + 1


def test_conversions_at_their_edges():
    # The leading coordinate isn't reduced by its extent.
    index = i32([0, 0])
    call(270, dest=index, pos=23, shape=i32([2, 5]))
    assert index.tolist() == [4, 3]
    call(272, res=index, pos=9, shape=i32([2]))
    assert index.tolist() == [9, 3]
    assert call(271, n=1, pos=9) == 9 and call(269, key=i32([4]), init=6) == 6 and call(269, init=6) == 6
    # From the other end axis 0 moves fastest, by the extent of its neighbour.
    assert call(309, indexes=i32([1, 2, 3]), init=3, n=3, shape=i32([9, 4, 5])) == 1 + 4 * (2 + 5 * 3)
    assert call(309, init=3, n=1) == 3


def test_sums_into_their_own_strides():
    """Every partial sum is stored, so that a stride which is a target too is read after it has changed."""
    for number in (578, 580):
        for sp, s in ((slice(0, 9, 4), slice(7, 9)), (slice(7, 9), slice(0, 9, 4))):
            memory, expected = np.arange(1, 10), np.arange(1, 10)
            n, m = len(memory[sp]), len(memory[s])
            rows = i32([[2, 3, 4], [5, 6, 7], [8, 9, 1]])[:n, :m]
            call(number, n=n, m=m, s=memory[s], sp=memory[sp], sparsity=rows)
            for r, c in np.ndindex(n, m):
                expected[sp][r] += rows[r, c] * expected[s][c]
            assert np.array_equal(memory, expected)


def test_range_checks(kind, rows):
    shape = layout(i32(SHAPE), kind)
    line = layout(rows[:, 1], kind)
    for bad, place in ((-1, 0), (SHAPE[1], 5), (-(2**31), 11), (None, 0)):
        table, indices = layout(rows, kind), layout(line, kind)
        if bad is not None:
            table[place, 1] = indices[place] = bad
        for flag in (False, True):
            expected = flag or bad is not None
            assert call(174, flag=flag, midxs=table, shape=shape) is expected
            assert call(618, flag=flag, sub=table, dims_=shape) is expected
            assert call(179, flag=flag, idxs=indices, shape=shape[1:]) is expected
        # Rows from the bad one on are left out, all of them if the flag comes in set.
        for number, flag in ((51, False), (64, False), (51, True)):
            target = blank(13, kind, i64)
            assert call(number, bad=flag, n=12, shape=shape, sp=table, sparsity=target,
                        strides=layout(i32(STRIDES), kind)) is (flag or bad is not None)  # fmt: skip
            written = 0 if flag else 12 if bad is None else place
            assert target.tolist() == [*positions(rows)[:written], *[UNTOUCHED] * (13 - written)]
    assert call(303, midxs=np.zeros((4, 0), np.int32)) is False
    assert call(303, midxs=i32([[0]]), shape=i32([-(2**31)])) is True
    # Rows with gaps, and rows whose columns lie further apart than they do.
    for memory, strides in (([0, 1, 9, 1, 0, 9], (12, 4)), ([0, 9, 1, 1, 9, 0], (8, 12))):
        gaps = np.lib.stride_tricks.as_strided(i32(memory), (2, 2), strides)
        assert call(174, midxs=gaps, shape=i32([2, 2])) is call(618, sub=gaps, dims_=i32([2, 2])) is False


@pytest.mark.parametrize("flatten", (55, 68))
def test_rows_sort_axis_by_axis(kind, rows, flatten):
    shape = layout(i32(SHAPE), kind)
    order, other = (blank(13, kind) for _ in range(2))
    ptr = blank(7, kind)
    call(53, curperm=order, n=12)
    for axis in range(3):
        call(54, **{"pass": axis}, curperm=order, midxs=rows, nd=3, n=12, ptr=ptr, shape=shape, tgtperm=other)
        ends = np.cumsum(np.bincount(rows[:, 2 - axis], minlength=SHAPE[2 - axis]))
        assert ptr[: len(ends)].tolist() == ends.tolist() and ptr[len(ends)] == 12
        order, other = other, order
    assert order.tolist() == [*np.argsort(positions(rows), kind="stable"), UNTOUCHED]
    target = blank(12, kind, i64)
    call(flatten, curperm=order, midxs=rows, n=12, nd=3, sparsity=target, strides=layout(i32(STRIDES), kind))
    assert target.tolist() == sorted(positions(rows))


def test_searches(kind):
    ascending = [2, 3, 5, 8, 13, 2**40]
    values = layout(i64([-(2**40), *ascending, 2**50]), kind)
    sp = layout(i64(ascending), kind)
    for key in range(16):
        first = int(np.searchsorted(ascending, key))
        for pos in range(8):
            assert call(311, key=key, pos=pos, sp=sp) == call(312, key=key, pos=pos, sp=sp) == max(first, pos)
        behind = int(np.searchsorted(ascending, key, side="right"))
        assert call(110, lo=0, hi=7, key=key, values=values) == (behind, behind + 1)
        assert call(111, lo=0, hi=7, key=key, values=values) == (first, first + 1)
        for end in range(16):
            assert call(324, acc=7, sp=sp, lo=key, hi=end) == 7 + sum(key <= v < end for v in ascending)
    assert call(311, key=2**41, sp=sp) == 6 and call(312, key=2**31 - 1, sp=sp) == 5
    assert call(311, key=1) == 0 and call(324, acc=7) == 7
    assert call(324, sp=i64([-(2**63)]), lo=5, hi=0) == 0 == call(311, key=5, sp=i64([9] + [0] * 8))
    for n in (7, 8, 15, 17):
        long = layout(i64(range(n)), kind)
        assert [call(311, key=key, sp=long) for key in range(n + 2)] == [*range(n + 1), n]
    assert call(110, lo=5, hi=6, key=1) == (5, 6) and call(111, lo=6, hi=5, key=1) == (6, 5)


def test_equal_items_merge_from_the_right(kind, rng):
    vals = rng.integers(0, 6, 20)
    items = rng.permutation(20)
    left, right = (sorted(run, key=vals.__getitem__) for run in (items[:8], items[8:]))
    target = blank(24, kind)
    source = layout(i32([UNTOUCHED] * 2 + left + right), kind)
    call(129, i=2, m=10, e=22, src=source, tgt=target, vals=layout(i64(vals), kind))
    expected = sorted(right + left, key=vals.__getitem__)  # stable, so the right run of equals first
    assert target.tolist() == [UNTOUCHED] * 2 + expected + [UNTOUCHED] * 2
    target[:] = UNTOUCHED
    call(129, i=2, m=2, e=10, src=source, tgt=target)
    assert target.tolist() == [UNTOUCHED] * 2 + left + [UNTOUCHED] * 14


@pytest.mark.parametrize("extents", ((3, 4, 5), (1, 2, 1, 3), (4,)))
def test_odometer_walks_the_array_in_order(kind, extents):
    nd = len(extents)
    strides = np.multiply(row_major(extents), 10)
    places = blank((nd + 1), kind, i64)
    call(106, n=nd, st=places, x=2**40)
    assert places.tolist() == [2**40] * nd + [UNTOUCHED]
    levels = layout(i32([0] * nd + [UNTOUCHED]), kind)
    for count, index in enumerate(itertools.product(*map(range, extents))):
        assert levels.tolist() == [*index[::-1], UNTOUCHED] and places[0] == 2**40 + 10 * count
        call(108, dims=layout(i32(extents), kind), ii=levels, nd=nd, st=places, strides=layout(i64(strides), kind))
    assert levels.tolist() == [0] * (nd - 1) + [extents[0], UNTOUCHED]  # the last level doesn't start over


def test_box_index_carries_one_level_only(kind):
    first, last = layout(i32([0, 1, 2]), kind), layout(i32([2, 3, 4]), kind)
    index, seen = layout(i32([0, 1, 2]), kind), []
    for _ in range(5):
        seen.append(index.tolist())
        call(112, first=first, last=last, ndidx=index)
    assert seen == [[0, 1, 2], [0, 1, 3], [0, 2, 2], [0, 2, 3], [0, 3, 2]]
    alone = i32([8])
    call(112, ndidx=alone)
    assert alone.tolist() == [9]


@pytest.mark.parametrize("number, target", ((59, "permidxs"), (201, "residxs")))
def test_elements_along_an_axis_come_together(kind, rng, number, target):
    for q, p, r in ((3, 4, 5), (2, 1, 3), (1, 2, 7), (2, 3, 4), (2, 26, 9), (1, 127, 550), (1, 515, 6), (2, 1025, 2)):
        array = rng.integers(0, 2**40, (q, p, r))
        native, result = layout(array.ravel(), kind), blank((q * p * r + 3), kind, i64)
        assert call(number, p=p, q=q, r=r, nativeidxs=native, c=2, **{target: result}) == 2 + q * p * r
        assert np.array_equal(result, [UNTOUCHED] * 2 + array.transpose(0, 2, 1).ravel().tolist() + [UNTOUCHED])
    assert call(number, p=0, q=q, r=r, c=2) == 2


def test_positions_sort_across_an_axis(kind, rng):
    p, q, r = 3, 4, 5
    values = rng.choice(p * q * r, 30, replace=False)
    before = rng.permutation(30)
    order, ptrb = layout(i32(before), kind), blank((p * r + 2), kind)
    call(103, p=p, q=q, r=r, perm=order, ptrb=ptrb, val=layout(i64(values), kind))
    a, _, b = np.unravel_index(values, (p, q, r))
    key = a * r + b
    assert order.tolist() == before[np.argsort(key[before], kind="stable")].tolist()
    assert ptrb.tolist() == [*np.cumsum(np.bincount(key, minlength=p * r)), 30, UNTOUCHED]
    for q in (4, 0):
        ptrb = blank(p * r + 2, kind)
        call(103, p=p, q=q, r=r, ptrb=ptrb)
        assert ptrb.tolist() == [0] * (p * r + 1) + [UNTOUCHED]
