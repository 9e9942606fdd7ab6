"""The example host layer: leaves and growth, its models end to end, and its command line."""

import numpy as np
import pytest
from scipy.sparse import coo_matrix

from host_records import meaning, random_sparse_matrix
from records import FIRST, VARIABLES
from support import ROOT, f64, i32, i64, run_example

from host import operators as op
from host.model import Domain, Model, assemble
from host.solver import solve
from host.stacks import Stacks

INF = np.inf
TRANSPORT = ROOT / "examples" / "transport.mps"


@pytest.fixture(params=[1, 2])
def rng(request):
    return np.random.default_rng(request.param)


def test_products_with_a_plain_variable_agree_with_the_general_road(rng):
    matrix, values = random_sparse_matrix(rng, 7, 5)
    for shape in [(5,), (5, 1)]:
        s = Stacks()
        op.variable(s, shape, FIRST + np.arange(1, 6))
        op.multiply(s, matrix)
        expected = meaning(s)
        op.multiply_variable(s, matrix, shape, FIRST + np.arange(1, 6))
        np.testing.assert_array_equal(meaning(s), expected)
    numbers = rng.integers(1, VARIABLES, (3, 7))
    op.multiply_variable_right(s, matrix, (3, 7), FIRST + numbers.reshape(-1))
    np.testing.assert_array_equal(meaning(s), np.einsum("tkv,kc->tcv", np.eye(VARIABLES)[numbers], values))
    op.multiply_variable(s, matrix, (5, 3), FIRST + numbers[:, :5].T.reshape(-1))
    np.testing.assert_array_equal(meaning(s), np.einsum("ik,ktv->itv", values, np.eye(VARIABLES)[numbers[:, :5].T]))
    assert len(s.records) == 4


def test_leaves_and_growth_of_the_stacks():
    """Thousands of elements make every array grow while records lie on it."""
    s = Stacks()
    op.variable(s, (2, 3), FIRST + i64([4, 2]), sp=i64([1, 5]))
    op.constant(s, (2, 3), f64([0.0, 5.0, -2.0, 0.0, 0.0, 1.0]))
    op.constant(s, (2, 3), f64([3.0, 0.0]), sp=i64([0, 4]))
    for n in (10, 1000, 100000):
        op.variable(s, (n,), np.arange(1, n + 1))
        for field, expected in zip(s.terms(), [np.arange(n), np.arange(n + 1), np.arange(1, n + 1), np.ones(n)]):
            np.testing.assert_array_equal(field, expected)
    s.pop(3)
    assert [field.tolist() for field in s.terms()] == [[0, 4], [0, 1, 1], [0], [3.0]]
    s.pop()
    assert meaning(s)[:, :, 0].tolist() == [[0.0, 5.0, -2.0], [0.0, 0.0, 1.0]] and s.records[-1].nnz == 3
    s.pop()
    assert np.argwhere(meaning(s)).tolist() == [[0, 1, 4], [1, 2, 2]]


@pytest.mark.parametrize("count", [0, 1, 400])
def test_assembly_adds_up_repeated_entries(rng, count):
    subi, subj, val = i32(rng.integers(0, 9, count)), i32(rng.integers(0, 7, count)), f64(rng.integers(1, 9, count))
    matrix = assemble(subi, subj, val, 9, 7)
    np.testing.assert_array_equal(matrix.toarray(), coo_matrix((val, (subi, subj)), shape=(9, 7)).toarray())
    assert matrix.has_canonical_format


def small_model(sense, lo, hi, c, upper=INF, integer=False):
    """Optimise c'x + 10 over lo <= x1 + 2 x2 <= hi, 0 <= x <= upper. Both variables are met twice in the row."""
    model = Model()
    x = model.variable((2,), Domain(0.0, upper), integer)
    for row in ([3, 0.5], [-2, 1.5]):
        model.push(x)
        op.multiply(model.stacks, f64([row]))
    op.add(model.stacks)
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

    solved = run_example("solve_mps.py", TRANSPORT, files["max"], files["constant"], files["integer"])
    assert (solved.returncode, solved.stderr) == (0, "")
    blocks = [dict(line.split(None, 1) for line in block.splitlines()) for block in solved.stdout.split("\n\n")]
    assert [(block["status"], block["objective"]) for block in blocks] == [
        ("optimal", "153.675"), ("optimal", "177.525"), ("optimal", "253.675"), ("optimal", "153.675")]
    assert blocks[0].items() >= {"name": "TRANSPORT", "rows": "5", "columns": "6", "nonzeros": "12"}.items()
    assert blocks[3]["columns"] == "6, 1 integer"

    for name in ("infeasible", "unbounded"):
        result = run_example("solve_mps.py", files[name])
        assert (result.returncode, result.stderr) == (1, "") and f"status      {name}\n" in result.stdout
        assert "objective" not in result.stdout

    for path, where in [(files["broken"], ":26: "), (tmp_path / "missing.mps", ": "), (tmp_path, ": ")]:
        result = run_example("solve_mps.py", path)
        assert (result.returncode, result.stdout) == (2, "")
        assert result.stderr.startswith(f"error: {path}{where}") and result.stderr.count("\n") == 1
    both = run_example("solve_mps.py", files["broken"], TRANSPORT)
    assert both.returncode == 2 and "153.675" in both.stdout


def test_whole_models_have_the_matrices_of_scipy():
    result = run_example("build_models.py", "--terms", "3000", "--seconds", "0")
    assert (result.returncode, result.stderr, result.stdout.count("\n")) == (0, "", 6)
