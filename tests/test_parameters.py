"""Parameters in the example host layer: products and the table of rows against NumPy, and the efficient frontier."""

import re

import numpy as np
import pytest

from host_records import push
from records import PARAMETERS, VARIABLES, codes, patterns, random_record
from support import f64, i32, i64, run_example

from host import operators as op
from host import parameters as par
from host.stacks import Stacks


@pytest.fixture(params=[1, 2])
def rng(request):
    return np.random.default_rng(request.param)


def dense(parameters, parameter):
    """The values of an array of parameters, zeros included."""
    values = np.zeros(parameter.shape)
    values.reshape(-1)[parameter.positions] = parameters.get(parameter)
    return values


def coefficients(table, fixed):
    """All rows as an array: what was returned when they were filed, and what the table holds, by both evaluations."""
    result = np.zeros((len(table.ptrb), VARIABLES))
    subi, subj, val = table.evaluate()
    columns, values = table.evaluate_first(len(table.ptrb))
    np.testing.assert_array_equal(columns, subj)
    np.testing.assert_array_equal(values, val)
    np.add.at(result, (subi, subj), val)
    np.add.at(result, fixed[:2], fixed[2])
    return result


def check(s, parameters, expected, rng):
    """Files the last record, then compares it with expected() for several values of the parameters."""
    nrows = expected().reshape(-1, VARIABLES).shape[0]
    table = par.ParameterTable(parameters, nrows)
    rows = i32(rng.permutation(nrows))
    fixed = table.file(s, rows)
    for _ in range(3):
        parameters.values[len(PARAMETERS) :] = rng.integers(-9, 9, len(parameters.values) - len(PARAMETERS))
        np.testing.assert_array_equal(coefficients(table, fixed)[rows], expected().reshape(-1, VARIABLES))
    assert not s.records and s.w.top == (0, 0, 0)


@patterns
@codes
@pytest.mark.parametrize("entries", [None, [], [1, 4, 5, 10]])
def test_products_with_parameters(rng, sparse, code, entries):
    shape = (3, 4)
    for name in ("scale", "spread", "inner_product", "multiply_elementwise"):
        s, p = Stacks(), par.Parameters()
        p.set(p.array(PARAMETERS.shape), PARAMETERS)
        a = p.array(() if name == "scale" else shape, None if name == "scale" or entries is None else i64(entries))
        e = push(s, random_record(rng, (1,) if name == "spread" else shape, sparse and name != "spread", code))
        getattr(par, name)(s, a)
        check(s, p, {
            "scale": lambda: e * dense(p, a),
            "spread": lambda: dense(p, a)[..., None] * e[0],
            "inner_product": lambda: np.einsum("ij,ijv->v", dense(p, a), e),
            "multiply_elementwise": lambda: dense(p, a)[..., None] * e}[name], rng)


def test_rows_are_replaced(rng):
    s, p = Stacks(), par.Parameters()
    a = p.array((4,))
    p.set(a, [2.0, -3.0, 5.0, 0.5])
    table, expected = par.ParameterTable(p, 12), np.zeros((12, VARIABLES))
    for step in range(60):
        rows = i32(rng.permutation(12)[:4])
        if step % 4 == 3:
            table.remove(rows)
            expected[rows] = 0.0
        else:
            e = push(s, random_record(rng, (4,)))
            par.multiply_elementwise(s, a)
            fixed = table.file(s, rows)
            expected[rows] = dense(p, a)[:, None] * e
            assert len(fixed[0]) == 0
        np.testing.assert_allclose(coefficients(table, (i32([]), i32([]), f64([]))), expected, atol=1e-12)
        assert table.terms == (table.ptre - table.ptrb).sum() == len(table.evaluate()[0])
    assert len(table.sizes) <= 64 and len(table.code) <= 256  # holes were closed: 60 steps filed ten times as much


def test_code_of_no_value_is_refused():
    s, p = Stacks(), par.Parameters()
    op.variable(s, (2,), i64([1, 2]))
    e = par.scale(s, p.array(()))
    s.w.i32[e.code + 5] = 7
    with pytest.raises(ValueError):
        par.compact(s)
    assert s.r.top == s.x.top == (0, 0, 0)


def test_frontier_agrees_with_one_without_parameters():
    cvxopt = pytest.importorskip("cvxopt")
    from efficient_frontier import Frontier, random_market, trace

    n, aversions = 30, np.geomspace(0.5, 500.0, 7)
    market = random_market(n, 3, seed=5)
    covariance = market.loadings @ market.loadings.T + np.diag(market.deviation ** 2)
    rng = np.random.default_rng(3)
    frontier = Frontier(market)

    def portfolio(aversion, returns):
        result = cvxopt.solvers.qp(
            cvxopt.matrix(aversion * covariance), cvxopt.matrix(-returns), cvxopt.matrix(-np.eye(n)),
            cvxopt.matrix(np.zeros(n)), cvxopt.matrix(np.ones((1, n))), cvxopt.matrix(1.0),
            options={"show_progress": False, "abstol": 1e-10, "reltol": 1e-10, "feastol": 1e-10})
        return np.array(result["x"]).reshape(-1)

    points = []
    for aversion in aversions:
        returns = market.returns + rng.normal(scale=0.01, size=n)  # both kinds of parameters change
        frontier.evaluate(aversion, returns)
        np.testing.assert_allclose(frontier.solve(), portfolio(aversion, returns), atol=2e-4)
        x = portfolio(aversion, market.returns)
        points.append((np.sqrt(x @ covariance @ x), market.returns @ x))
    run = trace(market, aversions)
    np.testing.assert_allclose(run.points, points, atol=1e-5)
    assert np.all(np.diff(run.points, axis=0) < 0)  # less risk, less return


@pytest.mark.parametrize("suffix, start", [("png", b"\x89PNG"), ("svg", b"<?xml")])
def test_frontier_is_drawn_and_timed(tmp_path, suffix, start):
    pytest.importorskip("cvxopt")
    pytest.importorskip("matplotlib")
    picture = tmp_path / "new" / f"frontier.{suffix}"
    result = run_example("efficient_frontier.py", "--assets", 20, "--points", 4, "--output", picture)
    assert result.returncode == 0, result.stderr
    times, where = result.stdout.splitlines()
    numbers = [float(x) for x in re.findall(r"\d+\.\d+", times)]
    assert numbers[2] == pytest.approx(numbers[0] / numbers[1], rel=0.1)
    assert str(picture) in where and picture.read_bytes().startswith(start)
