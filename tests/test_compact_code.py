"""Compaction of coefficient code: folding rules, the order of sums, and programs that are refused."""

import numpy as np
import pytest

from programs import PARAMETERS, UNUSED, random_program
from records import run_code
from support import UNTOUCHED, blank, call, f64, i32, kinds, layout

P, Q = (1, 0.0), (1, 1.0)  # two parameters
ADD, NEG, MUL, INV = (3, UNUSED), (4, UNUSED), (5, UNUSED), (6, UNUSED)


def const(value):
    return (2, value)


def sum_of(count):
    return (8, float(count))


class Compacted:
    """Compacts the code of terms, each a list of atoms; areas of just the size that they need, apart by 2 slots.

    terms: the compacted atoms, up to the first failure; fixterm: all of it; k, fail, depth, nodes: what came back;
    areas: the scratch areas by their parameters' names.
    """

    def __init__(self, terms, fixterm=None, kind="contiguous", k=1, fail=-1):
        fixterm = [0.0] * len(terms) if fixterm is None else fixterm
        atoms = [atom for term in terms for atom in term]
        longest = max([len(term) for term in terms], default=0)
        nodes = longest + max([sum(code == 8 for code, _ in term) for term in terms], default=0)
        room = k + sum(len(term) + 3 for term in terms)
        sizes = {"oppos": nodes, "childptr": nodes + 1, "children": longest, "stack": max(longest, 1), "tcodepos": room}
        starts = dict(zip(sizes, np.cumsum([2] + [size + 2 for size in sizes.values()]).tolist()))
        shared = blank(sum(sizes.values()) + 2 * len(sizes) + 2, kind)
        ends = np.cumsum([0] + [len(term) for term in terms])
        arrays = {
            "code": i32([9, 9] + [code for code, _ in atoms]), "code_consts": f64([9] + [v for _, v in atoms]),
            "ptr": i32([9, *ends]), "fixterm": f64([9, *fixterm, 9]), "xf64": np.full(nodes + 3, -7.0),
            "target_const": np.full(room + 4, -7.0), "target_ptr": np.full(len(terms) + 4, UNTOUCHED, np.int32),
        }  # fmt: skip
        arrays = {name: layout(values, kind) for name, values in arrays.items()}
        places = {"codepos": 2, "constpos": 1, "ptrpos": 1, "fixpos": 1, "tconstpos": 3, "tptrpos": 2, "valpos": 1}
        before = shared.copy()
        result = call(
            380, arrays, starts, places, nterm=len(terms), k=k, fail=fail, depth=5, nodes=6,
            target_code=shared, xi32=shared,
        )  # fmt: skip
        self.k, self.fail, self.depth, self.nodes = result

        self.areas = {name: shared[starts[name] : starts[name] + size].tolist() for name, size in sizes.items()}
        pointers = arrays["target_ptr"][3:-1]
        done = int(np.sum(pointers != UNTOUCHED))
        first = starts["tcodepos"]
        code, consts = shared[first : first + self.k], arrays["target_const"][3 : 3 + self.k]
        written = list(zip(code.tolist(), consts.tolist()))
        self.terms = [written[b:e] for b, e in zip([k, *pointers], pointers[:done])]
        self.fixterm = arrays["fixterm"][1:-1].tolist()

        # Nothing is written beside the areas, nor to the target outside the terms.
        outside = np.ones(len(shared), bool)
        for area, size in sizes.items():
            outside[starts[area] : starts[area] + size] = False
        outside[first : first + k] = outside[first + self.k : first + room] = True
        assert np.array_equal(shared[outside], before[outside])
        assert (arrays["target_const"][: 3 + k] == -7).all() and (arrays["target_const"][3 + self.k :] == -7).all()
        assert (arrays["target_ptr"][:3] == UNTOUCHED).all() and (pointers[done:] == UNTOUCHED).all()
        assert (arrays["xf64"][[0, -1, -2]] == -7).all() and (arrays["fixterm"][[0, -1]] == 9).all()


