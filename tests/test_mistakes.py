"""Mistakes made against the example host layer: each is answered by an error or a status that names the thing."""

import numpy as np
import pytest
from scipy.sparse import eye

from support import ROOT, f64, i32, run_example

pytest.importorskip("cvxopt")
from host import cone_solver, parameters, products, solver, structure, sums  # noqa: E402
from host import operators as op  # noqa: E402
from host.blocks import RowBlock, RowStore  # noqa: E402
from host.cones import ConicModel  # noqa: E402
from host.model import Domain, Model  # noqa: E402
from host.operators import SparseMatrix  # noqa: E402
from host.stacks import Stacks  # noqa: E402

INF = np.inf
FREE, POSITIVE, ONE = Domain(-INF, INF), Domain(0.0, INF), Domain(1.0, 1.0)


class Table:
    """A model with the variable x of 2 elements on its stack, and strangers to it."""

    def __init__(self, make):
        self.model, self.other, self.strange = make(), make(), ConicModel()
        self.x = self.model.variable((2,), POSITIVE, name="x")
        self.y = self.other.variable((9,), POSITIVE, name="y")
        self.X = self.strange.semidefinite(3, name="X")
        self.parameters = parameters.Parameters()
        self.p, self.q = self.parameters.array((), name="p"), parameters.Parameters().array((2,), name="q")
        self.model.push(self.x)
        self.s = self.model.stacks

    def bounded(self, lower, upper=INF, coordinates=None):
        return self.model.constraint(Domain(lower, upper, coordinates), name="budget")

    def solved(self):
        problem = (self.other if self.s.records else self.model).problem()
        return self.solve(problem)

    def solve(self, problem):
        return (cone_solver if isinstance(self.model, ConicModel) else solver).solve(problem)

    def parametrised(self, *factors):
        for factor in factors:
            parameters.multiply_elementwise(self.s, factor) if factor.shape else parameters.scale(self.s, factor)
        return self.s


    def evaluated(self, value):
        """The coefficients of a record with the square of a parameter that has this value."""
        table = parameters.ParameterTable(self.parameters, 2)
        self.parameters.set(self.p, value)
        table.file(self.parametrised(self.p, self.p), [0, 1])
        table.evaluate()

    def moved(self, bound):
        """The problem of a constraint whose bound passes the largest double when the constant goes to its side."""
        model = type(self.model)()
        op.constant(model.stacks, (2,), [-bound, 0.0])
        model.constraint(Domain(bound, INF), name="far")
        return model.problem()

    def other_rows(self):
        model = Model()
        model.push(model.variable((2,), POSITIVE))
        model.constraint(POSITIVE)
        return model.take_rows()


def overflown(model, x, cone=""):
    """A constraint or an objective with a coefficient past the largest double."""
    model.push(x)
    for _ in range(2):
        products.scale(model.stacks, 1e200)
    if cone == "objective":
        op.sum_blocks(model.stacks, len(x.shape))
        model.objective("min")
    else:
        model.conic(cone, name="heavy") if cone else model.constraint(POSITIVE, name="heavy")


