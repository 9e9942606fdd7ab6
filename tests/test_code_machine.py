"""The machine that runs coefficient code: parametrised rows become triplets."""

import numpy as np
import pytest

from programs import PARAMETERS, random_program
from support import blank, call, f64, i32, i64, kinds, layout

BOTTOM = 3  # of the machine's stack


def evaluate(number, rows, kind="contiguous", k=1, top=0, nrows=None, cut=0):
    """Evaluates rows, each a list of (atoms, variable); the ends of the rows come `cut` terms too early.

    Returns (rows, columns, values) of the entries from k on, what the call returned, and what the stack holds then.
    """
    terms = [term for row in rows for term in [([(2, 99.0)], 99), *row]]  # an unused term stands before each row
    atoms = [atom for code, _ in terms for atom in code]
    sizes = [len(code) for code, _ in terms]
    ends = np.cumsum([1 + len(row) for row in rows], dtype=int)
    begins = ends - [len(row) for row in rows]
    columns = {
        "code": i32([code for code, _ in atoms]), "cconst": f64([operand for _, operand in atoms]),
        "param_value": PARAMETERS, ("codesizes", "param_code_sizes"): i32(sizes),
        ("codenidx", "param_varidx"): i64([variable for _, variable in terms]),
        ("codeptr", "row_code_ptr"): i32(np.cumsum([0, *sizes])[begins]),
        ("rowptrb", "row_param_ptrb"): i32(begins), ("rowptre", "row_param_ptre"): i32(ends - cut),
    }  # fmt: skip
    arrays = {name if isinstance(name, str) else name[number == 134]: values for name, values in columns.items()}
    arrays = {name: layout(values, kind) for name, values in arrays.items()}
    arrays |= {"subi": blank(len(terms) + 2, kind), "subj": blank(len(terms) + 2, kind)}
    arrays |= {"val": blank(len(terms) + 2, kind, f64), "xf64": blank(BOTTOM + 40, kind, f64)}
    at = {"nrows": len(rows) if nrows is None else nrows, "k": k, "xbase": BOTTOM, "top": top}
    end, top = call(number, arrays, at)
    for name in ("subi", "subj", "val"):
        assert (arrays[name][:k] == -7).all() and (arrays[name][end:] == -7).all()
    assert (arrays["xf64"][:BOTTOM] == -7).all()
    entries = (arrays[name][k:end].tolist() for name in ("subi", "subj", "val"))
    return (*entries, (end, top), arrays["xf64"][BOTTOM:].tolist())


@kinds
@pytest.mark.parametrize("seed", range(5))
def test_rows_have_the_values_of_their_programs(kind, seed):
    rng = np.random.default_rng(seed)
    rows, expected = [], []
    for row in range(6):
        programs = [random_program(rng) for _ in range(rng.integers(0, 4))]
        variables = rng.integers(-(2**20), 2**20, len(programs)).tolist()
        rows.append([(atoms, variable) for (atoms, _), variable in zip(programs, variables)])
        expected += [(row, variable, value) for (_, value), variable in zip(programs, variables)]
    for number in (25, 134):
        subi, subj, val, result, _ = evaluate(number, rows, kind)
        assert result == (1 + len(expected), 0)
        assert list(zip(subj, val)) == [entry[1:] for entry in expected]
        assert subi == ([entry[0] for entry in expected] if number == 134 else [-7] * len(expected))
    assert len(evaluate(25, rows, kind, nrows=3)[2]) == sum(row < 3 for row, _, _ in expected)