def coefficient(atoms, fixterm):
    """A term's coefficient; the mark of a constant that stands in `fixterm` has no value."""
    return fixterm + (0.0 if [code for code, _ in atoms] == [10] else run_code(*zip(*atoms), PARAMETERS))


@kinds
@pytest.mark.parametrize("seed", range(8))
def test_coefficients_stay_and_programs_do_not_grow(kind, seed):
    rng = np.random.default_rng(seed)
    programs = [random_program(rng, depth=5) for _ in range(30)]
    fixterm = rng.choice([0.0, -0.0, 1.0, -2.5], len(programs)).tolist()
    compacted = Compacted([atoms for atoms, _ in programs], fixterm, kind)
    assert compacted.fail < 0 and len(compacted.terms) == len(programs)
    for (atoms, value), before, after, fixed in zip(programs, fixterm, compacted.terms, compacted.fixterm):
        assert coefficient(after, fixed) == before + value
        assert len(after) <= len(atoms) + 2 * (before != 0)
        assert fixed == 0 or after == [(10, 0.0)]


@pytest.mark.parametrize(
    "atoms, expected",
    [
        # Additions: two constants, zero on either side, neither.
        ([const(3.0), const(4.0), ADD], 7.0),
        ([P, const(0.0), ADD], [P]),
        ([const(-0.0), P, ADD], [P]),
        ([P, const(np.nan), ADD], [P, const(np.nan), ADD]),
        ([P, Q, (3, 6.5)], [P, Q, (3, 6.5)]),
        # Multiplications: two constants, zero and one on either side, neither.
        ([const(3.0), const(4.0), MUL], 12.0),
        ([const(0.0), P, MUL], 0.0),
        ([P, const(-0.0), MUL], 0.0),
        ([P, const(1.0), MUL], [P]),
        ([const(1.0), P, MUL], [P]),
        ([const(1.0), P, MUL, Q, ADD, const(1.0), MUL], [P, Q, ADD]),
        ([P, const(2.0), (5, 6.5)], [P, const(2.0), (5, 6.5)]),
        # Signs and inverses of constants and of others, which keep the operand of their atom.
        ([const(3.0), NEG], -3.0),
        ([const(4.0), INV], 0.25),
        ([const(0.0), NEG, INV], -np.inf),
        ([P, (4, 6.5), (6, 7.5)], [P, (4, 6.5), (6, 7.5)]),
        # Sums take their operands from the top; constants come to the front and are merged if there are several.
        ([sum_of(0)], 0.0),
        ([sum_of(0.9)], 0.0),
        ([sum_of(-0.9)], 0.0),
        ([const(1.0), const(1e16), const(-1e16), sum_of(3)], 1.0),
        ([P, Q, sum_of(2)], [Q, P, sum_of(2)]),
        ([const(2.0), P, sum_of(2.9)], [const(2.0), P, sum_of(2)]),
        ([P, const(2.0), const(3.0), sum_of(3)], [const(5.0), P, sum_of(2)]),
        ([const(-0.0), P, Q, NEG, sum_of(3)], [const(-0.0), P, Q, NEG, sum_of(3)]),
        ([P, const(2.0), Q, sum_of(3)], [const(2.0), Q, P, sum_of(3)]),
        ([P, const(2.0), Q, const(3.0), P, NEG, sum_of(5)], [const(5.0), Q, P, NEG, P, sum_of(4)]),
        ([P, P, Q, const(2.0), const(3.0), sum_of(4), ADD], [P, const(5.0), Q, P, sum_of(3), ADD]),
        ([const(np.nan), P, const(3.0), sum_of(3)], [const(np.nan), P, sum_of(2)]),
        # No operation, and a sum of one that a later atom uses up: its node, opcode 0, reaches the target.
        ([(0, 1.0), P, (0, 2.0)], [P]),
        ([P, sum_of(1), ADD], [P, (0, -7.0), ADD]),
    ],
)
def test_folding(atoms, expected):
    compacted = Compacted([atoms], [0.5 if isinstance(expected, float) else 0.0])
    if isinstance(expected, float):
        assert compacted.terms == [[(10, 0.0)]] and compacted.fixterm == [expected + 0.5]
    else:
        assert repr(compacted.terms) == repr([expected]) and compacted.fixterm == [0.0]
    assert (compacted.fail, compacted.depth) == (-1, 1 if isinstance(expected, float) else 0)


