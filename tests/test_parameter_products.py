"""Products of expressions with parameters: one parameter, arrays of them, and parameter matrices on either side."""

import numpy as np
import pytest

from records import FIELDS, PARAMETERS, check, codes, evaluate, every_operand, random_operand, result
from support import call, i32, i64, layout


class Parameters:
    """A parameter operand on the x stack: about `density` of its elements are random parameters, the others 0.

    values: for NumPy; stored: where there is an entry; fields: the kernels' arguments for it, with room to sort a
    pattern of `sorted_` entries by column.
    """

    def __init__(self, rng, shape, kind, density=0.5, sorted_=0, columns=0):
        self.stored = rng.random(shape) < density
        psp = np.flatnonzero(self.stored)
        numbers = rng.integers(0, len(PARAMETERS), len(psp))
        self.values = np.zeros(shape)
        self.values[self.stored] = PARAMETERS[numbers]
        gaps = np.full(3, -7)
        perm = len(numbers) + 6
        bucket = perm + sorted_ + 3
        xi32 = np.r_[gaps, numbers, gaps, np.full(sorted_, -7), gaps, np.full(columns + 1, -7), gaps]
        self.fields = {
            "pnelem": len(psp), "psp": 2, "param": 3, "perm": perm, "bucket": bucket,
            "xi32": layout(i32(xi32), kind), "xi64": layout(i64([-7, -7, *psp, -7]), kind),
        }  # fmt: skip
        self.before = [self.fields[name].copy() for name in ("xi32", "xi64")]

    def assert_unchanged(self):
        assert all(np.array_equal(self.fields[name], before) for name, before in zip(("xi32", "xi64"), self.before))


def pattern_of(record):
    """Which elements of a record are stored."""
    stored = np.zeros(int(np.prod(record.shape)), bool)
    stored[slice(None) if record.sp is None else record.sp] = True
    return stored.reshape(record.shape)


def check_product(r, w, expected, stored):
    """The result has this value, a `cof` of 0, and an element wherever factors meet, also without terms."""
    written = check(r, expected, w)
    assert written.sp.tolist() == np.flatnonzero(stored).tolist() and not written.cof.any()


@every_operand
def test_one_parameter_times_an_expression(sparse, code, kind):
    rng = np.random.default_rng(1)
    record, w = random_operand(rng, (2, 3), sparse, code, kind=kind)
    atoms = (4 if code else 3) * record.nnz + record.ncodeatom
    # `rhascode`, as the caller says, guards rcodeptr[0] alone.
    preset = ("ptr",) if code else ("ptr", "codeptr")
    r = result(rng, (2, 3), (atoms, record.nelem, record.nnz), kind, sparse, preset)
    call(338, w.arguments, r.arguments, p=3, rhascode=int(bool(code)))
    check(r, PARAMETERS[3] * evaluate(record), w)


@every_operand
@pytest.mark.parametrize("density", [0.0, 0.5, 1.0])
def test_inner_and_elementwise_product(sparse, code, density, kind):
    rng = np.random.default_rng(3)
    shape = (3, 5)
    record, w = random_operand(rng, shape, sparse, code, kind=kind)
    x = Parameters(rng, shape, kind, density)
    operands = (w.arguments, x.fields)
    stored = x.stored & pattern_of(record)
    for number in (356, 360):
        assert call(number, w.arrays, n=2, init=2**60, top=w.fields(0)["shape"]) == -(2**60)  # 15 * 2^60 wraps around
    atoms, elements, terms = call(359, *operands)
    assert elements == (stored.sum() if sparse else 0)
    assert call(355, *operands) == (atoms, terms)

    r = result(rng, shape, (atoms, stored.sum(), terms), kind)
    if sparse:
        c, i, e, k, j = call(362, *operands, r.arguments)
        assert e == elements and (i == record.nelem or j == x.fields["pnelem"])
    else:
        c, k = call(363, *operands, r.arguments)
    assert (c, k) == (atoms, terms)
    expected = x.values[..., None] * evaluate(record)
    check_product(r, w, expected, stored)

    r = result(rng, (1,), (atoms, 1, terms), kind, hassp=False)
    if sparse:
        assert call(357, *operands, r.arguments) == (atoms, i, terms, j)
    else:
        assert call(358, *operands, r.arguments) == (atoms, terms)
    r.slots(0, "ptr")[1] = terms
    check(r, expected.sum(axis=(0, 1))[None], w)


