"""Fills and copies of slots, leaf expressions, products over extents, and checks of index lists."""

import numpy as np
import pytest

from records import FIRST, SENTINELS, check, result
from support import KERNELS, blank, call, f64, i32, i64, kinds


@kinds
@pytest.mark.parametrize("n", [-1, 0, 1, 7])
@pytest.mark.parametrize(
    "number, array, make, slots, scalars, value",
    [(number, "rf64", f64, lambda n: n, {"top": 3}, lambda i: 0.0) for number in (333, 373, 378)]
    + [
        (334, "ri32", i32, lambda n: n + 1, {"top": 3, "k": 5}, lambda i: 5 * i),
        (335, "ri64", i64, lambda n: n, {"top": 3}, lambda i: -999),
        (377, "ri32", i32, lambda n: n + 1, {"top": 3}, lambda i: -9999),
        (481, "wi32", i32, lambda n: n + 1, {"top": 3}, lambda i: 0),
        (516, "ri32", i32, lambda n: n + 1, {"pos": 3}, lambda i: 0),
        (517, "xi32", i32, lambda n: n + 1, {"pos": 3, "flag": 1}, lambda i: 0),
        (517, "xi32", i32, lambda n: 0, {"pos": 3, "flag": 0}, None),
        (501, "ri32", i32, lambda n: n, {"top": 2, "k": 2**40 + 3}, lambda i: 3 * (i + 1)),
    ],
)
def test_fills(number, array, make, slots, scalars, value, n, kind):
    values, expected = blank(24, kind, make), blank(24, make=make)
    for i in range(slots(n)):
        expected[3 + i] = value(i)
    call(number, scalars, {array: values, "n": n})
    np.testing.assert_array_equal(values, expected)


def test_copies_of_shapes():
    shape, w = i32([2, 3, 5]), i32([9, 9, 2, 3, 5, 7])
    for number in (533, 538):
        r = i32([0] * 6)
        call(number, lo=1, hi=4, ri32=r, rshape=1, shape=2, wi32=w)
        assert r.tolist() == [0, 0, 5, 7, 0, 0]
    for number, named in {
        402: {"n": 3, "rshape": 2, "shape": shape},
        415: {"n": 3, "top": 2, "rshape": shape},
        515: {"nd": i32([3, 1]), "pos": 2, "shape_base": i32([2, 0]), "wi32": w},
    }.items():
        r = i32([0] * 6)
        call(number, named, ri32=r)
        assert r.tolist() == [0, 0, 2, 3, 5, 0]
    r = i32([0, 0])
    call(444, n=1, resshape=r, shape=shape)
    assert r.tolist() == [2, 0]
    call(502, rshape=r, shape=shape)
    assert r.tolist() == [2, 3]


def test_counts_become_pointers_and_cursors_become_pointers_again():
    for number, name in ((520, "ri32"), (521, "xi32")):
        ptr = i32([7, 0, 2, 1, 9])
        call(number, {name: ptr, "flag": 1}, n=2, pos=1)
        assert ptr.tolist() == [7, 0, 2, 3, 9]
    call(521, n=2, pos=1, flag=0, xi32=ptr)
    assert ptr.tolist() == [7, 0, 2, 3, 9]
    call(524, n=3, pos=1, ri32=ptr)
    assert ptr.tolist() == [7, 0, 0, 2, 3]


