"""Expressions at rest in flat arrays: rows from triplets, expansion by weights, merging, checks, records."""

import numpy as np
import pytest
from support import LAYOUTS, blank, call, f64, i32, i64, kinds, layout, placed

LENGTHS = i64([2, 0, 5, 1, 0, 3, 2])  # terms of each row of the random expression
N, NNZ, VARIABLES = len(LENGTHS), LENGTHS.sum(), 9


@pytest.fixture(params=LAYOUTS)
def stored(request):
    """A random dense expression as a dict of its fields. Small integers throughout, so that all products are exact."""
    rng = np.random.default_rng(4)
    fields = {"ptrb": np.r_[0, np.cumsum(LENGTHS)], "subj": rng.integers(1, VARIABLES, NNZ)}
    fields |= {"cof": f64(rng.integers(-9, 9, NNZ)), "bfix": f64(rng.integers(-9, 9, N))}
    return {name: layout(field, request.param) for name, field in fields.items()}


def empty(kind, **sizes):
    """Fields to fill, two slots longer than what is to be written, which then have to hold -7 still."""
    return {name: blank(n + 2, kind, f64 if name in ("ecof", "ebfix", "cof") else i64) for name, n in sizes.items()}


def dense_rows(size, inst, ptrb, subj, cof, bfix=None):
    """The coefficients by flat position and variable; the constant stands in column 0."""
    dense = np.zeros((size, VARIABLES))
    for r, position in enumerate(inst):
        np.add.at(dense[position], subj[ptrb[r] : ptrb[r + 1]], cof[ptrb[r] : ptrb[r + 1]])
        dense[position, 0] += 0 if bfix is None else bfix[r]
    return dense


def test_rows_from_triplets_keep_the_order_of_their_terms():
    rng = np.random.default_rng(0)
    rows, variables = rng.integers(0, 8, 50), rng.integers(0, 2**40, 50)
    ptrb, subj, longer = np.zeros(9, np.int64), blank(52, make=i64), i32(np.r_[rows, 99])
    call(600, ii=longer, n=50, ptrb=ptrb)
    call(601, ptrb=ptrb, n=8)
    ends = ptrb.copy()
    call(602, idxs=variables, ii=longer, n=50, ptrb=ptrb, subj=subj)
    call(603, ptrb=ptrb, n=8)
    ptrb[0] = 0
    assert np.array_equal(ptrb, np.r_[0, np.cumsum(np.bincount(rows, minlength=8))]) and np.array_equal(ptrb, ends)
    assert np.array_equal(subj, placed(52, 0, variables[np.argsort(rows, kind="stable")]))


@kinds
@pytest.mark.parametrize("weights", (0, 1, 4))
def test_expansion_by_weights(stored, weights, kind):
    """At once, in pieces and in place: all are the Kronecker product with the weights as a column."""
    rng = np.random.default_rng(weights)
    d, rows, terms = 6, N * weights, NNZ * weights
    a, sub = f64(rng.integers(1, 9, weights)), np.sort(rng.choice(d, weights, replace=False)).astype(np.int32)
    weight = np.zeros((d, 1))
    weight[sub, 0] = a
    whole = empty(kind, einst=rows, eptrb=rows + 1, esubj=terms, ecof=terms, ebfix=rows)
    whole["eptrb"][0] = 0
    call(589, a=a, d=d, sub=sub, **stored, **whole)
    assert all((field[-2:] == -7).all() for field in whole.values())
    inst, ptrb, subj, cof, bfix = (field[:-2] for field in whole.values())
    source = dense_rows(N, range(N), *stored.values())
    assert np.array_equal(dense_rows(N * d, inst, ptrb, subj, cof, bfix), np.kron(source, weight))
    assert (np.diff(inst) > 0).all()

    # The pieces: rows behind two that are there already with 11 terms, constants, and coefficients by one weight.
    einst, eptrb, ebfix = blank(rows + 3, make=i64), i64([0, 4, 11] + [-7] * (rows + 1)), blank(rows + 1, make=f64)
    assert call(591, n=N, einst=einst, eptrb=eptrb, d=d, k=2, ptrb=stored["ptrb"], sub=sub) == rows + 2
    call(592, a=a, bfix=stored["bfix"], ebfix=ebfix)
    assert np.array_equal(einst, placed(rows + 3, 2, inst)) and np.array_equal(ebfix, placed(rows + 1, 0, bfix))
    assert np.array_equal(eptrb, np.r_[0, 4, 11 + ptrb, -7])
    for c in range(weights):
        call(590, a=a, cof=stored["cof"], ecof=(ecof := blank(NNZ + 2, make=f64)), c=c, n=NNZ, base=1)
        assert np.array_equal(ecof, placed(NNZ + 2, 1, stored["cof"] * a[c]))

    # In place: rows at every third position and rows at their own number.
    for flag, m, positions in ((True, 3 * d, 3 * np.arange(N)), (False, d, np.arange(N))) if weights else ():
        field = empty(kind, inst=rows, ptrb=rows + 1, subj=terms, cof=terms)
        field["ptrb"][: N + 1], field["subj"][:NNZ], field["cof"][:NNZ] = (stored[f] for f in ("ptrb", "subj", "cof"))
        field["inst"][:N] = positions if flag else -9
        call(593, a=a, n=N, sub=sub, flag=flag, m=m, **field)
        result = {"inst": np.add.outer(positions * m, sub).ravel(), "ptrb": ptrb, "subj": subj, "cof": cof}
        assert all(np.array_equal(field[f], np.r_[result[f], -7, -7]) for f in field)