def test_a_join_goes_on_from_its_cursors_and_ends_with_the_first_list():
    w = {"wi32": i32(range(5)), "wi64": i64([1, 3, 5, 9]), "wf64": np.zeros(4)}
    x = {"xi32": i32([0] * 4), "xi64": i64([1, 3, 4, 5])}
    # Elements 0 to 3 with one term each, at 1, 3, 5 and 9; entries at 1, 3, 4 and 5.
    r = {"ri32": i32([0] * 40), "ri64": i64([0] * 20), "rf64": np.zeros(40), "rcode": 20, "rsp": 10, "rcodeptr": 10}
    assert call(362, w, x, r, nelem=4, pnelem=4, i=1, j=1) == (6, 3, 2, 2, 4)
    assert r["ri64"][10:13].tolist() == [3, 5, 0]
    assert call(357, w, x, r, nelem=4, pnelem=2, i=0, j=1, c=3, k=1) == (6, 2, 2, 2)


def sort_on_x(x, cols):
    """Sorts P by column, twice by different kernels."""
    f = x.fields
    at = {"d": cols, "n": f["pnelem"], "from": f["psp"]}
    psp = np.flatnonzero(x.stored)
    expected = np.argsort(psp % cols, kind="stable").tolist()
    for clear, count, add_up, place in ((347, 348, 341, 350), (364, 365, 366, 367)):
        f["xi32"][f["perm"] : f["perm"] + len(psp)] = -7
        call(clear, f, n=cols)
        call(count, f, at)
        call(add_up, f, n=cols)
        call(place, f, at)
        assert f["xi32"][f["perm"] : f["perm"] + len(psp)].tolist() == expected
        ends = np.cumsum(np.bincount(psp % cols, minlength=cols)).tolist()
        assert f["xi32"][f["bucket"] : f["bucket"] + cols + 1].tolist() == [*ends, len(psp)]
    x.before[0] = f["xi32"].copy()


def sort_on_w(x, w, cols):
    """Sorts a sparse E by column on the x stack, step by step and at once."""
    f, operand = x.fields, w.fields(0)
    n = operand["nelem"]
    at = {"d": cols, "n": n, "from": operand["sp"]}
    call(339, f, n=cols)
    call(340, w.arrays, f, at)
    call(349, f, n=cols + 1)
    call(342, w.arrays, f, at)
    steps = f["xi32"].copy()
    f["xi32"][f["perm"] :] = -7
    call(375, w.arrays, operand, f)
    assert np.array_equal(f["xi32"], steps)
    assert f["xi32"][f["bucket"] + cols] == n
    x.before[0] = f["xi32"].copy()


# By operator, side and whether E is sparse: the kernel that measures, the one that writes, and the order of their
# results: atoms c, elements e, terms k, and the cursors i of E and j of P.
OPERATORS = {
    ("product", "P*E", False): (372, "cek", 374, "cejk"),
    ("product", "P*E", True): (376, "cek", 379, "cekj"),
    ("product", "E*P", False): (368, "cek", 370, "cek"),
    ("product", "E*P", True): (369, "cek", 370, "cek"),
    ("diagonal", "P*E", False): (345, "cek", 346, ""),
    ("diagonal", "P*E", True): (343, "cek", 344, ""),
    ("diagonal", "E*P", False): (353, "jcek", 354, "cejk"),
    ("diagonal", "E*P", True): (351, "ijcek", 352, "ceijk"),
}