# What is done, what must be said. A TypeError begins with its name.
MISTAKES = [
    (lambda t: t.model.push(t.y), "variable y belongs to another model"),
    (lambda t: t.model.push(t.X), "variable X belongs to another model"),
    (lambda t: t.model.push("x"), "TypeError: a Variable is pushed, not a str"),
    (lambda t: (op.variable(t.s, (2,), [1, 5]), t.bounded(0)), "constraint budget has terms on variables"),
    (lambda t: (op.variable(t.s, (2,), [-9, 1]), t.bounded(0)), "constraint budget has terms on variables"),
    (lambda t: op.variable(t.s, (1,), [0]), "0 stands for the constant"),
    (lambda t: Model(t.s).constraint(POSITIVE), "variables of another model"),
    (lambda t: t.model.problem(), "of shape (2,) is left on the stack"),
    (lambda t: t.model.objective("min"), "objective has one element"),
    (lambda t: t.s.pop(3), "3 expressions wanted from the stack, which holds 1"),
    (lambda t: t.bounded([1, 2, 3]), "lower bounds of constraint budget: 3 numbers for 2 elements"),
    (lambda t: t.bounded(0, np.nan), "upper bound of constraint budget is nan"),
    (lambda t: t.bounded(f64([0, INF])), "lower bounds of constraint budget: inf leaves no value"),
    (lambda t: t.bounded(None), "TypeError: the lower bound of constraint budget: numbers are wanted, not a NoneType"),
    (lambda t: t.bounded(0, 1, [[0], [2]]), "outside constraint budget of shape (2,)"),
    (lambda t: t.bounded(0, 1, [[1], [1]]), "element of constraint budget is bounded twice"),
    (lambda t: t.model.constraint(3.0), "TypeError: bounds are a Domain, not a float"),
    (lambda t: t.model.constraint(POSITIVE, name=3), "TypeError: a name is a string"),
    (lambda t: t.model.variable((1,), Domain(-INF, -INF), name="z"), "upper bound of variable z: -inf leaves no value"),
    (lambda t: t.model.variable(3, POSITIVE, name="z"), "TypeError: the shape of variable z is a tuple"),
    (lambda t: t.model.variable((-1,), POSITIVE), "the shape of variable number 2 has extents from 0"),
    (lambda t: t.model.variable((3,), POSITIVE, [False] * 2), "2 flags for the 3 elements"),
    (lambda t: op.multiply(t.s, eye(2)), "TypeError: a dia_matrix is no matrix of this layer"),
    (lambda t: op.multiply(t.s, [[1, 2], [3]]), "TypeError: a matrix: numbers are wanted"),
    (lambda t: op.multiply(t.s, [1, 2]), "a matrix has two axes, not the shape (2,)"),
    (lambda t: op.multiply(t.s, [[1, np.nan]]), "a matrix: number (0, 1) is nan"),
    (lambda t: SparseMatrix(3, 3, i32([0]), i32([0]), np.ones(5)), "as many rows and columns as entries"),
    (lambda t: SparseMatrix(3, 3, [0], [2**32], [1.0]), "do not fit 32 bits"),
    (lambda t: SparseMatrix(3, 3, [0.0], [0], [1.0]), "TypeError: the rows of a matrix: integers are wanted"),
    (lambda t: SparseMatrix(3, 3, [0], [0], [INF]), "entries of a matrix: number 0 is inf"),
    (lambda t: products.diagonal_left(t.s, np.eye(2)), "TypeError: a SparseMatrix is wanted, not a ndarray"),
    (lambda t: products.scale(t.s, INF), "a factor is inf"),
    (lambda t: sums.weighted_sum(t.s, [np.nan]), "weights of a sum: number 0 is nan"),
    (lambda t: op.constant(t.s, (1,), [1j]), "TypeError: a constant array: numbers are wanted"),
    (lambda t: op.pick(t.s, [True, False]), "TypeError: positions: integers are wanted"),
    (lambda t: t.solved().value(t.x), "variable x belongs to another model"),
    (lambda t: t.solved().value(t.X), "variable X belongs to another model"),
    (lambda t: t.solved().dual(t.y), "TypeError: a Constraint is wanted, not a Variable"),
    (lambda t: t.solved().value(t.other), "TypeError: a Variable is wanted"),
    (lambda t: t.solution.value(t.other.variable((2,), POSITIVE, name="z")), "variable z was added after"),
    (lambda t: t.solution.activity(t.late), "constraint late was added after"),
    (lambda t: solver.solve(t.strange.problem()), "TypeError: a Problem is solved here"),
    (lambda t: cone_solver.solve(Model().problem()), "TypeError: a ConicProblem is solved here"),
    (lambda t: t.strange.semidefinite(-1), "order of a semidefinite matrix is 1 or more, not -1"),
    (lambda t: t.strange.variable_in_cone((), "quadratic"), "no last axis to lie in quadratic cones"),
    (lambda t: (t.parametrised(t.p), t.bounded(0)), "constraint budget has coefficients with code"),
    (lambda t: t.parametrised(t.p, t.q), "parameters of another model"),
    (lambda t: t.parameters.set(t.q, 1.0), "parameter q belongs to other parameters"),
    (lambda t: t.parameters.set(t.p, np.nan), "parameter p is nan"),
    (lambda t: (overflown(t.other, t.y), t.other.problem()), "constraint heavy has the coefficient inf"),
    (lambda t: structure.repeat(t.s, 2**31), "2^31 elements or more"),
    (lambda t: sums.sum_axis(t.s, "x"), "TypeError: an axis is an integer, not 'x'"),
    (lambda t: structure.permute(t.s, 0.0), "TypeError: axes: integers are wanted"),
    (lambda t: op.constant(t.s, (2**31 - 1,) * 4, [1.0], [0]), "2^63 elements or more"),
    (lambda t: op.multiply_variable(t.s, SparseMatrix.of(np.eye(2)), (2,), [0, 1]), "0 stands for the constant"),
    (lambda t: SparseMatrix.of("ab"), "TypeError: a matrix: numbers are wanted, not a str"),
    (lambda t: t.model.variable((2,), POSITIVE, "no"), "True or False is wanted, not a str"),
    (lambda t: t.model.variable((2,), POSITIVE, [0.5, 1]), "True or False is wanted, not a list of float64"),
    (lambda t: t.evaluated(1e200), "a coefficient is inf"),
    (lambda t: parameters.ParameterTable(None, 1), "TypeError: Parameters are wanted, not a NoneType"),
    (lambda t: t.solve(t.moved(1e308)), "element 0 of constraint far: the solver takes the bound 1.79769e+308"),
    (lambda t: t.solve(t.moved(-1e308)), "element 0 of constraint far: the solver takes the bound -1.79769e+308"),
    (lambda t: (overflown(t.strange, t.X, "semidefinite"), t.strange.problem()), "heavy has the coefficient inf"),
    (lambda t: (overflown(t.strange, t.X, "objective"), t.strange.problem()), "variables: number 0 is inf"),
    (lambda t: cone_solver.solve(t.strange.problem(), -1.0), "the tolerance is above 0, not -1"),
    (lambda t: t.strange.take_rows(), "TypeError: a conic model is not built in blocks"),
    (lambda t: RowStore(9, 9, 1).append(RowBlock(*t.other_rows())), "a term in column 1 of a store with 1 columns"),
]


