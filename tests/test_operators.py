"""Sums, products, picks and slices of records: what the random trees of operators cannot show."""

import numpy as np
import pytest

from records import (
    ONE_ATOM, Record, Stack, check, coefficients, evaluate, random_matrix, random_operand, random_record, result,
)  # fmt: skip
from support import blank, call, f64, i32, i64, kernel, kinds, layout, placed


def test_terms_of_a_sum_stay_apart():
    """A's terms come first, a weight of 0 keeps its terms, and an operand beyond A's last element is not met."""
    a = Record((2,), None, i32([0, 1, 1]), i64([7]), f64([4.0]))
    b = Record((2,), i64([0, 5]), i32([0, 1, 2]), i64([7, 7]), f64([5.0, 6.0]))
    rng = np.random.default_rng(0)
    w, r = Stack("w", rng, [a, b]), result(rng, (), (0, 2, 2), hassp=False)
    fields = {**w.fields(0, suffix="1"), **w.fields(1, suffix="2")}
    assert call(506, w.arrays, fields, r.arguments, c1=0.0, c2=2.0) == (0, 2, 1, 2)
    assert r.read(0).nidxs.tolist() == [7, 7] and r.read(0).cof.tolist() == [0.0, 10.0]


def test_atoms_counted_for_an_operand_without_code():
    """In a sum with code: one an element of a sparse operand, one a term of a dense operand."""
    tables = {"ptr_base": i32([0]), "sp_base": i32([0]), "ncodeatom": i32([0]), "k": 0}
    stack = {"wi32": i32([0, 2, 5]), "wi64": i64([0, 1]), "rptr": 0, "xpos": 0}
    for number, expected in ((518, [0, 1, 1]), (519, [0, 2, 3])):
        for hascode in (False, True):
            for nelem in (1, 2):
                counts = {"ri32": i32([0, 0, 0]), "xi32": i32([0, 0, 0]), "nelem": i32([nelem])}
                call(number, tables, stack, counts, hascode=hascode)
                assert counts["ri32"][: nelem + 1].tolist() == [0, 2, 3][: nelem + 1]
                assert counts["xi32"][: nelem + 1].tolist() == (expected if hascode else [0, 0, 0])[: nelem + 1]


@pytest.mark.parametrize(
    "change", [{"nd": i32([2, 1])}, {"wi32": i32([2, 3, 2, 4])}, {"wi32": i32([2, 3, 1, 3])}], ids=str
)
def test_operands_of_different_shapes(change):
    tables = {"n": 2, "nd": i32([2, 2]), "shape_base": i32([0, 2]), "wi32": i32([2, 3, 2, 3])}
    assert call(511, tables, ok=True) and not call(511, tables, ok=False)
    assert call(511, {**tables, "n": 1}, change, ok=True) and not call(511, {**tables, **change}, ok=True)


def test_sums_along_an_axis_beyond_32_bits():
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


def test_sums_along_an_axis_read_nothing_of_nothing():
    assert kernel(528)(3, 4, 9, 1, 2, 5, 6, 7, None, None, None) == (5, 6)
    assert kernel(528)(7, 4, 9, 1, 2, 5, 6, 7, None, None, None) == (5, 6)
    rptr = i32([0, -1])
    assert call(539, outer=1, ext=0, inner=1, inner_step=1, ri32=rptr) == (0, 1, 0) and list(rptr) == [0, 0]
    assert kernel(531)(0, 0, 0, 9, -5, 1 << 40, 0, 0, 0, None, None) == (-5, 1 << 40, 9)


