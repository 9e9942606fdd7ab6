"""Operators on two axes as the sides of a matrix: triangle, scaling off the diagonal, symmetrisation."""

import numpy as np
import pytest

from records import SENTINELS, Record, Room, Stack, evaluate, random_record
from support import LAYOUTS, call, f64, i32, i64, kernel, layout

# Shapes and two of their axes. Extents before and between the two are no greater than theirs, which is what the sort by
# mirror keys asks for.
PAIRS = [((3, 3), 0, 1), ((2, 4, 3, 4), 1, 3), ((2, 3, 3, 2), 1, 2), ((4, 2, 4, 3), 0, 2)]

pairs = pytest.mark.parametrize("shape, a, b", PAIRS, ids=str)
kinds = pytest.mark.parametrize("kind", LAYOUTS)
operands = pytest.mark.parametrize(
    "sparse, code",
    [(False, False), (False, True), (True, False), (True, True)],
    ids=["dense", "dense code", "sparse", "sparse code"],
)


def fold(w, a, b, numbers, kind):
    """The five extents, by the kernels `numbers` for the products before, between and behind the axes."""
    shape = w.contents[0].shape
    dim = layout(i32([1, shape[a], 1, shape[b], 1]), kind)
    before, between, behind = numbers
    call(before, w.arrays, w.fields(0), dim=dim, n=a)
    call(between, w.arrays, w.fields(0), dim=dim, lo=a, hi=b)
    call(behind, w.arrays, w.fields(0), dim=dim, lo=b, hi=len(shape))
    assert np.prod(dim) == np.prod(shape)
    return dim


def coordinates(shape, a, b):
    """i1 and i3 of every element, in the operand's shape."""
    index = np.indices(shape)
    return index[a], index[b]


def random_operand(shape, sparse, code, kind):
    rng = np.random.default_rng(len(shape) + 10 * code)
    record = random_record(rng, shape, sparse, code, density=0.5)
    return rng, record, Stack("w", rng, [record], kind)


def result_stack(rng, shape, elements, terms, atoms, hassp, kind):
    r = Stack("r", rng, [Room(shape, elements, terms, atoms, hassp)], kind)
    r.slots(0, "shape")[:] = shape
    return r


def written(r):
    r.assert_only_written(0)
    return r.read(0)


@kinds
@operands
@pairs
@pytest.mark.parametrize("upper", [False, True], ids=["lower", "upper"])
def test_triangle(shape, a, b, upper, sparse, code, kind):
    rng, record, w = random_operand(shape, sparse, code, kind)
    dim = fold(w, a, b, (547, 548, 549), kind)
    stride = layout(i32(np.r_[np.cumprod(dim[:0:-1])[::-1], 1]), kind)
    table = {"dim": dim, "stride": stride}
    atoms, terms = call(551, w.arrays, w.fields(0), table, nc=0, nnz=0, upper=upper)

    i1, i3 = coordinates(shape, a, b)
    wanted = i1 <= i3 if upper else i1 >= i3
    r = result_stack(rng, shape, np.count_nonzero(wanted), terms, atoms, True, kind)
    names = {**r.arrays, **r.fields(0, "r")}
    assert call(554 if upper else 553, names, table, k=0) == r.contents[0].nelem
    assert np.array_equal(r.slots(0, "sp"), np.flatnonzero(wanted))
    common = {**w.arrays, **w.fields(0), **names, "count": r.contents[0].nelem, "rhascode": atoms}
    assert call(555, common, c=0, k=0) == (atoms, terms)
    assert np.array_equal(evaluate(written(r)), evaluate(record) * wanted[..., None])
    w.assert_only_written()


