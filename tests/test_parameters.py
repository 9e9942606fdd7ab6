"""Parameters in the example host layer: products and the table of rows against NumPy, and the efficient frontier."""

import os
import re
import subprocess
import sys
from pathlib import Path

import fragments
import numpy as np
import pytest

from support import ROOT, f64, i32, i64
from test_host import NVARS, kinds, push_random

from host import operators as op  # noqa: E402
from host import parameters as par  # noqa: E402
from host.stacks import Stacks  # noqa: E402


@pytest.fixture(params=[1, 2])
def rng(request):
    return np.random.default_rng(request.param)


def dense(parameters, parameter):
    """The values of an array of parameters, zeros included."""
    values = np.zeros(parameter.shape)
    values.reshape(-1)[parameter.positions] = parameters.get(parameter)
    return values


def coefficients(table, fixed):
    """All rows as an array: what was returned when they were filed, and what the table holds, evaluated in both ways."""
    result = np.zeros((len(table.ptrb), NVARS))
    subi, subj, val = table.evaluate()
    columns, values = table.evaluate_first(len(table.ptrb))
    np.testing.assert_array_equal(columns, subj)
    np.testing.assert_array_equal(values, val)
    np.add.at(result, (subi, subj), val)
    np.add.at(result, fixed[:2], fixed[2])
    return result


def check(s, parameters, expected, rng):
    """Files the last record, then compares it with expected() for several values of the parameters."""
    nrows = expected().reshape(-1, NVARS).shape[0]
    table = par.ParameterTable(parameters, nrows)
    rows = i32(rng.permutation(nrows))
    fixed = table.file(s, rows)
    for _ in range(3):
        parameters.values[:] = rng.normal(size=len(parameters.values))
        np.testing.assert_allclose(coefficients(table, fixed)[rows], expected().reshape(-1, NVARS), atol=1e-12)
    assert not s.records and s.w.top == (0, 0, 0)


@kinds
@pytest.mark.parametrize("pattern", [None, [], [1, 4, 5, 10]])
def test_products_with_parameters(rng, sparse, code, pattern):
    shape = (3, 4)
    for name in ("scale", "spread", "inner_product", "multiply_elementwise"):
        s, p = Stacks(), par.Parameters()
        p.array((3,))
        a = p.array(() if name == "scale" else shape, None if name == "scale" or pattern is None else i64(pattern))
        e = push_random(s, rng, (1,) if name == "spread" else shape, sparse and name != "spread", code)
        getattr(par, name)(s, a)
        check(s, p, {
            "scale": lambda: e * dense(p, a),
            "spread": lambda: dense(p, a)[..., None] * e[0],
            "inner_product": lambda: np.einsum("ij,ijv->v", dense(p, a), e),
            "multiply_elementwise": lambda: dense(p, a)[..., None] * e}[name], rng)


@kinds
def test_parameters_pass_through_other_operators(rng, sparse, code):
    s, p = Stacks(), par.Parameters()
    a, b = p.array((5,), i64([0, 2, 3])), p.array(())
    matrix = rng.normal(size=(4, 5)) * (rng.random((4, 5)) < 0.7)
    e = push_random(s, rng, (5,), sparse, code)
    par.multiply_elementwise(s, a)
    op.multiply(s, matrix)
    plain = push_random(s, rng, (4,), sparse, code)
    op.add(s, -2.0, 3.0)
    par.scale(s, b)
    other = push_random(s, rng, (4,), code=code)
    op.add(s)
    check(s, p, lambda: other + dense(p, b) * (3.0 * plain - 2.0 * matrix @ (dense(p, a)[:, None] * e)), rng)


def test_only_terms_with_parameters_reach_the_table():
    s, p = Stacks(), par.Parameters()
    a = p.array((3,))
    op.variable(s, (3,), i64([1, 2, 3]))
    par.multiply_elementwise(s, a)
    op.constant(s, (3,), f64([5.0, 0.0, 7.0]))
    op.add(s, 1.0, 2.0)
    op.multiply(s, np.diag([1.0, 1.0, 0.0]))
    table = par.ParameterTable(p, 3)
    fixed = table.file(s, i32([2, 1, 0]))
    assert (table.terms, table.atoms) == (2, 2)  # of each, the parameter alone
    assert [part.tolist() for part in fixed] == [[2], [0], [10.0]]
    assert np.isnan(table.evaluate()[2]).all()  # not yet set
    p.set(a, [1.5, 2.5, 3.5])
    assert [part.tolist() for part in table.evaluate()] == [[1, 2], [2, 1], [2.5, 1.5]]


def test_rows_are_replaced(rng):
    s, p = Stacks(), par.Parameters()
    a = p.array((4,))
    p.set(a, [2.0, -3.0, 5.0, 0.5])
    table, expected = par.ParameterTable(p, 12), np.zeros((12, NVARS))
    for step in range(60):
        rows = i32(rng.permutation(12)[:4])
        if step % 4 == 3:
            table.remove(rows)
            expected[rows] = 0.0
        else:
            e = push_random(s, rng, (4,))
            par.multiply_elementwise(s, a)
            fixed = table.file(s, rows)
            expected[rows] = dense(p, a)[:, None] * e
            assert len(fixed[0]) == 0
        np.testing.assert_allclose(coefficients(table, (i32([]), i32([]), f64([]))), expected, atol=1e-12)
        assert table.terms == (table.ptre - table.ptrb).sum() == len(table.evaluate()[0])
    assert len(table.sizes) <= 64 and len(table.code) <= 256  # holes were closed: 60 steps filed ten times as much


@pytest.mark.parametrize("call", [
    lambda s, p: par.scale(s, p.array((2,))),
    lambda s, p: par.spread(s, p.array((2,))),
    lambda s, p: par.inner_product(s, p.array((3,))),
    lambda s, p: par.multiply_elementwise(s, p.array((2, 1))),
    lambda s, p: p.array((2,), i64([1, 1])),
    lambda s, p: p.set(p.array((3,)), [1.0, 2.0]),
    lambda s, p: par.ParameterTable(p, 2).file(s, i32([0, 2])),
    lambda s, p: par.ParameterTable(p, 2).file(s, i32([1, 1])),
    lambda s, p: par.ParameterTable(p, 2).remove(i32([-1]))])
def test_misfits_are_refused(call):
    s = Stacks()
    op.variable(s, (2,), i64([1, 2]))
    with pytest.raises(ValueError):
        call(s, par.Parameters())
    assert len(s.records) == 1 and s.r.top == s.x.top == (0, 0, 0)


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
    result = subprocess.run(
        [sys.executable, str(ROOT / "examples" / "efficient_frontier.py"), "--assets", "20", "--points", "4",
         "--output", str(picture)], capture_output=True, text=True,
        env=dict(os.environ, PYTHONPATH=str(Path(fragments.__file__).parent)))
    assert result.returncode == 0, result.stderr
    times, where = result.stdout.splitlines()
    numbers = [float(x) for x in re.findall(r"\d+\.\d+", times)]
    assert numbers[0] > numbers[1] > 0.0 and numbers[2] == pytest.approx(numbers[0] / numbers[1], rel=0.1)
    assert str(picture) in where and picture.read_bytes().startswith(start)
