"""Operators on two axes as the sides of a matrix: what the random trees of operators cannot show."""

import numpy as np
import pytest

from records import SENTINELS, Record, Stack, result
from support import call, f64, i32, i64, kernel

# Two axes of extent 3: a diagonal element, a pair of mirror elements, and one whose mirror isn't stored.
MEAN = Record(
    shape=(3, 3),
    sp=i64([0, 1, 3, 5]),
    ptr=i32([0, 2, 3, 4, 5]),
    nidxs=i64([4, 4, 7, 7, 8]),
    cof=f64([-0.0, np.nan, 3.0, 5.0, 6.0]),
    codeptr=i32([0, 1, 3, 3, 4, 5]),
    code=i32([1, 1, 4, 1, 1]),
    cconst=f64([2.0, 3.0, 0.5, 1.0, 0.0]),
)
HALF = [(2, 0.5), (5, None)]


def atoms_of(r):
    """The atoms of each term of a result, None for an operand that was never written."""
    code, cconst, ends = (r.slots(0, field) for field in ("code", "cconst", "codeptr"))
    pairs = [(int(c), None if v == SENTINELS["f64"] else float(v)) for c, v in zip(code, cconst)]
    return [pairs[b:e] for b, e in zip(ends, ends[1:])]


def test_mean_of_stored_elements():
    """Natural terms come first, an element without a mirror is written twice, and the diagonal keeps every bit."""
    rng = np.random.default_rng(1)
    w, r = Stack("w", rng, [MEAN]), result(rng, (3, 3), (19, 5, 8))
    names = {**w.arguments, **r.arguments, "stride": i64([9, 3, 3, 1, 1])}
    names |= {"xi32": i32([0, 2, 1, 3]), "xi64": i64([0, 1, 3, 7])}
    assert call(569, names) == (19, 4, 5, 4, 8)
    assert list(r.slots(0, "sp")) == [0, 1, 3, 5, 7] and list(r.slots(0, "ptr")) == [0, 2, 4, 6, 7, 8]
    assert list(r.slots(0, "nidxs")) == [4, 4, 7, 7, 7, 7, 8, 8]
    assert r.slots(0, "cof").tobytes() == f64([-0.0, np.nan, 1.5, 2.5, 2.5, 1.5, 3.0, 3.0]).tobytes()
    first, second = [HALF, [(1, 1.0), *HALF]]
    assert atoms_of(r) == [[(1, 2.0)], [(1, 3.0), (4, 0.5)], first, second, second, first] + [[(1, 0.0), *HALF]] * 2


@pytest.mark.parametrize("dim", [(1, 4, 1, 2, 1), (2, 2, 2, 4, 2), (1, 3, 1, 3, 1), (1, 3, 2, 2, 0)])
def test_mean_of_an_oblong_fold(dim):
    stride, ptr, total = (20, 7, 3, 2, 1), np.arange(99) ** 2, 0
    for e, (i0, i1, i2, i3, i4) in enumerate(np.ndindex(dim)):
        total += 2 * e + 1 + (i1 != i3) * (2 * np.dot(stride, (i0, i3, i2, i1, i4)) + 1)
    assert call(570, dim=i32(dim), stride=i64(stride), wi32=i32(ptr)) == (0, total)


def test_diagonal_is_scaled_in_code_only():
    """Off the diagonal coefficients and code get the factor; on it code gets a factor of 1, coefficients none."""
    rng = np.random.default_rng(2)
    w, r = Stack("w", rng, [MEAN]), result(rng, (3, 3), (15, 4, 5))
    names = {**w.arguments, **r.arguments, "factor": 2.0, "dim0": 1, "dim1": 3, "dim2": 1, "dim3": 3, "dim4": 1}
    r.slots(0, "ptr")[:], r.slots(0, "cof")[:] = MEAN.ptr, MEAN.cof
    for number, cof in ((545, [-0.0, np.nan, 6.0, 10.0, 12.0]), (546, [-0.0, np.nan, 12.0, 20.0, 24.0])):
        call(number, names)
        assert r.slots(0, "cof").tobytes() == f64(cof).tobytes()
    one, two = ([(2, factor), (5, None)] for factor in (1.0, 2.0))
    assert atoms_of(r) == [[(1, 2.0), *one], [(1, 3.0), (4, 0.5), *one], two, [(1, 1.0), *two], [(1, 0.0), *two]]


