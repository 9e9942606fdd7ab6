"""Shapes: products and sums of extents, strides, copies with axes gone or come, stacked shapes."""

import math

import numpy as np
import pytest
from support import KERNELS, UNTOUCHED, blank, call, i32, i64, kinds, layout

RNG = np.random.default_rng(61)

ALL = (0, 50, 63, 150, 155, 190, 193, 249, 261, 262, 268, 276, 277, 278, 279, 280, 281, 288, 576, 588, 617, 625)
LEADING = (56, 57, 69, 84, 93, 94, 147, 156, 160, 198, 206, 210, 229, 232, 234, 254, 293, 316, 599, 610, 633, 634)
BEHIND = (58, 70, 71, 85, 86, 95, 149, 153, 157, 161, 199, 200, 211, 212, 233)
BETWEEN = (148, 158, 162, 255, 294)
STRIDES = (43, 99, 175, 180, 218, 240, 257, 273, 297, 304, 577, 579)


def names(number, *kinds):
    return [name for name, kind in KERNELS[number].parameters if kind in kinds]


def wrapped(number, value):
    bits = 64 if KERNELS[number].results == ("i64",) else 32
    return (value + (1 << bits - 1)) % (1 << bits) - (1 << bits - 1)


def product(number, extents, start=1, **bounds):
    """The kernel's product: its array and its start value are found by their kinds."""
    (array,) = names(number, "i32")
    (seed,) = {"acc", "init"} & set(names(number, "i", "L"))
    return call(number, **{array: extents, seed: start}, **bounds)


@kinds
@pytest.mark.parametrize("large", (False, True), ids=("in range", "wrapping around"))
def test_products_of_extents(kind, large):
    extents = RNG.integers(2**25, 2**31, 7) if large else RNG.permutation([2, 3, 5, 7, 11, 13, 17])
    primes = [int(e) for e in extents]
    shape = layout(i32(primes), kind)
    expected = {number: (math.prod(primes), {}) for number in ALL}
    expected |= {number: (math.prod(primes[:4]), {"n": 4}) for number in LEADING}
    expected |= {number: (math.prod(primes[3:5]), {"d": 2, "nd": 5}) for number in BEHIND}
    expected |= {number: (math.prod(primes[2:5]), {"lo": 1, "hi": 5}) for number in BETWEEN}
    for number, (value, bounds) in expected.items():
        assert product(number, shape, 3, **bounds) == wrapped(number, 3 * value), number


def test_empty_ranges_leave_the_start_value_and_read_nothing():
    empty = {number: [{}] for number in ALL}
    empty |= {number: [{"n": 0}, {"n": -1}] for number in LEADING}
    empty |= {number: [{"d": 2, "nd": 3}, {"d": 5, "nd": 2}, {"d": 0, "nd": 0}] for number in BEHIND}
    empty |= {number: [{"lo": 3, "hi": 4}, {"lo": 4, "hi": 3}] for number in BETWEEN}
    for number, bounds in ((263, {"n": 0}), (264, {"lo": 2, "hi": 3}), (265, {"lo": 2, "hi": 3})):
        call(number, **bounds)
    for number, cases in empty.items():
        for bounds in cases:
            assert product(number, None, 9, **bounds) == 9, number


@kinds
def test_products_on_a_stack_and_around_axes(kind):
    stack = layout(i32([99, 2, 3, 5, 99]), kind)
    assert call(81, n=3, acc=7, ri32=stack, pos=1) == 7 * 30
    assert call(613, n=3, i32=stack, top=4, init=2**40) == 30 * 2**40
    # The number of axes is a factor too.
    assert call(45, n=3, ri32=stack, pos=1) == 3 * 30
    assert [call(45, n=n) for n in (0, -4)] == [0, -4]

    shape = layout(i32([2, 3, 5, 7]), kind)
    for d, e, value in ((1, 3, 10), (3, 1, 10), (2, 2, 42), (9, -1, 210)):
        assert call(83, d=d, e=e, nd=4, acc=1, shape=shape) == value
    for number, first, last in ((184, "first", "last"), (259, "firsta", "lasta")):
        box = {first: layout(i32([1, 2, -3]), kind), last: layout(i32([4, 4, 2**31 - 1]), kind), "n": 3}
        assert call(number, **box, **{names(number, "i")[1]: 1}) == wrapped(number, 3 * 2 * (2**31 + 2))


