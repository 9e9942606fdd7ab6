"""The sum of an expression along one axis."""

import numpy as np
import pytest

from records import Record, Room, Stack, evaluate, random_record
from support import LAYOUTS, call, i32, i64, kernel, layout

SHAPES = [(5,), (1, 4), (3, 4), (2, 3, 4), (3, 1, 2, 2)]
x_ptr = 1  # where the buckets stand in xi32


def split(shape, dim):
    """The extents before the axis, along it and behind it."""
    return int(np.prod(shape[:dim])), shape[dim], int(np.prod(shape[dim + 1 :]))


def sort(w, kind, dim):
    """The x stack of a sparse sum along `dim`, sorted, and the position of the permutation."""
    nelem, extents = w.contents[0].nelem, w.contents[0].shape
    buckets = call(526, w.arrays, w.fields(0), acc=0, n=len(extents))
    assert buckets == max(extents)
    source = x_ptr + buckets + 1
    xi32 = layout(i32(np.full(source + 2 * nelem + 1, -7)), kind)
    call(527, base=source, n=nelem, xi32=xi32)
    before = xi32.copy()
    place, other = call(
        528, w.arrays, w.fields(0), dim=dim, nd=len(extents), ptr=x_ptr, source=source, target=source + nelem, xi32=xi32
    )
    assert {place, other} == {source, source + nelem}
    if dim == len(extents) - 1:
        assert place == source and np.array_equal(xi32, before)
    assert xi32[0] == xi32[-1] == -7
    return xi32, place


def add_up(record, dim, kind, rng):
    """The sum along `dim` as a record, by the kernels in their order."""
    outer, ext, inner = split(record.shape, dim)
    w = Stack("w", rng, [record], kind)
    rest = layout(i32([-1] * (len(record.shape) - 1)), kind)
    kernel(540)(dim, rest, i32(record.shape))
    kernel(541)(dim, rest, i32(record.shape))
    assert tuple(rest) == record.shape[:dim] + record.shape[dim + 1 :]
    sizes = {"ext": ext, "inner": inner, "outer": outer, "ext_inner": ext * inner}
    if record.hassp:
        xi32, perm = sort(w, kind, dim)
        sizes |= {"perm": perm, "xi32": xi32}
        a, b, groups = call(531, w.arrays, w.fields(0), sizes, n=record.nelem, count=0, a=-1, b=-1)
    else:
        groups = outer * inner
    r = Stack("r", rng, [Room(tuple(rest), groups, record.nnz, record.ncodeatom, record.hassp)], kind)
    r.slots(0, "shape")[:] = rest
    operands = {**w.arrays, **r.arrays, **w.fields(0), **r.fields(0, "r"), **sizes}
    if record.hassp:
        counters = call(534, operands, c=0, cursor=0, g=0, t=0)
        assert counters == (record.ncodeatom, record.nelem, groups, record.nnz)
    else:
        counters = call(539, operands, inner_step=inner, rncodeatom=0, rnelem=0, rnnz=0)
        assert counters == (record.ncodeatom, groups, record.nnz)
    r.assert_only_written(0, ("shape", "sp", "ptr", "nidxs", "cof", "codeptr", "code", "cconst"))
    w.assert_only_written()
    return r.read(0)


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("code", [False, True], ids=["plain", "code"])
@pytest.mark.parametrize("sparse", [False, True], ids=["dense", "sparse"])
@pytest.mark.parametrize("shape", SHAPES, ids=str)
def test_sum_along_every_axis(shape, sparse, code, kind):
    for dim in range(len(shape)):
        rng = np.random.default_rng(dim)
        for density in (0.2, 0.8):
            record = random_record(rng, shape, sparse, code, density)
            result = add_up(record, dim, kind, rng)
            assert np.array_equal(evaluate(result), evaluate(record).sum(axis=dim))
            if sparse:
                grid = np.zeros(shape, bool)
                grid.ravel()[record.sp] = True
                assert np.array_equal(result.sp, np.flatnonzero(grid.any(axis=dim)))


def ones(shape, sp, variables):
    """A record of one term an element, apart from elements of variable None, which have none."""
    terms = [v for v in variables if v is not None]
    ptr = np.r_[0, np.cumsum([v is not None for v in variables])]
    return Record(shape, sp if sp is None else np.array(sp), ptr, np.array(terms), np.arange(1.0, len(terms) + 1))