@kinds
@pytest.mark.parametrize("n", (1, 8, 33, 100))
def test_blocks_groups_and_picks_of_positions(kind, n):
    """By their definitions, of positions near and far, in blocks short and long; blocks in one call after another."""
    rng = np.random.default_rng(n)
    for blk, gap in [(1, 2), (3, 2), (3, 30), (64, 2), (64, 30), (2**40, 2)]:
        sp = 5 + np.cumsum(rng.integers(1, gap, n))
        blocks, first = np.unique(sp // blk, return_index=True)
        ends, ng = np.r_[first[1:], n], len(blocks) // 2
        operand = {"n": n, "wi32": layout(i32(range(0, 3 * n + 1, 3)), kind), "wi64": layout(sp, kind)}
        assert call(496, operand, blk=blk, acc=4) == 4 + len(blocks)
        for pattern in (None, blank(n + 2, kind, i64)):
            arrays = {"blk": blk, "rhassp": pattern is not None, "ri32": blank(n + 2, kind), "ri64": pattern}
            cur = call(499, operand, arrays, ng=ng)
            assert cur == np.r_[0, ends][ng]
            assert call(499, operand, arrays, ng=len(blocks) - ng, cur=cur, rptr=ng, rsp=ng) == n
            assert np.array_equal(arrays["ri32"], placed(n + 2, 1, 3 * ends))
        assert np.array_equal(pattern, placed(n + 2, 0, blocks))

        for inner, ext, outer in ((1, 3, 10**6), (1, 100, 2), (4, 30, 3), (5, 2, 1)):
            perm = rng.permutation(n)
            groups = np.c_[sp[perm] // (inner * ext) % outer, sp[perm] % inner]
            count = 2 + np.any(np.diff(groups, axis=0, prepend=[[-1, -1]]), axis=1).sum()
            numbers = {"ext_inner": ext * inner, "inner": inner, "outer": outer, "xi32": layout(i32(perm), kind)}
            assert call(531, operand, numbers, count=2, a=-1, b=-1) == (*groups[-1], count)

        idxs, slots = rng.integers(0, sp[-1] + 2, 20), blank(21, kind)
        idxs[7:9] = sp[0], sp[-1]
        stored = np.where(np.isin(idxs, sp), np.searchsorted(sp, idxs), -1)
        assert call(411, operand, idxs=layout(idxs, kind), nelem=n, xi32=slots) == (0, 3 * (stored >= 0).sum())
        assert np.array_equal(slots, placed(21, 0, i32(stored)))


def test_greatest_extent_is_at_least_what_came_in():
    extents = i32([9, 8, 3, 5])
    for number in (526, 558):
        assert kernel(number)(0, 3, 1, extents) == 8 and kernel(number)(10, 3, 1, extents) == 10
        assert kernel(number)(-4, 0, 0, None) == -4


def test_indices_that_are_not_stored():
    slots = i32([0] * 4)
    record = Record((9,), i64([2, 5]), i32([0, 1, 3]), i64([1, 1, 1]), f64([1, 1, 1]))
    w = Stack("w", np.random.default_rng(0), [record])
    assert call(411, w.arguments, idxs=i64([5, 0, 8, 2]), xi32=slots) == (0, 3)
    assert slots.tolist() == [1, -1, -1, 0]
    assert call(411, {**w.arguments, "nelem": 0}, idxs=i64([5, 0]), xi32=slots) == (0, 0)
    assert slots.tolist() == [-1, -1, -1, 0]


def test_coordinates_outside():
    coordinates = i32([[0, 2], [1, 3]])
    assert call(406, idxs=coordinates, n=2, shape=i32([2, 3]))
    assert not call(406, idxs=coordinates, n=1, shape=i32([2, 3]))
    assert call(406, idxs=coordinates, n=1, shape=i32([2, 3]), bad=True)
    assert call(406, idxs=-coordinates, n=2, shape=i32([2, 4]))


def test_cursors_of_a_slice_run_on():
    """`e` is replaced for a dense operand and grows for a sparse one."""
    record = Record((2,), None, i32([0, 1, 3]), i64([1, 2, 3]), f64([1.0, 2.0, 3.0]))
    for sp, expected in ((None, (5, 1, 9)), (i64([0, 1]), (5, 21, 9))):
        record.sp = sp
        w = Stack("w", np.random.default_rng(0), [record])
        bounds = {"first": i32([1]), "last": i32([2]), "st": i64([1]), "rst": i64([1])}
        assert call(414, w.arguments, bounds, c=5, e=20, k=7) == expected


def test_flat_positions_of_rows_of_coordinates():
    s = i64([0, 0, 1])
    call(449, nd=3, s=s, shape=i32([2, 3, 4]))
    assert s.tolist() == [12, 4, 1]
    res = i64([0, 100])
    call(450, nd=3, res=res, s=s, vsub=i32([[1, 2, 3], [0, 1, 0]]))
    assert res.tolist() == [23, 104]


def test_elements_without_terms_are_stored_where_they_are_met():
    record = Record((4,), i64([1, 2]), i32([0, 0, 1]), i64([5]), f64([1.0]))
    w = Stack("w", np.random.default_rng(0), [record])
    assert call(461, w.arguments, msp=i64([0, 1, 3])) == (0, 1, 0)


@pytest.mark.parametrize("stride", [(240, 12, 1), (60, 20, 1), (31, 12, 1), (10, 9, 2), (7, 30, 3)])
def test_permuted_positions_by_any_strides(stride):
    pattern, rshape, dperm = np.arange(500), (20, 5, 12), [1, 2, 0]
    x0, rest = np.divmod(pattern, stride[0])
    x1, rest = np.divmod(rest, stride[1])
    x = x0, x1, rest // stride[2]
    for order in (pattern, pattern[::-1], np.random.default_rng(0).permutation(500)):
        sp = blank(500, make=i64)
        call(419, dperm=i32(dperm), nd=3, nelem=500, ri32=i32(rshape), sp=sp, stride=i64(stride), wi64=i64(order))
        assert sp.tolist() == ((x[1] * 5 + x[2]) * 12 + x[0])[order].tolist()


def test_the_element_of_an_array_without_axes_stays_in_place():
    flat = blank(2, make=i64)
    call(419, nelem=1, sp=flat, wi64=i64([0]))
    assert flat.tolist() == [0, -7]


def test_nan_is_a_term_of_a_constant():
    ri32, ri64, rf64 = i32([0] * 5), blank(3, make=i64), blank(3, make=f64)
    assert call(404, bfix=f64([0, np.nan, -0.0, 5]), n=4, ri32=ri32, ri64=ri64, rf64=rf64) == 2
    assert ri32.tolist() == [0, 0, 1, 1, 2] and ri64.tolist() == [0, 0, -7] and rf64[1:].tolist() == [5, -7]


def test_permuted_positions_beyond_32_bits():
    n, sp = 2**20, i64([0])
    operand = {"stride": i64([3 * n, 3, 1]), "wi64": i64([(5 * n + 7) * 3 + 2]), "ri32": i32([3, n, n])}
    call(419, operand, dperm=i32([2, 0, 2]), nd=3, nelem=1, sp=sp)  # an axis may come twice
    assert sp.tolist() == [(2 * n + 5) * n + 2]


def test_a_sort_by_column_leaves_where_the_columns_begin():
    xi32 = blank(10)
    call(451, mdimj=5, mnnz=2, msubj=i32([3, 1]), xi32=xi32, xcolptr=1, xperm=8)
    assert xi32.tolist() == [-7, 0, 0, 1, 1, 2, 2, -7, 1, 0]


@pytest.mark.parametrize("number", [421, 456, 463, 465])
def test_a_single_atom_is_code(number):
    """Also to the writers that set `ptr[0]` and, for an operand with code, `codeptr[0]`."""
    rng = np.random.default_rng(0)
    record, w = random_operand(rng, (1,) if number == 465 else (2, 3), code=ONE_ATOM)
    forms, sizes = evaluate(record), (1, 6, 1)
    operator = {"dperm": i32([1, 0]), "stride": i64([3, 1]), "dstride": i64([2, 1])}
    if number == 463:
        operator |= {"msp": i64(range(6)), "mcof": f64([2, 3, 4, 5, 6, 7]), "rnd": 2}
        sizes = call(461, w.arguments, operator)
    elif number in (456, 465):
        operator = {"msubi": i32([0, 0, 1, 1, 2, 2]), "msubj": i32([0, 1] * 3), "mval": f64([2, 3] * 3), "mnnz": 6}
        operator |= {"d1": 2 if number == 465 else 3, "rdim": 3}
        sizes = (18, 6, 6) if number == 465 else call(455, w.arguments, operator)[1:]
    expected, preset = {
        421: lambda: (forms.swapaxes(0, 1), ("shape",)),
        456: lambda: (np.einsum("j,jiv->iv", [2, 3], forms), ()),
        463: lambda: (forms * np.arange(2, 8).reshape(2, 3, 1), ()),
        465: lambda: (np.outer([2, 3] * 3, forms).reshape(3, 2, -1), ("shape", "ptr")),
    }[number]()
    r = result(rng, expected.shape[:-1], sizes, hassp=number != 421, preset=preset)
    call(number, w.arguments, r.arguments, operator)
    check(r, expected, w)


@pytest.mark.parametrize("code", [False, True])
def test_diagonals_of_many_entries(code):
    """Elements are fetched ahead of their turn, up to the last ones."""
    rng = np.random.default_rng(1)
    record, w = random_operand(rng, (9, 9), code=code)
    values = np.where(rng.random((9, 9)) < 0.7, rng.integers(1, 4, (9, 9)), 0)
    i, j = np.nonzero(values)
    matrix = {"msubi": i32(i), "msubj": i32(j), "mval": f64(values[i, j]), "mnnz": len(i), "mdimj": 9, "rdim": 9, "d1": 9}
    matrix |= {"xi32": i32(np.argsort(j, kind="stable"))}
    forms = np.einsum("ij,jiv->ijv", values, evaluate(record))
    for measure, write, axis, preset in ((452, 453, 0, ("shape", "ptr", "codeptr")), (455, 456, 1, ())):
        r = result(rng, (9,), call(measure, w.arguments, matrix)[-3:], preset=preset)
        call(write, w.arguments, r.arguments, matrix)
        check(r, forms.sum(axis), w)


def test_a_match_of_the_left_diagonal_takes_both_cursors_past_it():
    operands = {"wi32": i32([0, 1]), "wi64": i64([2, 9]), "nidxs": 1, "wf64": f64([1]), "nelem": 1, "d1": 2}
    operands |= {"msubi": i32([0, 0]), "msubj": i32([1, 2]), "mval": f64([1, 1]), "xi32": i32([0])}
    written = {"ri32": blank(2), "rf64": blank(1, make=f64), "ri64": blank(2, make=i64), "rsp": 1}
    assert call(458, operands, written) == (0, 1, 1, 2, 1)


def test_terms_of_a_product_stay_in_order_and_unmerged():
    """Zeros and repeated variables stay; terms stand by matrix entry, then in the operand's order."""
    record = Record((1, 2), None, i32([0, 2, 3]), i64([7, 7, 7]), f64([1.0, 2.0, 4.0]))
    matrix = {"mval": f64([0.0, 3.0]), "msubi": i32([0, 0]), "msubj": i32([0, 1]), "mnnz": 2, "mdimi": 1, "mdimj": 2}
    rng = np.random.default_rng(0)
    w, r = Stack("w", rng, [record]), result(rng, (), (0, 1, 3), hassp=False)
    assert call(467, w.arguments, matrix, d0=1, d1=2) == (0, 1, 3)
    assert call(472, w.arguments, r.arguments, matrix, d0=1, d1=2) == (0, 1, 3)
    assert r.read(0).nidxs.tolist() == [7, 7, 7] and r.read(0).cof.tolist() == [0.0, 0.0, 12.0]


@pytest.mark.parametrize("sparse", [False, True])
def test_empty_elements_that_are_met_are_stored(sparse):
    """A row of M that meets only an element without terms makes an element; one that meets none does not, unless the
    operand is dense."""
    sp = np.array([0]) if sparse else None
    record = Record((2, 2), sp, i32([0] * (2 if sparse else 5)), i32([]), f64([]))
    matrix = {"mval": f64([1, 1]), "msubi": i32([0, 1]), "msubj": i32([0, 1]), "mnnz": 2, "mdimi": 2, "mdimj": 2}
    rng = np.random.default_rng(0)
    w = Stack("w", rng, [record])
    elements = 1 if sparse else 4
    assert call(467, w.arguments, matrix, d0=2, d1=2) == (0, elements, 0)
    r = result(rng, (), (0, elements, 0))
    call(473 if sparse else 472, w.arguments, r.arguments, matrix, d0=2, d1=2)
    assert r.read(0).sp.tolist() == list(range(elements))


def test_a_product_has_code_only_by_its_measure():
    """A sparse result is written without `rsp` if the host does not want it, and without code if it has none."""
    rng = np.random.default_rng(1)
    record = random_record(rng, (3, 3), code=True)
    _, matrix = random_matrix(rng, (2, 3), True)
    w = Stack("w", rng, [record])
    _, elements, terms = call(467, w.arguments, matrix, d0=3, d1=3)
    r = result(rng, (), (0, elements, terms), hassp=False)
    call(472, w.arguments, r.arguments, matrix, d0=3, d1=3)
    r.assert_only_written(0, ("ptr", "nidxs", "cof"))
    assert coefficients(r.read(0)).shape == (terms,)


@pytest.mark.parametrize(
    "msubi, msubj, both, first",
    [
        ([0, 0, 2], [0, 1, 2], (False, False), (False, False)),
        ([0, 0], [1, 1], (False, True), (False, True)),
        ([0, 1], [1, 0], (False, False), (False, False)),
        ([1, 0], [0, 1], (False, True), (False, True)),
        ([1, 0, 0], [0, 1, 2], (False, True), (False, True)),
        ([0, 3], [0, 1], (True, False), (True, False)),
        ([3], [0], (True, False), (True, False)),
        ([-1], [0], (True, False), (True, False)),
        ([0, 0], [-1, 1], (True, False), (True, False)),
        ([0, 0], [2, -1], (True, True), (True, False)),
        ([1, 0], [0, 3], (True, True), (True, False)),
        ([], [], (False, False), (False, False)),
    ],
)
def test_checks_of_entries(msubi, msubj, both, first):
    """475 stops at the first fault, so that it does not tell of the order behind a bad subscript. Flags stay set."""
    matrix = {"mdimi": 3, "mdimj": 3, "mnnz": len(msubi), "msubi": i32(msubi), "msubj": i32(msubj)}
    for number in (454, 459, 466):
        assert call(number, matrix) == both
        assert call(number, matrix, badidx=True) == (True, both[1]) and call(number, matrix, badorder=True)[1]
    assert call(475, matrix) == first
    assert call(475, matrix, badidx=True, badorder=False) == (True, False)
    assert kernel(475)(False, False, 3, 3, 9, None, None) == (False, False)
    assert call(489, matrix, ok=True) == (not any(both)) and not call(489, matrix, ok=False)
    assert call(490, matrix) == both[0] and call(490, matrix, badidx=True)
    assert call(491, matrix) == both[1] and call(491, matrix, badorder=True)


@pytest.mark.parametrize(
    "incoming, hassp, sparse_matrix, expected",
    [
        ((7, 8, 9), False, False, (0, 6, 4)),  # dense M: replaced
        ((7, 8, 9), True, False, (0, 20, 4)),  # sparse E: the incoming elements are multiplied with the counted ones
        ((7, 8, 9), False, True, (7, 27, 10)),  # sparse M, dense E: multiplied by d0
        ((7, 8, 9), True, True, (7, 9, 10)),  # sparse M, sparse E: added to
    ],
)
def test_what_measuring_a_product_does_with_incoming_sizes(incoming, hassp, sparse_matrix, expected):
    sp = np.array([1, 4]) if hassp else None
    ptr = [0, 1, 2] if hassp else [0, 0, 1, 1, 1, 2, 2]
    rng = np.random.default_rng(0)
    w = Stack("w", rng, [Record((3, 2), sp, i32(ptr), i32([3, 4]), f64([1.0, 1.0]))])
    subscripts = {"msubi": i32([1]), "msubj": i32([0])} if sparse_matrix else {}
    sizes = dict(zip(("rncodeatom", "rnelem", "rnnz"), incoming))
    assert call(467, w.arguments, subscripts, sizes, d0=3, d1=2, mdimi=2, mnnz=int(sparse_matrix)) == expected