def test_expansion_of_positions_in_full_width():
    inst, einst = i64([2**33]), i64([0] * 3)
    call(593, a=f64([1]), n=1, inst=inst, ptrb=i64([0, 0]), sub=i32([5]), flag=True, m=2**28)
    call(591, n=3, einst=einst, eptrb=i64([0] * 4), d=2**31 - 1, ptrb=i64([0] * 4), sub=i32([7]))
    assert inst.tolist() == [2**61 + 5] and einst.tolist() == [7, 2**31 + 6, 2**32 + 5]


@kinds
@pytest.mark.parametrize("values", (range(10), range(2), [3]), ids=("few repeats", "many repeats", "one position"))
def test_merging_adds_repeats_in_input_order(kind, values):
    rng = np.random.default_rng(2)
    position, value = rng.choice(values, 40), rng.normal(size=40) * 10.0 ** rng.integers(-9, 9, 40)
    perm = np.argsort(position, kind="stable")
    distinct, first = np.unique(position, return_index=True)
    sums = [sum(value[position == p][1:], start=value[i]) for p, i in zip(distinct, first)]
    in_order, through = {"inst_": layout(position[perm], kind)}, {"inst_": layout(position, kind), "perm": perm}
    assert call(620, flag=True, **in_order) is True
    for measure, write, source in (621, 622, in_order), (628, 629, in_order), (623, 624, through), (630, 631, through):
        assert call(measure, init=3, **source) == 2 + len(distinct)
        inst, cof = blank(42, make=i64), blank(42, make=f64)
        inst[1], cof[1] = distinct[0], value[first[0]]
        cof_ = layout(value[perm] if source is in_order else value, kind)
        assert call(write, cof=cof, cof_=cof_, inst=inst, count=1, **source) == len(distinct)
        assert np.array_equal(inst, placed(42, 1, distinct)) and np.array_equal(cof, placed(42, 1, sums))
        one = {name: array[:1] for name, array in source.items()}
        assert call(write, count=4, **one) == 4  # entry 0 is the caller's: nothing is written


@pytest.mark.parametrize(
    "inst, size, flags",
    [
        ([], 0, (True, True, True)),
        ([0, 3, 9], 10, (True, True, True)),
        ([-1, 3, 9], 10, (False, True, True)),
        ([0, 3, 10], 10, (True, False, True)),
        ([0, 3, 3], 10, (True, True, False)),
        ([0, 40, 9], 10, (True, True, False)),  # 575 holds only the ends against the range
    ],
)
def test_check_of_positions(inst, size, flags):
    longer, n = i64(inst + [-99]), len(inst)
    assert call(575, inst=longer, n=n, flag=True, flag2=True, flag3=True, size=size) == flags
    assert call(575, inst=longer, n=n, flag3=True, size=size) == (False, False, flags[2])
    assert call(611, inst=i64(inst), flag=True, size=size) is all(flags)
    assert call(611, inst=i64(inst), flag=False, size=size) is False
    outside = any(not 0 <= p < size for p in inst)
    assert call(626, flag=False, inst_=longer, n=n, size=size) is outside
    assert call(626, flag=True, inst_=longer, n=n, size=size) is True


def test_other_checks():
    for entries, in_order in ([5], True), ([0, 0, 3, 3], True), ([0, 4, 3], False), ([2, 1, 3], False):
        assert call(620, inst_=i64(entries), flag=True) is in_order
        assert call(612, n=len(entries) - 1, ptrb=i64(entries + [-99]), flag=True) is in_order
        assert call(620, inst_=i64(entries), flag=False) is call(612, n=0, ptrb=i64([0]), flag=False) is False
    for constants, zero in ([], True), ([0.0, -0.0], True), ([0.0, 1e-320], False), ([np.nan, 0.0], False):
        assert call(608, bfix=f64(constants + [1]), n=len(constants), flag=True) is zero
        assert call(608, bfix=f64(constants), n=len(constants), flag=False) is False