@kinds
@pytest.mark.parametrize("a, b", ((0, 1), (1, 3), (0, 3), (2, 3)))
def test_five_axis_fold(kind, a, b):
    extents = (2, 3, 4, 5)
    stack = {"shape": 1, "wi32": layout(i32([9, *extents]), kind)}
    given = {"shape": layout(i32(extents), kind)}
    for (before, between, behind), of in (((263, 264, 265), given), ((547, 548, 549), stack), ((559, 560, 561), stack)):
        dim = layout(i32([1, extents[a], 1, extents[b], 1]), kind)
        call(before, of, n=a, dim=dim)
        call(between, of, lo=a, hi=b, dim=dim)
        call(behind, of, lo=b, hi=4, dim=dim)
        assert math.prod(dim.tolist()) == math.prod(extents) and dim.tolist()[1::2] == [extents[a], extents[b]]
    for number in (266, 550):
        stride = layout(i32([0, 0, 0, 0, 1]), kind)
        call(number, dim=dim, stride=stride)
        assert stride.tolist() == list(np.empty(dim, np.int8).strides)
        position = stride @ [0, 1, 0, 1, 0]
        assert position == np.ravel_multi_index([int(d in (a, b)) for d in range(4)], extents)


@kinds
def test_strides(kind):
    shape = (2, 3, 4, 5)
    for number in STRIDES:
        (count,), arrays = names(number, "i"), set(names(number, "i32", "i64"))
        (strides,) = arrays & {"strides", "rstrides", "stride", "st", "s"}
        (extents,) = arrays - {strides}
        dtype = np.int64 if (strides, "i64") in KERNELS[number].parameters else np.int32
        result = layout(np.array([UNTOUCHED] * 3 + [8, UNTOUCHED], dtype), kind)
        call(number, **{count: 4, extents: layout(i32(shape), kind), strides: result})
        assert result.tolist() == [*np.empty(shape).strides, UNTOUCHED], number
        for n in (1, 0, -1):
            call(number, **{count: n})


@kinds
def test_strides_that_are_special(kind):
    shape = layout(i32([2, 3, 4]), kind)
    for number in (49, 62):  # set the last stride, too
        strides = blank(4, kind)
        call(number, nd=3, shape=shape, strides=strides)
        assert strides.tolist() == [12, 4, 1, UNTOUCHED]
        call(number, nd=1, strides=strides)
        assert strides.tolist() == [1, 4, 1, UNTOUCHED]
        call(number, nd=0)
    for number, extents, name in ((315, "shape", "stride"), (319, "rshape", "rstride")):  # mirrored
        strides = layout(i64([UNTOUCHED, UNTOUCHED, 1]), kind)
        call(number, n=3, **{extents: shape, name: strides})
        assert strides.tolist() == [12, 3, 1]
    permuted = layout(i64([UNTOUCHED, UNTOUCHED, 1]), kind)
    call(207, nd=3, perm=layout(i32([1, 2, 0]), kind), pstrides=permuted, shape=shape)
    assert permuted.tolist() == [8, 2, 1]
    wide, narrow = layout(i64([0, 0, 1]), kind), layout(i32([0, 0, 1]), kind)
    large = layout(i32([1, 2**20, 2**20]), kind)
    call(43, nd=3, shape=large, strides=wide)
    call(99, nd=3, shape=large, stride=narrow)
    assert wide.tolist() == [2**40, 2**20, 1] and narrow.tolist() == [0, 2**20, 1]