@pytest.mark.parametrize(
    "dim, sp, ptr, nidxs, cof",
    [
        (0, [0, 1, 2], [0, 2, 2, 3], [1, 1, 4], [1, 3, 2]),
        (1, [0, 1], [0, 2, 3], [1, 4, 1], [1, 2, 3]),
    ],
)
def test_terms_stay_apart_and_ascend_along_the_axis(dim, sp, ptr, nidxs, cof):
    """Repeated variables are not merged, and the one element without terms makes a group of its own."""
    rng = np.random.default_rng(0)
    result = add_up(ones((2, 3), [0, 2, 3, 4], [1, 4, 1, None]), dim, "contiguous", rng)
    assert [list(v) for v in (result.sp, result.ptr, result.nidxs, result.cof)] == [sp, ptr, nidxs, cof]


def test_pieces_go_on_where_the_last_one_ended():
    """Both the count and the writing can be cut anywhere; a cut through a group makes two elements of it."""
    rng = np.random.default_rng(5)
    record = random_record(rng, (3, 2, 3), sparse=True, density=1.0)
    w = Stack("w", rng, [record])
    xi32, perm = sort(w, "contiguous", 1)
    sizes = {"inner": 3, "outer": 3, "ext_inner": 6, "perm": perm, "xi32": xi32}
    for cut, groups in ((4, 9), (5, 10)):
        count, key = 0, (-1, -1)
        for first, n in ((0, cut), (cut, 0), (cut, record.nelem - cut)):
            a, b, count = call(
                531, w.arrays, w.fields(0), {**sizes, "perm": perm + first}, n=n, a=key[0], b=key[1], count=count
            )
            key = (a, b)
        assert count == 9 and key == (2, 2)
        r = Stack("r", rng, [Room((3, 3), groups, record.nnz, 0, True)])
        common = {**w.arrays, **r.arrays, **w.fields(0), **r.fields(0, "r"), **sizes}
        c, cursor, g, t = call(534, common, nelem=cut)
        assert cursor == cut
        assert call(534, common, c=c, cursor=cursor, g=g, t=t) == (0, record.nelem, groups, record.nnz)
        written = r.slots(0, "sp")
        assert np.array_equal(np.unique(written), np.arange(9)) and len(written) == groups


def test_flat_positions_beyond_32_bits():
    """Positions of the operand, and of the result, need 64 bits although every scalar has 32."""
    outer, ext, inner = 1 << 20, 2, 1 << 15
    sp = [(a * ext + k) * inner + b for a, k, b in ((0, 1, 3), (outer - 1, 0, inner - 1), (outer - 1, 1, inner - 1))]
    rsp, rnidxs, rptr = i64([-1] * 2), i64([-1] * 3), i32([0] * 3)
    numbers = {"ext_inner": ext * inner, "inner": inner, "outer": outer}
    numbers |= {"xi32": i32(range(3)), "wi64": i64([1, 2, 3] + sp)}
    assert call(531, numbers, sp=3, n=3, a=-1, b=-1) == (outer - 1, inner - 1, 2)
    ri64 = np.r_[rsp, rnidxs]
    arrays = {"wi32": i32(range(4)), "wf64": np.ones(3), "rf64": np.zeros(3), "ri32": rptr, "ri64": ri64}
    assert call(534, numbers, arrays, sp=3, nelem=3, rnidxs=2) == (0, 3, 2, 3)
    assert list(ri64) == [3, outer * inner - 1, 1, 2, 3] and list(rptr) == [0, 1, 3]


def test_dense_sum_of_nothing_writes_empty_elements():
    """An extent of 0 along the axis reads nothing; the elements are there without terms."""
    rptr = i32([0, -1, -1, -1])
    assert call(539, outer=1, ext=0, inner=3, inner_step=3, ri32=rptr) == (0, 3, 0)
    assert call(539, outer=3, ext=0, inner=1, inner_step=1, ri32=rptr) == (0, 3, 0)
    assert list(rptr) == [0, 0, 0, 0]


def test_nothing_to_sort_or_to_count():
    assert kernel(528)(3, 4, 9, 1, 2, 5, 6, 7, None, None, None) == (5, 6)
    assert kernel(528)(7, 4, 9, 1, 2, 5, 6, 7, None, None, None) == (5, 6)
    assert kernel(531)(0, 0, 0, 9, -5, 1 << 40, 0, 0, 0, None, None) == (-5, 1 << 40, 9)


def test_greatest_extent_is_at_least_what_came_in():
    extents = i32([9, 3, 8, 5])
    for number in (526, 558):
        assert kernel(number)(0, 3, 1, extents) == 8 and kernel(number)(10, 3, 1, extents) == 10
        assert kernel(number)(-4, 0, 0, None) == -4
