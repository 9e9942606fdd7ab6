"""The example host layer: its operators against NumPy, its models end to end, and its command line."""

import os
import re
import subprocess
import sys
from pathlib import Path

import fragments
import numpy as np
import pytest
from scipy.sparse import coo_matrix

from support import ROOT, f64, i32, i64, read_kernels

sys.path.insert(0, str(ROOT / "examples"))
from host import operators as op  # noqa: E402
from host.model import Domain, Model, assemble, build  # noqa: E402
from host.solver import solve  # noqa: E402
from host.stacks import Stacks  # noqa: E402
from mps import read_mps  # noqa: E402

DATA = ROOT.parent / "shared" / "data"
INF = np.inf
TRANSPORT = ROOT / "examples" / "transport.mps"
NVARS = 6  # variables 1 .. 5, and 0 for the constant

kinds = pytest.mark.parametrize("sparse, code", [(False, False), (False, True), (True, False), (True, True)])


def push_random(s, rng, shape, sparse=False, code=False):
    """Pushes a random record, with empty elements, repeated variables and, if `code`, one pushed constant per term."""
    size = int(np.prod(shape))
    sp = np.flatnonzero(rng.random(size) < 0.6) if sparse else np.arange(size)
    counts = rng.integers(0, 4, len(sp))
    counts[:1] = 2
    nnz = int(counts.sum())
    record = s.r.reserve_record(len(shape), len(sp), nnz, nnz * code, hassp=sparse)
    r = s.r
    r.i32[record.shape:record.shape + len(shape)] = shape
    r.i32[record.ptr + 1:record.ptr + 1 + len(sp)] = np.cumsum(counts)
    r.i64[record.nidxs:record.nidxs + nnz] = rng.integers(0, NVARS, nnz)
    r.f64[record.cof:record.cof + nnz] = rng.normal(size=nnz)
    if sparse:
        r.i64[record.sp:record.sp + len(sp)] = sp
    if code:
        r.i32[record.codeptr:record.codeptr + nnz + 1] = np.arange(nnz + 1)
        r.i32[record.code:record.code + nnz] = 2
        r.f64[record.cconst:record.cconst + nnz] = rng.normal(size=nnz)
    s.finish(0, record)
    return forms(s)


def forms(s):
    """The last record as an array of linear forms: its shape and one more axis, the coefficients by variable."""
    e, w = s.records[-1], s.w
    shape = w.extents(e)
    flat, ptr, nidxs, cof = s.terms()
    assert np.all(np.diff(flat) > 0) and ptr[0] == 0 and ptr[-1] == e.nnz
    result = np.zeros((int(np.prod(shape)), NVARS))
    for i, f in enumerate(flat):
        for t in range(ptr[i], ptr[i + 1]):
            result[f, nidxs[t]] += cof[t] + (run_code(w, e, t) if e.ncodeatom else 0.0)
    return result.reshape(*shape, NVARS)


def run_code(w, e, t):
    """The value of a term's code, of pushes (2) and products (5)."""
    stack = []
    for a in range(w.i32[e.codeptr + t], w.i32[e.codeptr + t + 1]):
        opcode = w.i32[e.code + a]
        assert opcode in (2, 5)
        stack.append(w.f64[e.cconst + a] if opcode == 2 else stack.pop() * stack.pop())
    assert len(stack) == 1
    return stack[0]


