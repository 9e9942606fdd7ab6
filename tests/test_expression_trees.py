"""Random trees of the example host layer's operators, several deep, against NumPy on dense arrays of linear forms.

Trees are grown from the root down: an operator that gives the wanted shape chooses the shapes of its operands. Numbers
are small integers and halves of them, so that every comparison is exact.
"""

import sys
from collections import Counter

import numpy as np
import pytest

from records import FIELDS, VARIABLES, Record, evaluate, random_record
from support import ROOT, f64, i32, i64

sys.path.insert(0, str(ROOT / "examples"))
from host import axis_pairs, operators, products, structure, sums  # noqa: E402
from host.stacks import Stacks  # noqa: E402


def read(s):
    """The last record on w, its tables in order."""
    e, w = s.records[-1], s.w
    ends = {"shape": e.nd, "sp": e.nelem, "ptr": e.nelem + 1, "nidxs": e.nnz, "cof": e.nnz,
            "codeptr": e.nnz + 1, "code": e.ncodeatom, "cconst": e.ncodeatom}  # fmt: skip
    fields = {name: getattr(w, FIELDS[name])[getattr(e, name) :][:count].copy() for name, count in ends.items()}
    for table, end in [("ptr", e.nnz)] + [("codeptr", e.ncodeatom)] * bool(e.ncodeatom):
        assert fields[table][0] == 0 and fields[table][-1] == end and np.all(np.diff(fields[table]) >= 0)
    assert not e.hassp or np.all(np.diff(fields["sp"]) > 0)
    assert e.hassp or e.nelem == np.prod(w.extents(e), dtype=int)
    absent = [] if e.hassp else ["sp"]
    absent += [] if e.ncodeatom else ["codeptr", "code", "cconst"]
    return Record(**{**fields, **dict.fromkeys(absent)})


def push(s, record):
    """Pushes a record; its meaning."""
    at = s.r.reserve_record(len(record.shape), record.nelem, record.nnz, record.ncodeatom, record.hassp)
    for name, values in vars(record).items():
        if values is not None:
            getattr(s.r, FIELDS[name])[getattr(at, name) :][: len(values)] = values
    s.finish(0, at)
    return evaluate(record)


def integers(rng, shape=()):
    return rng.integers(-3, 4, shape).astype(float)


def random_matrix(rng, rows, cols):
    """A sparse matrix, with stored zeros among its entries, and the same as an array."""
    subi, subj = np.nonzero(rng.random((rows, cols)) < 0.6)
    dense = np.zeros((rows, cols))
    dense[subi, subj] = integers(rng, len(subi))
    return operators.SparseMatrix(rows, cols, i32(subi), i32(subj), dense[subi, subj]), dense


def extent(rng):
    return int(rng.integers(1, 5))


def any_shape(rng, most=3):
    return tuple(extent(rng) for _ in range(rng.integers(1, most + 1)))


def leaf(rng, s, shape):
    size = int(np.prod(shape))
    sp = np.flatnonzero(rng.random(size) < 0.6) if rng.random() < 0.5 else None
    stored = np.arange(size) if sp is None else sp
    kind = rng.integers(4)
    if kind > 1:
        return push(s, random_record(rng, shape, sp is not None, code=kind == 2))
    forms = np.zeros((size, VARIABLES))
    if kind:
        nidxs = rng.integers(1, VARIABLES, len(stored))
        forms[stored, nidxs] = 1
        operators.variable(s, shape, nidxs, sp)
    else:
        forms[stored, 0] = integers(rng, len(stored))
        operators.constant(s, shape, forms[stored, 0], sp)
    return forms.reshape(*shape, VARIABLES)


# Each way of growing takes (rng, s, shape, grow), evaluates operands by grow(shape) and the operator on s, and returns
# the expected linear forms; or None at once if it cannot give that shape.


def add(rng, s, shape, grow):
    a, b = grow(shape), grow(shape)
    c1, c2 = integers(rng, 2)
    operators.add(s, c1, c2)
    return c1 * a + c2 * b


def weighted_sum(rng, s, shape, grow):
    weights = integers(rng, extent(rng))
    forms = [grow(shape) for _ in weights]
    sums.weighted_sum(s, weights)
    return np.tensordot(weights, forms, 1)


def scale(rng, s, shape, grow):
    c, forms = integers(rng), grow(shape)
    products.scale(s, c)
    return c * forms


def scale_elements(rng, s, shape, grow):
    values = integers(rng, shape)
    forms = grow(shape)
    sp = np.flatnonzero(rng.random(values.size) < 0.6)
    if rng.random() < 0.5:
        products.scale_elements(s, values)
    else:
        products.scale_elements(s, values.reshape(-1)[sp], sp)
        values.reshape(-1)[np.setdiff1d(np.arange(values.size), sp)] = 0
    return values[..., None] * forms