@pytest.mark.parametrize("make", [Model, ConicModel])
@pytest.mark.parametrize("mistake, said", MISTAKES, ids=[said for _, said in MISTAKES])
def test_mistakes_are_named(make, mistake, said):
    t = Table(make)
    t.solution = t.solved()
    t.other.push(t.y)
    t.late = t.other.constraint(ONE, name="late")
    with pytest.raises((TypeError, ValueError)) as caught:
        mistake(t)
    assert said in f"{caught.type.__name__}: {caught.value}"
    while len(t.s.records) > 1 or t.s.records and t.s.records[0].ncodeatom:  # what came before the mistake
        t.s.pop()
    if not t.s.records:
        t.model.push(t.x)
    rows = t.bounded([1, 2], 5)  # everything is as it was
    assert t.solved().status == "optimal" and t.model.problem() and t.solved().activity(rows).shape == (2,)


@pytest.mark.parametrize("size, refused", [(1e15, False), (1e21, True)])
@pytest.mark.parametrize("make", [Model, ConicModel])
def test_numbers_that_solvers_change(make, size, refused):
    t = Table(make)
    rows = t.bounded([1.0, size])
    t.model.push(t.x)
    op.sum_blocks(t.s)
    t.model.objective("min")
    if refused:
        with pytest.raises(ValueError, match="element 1 of constraint budget: the solver takes the bound 1e.21"):
            t.solved()
    else:
        assert t.solved().status == "optimal"
        np.testing.assert_allclose(t.solved().activity(rows)[1], size, rtol=1e-6)
    for coefficient, said in ((1e16, "too large"), (1e-10, "for zero")):
        linear = Table(Model)
        op.multiply(linear.s, [[coefficient, 0.0]])
        linear.bounded(1.0)
        with pytest.raises(ValueError, match=f"constraint budget has .*{said}"):
            linear.solved()


def conic(rows, domain=POSITIVE, c=(1.0, 1.0)):
    """min c'x, x in the domain, for rows told as (coefficients, lower, upper): status, cause and values."""
    model = ConicModel()
    x = model.variable((2,), domain, name="x")
    for number, (row, lower, upper) in enumerate(rows):
        model.push(x)
        op.multiply(model.stacks, [row])
        model.constraint(Domain(lower, upper), name=f"row {number}")
    model.push(x)
    op.multiply(model.stacks, [c])
    model.objective("min")
    solution = cone_solver.solve(model.problem())
    return solution.status, solution.why, solution.value(x)


@pytest.mark.parametrize("arguments, status, named", [
    (([([1, 2], 2, 2)] * 3,), "optimal", ""), (([([1, 2], 2, 2), ([0.1, 0.2], 0.2, 0.2)],), "optimal", ""),
    (([([1, 2], 2, 2), ([0, 0], 0, 0)],), "optimal", ""), (([([0, 0], 1, 1)],), "infeasible", "row 0"),
    (([([1, 2], 2, 2), ([2, 4], 5, 5)],), "infeasible", "row 1"), (([([1, 2], 3, 2)],), "infeasible", "row 0"),
    (([], FREE), "unbounded", "x"), (([], Domain(1.0, 0.0)), "infeasible", "element 0 of variable x"),
    (([([1, 2], 0, INF)], POSITIVE, (-1.0, 0.0)), "unbounded", ""),
    (([([1, 2], 2, 3)], FREE, (1.0, 2.0)), "optimal", ""),
    (([([1, 2], 2, 3)], FREE, (1.0, 1.0)), "unbounded", "x"),
    (([([1, 2], 2, 3), ([2, 4], 7, 8)], FREE, (1.0, 1.0)), "infeasible", ""), (([], ONE), "optimal", ""),
    (([([1, 0], 1, 1)], ONE), "optimal", ""), (([([1, 0], 2, 2)], ONE), "infeasible", "x")])