def random_matrix(rng, rows, cols):
    """A sparse matrix with empty rows and columns and stored zeros, and the same as an array."""
    dense = np.where(rng.random((rows, cols)) < 0.5, rng.integers(-2, 3, (rows, cols)), 0).astype(np.float64)
    stored = (dense != 0) | (rng.random((rows, cols)) < 0.1)
    stored[rows // 2] = stored[:, cols // 2] = False
    subi, subj = np.nonzero(stored)
    return op.SparseMatrix(rows, cols, i32(subi), i32(subj), dense[subi, subj]), np.where(stored, dense, 0.0)


@pytest.fixture(params=[1, 2])
def rng(request):
    return np.random.default_rng(request.param)


@kinds
@pytest.mark.parametrize("shape", [(5,), (5, 1), (5, 4)])
def test_product_with_a_matrix(rng, sparse, code, shape):
    sparse_matrix, dense_matrix = random_matrix(rng, 7, 5)
    full = op.SparseMatrix(2, 5, i32(np.repeat([0, 1], 5)), i32(np.tile(np.arange(5), 2)), rng.normal(size=10))
    for matrix, values in [(sparse_matrix, dense_matrix), (dense_matrix, dense_matrix), (full, full.val.reshape(2, 5))]:
        s = Stacks()
        e = push_random(s, rng, shape, sparse, code)
        op.multiply(s, matrix)
        np.testing.assert_allclose(forms(s), np.tensordot(values, e, 1), atol=1e-12)
        assert len(s.records) == 1


def test_products_with_a_plain_variable_agree_with_the_general_road(rng):
    matrix, values = random_matrix(rng, 7, 5)
    for shape in [(5,), (5, 1)]:
        s = Stacks()
        op.variable(s, shape, np.arange(1, 6))
        op.multiply(s, matrix)
        expected = forms(s)
        op.multiply_variable(s, matrix, shape, np.arange(1, 6))
        np.testing.assert_array_equal(forms(s), expected)
    numbers = rng.integers(1, NVARS, (3, 7))
    op.multiply_variable_right(s, matrix, (3, 7), numbers.reshape(-1))
    np.testing.assert_allclose(forms(s), np.einsum("tkv,kc->tcv", np.eye(NVARS)[numbers], values))
    op.multiply_variable(s, matrix, (5, 3), numbers[:, :5].T.reshape(-1))
    np.testing.assert_allclose(forms(s), np.einsum("ik,ktv->itv", values, np.eye(NVARS)[numbers[:, :5].T]))
    assert len(s.records) == 4


@pytest.mark.parametrize("code", [False, True])
def test_matrix_times_one_expression(rng, code):
    matrix, values = random_matrix(rng, 4, 3)
    s = Stacks()
    e = push_random(s, rng, (1,), code=code)
    op.scale_matrix(s, matrix)
    np.testing.assert_allclose(forms(s), values[:, :, None] * e[0], atol=1e-12)


@kinds
@pytest.mark.parametrize("sparse2, code2", [(False, False), (True, False), (False, True), (True, True)])
def test_weighted_sum(rng, sparse, code, sparse2, code2):
    s = Stacks()
    bottom = push_random(s, rng, (2,))
    a, b = push_random(s, rng, (3, 4), sparse, code), push_random(s, rng, (3, 4), sparse2, code2)
    record = op.add(s, 2.0, -0.5)
    np.testing.assert_allclose(forms(s), 2.0 * a - 0.5 * b, atol=1e-12)
    assert record.hassp == (sparse and sparse2)
    s.pop()
    np.testing.assert_array_equal(forms(s), bottom)


@kinds
def test_rearrangements(rng, sparse, code):
    flat = i64([5, 0, 5, 23, 11])
    coordinates = i32([[1, 2, 3], [0, 0, 0], [1, 0, 2]])
    for shape, operator, expected in [
        ((2, 3, 4), lambda s: op.sum_blocks(s), lambda e: e.sum(2)),
        ((2, 3, 4), lambda s: op.sum_blocks(s, 2), lambda e: e.sum((1, 2))),
        ((2, 3, 4), lambda s: op.sum_blocks(s, 3), lambda e: e.sum((0, 1, 2))),
        ((3, 5), op.transpose, lambda e: e.transpose(1, 0, 2)),
        ((2, 3, 4), lambda s: op.pick(s, flat), lambda e: e.reshape(-1, NVARS)[flat]),
        ((2, 3, 4), lambda s: op.pick(s, coordinates), lambda e: e[tuple(coordinates.T)]),
        ((2, 3, 4), lambda s: op.slice_box(s, (0, 1, 1), (2, 3, 3)), lambda e: e[0:2, 1:3, 1:3]),
        ((2, 3, 4), lambda s: op.slice_box(s, (1, 2, 2), (2, 2, 4)), lambda e: e[1:2, 2:2, 2:4]),
        ((7,), lambda s: op.slice_box(s, (2,), (6,)), lambda e: e[2:6]),
    ]:
        s = Stacks()
        e = push_random(s, rng, shape, sparse, code)
        operator(s)
        np.testing.assert_allclose(forms(s), expected(e), atol=1e-12)


def test_kernels_bear_the_names_of_their_declarations():
    declared = {number: kernel.name for kernel in read_kernels() for number in kernel.numbers}
    source = (ROOT / "examples" / "host" / "kernels.py").read_text()
    listed = re.findall(r"^(\w+) = _kernel\((\d+)\)", source, re.MULTILINE)
    assert listed and listed == [(declared[int(number)], number) for _, number in listed]


def test_leaves_and_growth_of_the_stacks():
    """Thousands of elements make every array grow while records lie on it."""
    s = Stacks()
    op.variable(s, (2, 3), i64([4, 2]), sp=i64([1, 5]))
    op.constant(s, (2, 3), f64([0.0, np.nan, -2.0, 0.0, 0.0, 1.0]))
    op.constant(s, (2, 3), f64([3.0, 0.0]), sp=i64([0, 4]))
    for n in (10, 1000, 100000):
        op.variable(s, (n,), np.arange(1, n + 1))
        for field, expected in zip(s.terms(), [np.arange(n), np.arange(n + 1), np.arange(1, n + 1), np.ones(n)]):
            np.testing.assert_array_equal(field, expected)
    s.pop(3)
    assert [field.tolist() for field in s.terms()] == [[0, 4], [0, 1, 1], [0], [3.0]]
    s.pop()
    assert forms(s)[:, :, 0].tolist()[1] == [0.0, 0.0, 1.0] and s.records[-1].nnz == 3
    s.pop()
    assert np.argwhere(forms(s)).tolist() == [[0, 1, 4], [1, 2, 2]]


def test_wrong_arguments_are_refused_and_change_nothing(rng):
    s = Stacks()
    e = push_random(s, rng, (2, 3))
    matrix, _ = random_matrix(rng, 4, 3)
    for call in [
        lambda: op.multiply(s, matrix),
        lambda: op.multiply(s, op.SparseMatrix(4, 2, i32([0, 4]), i32([0, 0]), np.ones(2))),
        lambda: op.multiply(s, op.SparseMatrix(4, 2, i32([0, 0]), i32([1, 1]), np.ones(2))),
        lambda: op.multiply_variable(s, matrix, (4,), np.arange(1, 5)),
        lambda: op.multiply_variable_right(s, matrix, (2, 3), np.arange(1, 7)),
        lambda: op.scale_matrix(s, matrix),
        lambda: op.add(s),
        lambda: op.sum_blocks(s, 3),
        lambda: op.pick(s, i64([6])),
        lambda: op.pick(s, i32([[0, 3]])),
        lambda: op.pick(s, i32([[0, 0, 0]])),
        lambda: op.slice_box(s, (0, 0), (2, 4)),
        lambda: op.variable(s, (2,), i64([1])),
        lambda: op.constant(s, (3,), f64([1, 2]), sp=i64([1, 1])),
        lambda: Model().variable((2,), Domain(0.0, f64([1.0]), coordinates=i32([[2]]))),
    ]:
        with pytest.raises(ValueError):
            call()
        np.testing.assert_array_equal(forms(s), e)
        assert len(s.records) == 1


def test_rows_with_constants_repeated_variables_and_all_kinds_of_bounds():
    model = Model()
    x = model.variable((2, 2), Domain(-1.0, f64([1.0, 2.0]), coordinates=i32([[0, 1], [1, 0]])))
    y = model.variable((3,), Domain(f64([0.0, 1.0, 2.0]), INF), integer=True)
    s = model.stacks
    model.push(x)
    op.multiply(s, f64([[1, 1], [0, 2]]))  # rows x00 + x10, x01 + x11, 2 x10, 2 x11
    model.push(x)
    op.add(s, 1.0, 3.0)
    op.constant(s, (2, 2), f64([5.0, 7.0]), sp=i64([1, 3]))
    op.add(s, 1.0, 2.0)
    rows = model.constraint(Domain(-INF, 9.0))
    op.variable(s, (3,), y.nidxs[[1]], sp=i64([2]))
    model.constraint(Domain(f64([0.0, -1.0, -2.0]), 4.0))
    p = model.problem()

    assert p.A.toarray().tolist() == [[4, 0, 1, 0, 0, 0, 0], [0, 4, 0, 1, 0, 0, 0], [0, 0, 5, 0, 0, 0, 0],
                                      [0, 0, 0, 5, 0, 0, 0], [0] * 7, [0] * 7, [0, 0, 0, 0, 0, 1, 0]]
    assert p.hi.tolist() == [9, -1, 9, -5, 4, 4, 4] and p.lo.tolist() == [-INF] * 4 + [0, -1, -2]
    assert p.lower.tolist() == [-INF, -1, -1, -INF, 0, 1, 2] and p.upper.tolist() == [INF, 1, 2, INF] + [INF] * 3
    assert p.integer.tolist() == [False] * 4 + [True] * 3 and rows.rows.tolist() == [0, 1, 2, 3]


@pytest.mark.parametrize("count", [0, 1, 400])
def test_assembly_adds_up_repeated_entries(rng, count):
    subi, subj, val = i32(rng.integers(0, 9, count)), i32(rng.integers(0, 7, count)), f64(rng.integers(1, 9, count))
    matrix = assemble(subi, subj, val, 9, 7)
    np.testing.assert_array_equal(matrix.toarray(), coo_matrix((val, (subi, subj)), shape=(9, 7)).toarray())
    assert matrix.has_canonical_format


def small_model(sense, lo, hi, c, upper=INF, integer=False):
    """Optimise c'x + 10 over lo <= x1 + 2 x2 <= hi, 0 <= x <= upper."""
    model = Model()
    x = model.variable((2,), Domain(0.0, upper), integer)
    model.push(x)
    op.multiply(model.stacks, f64([[1, 2]]))
    rows = model.constraint(Domain(lo, hi))
    model.push(x)
    op.multiply(model.stacks, f64([c]))
    op.constant(model.stacks, (1,), f64([10.0]))
    op.add(model.stacks)
    model.objective(sense)
    return x, rows, solve(model.problem())


@pytest.mark.parametrize("sense, lo, hi, c, options, objective, value, dual", [
    ("min", 3, INF, [1, 1], {}, 11.5, [0, 1.5], 0.5),
    ("max", -INF, 3, [1, 1], {}, 13, [3, 0], 1),
    ("max", 3, 3, [1, 1], {"upper": 1.0}, 12, [1, 1], None),
    ("min", 3, 8, [-1, -1], {}, 2, [8, 0], -1),
    ("max", 0, 5, [1, 3], {"integer": True}, 17, [1, 2], None)])
def test_solutions_come_back(sense, lo, hi, c, options, objective, value, dual):
    x, rows, solution = small_model(sense, float(lo), float(hi), c, **options)
    assert solution.status == "optimal"
    np.testing.assert_allclose(solution.objective, objective)
    np.testing.assert_allclose(solution.value(x), value, atol=1e-7)
    np.testing.assert_allclose(solution.activity(rows), [np.dot([1, 2], value)], atol=1e-7)
    if dual is not None:
        np.testing.assert_allclose(solution.dual(rows), [dual], atol=1e-7)


@pytest.mark.parametrize("integer", [False, True])
@pytest.mark.parametrize("status, arguments", [
    ("unbounded", ("max", 1.0, INF, [1, 1])), ("infeasible", ("min", 3.0, 4.0, [1, 1], 0.5)),
    ("infeasible", ("min", 4.0, 3.0, [1, 1])), ("infeasible", ("min", 0.0, 3.0, [1, 1], -1.0))])
def test_status_without_a_solution(status, arguments, integer):
    x, _, solution = small_model(*arguments, *([INF] if len(arguments) == 4 else []), integer)
    assert solution.status == status and np.isnan(solution.objective) and np.isnan(solution.value(x)).all()


def run(*arguments):
    """Runs the command line with the module under test."""
    environment = dict(os.environ, PYTHONPATH=str(Path(fragments.__file__).parent))
    return subprocess.run([sys.executable, str(ROOT / "examples" / "solve_mps.py"), *map(str, arguments)],
                          env=environment, capture_output=True, text=True)


def test_transport_problem():
    lp = read_mps(str(TRANSPORT))
    model, x, rows = build(lp)
    solution = solve(model.problem())
    right_sides = np.where(np.isfinite(lp.lo), lp.lo, lp.hi)
    np.testing.assert_allclose(solution.activity(rows)[2:], right_sides[2:])
    prices = solution.dual(rows) @ right_sides  # by duality they pay for the whole cost
    np.testing.assert_allclose([solution.objective, lp.c @ solution.value(x), prices], 153.675)


def test_command_line(tmp_path):
    maximise = ("ROWS\n", "OBJSENSE MAX\nROWS\n")
    files = {}
    for name, old, new in [
        ("max", *maximise),
        ("constant", "ENDATA", "    RHS       COST   -100\nENDATA"),
        ("integer", "ENDATA", "BOUNDS\n UI B SHIP11 99\nENDATA"),
        ("infeasible", "600.0", "60.0"),
        ("unbounded", " L  PLANT1", " G  PLANT1"),
        ("broken", "325.0", "3x5.0"),
    ]:
        text = TRANSPORT.read_text().replace(old, new)
        files[name] = tmp_path / f"{name}.mps"
        files[name].write_text(text.replace(*maximise) if name == "unbounded" else text)

    solved = run(TRANSPORT, files["max"], files["constant"], files["integer"])
    assert (solved.returncode, solved.stderr) == (0, "")
    blocks = [dict(line.split(None, 1) for line in block.splitlines()) for block in solved.stdout.split("\n\n")]
    assert [(block["status"], block["objective"]) for block in blocks] == [
        ("optimal", "153.675"), ("optimal", "177.525"), ("optimal", "253.675"), ("optimal", "153.675")]
    assert blocks[0].items() >= {"name": "TRANSPORT", "rows": "5", "columns": "6", "nonzeros": "12"}.items()
    assert blocks[3]["columns"] == "6, 1 integer"

    for name in ("infeasible", "unbounded"):
        result = run(files[name])
        assert (result.returncode, result.stderr) == (1, "") and f"status      {name}\n" in result.stdout
        assert "objective" not in result.stdout

    for path, where in [(files["broken"], ":26: "), (tmp_path / "missing.mps", ": "), (tmp_path, ": ")]:
        result = run(path)
        assert (result.returncode, result.stdout) == (2, "")
        assert result.stderr.startswith(f"error: {path}{where}") and result.stderr.count("\n") == 1
    both = run(files["broken"], TRANSPORT)
    assert both.returncode == 2 and "153.675" in both.stdout


@pytest.mark.skipif(not DATA.exists(), reason="the classic problems are not at hand")
def test_classic_problems_reach_the_published_optimum():
    for name, optimum in [("afiro", -4.6475314286e02), ("stair", -2.5126695119e02), ("25fv47", 5.5018458883e03)]:
        model, _, _ = build(read_mps(str(DATA / f"{name}.mps")))
        assert solve(model.problem()).objective == pytest.approx(optimum, rel=1e-9)