@pytest.mark.parametrize(
    "atoms, nodes, childptr",
    [
        ([P, const(0.0), ADD], [1, 2, -9999], [0, 0, 0, 0]),
        ([const(0.0), P, ADD], [2, 1, -9999], [0, 0, 0, 0]),
        ([P, const(1.0), MUL], [1, 2, -9999], [0, 0, 0, 1]),
        ([const(1.0), P, MUL, NEG], [2, 1, -9999, 4], [0, 0, 0, 1, 2]),
        ([const(2.0), P, sum_of(2)], [2, 1, 8, -7], [0, 0, 0, 2, -7]),
        ([P, const(2.0), const(3.0), sum_of(3)], [1, 2, 2, 2, 8], [0, 0, 0, 0, 0, 2]),
    ],
)
def test_nodes_in_the_scratch_areas(atoms, nodes, childptr):
    """A value that is passed on leaves its own node marked as unused; a merging sum makes two."""
    compacted = Compacted([atoms])
    assert compacted.areas["oppos"] == nodes and compacted.areas["childptr"] == childptr
    assert compacted.nodes == sum(opcode != UNTOUCHED for opcode in nodes)


def test_the_constant_coefficient_moves_into_the_code():
    compacted = Compacted([[P, const(0.0), ADD], [P, Q, ADD], [const(1.0)]], [5.0, np.nan, np.nan])
    assert compacted.terms == [[P, const(5.0), (3, -7.0)], [P, Q, ADD], [(10, 0.0)]]
    assert compacted.fixterm[0] == 0.0 and np.isnan(compacted.fixterm[1:]).all()


@pytest.mark.parametrize(
    "atoms, bad_atom, nodes",
    [
        ([P, (7, 0.0)], 1, 1),
        ([P, (9, 0.0), P], 1, 2),
        ([(-1, 0.0), P], 0, 1),
        ([P, ADD], 1, 1),
        ([P, MUL], 1, 1),
        ([NEG, P], 0, 1),
        ([INV, P], 0, 1),
        ([P, P, sum_of(3)], 2, 2),
        ([P, sum_of(-1)], 1, 1),
        ([P, sum_of(np.nan)], 1, 1),
        ([P, sum_of(3e9)], 1, 1),
        ([(7, 0.0), P, (9, 0.0), P, ADD], 2, 3),  # the last one counts
        # Not exactly one value in the end.
        ([], None, 0),
        ([(0, 0.0)], None, 0),
        ([const(1.0), const(2.0)], None, 2),
        ([P, sum_of(1)], None, 2),
        ([P, P, const(1.0), const(2.0), sum_of(3)], None, 6),  # a merging sum makes two nodes
    ],
)
def test_ill_formed_code(atoms, bad_atom, nodes):
    good = [P, const(2.0), MUL]
    compacted = Compacted([good, atoms, good], [1.0, 2.0, 3.0])
    assert compacted.nodes == nodes
    assert compacted.fail == (nodes if bad_atom is None else len(good) + bad_atom)
    assert len(compacted.terms) == 1 and compacted.fixterm == [0.0, 2.0, 3.0]


def test_nothing_is_done_after_a_failure():
    compacted = Compacted([[const(3.0)]], fail=0)
    assert (compacted.k, compacted.fail, compacted.depth, compacted.nodes) == (1, 0, 5, 6)
    assert compacted.terms == [] and compacted.fixterm == [0.0]