def test_dependent_and_contradicting_rows(arguments, status, named):
    found, why, values = conic(*arguments)
    assert (found, named in why, bool(why)) == (status, True, bool(named))
    assert np.isfinite(values).all() == (status == "optimal")
    for row, lower, upper in arguments[0] if status == "optimal" else []:
        assert lower - 1e-6 <= np.dot(row, values) <= upper + 1e-6


@pytest.mark.parametrize("seed", [*range(40), 161, 273])  # on these two HiGHS would crash
def test_both_solvers_find_the_same(seed):
    """Small programs of integers, many without a solution, many with dependent rows."""
    rng = np.random.default_rng(seed)
    n, m = rng.integers(1, 5), rng.integers(0, 6)
    rows = rng.integers(-2, 3, (m, n)).astype(float)
    if m > 1 and rng.random() < 0.5:
        rows[-1] = rows[0] * rng.integers(1, 4)
    lo = rng.integers(-3, 3, m).astype(float)
    hi = lo + rng.choice([0, 0, 2, INF], m)
    bounds = Domain(rng.choice([0, -INF, -1], n), rng.choice([INF, 3.0], n))
    c, found = rng.integers(-2, 3, (1, n)), []
    for make, solve in ((Model, solver.solve), (ConicModel, cone_solver.solve)):
        model = make()
        x = model.variable((n,), bounds)
        if m:
            model.push(x)
            op.multiply(model.stacks, rows)
            model.constraint(Domain(lo, hi))
        model.push(x)
        op.multiply(model.stacks, c)
        model.objective("min")
        found.append(solve(model.problem()))
    assert found[0].status == found[1].status in ("optimal", "infeasible", "unbounded")
    np.testing.assert_allclose(found[0].objective, found[1].objective, atol=1e-5)


def test_stacks_end_before_32_bit_positions_do():
    """Refused without any memory being asked for, also where kernels would count beyond 32 bits."""
    s, n = Stacks(), 50000
    for arguments in ({"n32": 2**31}, {"n64": 2**40}, {"nf64": -1}):
        with pytest.raises(OverflowError, match=r"the \w+ array of the w stack would need \d{10,} slots, more than the "
                                                r"2147483647 .* in blocks"):
            s.w.reserve(**arguments)
    assert s.w.top == (0, 0, 0)
    op.variable(s, (n,), np.arange(1, n + 1))
    op.multiply(s, np.ones((1, n)))
    picks = np.zeros(n, dtype=np.int64)
    for call in [lambda: op.multiply(s, np.ones((n, 1))), lambda: op.pick(s, picks), lambda: structure.repeat(s, n),
                 lambda: op.multiply(s, SparseMatrix(n, 1, np.arange(n), picks, np.ones(n)))]:
        with pytest.raises(OverflowError, match="would need 2500"):
            call()
    op.sum_blocks(s)
    assert s.records[-1].nnz == n
    with pytest.raises(OverflowError, match="matrix of all rows"):
        Model()._rows.reserve(1, 2**31)


def test_command_lines_tell_mistakes_first(tmp_path):
    result = run_example("efficient_frontier.py", "--output", tmp_path / "x.foo", "--assets", 10**9)
    assert result.returncode == 2 and "neither in .png nor in .svg" in result.stderr
    text = (ROOT / "examples" / "transport.mps").read_text()
    model = tmp_path / "model.mps"
    model.write_text(text.replace("ENDATA", "BOUNDS\n LO B SHIP11 9\n UP B SHIP11 2\nENDATA"))
    result = run_example("solve_mps.py", model)
    assert result.returncode == 1 and "because     element 0 of variable columns has the lower bound 9" in result.stdout
    model.write_text(text.replace(" 1.0", " 1e16", 1))
    result = run_example("solve_mps.py", model)
    assert result.returncode == 1 and result.stderr.startswith(f"error: {model}: element 0 of constraint rows has")
    result = run_example("memory.py", "--rows", 3000, "--columns", 500, "--most", 0)
    sizes = [line.split()[:2] for line in result.stdout.splitlines()[1:]]
    assert result.returncode == 1 and sizes == [["3000", "30000"]] * 2