@kinds
@operands
@pairs
def test_scaling_off_the_diagonal(shape, a, b, sparse, code, kind):
    rng, record, w = random_operand(shape, sparse, code, kind)
    atoms = record.ncodeatom and record.ncodeatom + 2 * record.nnz
    r = result_stack(rng, shape, record.nelem, record.nnz, atoms, sparse, kind)
    copied = ("shape", "sp", "ptr", "nidxs", "cof")
    common = {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r"), "factor": -3.0}
    call(557, common, ncodeatom=0)  # all but the code, which 546 writes anew
    r.assert_only_written(0, copied)

    extents = {"wi32": w.arrays["wi32"], "shape": w.fields(0)["shape"], "acc": 1}
    common |= {"dim0": call(542, extents, n=a), "dim1": shape[a], "dim2": call(543, extents, lo=a, hi=b)}
    common |= {"dim3": shape[b], "dim4": call(544, extents, lo=b, hi=len(shape))}
    call(546 if code else 545, common)
    i1, i3 = coordinates(shape, a, b)
    result = written(r)
    assert np.array_equal(evaluate(result), evaluate(record) * np.where(i1 == i3, 1, -3)[..., None])
    assert np.array_equal(result.ptr, record.ptr) and np.array_equal(result.nidxs, record.nidxs)


@kinds
@operands
@pairs
def test_symmetrisation(shape, a, b, sparse, code, kind):
    rng, record, w = random_operand(shape, sparse, code, kind)
    dim = fold(w, a, b, (559, 560, 561), kind)
    stride = layout(i64([-7, -7, -7, -7, 1]), kind)
    call(562, dim=dim, stride=stride)
    assert np.array_equal(stride, np.r_[np.cumprod(dim[:0:-1])[::-1], 1])

    table = {"dim": dim, "stride": stride}
    common = {**w.arrays, **w.fields(0), **table}
    if sparse:
        n, source = record.nelem, 1 + max(dim)
        xi32, xi64 = layout(i32(np.full(source + 2 * n, -1)), kind), layout(i64(np.full(n + 2, -1)), kind)
        common |= {"xi32": xi32, "xi64": xi64, "n": n, "key": 1}
        call(563, common, base=source)
        perm, _ = call(564, common, source=source, target=source + n, sortidx=i32([1, 2, 3, 0]), ptr=0)
        call(566, common, perm=perm)
        assert np.array_equal(xi64[1 : n + 1], np.sort(mirrors(record.sp, shape, a, b)))
        atoms, terms = call(565, common, nc=0, nnz=0)
        elements = call(567, common, acc=0)
        common["perm"] = perm
    else:
        atoms, terms = call(570, common, nc=0, nnz=0)
        elements = record.nelem
    r = result_stack(rng, shape, elements, terms, atoms, sparse, kind)
    common |= {**r.arrays, **r.fields(0, "r")}
    if sparse:
        assert call(569, common, c=0, ia=0, g=0, ib=0, t=0) == (atoms, n, elements, n, terms)
    else:
        assert call(572, common, c=0, e=0, g=0, t=0) == (atoms, elements, elements, terms)
    forms = evaluate(record)
    assert np.array_equal(evaluate(written(r)), (forms + np.swapaxes(forms, a, b)) / 2)
    w.assert_only_written()


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
    w, r = Stack("w", rng, [MEAN]), result_stack(rng, (3, 3), 5, 8, 19, True, "contiguous")
    names = {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r"), "stride": i64([9, 3, 3, 1, 1])}
    names |= {"xi32": i32([0, 2, 1, 3]), "xi64": i64([0, 1, 3, 7])}
    assert call(569, names) == (19, 4, 5, 4, 8)
    assert list(r.slots(0, "sp")) == [0, 1, 3, 5, 7] and list(r.slots(0, "ptr")) == [0, 2, 4, 6, 7, 8]
    assert list(r.slots(0, "nidxs")) == [4, 4, 7, 7, 7, 7, 8, 8]
    assert r.slots(0, "cof").tobytes() == f64([-0.0, np.nan, 1.5, 2.5, 2.5, 1.5, 3.0, 3.0]).tobytes()
    first, second = [HALF, [(1, 1.0), *HALF]]
    assert atoms_of(r) == [[(1, 2.0)], [(1, 3.0), (4, 0.5)], first, second, second, first] + [[(1, 0.0), *HALF]] * 2


def test_diagonal_is_scaled_in_code_only():
    """Off the diagonal coefficients and code get the factor; on it code gets a factor of 1, coefficients none."""
    rng = np.random.default_rng(2)
    w, r = Stack("w", rng, [MEAN]), result_stack(rng, (3, 3), 4, 5, 15, True, "contiguous")
    names = {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r"), "factor": 2.0, "hassp": True}
    names |= {"dim0": 1, "dim1": 3, "dim2": 1, "dim3": 3, "dim4": 1}
    r.slots(0, "ptr")[:], r.slots(0, "cof")[:] = MEAN.ptr, MEAN.cof
    for number, cof in ((545, [-0.0, np.nan, 6.0, 10.0, 12.0]), (546, [-0.0, np.nan, 12.0, 20.0, 24.0])):
        call(number, names)
        assert r.slots(0, "cof").tobytes() == f64(cof).tobytes()
    one, two = ([(2, factor), (5, None)] for factor in (1.0, 2.0))
    assert atoms_of(r) == [[(1, 2.0), *one], [(1, 3.0), (4, 0.5), *one], two, [(1, 1.0), *two], [(1, 0.0), *two]]


@pytest.mark.parametrize(
    "dim, sp, buckets, perm",
    [
        # Axis 1 has 2 buckets and the sum goes over 4: it takes in the slots behind, which hold 10 and 20.
        ((1, 2, 1, 4, 1), (0, 4, 5), [1, 3, 3, 13, 33], [0, 1, 2]),
        # Axis 1 has 4 buckets and the sum goes over 2: an element of bucket 3 falls on place 0.
        ((1, 4, 1, 2, 1), (0, 2, 6), [1, 2, 2, 1, 1], [2, 1, -7]),
    ],
)
def test_every_pass_adds_up_as_many_buckets(dim, sp, buckets, perm):
    xi32 = i32([5, 5, 5, 10, 20, 0, 1, 2, -7, -7, -7])
    stride = i64([1, dim[3], 1, 1, 1])
    names = {"dim": i32(dim), "stride": stride, "wi64": i64(sp), "xi32": xi32, "n": 3, "source": 5, "target": 8}
    assert call(564, names, sortidx=i32([1, 0, 2, 4])) == (8, 5)
    assert list(xi32) == [*buckets, 0, 1, 2, *perm]


def test_axes_of_extent_one_are_passed_over():
    xi32 = i32([5, 5, 0, 1])
    names = {"dim": i32([1, 1, 0, 1, 1]), "stride": i64(range(5)), "wi64": i64([3, 4]), "xi32": xi32, "n": 2}
    assert call(564, names, sortidx=i32([0, 1, 2, 3]), source=2, target=9) == (2, 9)
    assert list(xi32) == [5, 5, 0, 1]


def test_cursors_go_on_from_what_came_in():
    """A second run of a writer over the same operand appends: its slots lie behind those of the first."""
    rng = np.random.default_rng(3)
    dense = random_record(rng, (2, 2), code=True)
    w = Stack("w", rng, [dense])
    table = {"dim": i32([1, 2, 1, 2, 1]), "stride": i64([4, 2, 2, 1, 1])}
    atoms, terms = call(570, w.arrays, w.fields(0), table, nc=0, nnz=0)
    assert call(570, w.arrays, w.fields(0), table, nc=7, nnz=9) == (atoms + 7, terms + 9)
    r = Stack("r", rng, [Room((2, 2, 2), 8, 2 * terms, 2 * atoms)])
    r.slots(0, "shape")[:] = 2
    names = {**w.arrays, **w.fields(0), **r.arrays, **r.fields(0, "r"), **table}
    c, e, g, t = call(572, names)
    assert call(572, names, c=c, g=g, t=t) == (2 * atoms, 4, 8, 2 * terms)
    forms = evaluate(written(r))
    assert np.array_equal(forms[0], forms[1])


def test_positions_of_the_triangle_need_64_bits():
    ri64 = i64([-1] * 4)
    stride = i32([2**31 - 1, 4, 2, 2, 1])
    assert call(553, dim=i32([3, 1, 1, 1, 1]), k=1, ri64=ri64, stride=stride) == 4
    assert list(ri64) == [-1, 0, 2**31 - 1, 2 * (2**31 - 1)]


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


def mirrors(sp, shape, a, b):
    """The flat positions with the coordinates of the two axes exchanged."""
    index = list(np.unravel_index(sp, shape))
    index[a], index[b] = index[b], index[a]
    return np.ravel_multi_index(index, shape)