@pytest.mark.parametrize("hassp", [False, True])
def test_matrices_and_variables_as_records(hassp):
    rng = np.random.default_rng(0)
    r = result(rng, (3, 2**31 - 1), (0, 2, 2), hassp=hassp)
    arrays = {name.removeprefix("r"): array for name, array in r.arrays.items()}
    matrix = {"mcof": f64([5.0, 7.0]), "msubi": i32([0, 2]), "msubj": i32([3, 1]), "mdimj": 2**31 - 1, "mnnz": 2}
    call(492, arrays, r.fields(0), matrix, n=1, cvar=FIRST + 6)
    assert r.slots(0, "nidxs")[1] == SENTINELS["i64"]  # n terms, whatever the number of entries
    call(492, arrays, r.fields(0), matrix, n=2, cvar=FIRST + 6)
    record = r.read(0)
    assert record.nidxs.tolist() == [FIRST + 6] * 2 and record.cof.tolist() == [5, 7]
    assert record.ptr.tolist() == [0, 1, 2] and (not hassp or record.sp.tolist() == [3, 2**32 - 1])
    r.assert_only_written(0)

    r = result(rng, (2, 2), (0, 4, 4), hassp=False, preset=())
    arrays = {name.removeprefix("r"): array for name, array in r.arrays.items()}
    call(493, arrays, r.fields(0), nd=2, n=4, rshape=r.fields(0)["shape"], shape=i32([2, 2]))
    r.slots(0, "nidxs")[:] = FIRST + np.arange(4)
    check(r, np.eye(4, 12).reshape(2, 2, 12))


@pytest.mark.parametrize("number", [437, 438, 462, 494, 495, 497, 507, 542, 543, 544])
def test_products_over_extents(number):
    """All take the extents at 1 to 3, told in different ways; results wrap around, an empty range gives the start."""
    told = {"acc": 7, "init": 7, "base": 1, "top": 1, "shape": 1, "n": 3, "hi": 5, "lo": 2}
    if number == 495:
        told |= {"base": 0, "hi": 4}
    elif number in (438, 543, 544):
        told |= {"top": 0, "shape": 0, "lo": 0, "hi": 4, "dim": 0, "nd": 4}
    assert call(number, told, wi32=i32([9, 2, 3, 5, 9])) == 210
    large, bits = 7 * (2**31 - 1) ** 2 * 4, 64 if KERNELS[number].results == ("i64",) else 32
    wrapped = (large + 2 ** (bits - 1)) % 2**bits - 2 ** (bits - 1)
    assert call(number, told, wi32=i32([9, 2**31 - 1, 2**31 - 1, 4, 9])) == wrapped
    assert call(number, {**told, "n": 0, "hi": told["lo"], "nd": 0}, wi32=None) == 7


@pytest.mark.parametrize(
    "numbers, values, size, bad_order, bad_range",
    [
        ((405, 408, 460), [], 5, False, False),
        ((405, 408, 460, 446), [0, 2, 4], 5, False, False),
        ((405, 408, 460, 446), [2, 2], 5, True, False),
        ((405, 408, 460, 446), [3, 1, 4], 5, True, False),
        ((405, 408, 460, 446), [-1, 3], 5, False, True),
        ((405, 408, 460), [1, 5], 5, False, True),
        ((446,), [1, 5], 5, False, False),  # the last may equal the size
        ((446,), [1, 6], 5, False, True),
        ((405, 408, 460), [0, 9, 1], 5, True, True),
        ((446,), [0, 9, 1], 5, True, False),  # only the first and the last are looked at
        ((405, 408, 460, 446), [0, 2**40], 2**41, False, False),
        ((405, 408, 460), [0], -(2**63), False, True),
        ((405, 408, 460), [-(2**63), 2**63 - 1], 5, False, True),
        ((405, 408, 460), [2**63 - 1, -(2**63)], 5, True, True),
    ],
)
def test_checks_of_index_lists(numbers, values, size, bad_order, bad_range):
    """Flags are set, and never cleared."""
    for number in numbers:
        for array in [i64(values)] + [None] * (not values):
            lists = {"sparsity": array, "idxs": array, "msp": array, "vsub3": array, "size": size}
            if number in (405, 408):
                assert call(number, lists, bad=False) is bad_range and call(number, lists, bad=True) is True
            else:
                assert call(number, lists) == (bad_order, bad_range)
                assert call(number, lists, bad_order=True) == (True, bad_range)
                assert call(number, lists, bad_range=True) == (bad_order, True)