@pytest.mark.parametrize(
    "atoms, stack",
    [
        ([(2, 3.0)], [3.0]),
        ([(1, 2.9), (2, 5.0), (5, 0.0)], [20.0, 5.0]),
        ([(1, 4.0), (6, 0.0)], [np.inf]),
        ([(1, 4.0), (4, 0.0), (6, 0.0)], [-np.inf]),
        ([(2, 0.0), (4, 0.0)], [-0.0]),
        ([(2, -np.inf), (4, 0.0), (2, 1.0), (3, 0.0)], [np.inf, 1.0]),
        ([(2, 1.0), (2, 2.0), (2, 4.0), (8, 3.0)], [7.0, 2.0, 4.0]),
        ([(2, 1.0), (2, 1e16), (2, -1e16), (8, 3.9)], [1.0, 1e16, -1e16]),  # -1e16 + 1e16 + 1
        ([(2, -0.0), (8, 1.0)], [0.0]),
        ([(2, 5.0), (8, 0.0), (3, 0.0)], [5.0, 0.0]),
        ([(8, -2.0)], [0.0]),
        ([(8, np.nan)], [0.0]),
        ([(2, 4.0), (7, 1.0), (9, 1.0), (0, 1.0), (-1, 1.0), (10, 0.0), (2**31 - 1, 1.0), (6, 1.0)], [0.25]),
        ([(2, 1.0), (2, 2.0), (2, 3.0), (5, 0.0), (3, 0.0)], [7.0, 6.0, 3.0]),
    ],
)
def test_opcodes_and_what_they_leave_above_the_result(atoms, stack):
    for number in (25, 134):
        _, _, val, result, left = evaluate(number, [[(atoms, 5)]])
        assert repr(left[: len(stack) + 1]) == repr([*stack, -7.0])
        assert repr(val) == repr(stack[:1]) and result == (2, 0)


def test_terms_without_code_take_what_the_run_before_left():
    assert evaluate(134, [[([], 1), ([(2, 3.0)], 2), ([], 3)], [([], 4)]])[2] == [-7.0, 3.0, 3.0, 3.0]


def test_a_depth_on_entry_shifts_the_first_run_only():
    _, _, val, result, stack = evaluate(25, [[([(2, 3.0), (4, 0.0)], 1), ([(2, 4.0)], 2)]], top=2)
    assert (val, result, stack[:4]) == ([-7.0, 4.0], (3, 0), [4.0, -7.0, -3.0, -7.0])


def test_multiples_of_parameters_among_other_programs():
    multiple = [(2, 0.5), (1, 2.0), (5, 0.0)]
    others = [[*multiple[:2], (3, 0.0)], [(2, 3.0), (2, 5.0), (5, 0.0)], [(1, 1.0), *multiple[1:]],
              [*multiple, (4, 0.0)], []]  # fmt: skip
    p1, p2 = PARAMETERS[1], PARAMETERS[2]
    for number in (25, 134):
        for other, value in zip(others, [0.5 + p2, 15.0, p1 * p2, -0.5 * p2, 0.5 * p2]):
            rows = [[(multiple, 1), (multiple, 2)], [(multiple, 3), (other, 4), (multiple, 5)], [(other, 6)]]
            *_, val, result, stack = evaluate(number, rows)
            assert val == [0.5 * p2] * 3 + [value, 0.5 * p2, value] and result == (7, 0)
            assert stack[:3] == [value, 5.0 if other is others[1] else p2, -7.0]
        assert evaluate(number, [[(multiple, 1)]])[4][:3] == [0.5 * p2, p2, -7.0]
        *_, val, result, stack = evaluate(number, [[(multiple, 1), (multiple, 2)]], top=2)
        assert (val, result, stack[:5]) == ([-7.0, 0.5 * p2], (3, 0), [0.5 * p2, p2, 0.5 * p2, p2, -7.0])
        # What stands on the stack is there before the program that finds it.
        assert evaluate(number, [[(multiple, 1), ([], 2), ([(0, 1.0)], 3)]])[2] == [0.5 * p2] * 3


def test_variables_are_cut_and_rows_without_terms_skipped():
    rows = [[([(2, 1.0)], 2**32 + 5)], [], [([(2, 2.0)], -(2**31) - 1), ([(2, 3.0)], 7)]]
    assert evaluate(134, rows)[1] == [5, 2**31 - 1, 7]
    assert evaluate(134, rows, cut=1)[:3] == ([2], [2**31 - 1], [2.0])  # the rows before end where or before they begin
    for number in (25, 134):
        assert call(number, k=4, top=2, xbase=1) == (4, 2)