# Of each copy: the source, the target, its scalars, and what the target becomes from the extents 2, 3, 4, 5.
O = UNTOUCHED
COPIES = {
    (60, 97): ("shape", "accshape", {"n": 3}, [2, 3, 4, O, O]),
    (72, 90): ("shape", "coneshape", {"n": 3}, [2, 3, 4, O, O]),
    (225,): ("shape", "rshape", {"n": 3}, [2, 3, 4, O, O]),
    (427,): ("shape_", "shape", {"n": 3}, [2, 3, 4, O, O]),
    (540,): ("shape", "r", {"n": 3}, [2, 3, 4, O, O]),
    (541,): ("shape", "r", {"dim": 1}, [O, 4, 5, O, O]),
    (289,): ("shapei", "rshape", {"n": 3}, [2, 3, 4, O, O]),
    (604, 606): ("sh", "shape", {"n": 3}, [2, 3, 4, O, O]),
    (595,): ("shape", "s", {}, [2, 3, 4, 5, O]),
    (145,): ("shape", "ri32", {"n": 3, "pos": 1}, [O, 2, 3, 4, O]),
    (573,): ("shape", "ri32", {"base": 1}, [O, 2, 3, 4, 5]),
    (152,): ("shape", "rshape", {"from": 1, "to": 3}, [O, 3, 4, O, O]),
    (228,): ("shape", "rshape", {"d": 1, "nd": 4}, [O, O, 4, 5, O]),
    (61, 98): ("shape", "accshape", {"d": 1, "nd": 4}, [O, 4, 5, O, O]),
    (73, 91): ("shape", "coneshape", {"d": 1, "nd": 4}, [O, 4, 5, O, O]),
    (154,): ("shape", "rshape", {"d": 1, "nd": 4}, [O, 4, 5, O, O]),
    (74, 92): ("shape", "coneshape", {"d": 1, "nd": 4}, [4, 5, O, O, O]),
    (226,): ("shape", "rshape", {"d": 1, "nd": 4}, [O, O, 3, 4, 5]),
    (596,): ("shape", "s", {"n": 5}, [O, O, O, O, 1]),
    (205,): ("shape", "realshape", {"n": 4}, [2, 3, 4, 5, O]),
}


@kinds
def test_copies_of_shapes(kind):
    for numbers, (source, target, scalars, expected) in COPIES.items():
        for number in numbers:
            result = blank(5, kind)
            call(number, **{source: layout(i32([2, 3, 4, 5]), kind), target: result}, **scalars)
            assert result.tolist() == expected, number
            call(number)  # nothing to copy: nothing touched
    for numbers, name, bounds in (((213, 230), "rshape", ("from", "to")), ((605, 607), "shape", ("lo", "hi"))):
        for number in numbers:
            result = blank(5, kind)
            call(number, **{name: result}, **dict(zip(bounds, (1, 3))))
            assert result.tolist() == [O, 1, 1, O, O]


@kinds
def test_axes_permute_and_axes_of_extent_one_go(kind):
    shape = layout(i32([1, 4, 1, 5, 1]), kind)
    result = blank(5, kind)
    call(167, n=4, perm=layout(i32([3, 0, 1, 2, 4]), kind), rshape=result, shape=shape)
    assert result.tolist() == [5, 1, 4, 1, O]
    assert call(204, n=4, c=10, shape=shape) == 12
    call(205, n=5, realshape=result, shape=shape)
    assert result.tolist() == [4, 5, 4, 1, O]


