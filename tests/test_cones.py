"""The example host layer's conic models: rows and cones against NumPy, solutions and duals against closed forms."""

import numpy as np
import pytest

from support import f64, i32, i64, run_example

pytest.importorskip("cvxopt")
from host import cone_solver  # noqa: E402
from host import operators as op  # noqa: E402
from host.cones import ConicModel, merge_terms  # noqa: E402
from host.model import Domain  # noqa: E402
from nearest_point import nearest, projection  # noqa: E402
from theta import kneser, theta  # noqa: E402

INF = np.inf
FREE = Domain(-INF, INF)


@pytest.fixture
def rng():
    return np.random.default_rng(5)


def solved(model):
    solution = cone_solver.solve(model.problem())
    assert solution.status == "optimal"
    return solution


def assert_close(actual, expected, tolerance=1e-5):
    np.testing.assert_allclose(actual, expected, atol=tolerance)


@pytest.mark.parametrize("graph, value", [
    (kneser(5, 2), 4), (kneser(6, 2), 5), (kneser(3, 1), 1), (kneser(4, 2), 3),
    ((5, i32([[1, 0], [2, 1], [3, 2], [4, 3], [4, 0]])), np.sqrt(5))])
def test_theta_numbers(graph, value):
    assert_close(theta(*graph).objective, value)


def push_mixed(model, parts, matrices):
    """Pushes the sum of matrix @ part over all parts, variables as vectors and one constant vector."""
    for number, (part, matrix) in enumerate(zip(parts, matrices)):
        if isinstance(part, np.ndarray):
            op.constant(model.stacks, part.shape, part)
        else:
            op.variable(model.stacks, part.nidxs.shape, part.nidxs)
        op.multiply(model.stacks, matrix)
        if number:
            op.add(model.stacks)


def test_rows_objective_and_expressions_keep_every_term(rng):
    """Symmetric matrices get both of their coefficients, constants and linear terms theirs, in rows of every kind."""
    model = ConicModel()
    y, X, Z = model.variable((3,), FREE), model.semidefinite(4), model.semidefinite(3, 2)
    x, values = rng.normal(size=3), []
    for n in (4, 3, 3):
        half = rng.normal(size=(n, n))
        values.append(half + half.T)
    entries = np.concatenate([v.reshape(-1) for v in values])
    point = np.concatenate([x, values[0].reshape(-1), np.stack(values[1:]).reshape(-1), x, f64([1, 2])])
    assert X.matrices.tolist() == [0] and Z.matrices.tolist() == [1, 2] and Z.shape == (2, 3, 3)

    def push(rows):
        matrices = [np.where(rng.random((rows, n)) < 0.5, rng.normal(size=(rows, n)), 0.0) for n in (3, 16, 18, 3, 2)]
        push_mixed(model, [y, X, Z, y, f64([1, 2])], matrices)
        return np.hstack(matrices) @ point, matrices[-1] @ f64([1, 2])

    first, constants = push(5)
    model.constraint(Domain(-2.0, 3.0))
    second, more = push(4)
    model.constraint(Domain(0.0, INF))
    cones = []
    for cone, rows in [("nonnegative", 6), ("quadratic", 3)]:
        cones.append(push(rows)[0])
        model.conic(cone, 0.5)
    cones.append(push(2)[0])
    model.between(f64([1, 2]), 4.0)
    objective, constant = push(1)
    model.objective("max")
    p = model.problem()

    constants, activity = np.append(constants, more), np.append(first, second)
    assert_close(p.linear.A @ x + p.barA @ entries + constants, activity, 1e-12)
    assert_close(p.linear.lo + constants, [-2] * 5 + [0] * 4, 1e-12)
    assert_close(p.linear.c @ x + p.barc @ entries + p.linear.constant, objective, 1e-12)
    assert_close(p.linear.constant, constant, 1e-12)
    expressions = p.F @ np.append(1.0, x) + p.barF @ entries
    assert_close(expressions, np.concatenate(cones), 1e-12)
    assert p.accafeidxs.tolist() == [*range(11), 9, 10] and p.accptr.tolist() == [0, 6, 9, 11, 13]
    assert p.accb.tolist() == [0.5] * 9 + [1, 2, 4, 4]
    assert p.cones == [("nonnegative", 6), ("quadratic", 3), ("nonnegative", 2), ("nonpositive", 2)]


@pytest.mark.parametrize("n", [1, 2, 7, 40])
def test_nearest_point_of_the_simplex(rng, n):
    for point in (rng.normal(size=n), np.full(n, 1 / n), -np.arange(n) / n):
        distance, x = nearest(point)
        assert_close(distance, np.linalg.norm(projection(point) - point), 1e-6)
        assert_close(x, projection(point), 1e-3)  # a norm is flat at its least