def merge_terms(rng, s, shape, grow):
    forms = grow(shape)
    record = read(s)
    sums.merge_terms(s)
    ptr, nidxs = (getattr(read(s), field) for field in ("ptr", "nidxs"))
    assert all(np.all(np.diff(nidxs[b:e]) > 0) for b, e in zip(ptr, ptr[1:])) and len(nidxs) <= record.nnz
    return forms


def stack(rng, s, shape, grow):
    if not shape:
        return None
    axis = int(rng.integers(len(shape)))
    if axis == len(shape) - 1 and shape[-1] and rng.random() < 0.5:
        forms = [grow(shape[:-1]) for _ in range(shape[-1])]
        structure.stack(s, len(forms), axis)
        return np.stack(forms, axis)
    cuts = np.sort(rng.integers(0, shape[axis] + 1, rng.integers(3)))
    forms = [grow((*shape[:axis], int(d), *shape[axis + 1 :])) for d in np.diff(np.r_[0, cuts, shape[axis]])]
    structure.stack(s, len(forms), axis)
    return np.concatenate(forms, axis)


def repeat(rng, s, shape, grow):
    if not shape:
        return None
    axis = int(rng.integers(len(shape)))
    count = int(rng.choice([n for n in range(1, 5) if shape[axis] % n == 0]))
    forms = grow((*shape[:axis], shape[axis] // count, *shape[axis + 1 :]))
    structure.repeat(s, count, axis)
    return np.concatenate([forms] * count, axis)


def permute(rng, s, shape, grow):
    axes = rng.permutation(len(shape))
    forms = grow(tuple(shape[k] for k in np.argsort(axes)))
    structure.permute(s, axes.tolist())
    return forms.transpose(*axes, len(shape))


def transpose(rng, s, shape, grow):
    if len(shape) != 2:
        return None
    forms = grow(shape[::-1])
    operators.transpose(s)
    return forms.swapaxes(0, 1)


def sum_axis(rng, s, shape, grow):
    if len(shape) == 3:
        return None
    axis = int(rng.integers(len(shape) + 1))
    forms = grow((*shape[:axis], extent(rng), *shape[axis:]))
    sums.sum_axis(s, axis)
    return forms.sum(axis)


def sum_blocks(rng, s, shape, grow):
    if len(shape) == 3:
        return None
    block = any_shape(rng, 3 - len(shape))
    forms = grow(shape + block)
    operators.sum_blocks(s, len(block))
    return forms.sum(tuple(range(len(shape), len(shape) + len(block))))


def pick(rng, s, shape, grow):
    if len(shape) != 1:
        return None
    forms = grow(any_shape(rng)).reshape(-1, VARIABLES)
    indices = rng.integers(0, len(forms), shape)
    operators.pick(s, indices)
    return forms[indices]


def weighted_pick(rng, s, shape, grow):
    if shape:
        return None
    forms = grow(any_shape(rng)).reshape(-1, VARIABLES)
    indices = np.flatnonzero(rng.random(len(forms)) < 0.6)
    weights = integers(rng, len(indices))
    products.weighted_pick(s, indices, weights)
    return weights @ forms[indices]


def slice_box(rng, s, shape, grow):
    if not shape:
        return None
    first, behind = rng.integers(0, 2, (2, len(shape)))
    last = first + shape
    forms = grow(tuple((last + behind).tolist()))
    operators.slice_box(s, first.tolist(), last.tolist())
    return forms[tuple(slice(f, l) for f, l in zip(first, last))]


def multiply(rng, s, shape, grow):
    if len(shape) not in (1, 2):
        return None
    sparse, dense = random_matrix(rng, shape[0], extent(rng))
    forms = grow((dense.shape[1], *shape[1:]))
    operators.multiply(s, sparse if rng.random() < 0.7 else dense)
    return np.tensordot(dense, forms, 1)


def scale_matrix(rng, s, shape, grow):
    if len(shape) != 2:
        return None
    sparse, dense = random_matrix(rng, *shape)
    form = weighted_pick(rng, s, (), grow)
    operators.scale_matrix(s, sparse)
    return dense[..., None] * form


def diagonal_right(rng, s, shape, grow):
    if len(shape) != 1:
        return None
    sparse, dense = random_matrix(rng, extent(rng), shape[0])
    forms = grow(dense.shape[::-1])
    products.diagonal_right(s, sparse)
    return np.einsum("jiv,ij->jv", forms, dense)


def diagonal_left(rng, s, shape, grow):
    if len(shape) != 1:
        return None
    sparse, dense = random_matrix(rng, shape[0], extent(rng))
    forms = grow(dense.shape[::-1])
    products.diagonal_left(s, sparse)
    return np.einsum("ij,jiv->iv", dense, forms)


def sides(rng, shape):
    """Two axes of one extent, at random, or None."""
    pairs = [(a, b) for b in range(len(shape)) for a in range(b) if shape[a] == shape[b]]
    return pairs[rng.integers(len(pairs))] if pairs else None


def triangle(rng, s, shape, grow):
    pair = sides(rng, shape)
    if pair is None:
        return None
    forms, upper = grow(shape), rng.random() < 0.5
    axis_pairs.triangle(s, *pair, upper)
    i, j = (np.indices(shape)[axis] for axis in pair)
    return forms * (i <= j if upper else i >= j)[..., None]


def scale_off_diagonal(rng, s, shape, grow):
    pair = sides(rng, shape)
    if pair is None:
        return None
    forms, factor = grow(shape), integers(rng)
    axis_pairs.scale_off_diagonal(s, *pair, factor)
    i, j = (np.indices(shape)[axis] for axis in pair)
    return forms * np.where(i == j, 1, factor)[..., None]


def symmetrise(rng, s, shape, grow):
    pair = sides(rng, shape)
    if pair is None:
        return None
    forms = grow(shape)
    axis_pairs.symmetrise(s, *pair)
    return (forms + forms.swapaxes(*pair)) / 2


WAYS = [add, weighted_sum, scale, scale_elements, merge_terms, stack, repeat, permute, transpose, sum_axis, sum_blocks,
        pick, weighted_pick, slice_box, multiply, scale_matrix, diagonal_right, diagonal_left, triangle,
        scale_off_diagonal, symmetrise]  # fmt: skip


def grow_tree(rng, s, shape, depth, used):
    """Evaluates a random tree of this shape on s, and compares every element after every operator; the linear forms."""
    count = len(s.records)
    way, forms = leaf, None
    while depth and forms is None:
        way = WAYS[rng.integers(len(WAYS))]
        forms = way(rng, s, shape, lambda shape: grow_tree(rng, s, shape, depth - 1, used))
    if way is leaf:
        forms = leaf(rng, s, shape)
    e = s.records[-1]
    used[way, e.hassp, e.ncodeatom > 0] += 1
    assert s.w.extents(e) == shape and len(s.records) == count + 1, way
    np.testing.assert_array_equal(evaluate(read(s)), forms, err_msg=f"{way.__name__} of shape {shape}")
    return forms


def test_random_trees():
    used = Counter()
    for seed in range(400):
        rng = np.random.default_rng(seed)
        grow_tree(rng, Stacks(), any_shape(rng), 1 + seed % 5, used)
    for way in WAYS:  # none is left out, for results with and without code
        assert used[way, True, True] + used[way, False, True] and used[way, True, False] + used[way, False, False], way


def test_wrong_arguments_are_refused_and_change_nothing():
    s, rng = Stacks(), np.random.default_rng(1)
    push(s, random_record(rng, (2, 3), sparse=True))
    forms = push(s, random_record(rng, (2, 3, 2), code=True))
    matrix, _ = random_matrix(rng, 2, 3)
    for call in [
        lambda: structure.stack(s, 0),
        lambda: structure.stack(s, 1, 4),
        lambda: structure.stack(s, 1, -1),
        lambda: structure.stack(s, 2, 1),
        lambda: structure.stack(s, 3),
        lambda: structure.repeat(s, 0),
        lambda: structure.repeat(s, 2, 3),
        lambda: structure.permute(s, (0, 1)),
        lambda: structure.permute(s, (0, 1, 1)),
        lambda: sums.sum_axis(s, 3),
        lambda: sums.weighted_sum(s, []),
        lambda: sums.weighted_sum(s, [1.0, 1.0]),
        lambda: products.scale_elements(s, np.ones(11)),
        lambda: products.scale_elements(s, np.ones(1), i64([12])),
        lambda: products.weighted_pick(s, i64([12]), f64([1])),
        lambda: products.weighted_pick(s, i64([1, 1]), f64([1, 1])),
        lambda: products.weighted_pick(s, i64([1]), f64([1, 1])),
        lambda: products.diagonal_right(s, matrix),
        lambda: products.diagonal_left(s, matrix),
        lambda: axis_pairs.triangle(s, 0, 1),
        lambda: axis_pairs.scale_off_diagonal(s, 2, 0, 1.0),
        lambda: axis_pairs.symmetrise(s, 1, 3),
    ]:
        with pytest.raises(ValueError):
            call()
        assert len(s.records) == 2
        np.testing.assert_array_equal(evaluate(read(s)), forms)