@every_operand
@pytest.mark.parametrize("operator", ["product", "diagonal"])
@pytest.mark.parametrize("side", ["P*E", "E*P"])
@pytest.mark.parametrize("density", [0.0, 0.4, 1.0])
@pytest.mark.parametrize("rows, inner, cols", [(1, 1, 1), (3, 4, 2), (2, 5, 4), (5, 1, 3)])
def test_product_with_a_parameter_matrix(rows, inner, cols, density, operator, side, sparse, code, kind):
    rng = np.random.default_rng(rows + inner)
    if operator == "diagonal":
        rows = cols
    left = side == "P*E"
    eshape, pshape = ((inner, cols), (rows, inner)) if left else ((rows, inner), (inner, cols))
    record, w = random_operand(rng, eshape, sparse, code, kind=kind)
    x = Parameters(rng, pshape, kind, density, max(record.nelem, inner * max(rows, cols)), cols)
    operands = {**w.arguments, **x.fields, "pcols": pshape[1], "ecols": eshape[1], "erows": eshape[0]}
    if left and sparse:
        sort_on_w(x, w, cols)
    elif not left:
        sort_on_x(x, cols)
    measure, measured_order, write, written_order = OPERATORS[operator, side, sparse]
    measured = dict(zip(measured_order, call(measure, operands)))

    # A diagonal of P*E also sets ptr[0], codeptr[0] and the shape; 344 does nothing at all if there are no elements.
    whole = write in (344, 346)
    shape = (rows, cols) if operator == "product" else (rows,)
    preset = () if whole else ("shape", "ptr", "codeptr")
    r = result(rng, shape, [measured[name] for name in "cek"], kind, preset=preset)
    written = call(write, operands, r.arguments, {"rdim": rows, "rhascode": int(measured["c"] > 0)})
    factors = (x.stored, pattern_of(record)) if left else (pattern_of(record), x.stored)
    stored = factors[0].astype(int) @ factors[1]
    if operator == "diagonal":
        stored = stored.diagonal()
    if whole and sparse and not stored.any():
        assert measured["e"] == 0
        r.assert_only_written()
        return
    if written_order:
        written = dict(zip(written_order, written))
        assert {**measured, **written} == {**written, **measured}
        ends = {"i": record.nelem, "j": x.fields["pnelem"]}
        assert not written.keys() & ends or any(written.get(cursor) == end for cursor, end in ends.items())
    if write in (374, 379):  # the caller zeroes these
        r.assert_only_written(0, [field for field in FIELDS if field != "cof"])
        r.slots(0, "cof")[:] = 0

    expected = np.einsum("rs,sbv->rbv" if left else "sb,rsv->rbv", x.values, evaluate(record))
    if operator == "diagonal":
        expected = np.einsum("rrv->rv", expected)
    check_product(r, w, expected, stored > 0)
    x.assert_unchanged()


def test_cursors_skip_blocks():
    """E is [[a, b], [c, d]], P the same pattern: beginning at the second block leaves out the first."""
    w = {"wi32": i32(range(5)), "wi64": i64([0, 1, 2, 3]), "wf64": np.zeros(4)}
    # The pattern of P, at 0, its column order at 4; parameter numbers are 0, 2, 1 and 3.
    x = {"xi32": i32([0, 2, 1, 3, 0, 2, 1, 3]), "xi64": i64([0, 1, 2, 3]), "pnelem": 4, "perm": 4}
    sizes = {"nelem": 4, "pcols": 2, "ecols": 2}
    full = (12, 2, 4)  # atoms, elements, terms of a diagonal
    half = (6, 1, 2)
    assert call(351, w, x, sizes) == (4, 4, *full)
    assert call(351, w, x, sizes, i=2, j=2) == (4, 4, *half)
    assert call(351, w, x, sizes, i=2, j=0) == (4, 4, *half)  # row 1 waits for column 1
    assert call(351, w, x, sizes, i=0, j=4) == (0, 4, 0, 0, 0)
    assert call(353, w, x, sizes, j=2) == (4, *half)
    for number, order in ((374, (0, 1, 3, 2)), (379, (0, 1, 2, 3))):
        r = {"ri32": i32([0] * 60), "ri64": i64([0] * 20), "rf64": np.zeros(40), "rcode": 30, "rcodeptr": 10, "rsp": 10}
        for j, expected in ((2, (12, 2, 4, 4)), (4, (0, 0, 0, 4)), (7, (0, 0, 0, 7))):
            got = call(number, w, x, r, sizes, j=j)
            assert tuple(got[at] for at in order) == expected
        assert r["ri64"][10:12].tolist() == [2, 3]


@codes
def test_dense_product_step_by_step(code):
    """With a dense P the caller runs rows, columns and inner index, and keeps `rptr` itself."""
    rng = np.random.default_rng(6)
    rows, inner, cols = 2, 3, 4
    record, w = random_operand(rng, (inner, cols), code=code)
    x = Parameters(rng, (rows, inner), "contiguous", density=1)
    operands = {**w.arguments, **x.fields, "pcols": inner, "ecols": cols}
    atoms, elements, terms = call(372, operands)
    r = result(rng, (rows, cols), (atoms, elements, terms), "strided")
    c = k = 0
    for element in range(rows * cols):
        for s in range(inner):
            at = {"row": element // cols, "col": element % cols, "inner": s}
            c, k = call(371, operands, r.arguments, at, c=c, k=k)
        r.slots(0, "ptr")[element + 1] = k
    r.slots(0, "sp")[:] = np.arange(elements)
    assert (c, k) == (atoms, terms)
    check_product(r, w, np.einsum("rs,sbv->rbv", x.values, evaluate(record)), np.ones((rows, cols)))
