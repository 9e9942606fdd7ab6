"""Solution vectors gathered, combined and cleared; parameter values."""

import numpy as np
import pytest
from support import LAYOUTS, blank, f64, i32, i64, kernel, kinds, layout, placed


@pytest.fixture
def rng():
    return np.random.default_rng(3)


def check_gather(place, number, arguments, expected):
    """A gather, whose `res` is argument `place` of all, writes what is expected from `pos` 2 on and nothing else."""
    res = blank(len(expected) + 5, "reversed", f64)
    kernel(number)(*arguments[:place], 2, res, *arguments[place:])
    assert np.array_equal(res, placed(len(res), 2, expected))
    assert np.array_equal(np.signbit(res[2:-3]), np.signbit(expected))


@kinds
def test_values_of_variables(rng, kind):
    xx, yx, barx, bars, accy = (layout(rng.normal(size=9), kind) for _ in range(5))
    xx[3] = 0.0  # -0.0 with the opposite sign, while numbers at or below 0 give 0.0
    v = layout(np.r_[0, 3, rng.integers(-9, 9, 50)], kind)
    check_gather(2, 17, (52, v, xx), np.where(v > 0, xx[v], 0.0))
    check_gather(2, 18, (52, v, xx), np.where(v > 0, -xx[v], 0.0))
    check_gather(3, 19, (barx, 52, v, xx), np.where(v > 0, xx[v], np.where(v < 0, barx[~v], 0.0)))

    # Variables 1 to 4 live in no cone, the others in one of two cones; variable 0 is never read.
    yx[0] = np.nan
    cone = layout(i32([9, -1, -1, -1, -1, 0, 1, 1, 1]), kind)
    offset = layout(i32([9, 9, 9, 9, 9, 1, 0, 4, 2]), kind)
    conic = accy[np.clip(offset + np.where(cone == 1, 3, 0), 0, 8)]
    expected = np.where(v < 0, bars[~v], np.where(v == 0, 0, np.where(cone[v] >= 0, conic[v], yx[v])))
    check_gather(5, 20, (layout(i32([0, 3]), kind), accy, bars, 52, v, cone, offset, yx), expected)


@pytest.mark.parametrize("number", (15, 16))
def test_values_of_constraints(rng, number):
    accptr, accid, offset = i32([0, 2, 5]), i32([2, 0, 1, 1]), i32([1, 0, 2, 0])
    conic, scale, linear = rng.normal(size=8), rng.normal(size=4), rng.normal(size=3)
    v = i32([0, -1, 2, -4, -3, 1, -2])
    expected = f64([linear[0], conic[6] * scale[0], linear[2], conic[2] * scale[3], conic[4] * scale[2], linear[1]])
    check_gather(7, number, (accptr, conic, accid, offset, scale, 6, v, linear), expected)


@pytest.mark.parametrize("number", (23, 24))
def test_duals_of_bounds(number):
    y = blank(3, make=f64)
    kernel(number)(2, f64([1, 5]), f64([4, 3]), y)
    assert y.tolist() == [-3, 2, -7]


@pytest.mark.parametrize("number, arrays, returns", [(130, 4, True), (131, 3, False), (132, 4, True), (133, 4, False)])
@pytest.mark.parametrize("start, end", [(2, 5), (0, 1), (4, 4), (4, 1)])
def test_clearing(number, arrays, returns, start, end):
    vectors = [blank(6, kind, f64) for kind in (LAYOUTS * 2)[:arrays]]
    result = kernel(number)(end, vectors[0], start, *vectors[1:])
    assert result == (max(start, end) if returns else None)
    assert all(np.array_equal(vector, placed(6, start, np.zeros(max(end - start, 0)))) for vector in vectors)


def test_parameters_are_set_then_read(rng):
    values, params, read = rng.normal(size=4), np.zeros(6), np.zeros(4)
    idxs = i32([5, 0, 5, 2])
    kernel(102)(idxs, params, values)
    assert np.array_equal(params, [values[1], 0, values[3], 0, 0, values[2]])
    kernel(101)(idxs, params, read)
    assert np.array_equal(read, values[[2, 1, 2, 3]])


def test_largest_number_ignores_the_first_entry():
    numbers = i64([99, 7, 3, -2])
    assert [kernel(5)(4, numbers), kernel(6)(8, numbers), kernel(5)(1, numbers[:1]), kernel(5)(1, None)] == [7, 8, 1, 1]
    assert kernel(3)(i32([99, 3]), 4) == 99


@kinds
def test_selections_have_the_counted_size(rng, kind):
    numbers, values = layout(rng.integers(-4, 5, 40), kind), layout(rng.normal(size=40), kind)
    positive, subj, val = blank(45), blank(45), blank(45, make=f64)
    assert kernel(11)(3, numbers) == kernel(12)(numbers, 3, positive) == 3 + (numbers > 0).sum()
    assert kernel(21)(numbers, 2) == kernel(22)(2, numbers, subj, val, values) == 2 + (numbers >= 0).sum()
    assert np.array_equal(positive, placed(45, 3, numbers[numbers > 0]))
    assert np.array_equal(subj, placed(45, 2, numbers[numbers >= 0]))
    assert np.array_equal(val, placed(45, 2, values[numbers >= 0]))
