"""The sum of an expression along one axis."""

import numpy as np
import pytest

from records import FIRST, Record, Stack, check, evaluate, every_operand, random_record, result
from support import blank, call, f64, i32, i64, kernel

SHAPES = [(5,), (1, 4), (3, 4), (2, 3, 4), (3, 1, 2, 2)]
X_PTR = 1  # where the buckets stand in xi32


def sort(w, kind, dim):
    """The x stack of a sparse sum along `dim`, sorted, and the position of the permutation."""
    nelem, extents = w.contents[0].nelem, w.contents[0].shape
    buckets = call(526, w.arguments, n=len(extents))
    assert buckets == max(extents)
    source = X_PTR + buckets + 1
    xi32 = blank(source + 2 * nelem + 1, kind)
    call(527, base=source, n=nelem, xi32=xi32)
    before = xi32.copy()
    places = {"ptr": X_PTR, "source": source, "target": source + nelem, "xi32": xi32}
    place, other = call(528, places, w.arguments, dim=dim, nd=len(extents))
    assert {place, other} == {source, source + nelem}
    if dim == len(extents) - 1:
        assert place == source and np.array_equal(xi32, before)
    assert xi32[0] == xi32[-1] == -7
    return {"xi32": xi32, "perm": place}


def add_up(record, dim, kind, rng):
    """The sum along `dim` on r, by the kernels in their order."""
    outer, ext, inner = (int(np.prod(part)) for part in np.split(record.shape, [dim, dim + 1]))
    w, rest = Stack("w", rng, [record], kind), blank(len(record.shape) - 1, kind)
    kernel(540)(dim, rest, i32(record.shape))
    kernel(541)(dim, rest, i32(record.shape))
    assert tuple(rest) == record.shape[:dim] + record.shape[dim + 1 :]
    operands = {**w.arguments, "ext": ext, "inner": inner, "outer": outer, "ext_inner": ext * inner, "inner_step": inner}
    groups = outer * inner
    if record.hassp:
        operands |= sort(w, kind, dim)
        *_, groups = call(531, operands, n=record.nelem, a=-1, b=-1)
    r = result(rng, rest, (record.ncodeatom, groups, record.nnz), kind, record.hassp)
    if record.hassp:
        assert call(534, operands, r.arguments) == (record.ncodeatom, record.nelem, groups, record.nnz)
    else:
        sizes = call(539, operands, r.arguments, rncodeatom=0, rnelem=0, rnnz=0)
        assert sizes == (record.ncodeatom, groups, record.nnz)
    return check(r, evaluate(record).sum(axis=dim), w)


@every_operand
@pytest.mark.parametrize("shape", SHAPES, ids=str)
def test_sum_along_every_axis(shape, sparse, code, kind):
    for dim in range(len(shape)):
        rng = np.random.default_rng(dim)
        for density in (0.2, 0.8):
            record = random_record(rng, shape, sparse, code, density)
            written = add_up(record, dim, kind, rng)
            if sparse:
                grid = np.zeros(shape, bool)
                grid.ravel()[record.sp] = True
                assert np.array_equal(written.sp, np.flatnonzero(grid.any(axis=dim)))


def test_terms_stay_apart_and_ascend_along_the_axis():
    """Repeated variables are not merged, and an element without terms makes a group of its own."""
    nidxs = i64([1, 4, 1]) + FIRST
    record = Record((2, 3), i64([0, 2, 3, 4]), i32([0, 1, 2, 3, 3]), nidxs, f64([1, 2, 3]))
    for dim, fields in (
        (0, ([0, 1, 2], [0, 2, 2, 3], [1, 1, 4], [1, 3, 2])),
        (1, ([0, 1], [0, 2, 3], [1, 4, 1], [1, 2, 3])),
    ):
        r = add_up(record, dim, "contiguous", np.random.default_rng(0))
        assert tuple(list(field) for field in (r.sp, r.ptr, r.nidxs - FIRST, r.cof)) == fields


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


def test_nothing_is_read_of_nothing():
    assert kernel(528)(3, 4, 9, 1, 2, 5, 6, 7, None, None, None) == (5, 6)
    assert kernel(528)(7, 4, 9, 1, 2, 5, 6, 7, None, None, None) == (5, 6)
    rptr = i32([0, -1])
    assert call(539, outer=1, ext=0, inner=1, inner_step=1, ri32=rptr) == (0, 1, 0) and list(rptr) == [0, 0]
    assert kernel(531)(0, 0, 0, 9, -5, 1 << 40, 0, 0, 0, None, None) == (-5, 1 << 40, 9)


def test_greatest_extent_is_at_least_what_came_in():
    extents = i32([9, 8, 3, 5])
    for number in (526, 558):
        assert kernel(number)(0, 3, 1, extents) == 8 and kernel(number)(10, 3, 1, extents) == 10
        assert kernel(number)(-4, 0, 0, None) == -4