@kinds
def test_shapes_of_a_stack(kind):
    """Items of ranks 3, 2 and 3 along axis 1; in a table and item by item."""
    items = [(4, 2, 1), (4, 5), (4, 3, 1)]
    table = layout(np.full((4, 4), UNTOUCHED, np.int32), kind)
    call(250, rows=2, cols=3, shape=table)
    assert table.tolist() == [[1, 1, 1, O]] * 2 + [[O] * 4] * 2
    for strides in ((8, 4), (8, 12)):
        memory, ones = i32([O] * 6), i32([O] * 6)
        np.lib.stride_tricks.as_strided(ones, (2, 2), strides)[...] = 1
        call(250, rows=2, cols=2, shape=np.lib.stride_tricks.as_strided(memory, (2, 2), strides))
        assert memory.tolist() == ones.tolist()
    for row, item in enumerate(items):
        call(252, row=row, shape=table, shpi=layout(i32(item), kind))
    assert table.tolist() == [[4, 2, 1, O], [4, 5, 1, O], [4, 3, 1, O], [O] * 4]
    whole = layout(i32([4, 2, 1]), kind)
    call(253, axis=1, n=3, resshape=whole, shape=table)
    assert whole.tolist() == [4, 10, 1]
    call(253, axis=0, n=1)

    dimsizes, flag, total = blank(4, kind), True, 0
    for k, item in enumerate(items):
        shapei = layout(i32(item), kind)
        assert call(290, axis=1, flag=True, rshape=whole, shapei=shapei)
        flag, total = call(291, axis=1, flag=flag, total=total, dimsizes=dimsizes, item=k, rank=3, rshape=whole,
                           shapei=shapei)  # fmt: skip
    assert flag and total == 10 and dimsizes.tolist() == [2, 5, 3, O]

    assert not call(290, axis=-3, flag=True, rshape=whole, shapei=i32([4, 9]))
    assert not call(290, axis=0, flag=True, rshape=whole, shapei=i32([4, 9]))
    assert not call(290, axis=1, flag=True, rshape=whole, shapei=i32([5, 2, 1]))
    assert not call(290, axis=1, flag=False, rshape=whole, shapei=i32([4]))
    assert call(291, axis=0, flag=True, dimsizes=dimsizes, rank=3, rshape=i32([4, 2, 1]), shapei=i32([6])) == (False, 6)
    # An item that lacks the axis itself counts as extent 1 and isn't held against the other axes.
    assert call(291, axis=2, flag=True, dimsizes=dimsizes, rank=4, rshape=i32([9] * 4), shapei=i32([6])) == (True, 1)
    assert dimsizes[0] == 1

    row = layout(np.full((2, 4), UNTOUCHED, np.int32), kind)
    call(597, row=1, shapes=row, shp=i32([7, 8]))
    call(598, row=1, n=3, shapes=row, shp=i32([7, 8]))
    assert row.tolist() == [[O] * 4, [7, 8, 1, O]]


@kinds
def test_sums_and_extremes(kind):
    values = layout(i32([5, -3, 2**31 - 1, 7, -(2**31)]), kind)
    for number in (227, 251, 433):
        assert call(number, {"numnz": values, "d1s": values}, n=4, init=1) == wrapped(number, 5 - 3 + 2**31 - 1 + 7 + 1)
        assert call(number, n=0, init=1) == 1
    assert call(292, nnzs=values, init=2) == 10 and call(292, init=2) == 2
    offset = layout(i32([10] + [UNTOUCHED] * 3), kind)
    call(236, n=3, offset=offset, sdims=values)
    assert offset.tolist() == [10, 15, 12, O]

    for number, name in ((52, "shape"), (65, "shape"), (217, "rshape"), (239, "rshape")):
        assert [call(number, acc=4, n=n, **{name: values}) for n in (0, 1, 2, 5)] == [4, 5, 5, 2**31 - 1]
    # Entry 0 is left out: the start value stands for it.
    assert [call(296, init=-9, n=n, rshape=values) for n in (1, 2, 3)] == [-9, -3, 2**31 - 1]
    assert call(594, lo=4, hi=4, n=2, nds=values) == (-3, 4) and call(594, lo=4, hi=4, n=1) == (4, 4)

    for number, integers in ((104, i64), (105, i32)):
        vals1, vals2 = RNG.integers(-(2**31), 2**31, (2, 20))
        idx, result = RNG.integers(0, 20, 9), blank(5, kind, integers)
        picked = idx[2:8]
        run = {"first": 2, "last": 8, "idx": layout(idx, kind), "res": result}
        call(number, **run, vals1=layout(integers(vals1), kind))
        assert result.tolist() == [vals1[picked].min(), vals1[picked].max(), O, O, O]
        call(number, **run, vals1=layout(integers(vals2), kind), vals2=layout(integers(vals1), kind))
        assert result.tolist()[:2] == [vals2[picked].min(), vals2[picked].max()]
        assert result.tolist()[2:] == [vals1[picked].min(), vals1[picked].max(), O]