@pytest.mark.parametrize(
    "dim, sp, buckets, perm, places",
    [
        # Axis 1 has 2 buckets and the sum goes over 4: it takes in the slots behind, which hold 10 and 20.
        ((1, 2, 1, 4, 1), (0, 4, 5), [1, 3, 3, 13, 33], [0, 1, 2], (8, 5)),
        # Axis 1 has 4 buckets and the sum goes over 2: an element of bucket 3 falls on place 0.
        ((1, 4, 1, 2, 1), (0, 2, 6), [1, 2, 2, 1, 1], [2, 1, -7], (8, 5)),
        # All axes of extent 1: nothing is sorted and nothing swapped.
        ((1, 1, 1, 1, 1), (0, 0, 0), [5, 5, 5, 10, 20], [-7] * 3, (5, 8)),
    ],
)
def test_every_pass_adds_up_as_many_buckets(dim, sp, buckets, perm, places):
    xi32 = i32([5, 5, 5, 10, 20, 0, 1, 2, -7, -7, -7])
    names = {"dim": i32(dim), "stride": i64([1, dim[3], 1, 1, 1]), "wi64": i64(sp), "xi32": xi32}
    assert call(564, names, n=3, source=5, target=8, sortidx=i32([1, 0, 2, 4])) == places
    assert list(xi32) == [*buckets, 0, 1, 2, *perm]


def test_positions_of_the_triangle_need_64_bits():
    ri64 = i64([-1] * 4)
    stride = i32([2**31 - 1, 4, 2, 2, 1])
    assert call(553, dim=i32([3, 1, 1, 1, 1]), k=1, ri64=ri64, stride=stride) == 4
    assert list(ri64) == [-1, 0, 2**31 - 1, 2 * (2**31 - 1)]


def test_triangles_of_any_strides():
    for number, upper, positions in (553, False, [1, 7, 9, 13, 15, 17]), (554, True, [1, 3, 5, 9, 11, 17]):
        fold = {"dim": i32([1, 3, 1, 3, 1]), "stride": i32([0, 6, 0, 2, 1])}
        assert call(number, fold, ri64=(ri64 := i64([-1] * 7))) == 6 and list(ri64 + 1) == [*positions, 0]
        assert call(551, fold, upper=upper, wi32=i32(np.arange(20) ** 2)) == (0, 2 * sum(positions) - 6)


def test_nothing_is_read_of_nothing():
    assert kernel(567)(0, 3, -5, None, None, None, 4) == -5
    assert call(565, nc=3, nnz=4) == (3, 4) and call(566) is None
    assert call(569, c=1, ia=2, g=3, ib=2, t=5, nelem=2) == (1, 2, 3, 2, 5)
    dim = i32([0, 3, 3, 3, 3])
    assert call(572, dim=dim, c=1, e=2, g=3, t=4) == (1, 2, 3, 4) and call(570, dim=dim) == (0, 0)
    assert call(551, dim=dim, nc=1, nnz=2) == (1, 2) and call(551, hassp=True, nc=1, nnz=2) == (1, 2)
    assert call(545) is None and call(546, hassp=True) is None


def test_flag_beside_a_product():
    extents = i32([0, 3, 2**30])
    assert kernel(556)(2, "yes", 1, 1, extents) == (True, -(2**30))
    assert kernel(556)(1, [], -2, 1, extents) == (False, -6) and kernel(556)(0, 0, 9, 0, None) == (False, 9)
