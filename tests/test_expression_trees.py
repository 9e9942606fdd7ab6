"""Random trees of the example host layer's operators, several deep, against NumPy on dense arrays of linear forms.

Trees are grown from the root down: an operator that gives the wanted shape chooses the shapes of its operands. Numbers
are small integers and halves of them, so that every comparison is exact.
"""

from collections import Counter

import numpy as np
import pytest

from host_records import integers, meaning, push, random_sparse_matrix, read
from records import FIRST, ONE_ATOM, VARIABLES, evaluate, random_record
from support import f64, i32, i64

from host import axis_pairs, operators, products, stacks, structure, sums
from host.stacks import Stacks


def extent(rng):
    return int(rng.integers(1, 5))


def any_shape(rng, most=3):
    return tuple(extent(rng) for _ in range(rng.integers(1, most + 1)))


def leaf(rng, s, shape):
    size = int(np.prod(shape))
    sp = np.flatnonzero(rng.random(size) < 0.6) if rng.random() < 0.5 else None
    stored = np.arange(size) if sp is None else sp
    kind = rng.integers(5)
    if kind > 1:
        return push(s, random_record(rng, shape, sp is not None, code=[False, True, ONE_ATOM][kind - 2]))
    forms = np.zeros((size, VARIABLES))
    if kind:
        nidxs = rng.integers(1, VARIABLES, len(stored))
        forms[stored, nidxs] = 1
        operators.variable(s, shape, FIRST + nidxs, sp)
    else:
        forms[stored, 0] = integers(rng, len(stored))
        operators.constant(s, shape, forms[stored, 0], sp)
    return forms.reshape(*shape, VARIABLES)