@kinds
@pytest.mark.parametrize("n", (1, 15, 16, 17, 33))
def test_a_fault_is_found_wherever_it_stands(kind, n):
    rng = np.random.default_rng(n)
    positions, zeros = layout(rng.integers(0, 9, n), kind), layout(rng.choice([0.0, -0.0], n), kind)
    assert call(626, inst_=positions, n=n, size=9) is False and call(608, bfix=zeros, n=n, flag=True) is True
    for size in (0, -5, -(2**63)):
        assert call(626, inst_=positions, n=n, size=size) is True
    for k in range(n):
        for position, constant in (-1, np.nan), (9, -5e-324), (-(2**63), np.inf), (2**63 - 1, 2.0):
            good, positions[k], zeros[k] = positions[k], position, constant
            assert call(626, inst_=positions, n=n, size=9) is True and call(608, bfix=zeros, n=n, flag=True) is False
            positions[k], zeros[k] = good, 0.0


@kinds
@pytest.mark.parametrize("constants", (0, 1))
def test_pushed_record(stored, constants, kind):
    stacks = {name: blank(30, kind, make) for name, make in (("i32", i32), ("i64", i64), ("f64", f64))}
    bfix, ptrb, fields = stored["bfix"] if constants else None, stored["ptrb"], [stored[f] for f in ("subj", "cof")]
    source = {"bfix": bfix, "ptrb": ptrb, "subj": fields[0], "cof_v": fields[1], "shape": i32([1, 7, 9])}
    call(609, nd=2, nelem=N, ptr=4, shapepos=1, nidxs=5, cof=3, flag=not constants, **source, **stacks)
    ptr = i32(np.r_[0, np.cumsum(LENGTHS + constants)])
    assert np.array_equal(stacks["i32"], placed(30, 1, np.r_[i32([1, 7, -7]), ptr]))
    terms = [stacks[name][start : start + ptr[N]] for name, start in (("i64", 5), ("f64", 3))]
    assert np.array_equal(stacks["i64"], placed(30, 5, terms[0]))
    assert np.array_equal(stacks["f64"], placed(30, 3, terms[1]))
    assert np.array_equal(dense_rows(N, range(N), ptr, *terms), dense_rows(N, range(N), ptrb, *fields, bfix))
    assert not constants or not terms[0][ptr[1:] - 1].any()  # the last term of each row, also where it is 0


def test_pushed_row_whose_ends_are_swapped_has_its_constant_only():
    stacks = {"i32": blank(4), "i64": blank(8, make=i64), "f64": blank(8, make=f64)}
    call(609, stacks, subj=i64([5, 6]), cof_v=f64([1, 2]), bfix=f64([3, 4, 8]), ptrb=i64([0, 2, 1, 2]), nelem=3)
    assert stacks["i32"].tolist() == [0, 3, 4, 6] and stacks["f64"].tolist() == [1, 2, 3, 4, 2, 8, -7, -7]


def test_pushed_plain_variable():
    stack32, stackf, positions = blank(8), blank(9, make=f64), blank(3, make=i64)
    call(574, cofbase=2, n=4, m=3, ptrbase=1, rf64=stackf, ri32=stack32)
    assert stack32.tolist() == [-7, 0, 1, 2, 3, 4, -7, -7] and np.array_equal(stackf, placed(9, 2, [1.0] * 3))
    for n, slot in (0, -7), (-2, -7), (5, 4):
        call(614, i64=positions, n=n, top=1)
        assert positions.tolist() == [-7, slot, -7]


def test_axes_are_moved_to_the_end():
    for moved in [], [0], [5], [1, 2], [0, 3, 5], [0, 1, 2, 3, 4, 5]:
        perm = blank(8)
        i, k = call(581, dims=i32(moved), perm=perm)
        i, k = call(582, k=k, i=i, stop=6, perm=perm)
        assert call(583, dims=i32(moved), k=k, perm=perm) == 6
        assert np.array_equal(perm, placed(8, 0, i32([d for d in range(6) if d not in moved] + moved)))
    # Every entry takes i one further, also one that i has passed; nothing is listed for it.
    assert call(581, dims=i32([2, 0, 4]), i=1, k=3, perm=(perm := blank(6))) == (5, 4)
    assert perm.tolist() == [-7, -7, -7, 1, -7, -7]


def test_scaled_values():
    values = f64([1, -0.0, np.inf, 5])
    for number, new, source in (615, "new_uval", "uval"), (616, "new_vval", "vval"):
        scaled = blank(4, make=f64)
        call(number, **{new: scaled, source: values}, scale=-2.0, n=3)
        assert scaled.tobytes() == f64([-2, 0.0, -np.inf, -7]).tobytes() and values[0] == 1
