"""Tables of affine conic constraints, and expressions moved between full and packed symmetric matrices."""

import numpy as np
import pytest
from support import blank, f64, i32, i64, kernel, kinds, layout, placed


def test_a_ranged_constraint_binds_its_expressions_twice():
    expressions, lower, upper = i32([9, 4, 5, 6]), f64([1, 2, 3]), f64([7, 8, 9])
    for number, bounds in (1, (lower, upper)), (2, (lower,)):
        afeidxs, b = blank(8), blank(8, make=f64)
        kernel(number)(afeidxs, b, expressions, 1, 1, lower, 3, *bounds[1:])
        assert np.array_equal(afeidxs, placed(8, 1, np.tile(expressions[1:], len(bounds))))
        assert np.array_equal(b, placed(8, 1, np.concatenate(bounds)))


@kinds
def test_elements_and_variables_find_their_constraints(kind):
    constraints, numbers = layout(i32([8, 3, 5]), kind), np.array([6, 0, 2, 7, 4, 1])
    accid, afe, offset, idx, place = (blank(8, kind) for _ in range(5))
    scale = layout(np.full(8, -7.5), kind)
    expressions = layout(i32([10, 11, 12, 13, 14, 15]), kind)
    kernel(4)(constraints, accid, afe, offset, scale, layout(i32(numbers), kind), expressions, 2, 3)
    kernel(9)(constraints, 2, 5, layout(i64(numbers), kind), idx, place)
    assert accid[numbers].tolist() == [8, 8, 3, 3, 5, 5] and offset[numbers].tolist() == [0, 1] * 3
    assert np.array_equal(afe[numbers], expressions) and (scale[numbers] == 1).all()
    assert idx[numbers].tolist() == [8, 8, 3, 3, 5, -7] and place[numbers].tolist() == [0, 1, 0, 1, 0, -7]
    assert (accid[[3, 5]] == -7).all() and (scale[[3, 5]] == -7.5).all() and (idx[[3, 5]] == -7).all()
    kernel(10)(2, i64([6, 2]), idx)
    assert idx[numbers].tolist() == [-1, 8, -1, 3, 5, -7]


@kinds
@pytest.mark.parametrize("nblocks, d, nmid, ninner", [(2, 4, 3, 2), (1, 3, 1, 1), (3, 1, 1, 2), (2, 0, 1, 1)])
def test_packed_triangles(kind, nblocks, d, nmid, ninner):
    full = np.random.default_rng(4).integers(0, 999, (nblocks, d, nmid, d, ninner))
    row, column = np.tril_indices(d)
    full[:, column, :, row] = full[:, row, :, column]
    size, others = len(row), nblocks * nmid * ninner

    lower = [full[a, i, :, : i + 1].ravel() for a in range(nblocks) for i in range(d)]
    listed = layout(i32(np.concatenate([[-9, -9], *lower])), kind)
    packed = blank(others * (size + 1), kind)  # one slot to spare behind each triangle
    assert kernel(88)(listed, packed, size + 1, nblocks, d, nmid, d, ninner, 2, False) == len(listed)
    assert (packed.reshape(others, size + 1)[:, size] == -7).all()
    spread = blank(full.size + 1, kind)
    kernel(89)(packed, size + 1, nblocks, d, nmid, d, ninner, spread, True)
    assert np.array_equal(spread, np.r_[full.ravel(), -7])

    upper = [full[a, i, :, i:].ravel() for a in range(nblocks) for i in range(d)]
    by_rows = blank(others * size, kind)
    listed = layout(i32(np.concatenate([[-9, -9], *upper])), kind)
    assert kernel(88)(listed, by_rows, size, nblocks, d, nmid, d, ninner, 2, True) == len(listed)
    assert np.array_equal(by_rows, full.transpose(0, 2, 4, 1, 3)[..., row, column].ravel())


def test_only_off_diagonal_elements_are_scaled():
    scale, aconidxs = np.ones(32), i32([-99, *range(30, -1, -1)])
    column, row = np.triu_indices(3)
    assert kernel(87)(scale, aconidxs, 1, 2, 3, 3, 2, 1, 2.5) == 1 + 6 * 5  # the last column is not listed
    assert np.array_equal(scale[30:0:-1], np.tile(np.where(row > column, 2.5, 1)[:5], 6))


@pytest.mark.parametrize("ofs", (None, f64([0.5, 1.5, 2.5])))
def test_swapped_axes(ofs):
    perm, g = blank(25), np.full(26, -7.5)
    assert kernel(96)(3, 2, 4, 3, g, 2, ofs, perm) == 26
    assert np.array_equal(perm, np.r_[np.arange(2, 26).reshape(2, 4, 3).swapaxes(1, 2).ravel(), -7])
    assert (g[perm[:3]] == (-7.5 if ofs is None else ofs)).all() and (np.delete(g, perm[:3]) == -7.5).all()