def ways(rng, shape):
    """The operators that can give an array of this shape, with arguments drawn at random.

    By name: the shapes of the operands, the call, and the expected linear forms from those of the operands.
    """
    nd, size = len(shape), int(np.prod(shape))
    c, d, weights, values = *integers(rng, 2), integers(rng, extent(rng)), integers(rng, size)
    sp = np.flatnonzero(rng.random(size) < 0.6)
    axes = rng.permutation(nd).tolist()
    other = any_shape(rng)
    chosen = np.flatnonzero(rng.random(int(np.prod(other))) < 0.6)
    chosen_weights = integers(rng, len(chosen))
    upper = rng.random() < 0.5

    def scaled(factors):
        return lambda e: e * factors.reshape(*shape, 1)

    def weighted_pick(s):
        return products.weighted_pick(s, chosen, chosen_weights)

    def picked(e):
        return chosen_weights @ e.reshape(-1, VARIABLES)[chosen]

    found = {
        "add": ([shape] * 2, lambda s: operators.add(s, c, d), lambda a, b: c * a + d * b),
        "weighted_sum": ([shape] * len(weights), lambda s: sums.weighted_sum(s, weights),
                         lambda *e: np.tensordot(weights, e, 1)),
        "merge_terms": ([shape], sums.merge_terms, lambda e: e),
        "scale": ([shape], lambda s: products.scale(s, c), lambda e: c * e),
        "scale_elements": ([shape], lambda s: products.scale_elements(s, values), scaled(values)),
        "scale_elements, sparse": ([shape], lambda s: products.scale_elements(s, values[sp], sp),
                                   scaled(np.where(np.isin(np.arange(size), sp), values, 0))),
        "permute": ([tuple(shape[k] for k in np.argsort(axes))], lambda s: structure.permute(s, axes),
                    lambda e: e.transpose(*axes, nd)),
    }  # fmt: skip
    if nd == 0:
        found["weighted_pick"] = [other], weighted_pick, picked
    if nd < 3:
        axis, block = int(rng.integers(nd + 1)), any_shape(rng, 3 - nd)
        found["sum_axis"] = [(*shape[:axis], extent(rng), *shape[axis:])], lambda s: sums.sum_axis(s, axis), \
            lambda e: e.sum(axis)
        found["sum_blocks"] = [shape + block], lambda s: operators.sum_blocks(s, len(block)), \
            lambda e: e.sum(tuple(range(nd, nd + len(block))))
    if nd > 0:
        along, first, behind = int(rng.integers(nd)), *rng.integers(0, 2, (2, nd))
        last = first + shape
        cuts = np.sort(rng.integers(0, shape[along] + 1, rng.integers(3)))
        count = int(rng.choice([n for n in range(1, 5) if shape[along] % n == 0]))

        def resized(n):
            return (*shape[:along], int(n), *shape[along + 1:])

        found["stack"] = [resized(n) for n in np.diff([0, *cuts, shape[along]])], \
            lambda s: structure.stack(s, len(cuts) + 1, along), lambda *e: np.concatenate(e, along)
        if shape[-1]:
            found["stack, new axis"] = [shape[:-1]] * shape[-1], lambda s: structure.stack(s, shape[-1], nd - 1), \
                lambda *e: np.stack(e, nd - 1)
        found["repeat"] = [resized(shape[along] // count)], lambda s: structure.repeat(s, count, along), \
            lambda e: np.concatenate([e] * count, along)
        found["slice_box"] = [tuple((last + behind).tolist())], \
            lambda s: operators.slice_box(s, first.tolist(), last.tolist()), \
            lambda e: e[tuple(slice(*ends) for ends in zip(first, last))]
    if nd == 1:
        right, right_dense = random_sparse_matrix(rng, extent(rng), size)
        left, left_dense = random_sparse_matrix(rng, size, extent(rng))
        indices = rng.integers(0, np.prod(other), size)
        coordinates = np.stack(np.unravel_index(indices, other), 1).astype(np.int32)
        for name, argument in (("pick", indices), ("pick, coordinates", coordinates)):
            found[name] = [other], lambda s, i=argument: operators.pick(s, i), \
                lambda e: e.reshape(-1, VARIABLES)[indices]
        found["diagonal_right"] = [right_dense.shape[::-1]], lambda s: products.diagonal_right(s, right), \
            lambda e: np.einsum("jiv,ij->jv", e, right_dense)
        found["diagonal_left"] = [left_dense.shape[::-1]], lambda s: products.diagonal_left(s, left), \
            lambda e: np.einsum("ij,jiv->iv", left_dense, e)
    if nd in (1, 2):
        matrix, dense = random_sparse_matrix(rng, shape[0], extent(rng))
        for name, argument in (("multiply", matrix), ("multiply, dense", dense)):
            found[name] = [(dense.shape[1], *shape[1:])], lambda s, m=argument: operators.multiply(s, m), \
                lambda e: np.tensordot(dense, e, 1)
    if nd == 2:
        factors, factors_dense = random_sparse_matrix(rng, *shape)
        found["transpose"] = [shape[::-1]], operators.transpose, lambda e: e.swapaxes(0, 1)
        found["scale_matrix"] = [other], lambda s: (weighted_pick(s), operators.scale_matrix(s, factors)), \
            lambda e: factors_dense[..., None] * picked(e)
    pairs = [(a, b) for b in range(nd) for a in range(b) if shape[a] == shape[b]]
    if pairs:
        a, b = pairs[rng.integers(len(pairs))]
        i, j = np.indices(shape)[[a, b]]
        found["triangle"] = [shape], lambda s: axis_pairs.triangle(s, a, b, upper), scaled(i <= j if upper else i >= j)
        found["scale_off_diagonal"] = [shape], lambda s: axis_pairs.scale_off_diagonal(s, a, b, c), \
            scaled(np.where(i == j, 1, c))
        found["symmetrise"] = [shape], lambda s: axis_pairs.symmetrise(s, a, b), lambda e: (e + e.swapaxes(a, b)) / 2
    return found


def grow_tree(rng, s, shape, depth, used):
    """Evaluates a random tree of this shape on s, and compares every element after every operator; the linear forms."""
    if not depth:
        return leaf(rng, s, shape)
    found = ways(rng, shape)
    # Of four at random the one that was used least, so that those for few shapes have their share.
    name = min(rng.choice(list(found), 4), key=lambda name: used[name, False] + used[name, True])
    shapes, call, expected = found[name]
    count = len(s.records)
    forms = expected(*(grow_tree(rng, s, operand, depth - 1, used) for operand in shapes))
    for stack in (s.r, s.x):  # what earlier results left there must not stand for what a kernel doesn't write
        for array in (stack.i32, stack.i64, stack.f64):
            array[:] = -77
    call(s)
    record = read(s)
    assert record.shape.tolist() == list(shape) and len(s.records) == count + 1, name
    np.testing.assert_array_equal(evaluate(record), forms, err_msg=f"{name} of shape {shape}")
    if name == "merge_terms":
        assert all(np.all(np.diff(record.nidxs[b:e]) > 0) for b, e in zip(record.ptr, record.ptr[1:]))
    used[name, record.code is not None] += 1
    return forms


def test_random_trees(monkeypatch):
    used = Counter()
    for seed in range(1000):
        rng = np.random.default_rng(seed)

        def exact(array, used, needed):
            """So many slots and not one more, so that the checked build sees what is written behind them. In every
            second pair of trees they stand apart."""
            grown = np.full(2 * needed, -77, array.dtype)[:: 1 + seed // 2 % 2][:needed]
            grown[:used] = array[:used]
            return grown

        monkeypatch.setattr(stacks, "grown", exact)
        grow_tree(rng, Stacks(), any_shape(rng)[seed % 2 :], 1 + seed % 5, used)
    everything = {name for shape in [(), (2,), (2, 2), (2, 2, 2)] for name in ways(rng, shape)}
    assert used.keys() == {(name, code) for name in everything for code in (False, True)}  # none was left out


def test_wrong_arguments_are_refused_and_change_nothing():
    s, rng = Stacks(), np.random.default_rng(1)
    push(s, random_record(rng, (2, 3), sparse=True))
    forms = push(s, random_record(rng, (2, 3, 2), code=True))
    matrix, _ = random_sparse_matrix(rng, 2, 3)
    outside, twice = ((i32(subi), i32(subj), np.ones(2)) for subi, subj in (([0, 4], [0, 0]), ([0, 0], [1, 1])))
    for call in [
        lambda: operators.multiply(s, matrix), lambda: operators.scale_matrix(s, matrix), lambda: operators.add(s),
        lambda: operators.multiply(s, operators.SparseMatrix(4, 2, *outside)),
        lambda: operators.multiply(s, operators.SparseMatrix(4, 2, *twice)),
        lambda: operators.multiply_variable(s, matrix, (4,), np.arange(1, 5)),
        lambda: operators.multiply_variable_right(s, matrix, (2, 3), np.arange(1, 7)),
        lambda: operators.sum_blocks(s, 4), lambda: operators.slice_box(s, (0, 0, 0), (2, 4, 2)),
        lambda: operators.pick(s, i64([12])), lambda: operators.pick(s, i32([[0, 3, 0]])),
        lambda: operators.pick(s, i32([[0, 0]])), lambda: operators.variable(s, (2,), i64([1])),
        lambda: operators.constant(s, (3,), f64([1, 2]), sp=i64([1, 1])),
        lambda: structure.stack(s, 0), lambda: structure.stack(s, 1, 4), lambda: structure.stack(s, 1, -1),
        lambda: structure.stack(s, 2, 1), lambda: structure.stack(s, 3), lambda: structure.repeat(s, 0),
        lambda: structure.repeat(s, 2, 3), lambda: structure.permute(s, (0, 1)),
        lambda: structure.permute(s, (0, 1, 1)), lambda: sums.sum_axis(s, 3),
        lambda: sums.weighted_sum(s, []), lambda: sums.weighted_sum(s, [1.0, 1.0]),
        lambda: products.scale_elements(s, np.ones(11)), lambda: products.scale_elements(s, np.ones(1), i64([12])),
        lambda: products.weighted_pick(s, i64([12]), f64([1])), lambda: products.diagonal_right(s, matrix),
        lambda: products.weighted_pick(s, i64([1, 1]), f64([1, 1])), lambda: products.diagonal_left(s, matrix),
        lambda: products.weighted_pick(s, i64([1]), f64([1, 1])), lambda: axis_pairs.triangle(s, 0, 1),
        lambda: axis_pairs.scale_off_diagonal(s, 2, 0, 1.0), lambda: axis_pairs.symmetrise(s, 1, 3),
    ]:  # fmt: skip
        with pytest.raises(ValueError):
            call()
        assert len(s.records) == 2
        np.testing.assert_array_equal(meaning(s), forms)