def test_matrix_inequalities(rng):
    """The least t with t I - M semidefinite is the largest eigenvalue of M; the dual is its projector."""
    model = ConicModel()
    t = model.variable((1,), FREE)
    M = rng.normal(size=(2, 4, 4))
    M = M + M.transpose(0, 2, 1)
    model.push(t)
    op.multiply(model.stacks, np.tile(np.eye(4).reshape(-1, 1), (2, 1)))
    op.constant(model.stacks, (32,), M.reshape(-1))
    record = op.add(model.stacks, 1.0, -1.0)
    with pytest.raises(ValueError):
        model.conic("semidefinite")
    s = model.stacks
    op.variable(s, (2, 4, 4), np.repeat(t.nidxs, 8), sp=i64([0, 5, 10, 15, 16, 21, 26, 31]))
    bound = model.conic("semidefinite", M)
    assert s.records[-1] == record and bound.shape == (2, 4, 4)
    s.pop()
    model.push(t)
    model.objective("min")
    solution = solved(model)

    eigenvalues, vectors = np.linalg.eigh(M)
    worst = eigenvalues[:, -1].argmax()
    expected = np.zeros((2, 4, 4))
    expected[worst] = np.outer(vectors[worst, :, -1], vectors[worst, :, -1])
    assert_close(solution.objective, eigenvalues.max())
    assert_close(solution.dual(bound), expected, 1e-4)
    assert_close(solution.activity(bound), np.tile(solution.objective * np.eye(4), (2, 1, 1)))

    off_diagonal = ConicModel()  # values and duals of elements off the diagonal: x <= 1 by [1 x; x 1]
    x = off_diagonal.variable((1,), FREE)
    op.variable(off_diagonal.stacks, (2, 2), x.nidxs[[0, 0]], sp=i64([1, 2]))
    bound = off_diagonal.conic("semidefinite", -np.eye(2))
    off_diagonal.push(x)
    off_diagonal.objective("max")
    solution = solved(off_diagonal)
    assert_close(solution.activity(bound), [[0, 1], [1, 0]])
    assert_close(solution.dual(bound), [[-0.5, 0.5], [0.5, -0.5]])


def test_variables_in_cones_have_their_duals(rng):
    """min c'v + d'w over quadratic cones at v[0] = 1: the duals of v are c less those of the fixing rows."""
    model = ConicModel()
    w = model.variable((2,), Domain(f64([-1.0, 0.0]), f64([INF, 5.0])))
    v = model.variable_in_cone((3, 4), "quadratic")
    c, d = rng.normal(size=(3, 4)), f64([2.0, -3.0])
    model.push(v)
    op.pick(model.stacks, i64([0, 4, 8]))
    rows = model.constraint(Domain(1.0, 1.0))
    push_mixed(model, [v, w], [c.reshape(1, -1), d[None]])
    model.objective("min")
    solution = solved(model)
    length = np.linalg.norm(c[:, 1:], axis=1)
    assert_close(solution.value(v), np.column_stack([np.ones(3), -c[:, 1:] / length[:, None]]), 1e-4)
    assert_close(solution.dual(rows), c[:, 0] - length)
    assert_close(solution.reduced_cost(v), np.column_stack([length, c[:, 1:]]))
    assert_close([solution.value(w), solution.reduced_cost(w)], [[-1, 5], d])


def test_wrong_arguments_are_refused():
    model = ConicModel()
    s, X = model.stacks, model.semidefinite(2)
    model.push(X)
    expected = s.terms()
    for call in [lambda: model.conic("round"), lambda: model.objective("min"), lambda: model.between(0.0, INF),
                 lambda: model.variable((2,), FREE, integer=True),
                 lambda: model.variable_in_cone((3,), "semidefinite")]:
        with pytest.raises(ValueError):
            call()
    merge_terms(s)  # the terms are those of distinct elements
    for kept, field in zip(s.terms(), expected):
        np.testing.assert_array_equal(kept, field)


@pytest.mark.parametrize("script, arguments, lines", [
    ("theta.py", ["5,2", "6,3"], ["K(5, 2) 10 15 4", "K(6, 3) 20 10 10"]),
    ("nearest_point.py", ["4"], ["4"]), ("theta.py", ["3,2"], None), ("nearest_point.py", ["0"], None)])
def test_command_lines(script, arguments, lines):
    result = run_example(script, *arguments)
    if lines is None:
        assert result.returncode == 2 and "error: " in result.stderr
        return
    assert (result.returncode, result.stderr) == (0, "")
    printed = result.stdout.splitlines()[1:]
    assert len(printed) == len(lines)
    for line, words in zip(printed, lines):
        assert set(words.split()) <= set(line.split())
