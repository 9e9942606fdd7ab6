"""Tables of new semidefinite variables."""

import numpy as np
import pytest
from support import LAYOUTS, i32, i64, kernel, layout


@pytest.mark.parametrize("kind", LAYOUTS)
@pytest.mark.parametrize("n, d", [(3, 4), (2, 1), (0, 3), (2, 0)])
def test_a_block_lists_lower_triangles_by_columns(kind, n, d):
    barj, i, j = (layout(i32([-7] * 40), kind) for _ in range(3))
    dims, numbers = layout(i32([-7] * 9), kind), layout(i64([-7] * 40), kind)
    kernel(8)(barj, i, j, layout(i32([0, 0, 5]), kind), dims, 2, d, 4, numbers, n)
    column, row = np.triu_indices(d)
    end = 5 + n * len(row)
    assert np.array_equal(barj[5:end], np.repeat(4 + np.arange(n), len(row)))
    assert np.array_equal(i[5:end], np.tile(row, n)) and np.array_equal(j[5:end], np.tile(column, n))
    assert np.array_equal(numbers[: end - 5], np.arange(5, end)) and (numbers[end - 5 :] == -7).all()
    assert all((np.r_[table[:5], table[end:]] == -7).all() for table in (barj, i, j))
    assert np.array_equal(dims, [-7] * 4 + [d] * n + [-7] * (5 - n))

    variables = layout(i32([-7] * 4), kind)
    kernel(7)(variables, 4, n)
    assert np.array_equal(variables, [*range(4, 4 + n), *[-7] * (4 - n)])
