"""Views of variables, held against NumPy: slices, picks, permutations, repetitions, triangles, stacks and records."""

import numpy as np
import pytest
from support import UNTOUCHED, blank, call, f64, i32, i64, kinds, layout, placed, row_major

RNG = np.random.default_rng(71)


def numbers(shape, density=1.0):
    """An array of distinct flat numbers, 0 where nothing is stored."""
    return (RNG.permutation(np.prod(shape)) + 2**33).reshape(shape) * (RNG.random(shape) < density)


def view(array, kind):
    """The pattern and the numbers of the stored elements of an array."""
    sp = np.flatnonzero(array)
    return layout(i64(sp), kind), layout(i64(array.ravel()[sp]), kind)


def assert_written(target, start, values):
    assert np.array_equal(target, placed(len(target), start, i64(values)))


@kinds
@pytest.mark.parametrize("first, last", (((2,), (7,)), ((1, 1, 2), (3, 3, 4)), ((0, 0, 1, 0), (2, 1, 2, 2))))
def test_box(kind, first, last):
    shape, nd = np.add(last, (2, 0, 1, 0)[: len(last)]), len(last)
    box = tuple(map(slice, first, last))
    dense, sparse = numbers(shape), numbers(shape, 0.6)
    table = {"nd": nd, "first": layout(i32(first), kind), "last": layout(i32(last), kind)}
    extents, strides = layout(i32(shape), kind), layout(i64(row_major(shape)), kind)
    base, part = layout(dense.ravel(), kind), dense[box].ravel()
    for n in (len(part), len(part) - 1):
        by_shape, by_strides = blank(len(part) + 1, kind, i64), blank(len(part) + 1, kind, i64)
        call(187, table, basevar_nativeidxs=base, n=n, idxs=by_shape, shape=extents)
        call(170, table, basevar_nativeidxs=base, n=n, residxs=by_strides, strides=strides)
        assert_written(by_shape, 0, part[:n])
        assert_written(by_strides, 0, part[:n])

    sparsity, base = view(sparse, kind)
    wanted = np.flatnonzero(sparse[box])
    keys = [blank(nd + 1, kind) for _ in range(2)]
    idxs, sp = blank(len(wanted) + 2, kind, i64), blank(len(wanted) + 2, kind, i64)
    table |= {"c": 1, "shape": extents, "sparsity": sparsity}
    assert call(185, table, key=keys[0]) == 1 + len(wanted)
    result = {"sliceshape": layout(i32(np.subtract(last, first)), kind), "idxs": idxs, "sp": sp}
    assert call(186, table, result, basevar_nativeidxs=base, key=keys[1]) == 1 + len(wanted)
    assert_written(sp, 1, wanted)
    assert_written(idxs, 1, sparse[box].ravel()[wanted])
    for key in keys:  # the last element's coordinates stay
        assert tuple(key) == (*np.unravel_index(sparsity[-1], shape), UNTOUCHED)


def test_walks_of_a_box_take_a_step_on_every_axis():
    """A box without extent still gives an element a row, and a walk past its end goes on along axis 0."""
    array, target = np.arange(60).reshape(5, 3, 4), blank(6, make=i64)
    table = {"basevar_nativeidxs": array.ravel(), "nd": 3, "shape": i32(array.shape), "idxs": target, "n": 5}
    call(187, table, first=i32([1, 1, 2]), last=i32([2, 3, 1]))
    assert_written(target, 0, [array[1, 1, 2], array[1, 2, 2], array[2, 1, 2], array[2, 2, 2], array[3, 1, 2]])


@kinds
def test_steps_and_picks(kind):
    array = numbers((4, 5, 6))
    base, strides = layout(array.ravel(), kind), layout(i64(row_major(array.shape)), kind)
    step = layout(i32([1, -1, 2]), kind)
    first = call(181, firstidx=layout(i32([0, 4, 1]), kind), acc=0, step=step, strides=strides)
    residxs, idxs, midxs = blank(4, kind, i64), blank(8, kind, i64), layout(i32([[UNTOUCHED] * 3] * 8), kind)
    call(183, basevar_nativeidxs=base, n=3, residxs=residxs, first=first, step=call(182, step=step, strides=strides))
    assert_written(residxs, 0, [array[0, 4, 1], array[1, 3, 3], array[2, 2, 5]])
    picks = [RNG.integers(0, extent, 7) for extent in array.shape]
    call(172, {f"i{d}": layout(i32(picks[d]), kind) for d in range(3)}, midxs=midxs)
    call(176, basevar_nativeidxs=base, idxs=idxs, midxs=midxs[:7], nd=3, strides=strides)
    assert_written(idxs, 0, array[tuple(picks)])
    call(173, i0=layout(i32([70, 80]), kind), i1=layout(i32([71, 81, 91]), kind), midxs=midxs)
    call(171, index=layout(i32([72, 73]), kind), midx=midxs)
    assert midxs[:, 0].tolist() == [72, 80, *picks[0][2:], UNTOUCHED]
    assert midxs[:, 1].tolist() == [73, 81, *picks[1][2:], UNTOUCHED]


@kinds
@pytest.mark.parametrize("shape", ((3, 5), (17, 2), (8, 8)))
def test_permute(kind, shape):
    matrix = numbers(shape)
    n, native, perm = matrix.size, layout(matrix.ravel(), kind), layout(RNG.permutation(matrix.size), kind)
    rnidxs, rsp, transposed = (blank(n + 1, kind, i64) for _ in range(3))
    call(165, n=n, nidxs=native, perm=perm, rnidxs=rnidxs)
    call(166, n=n, sp=native, perm=perm, rsp=rsp)
    call(168, d1=shape[0], d2=shape[1], nativeidxs=native, residxs=transposed)
    for target, wanted in ((rnidxs, native[perm]), (rsp, native[perm]), (transposed, matrix.T.ravel())):
        assert_written(target, 0, wanted)


@pytest.mark.parametrize("nd", (0, 1, 3))
def test_permuted_positions_come_from_the_element_number(nd):
    """Every element lands on position 0: its number selects one axis, and is 0 in the last digit."""
    table = {"nd": nd, "n": nd, "perm": i32(range(nd))[::-1], "pstrides": i64([5] * nd), "shape": i32([4, 1, 2][:nd])}
    if nd == 0:  # without axes the number of elements is free, and nothing is read
        table = {"nd": 0, "n": 3}
    residxs, ressp = blank(4, make=i64), blank(4, make=i64)
    call(208, table, nativeidxs=i64([11, 12, 13]), residxs=residxs)
    call(209, table, ressp=ressp)
    assert_written(residxs, 0, [10 + table["n"]])
    assert_written(ressp, 0, [0] * table["n"])


@kinds
@pytest.mark.parametrize("reps", (0, 1, 3, 20))
@pytest.mark.parametrize("axis", (0, 1, 2))
def test_repeat(kind, reps, axis):
    dense, sparse = numbers((2, 3, 4)), numbers((2, 3, 4), 0.5)
    p, q = dense.shape[axis], int(np.prod(dense.shape[axis + 1 :]))
    times = [reps if d == axis else 1 for d in range(3)]
    target = blank(reps * 24 + 2, kind, i64)
    table = {"pos": 1, "reps": reps, "tnativeidxs": layout(dense.ravel(), kind), "rnativeidxs": target}
    assert call(224, table, m=p * q, n=24 // (p * q)) == reps * 24 + 1
    assert_written(target, 1, np.tile(dense, times).ravel())

    result = np.tile(sparse, times)
    sparsity, native = view(sparse, kind)
    end = 1 + len(native) * reps
    rsp, rnativeidxs = blank(end + 1, kind, i64), blank(end + 1, kind, i64)
    table = {"pos": 1, "n": len(native), "rsp": rsp, "rnativeidxs": rnativeidxs, "tsp": sparsity, "tnativeidxs": native}
    assert call(216, table, p=p, q=q, reps=reps, u=p * q * reps, v=p * q, w=q) == end
    # The repetitions of an element follow each other, so that positions don't ascend.
    assert_written(rnativeidxs, 1, np.repeat(native, reps))
    assert np.array_equal(np.sort(rsp[1:end]), np.flatnonzero(result)) and rsp[0] == rsp[end] == UNTOUCHED
    assert np.array_equal(result.ravel()[rsp[1:end]], rnativeidxs[1:end])
    if axis == 0:
        assert call(214, table, step=24, reps=reps) == end
        assert_written(rsp, 1, np.flatnonzero(result))
        assert_written(rnativeidxs, 1, [*native] * reps)
    if axis == 2:
        assert call(215, table, m=reps) == end
        assert_written(rsp, 1, np.flatnonzero(np.repeat(sparse, reps)))
        assert_written(rnativeidxs, 1, np.repeat(native, reps))


def test_repetitions_by_any_distances():
    """What 216 takes for its strides need not be those of one shape."""
    p, q, u, tsp = 3, 4, 1000, RNG.integers(0, 500, 30)
    for v, w in ((12, 4), (12, 2), (7, 4), (5, 6)):
        table = {"p": p, "q": q, "u": u, "v": v, "w": w, "n": 30, "reps": 2, "tsp": tsp, "tnativeidxs": tsp}
        assert call(216, table, rsp=(rsp := blank(60, make=i64)), rnativeidxs=blank(60, make=i64)) == 60
        first = tsp // w % p * q + tsp // v * u + tsp % q
        assert np.array_equal(rsp, (first[:, None] + [0, p * q]).ravel())


@kinds
@pytest.mark.parametrize("dim", ((1, 4, 1, 4, 1), (2, 3, 2, 3, 4), (3, 1, 2, 1, 1), (0, 2, 1, 2, 1), (1, 40, 1, 40, 1)))
def test_triangles(kind, dim):
    array, rank = numbers(dim), np.arange(dim[1])
    sparse = array * (RNG.random(dim) < 0.5)
    lower = np.broadcast_to((rank[:, None] >= rank)[None, :, None, :, None], dim)
    fold = {"dim": layout(i32(dim), kind), "stride": layout(i64(row_major(dim)), kind)}
    n = np.count_nonzero(lower)
    idxs, sp = blank(n + 2, kind, i64), blank(n + 2, kind, i64)
    assert call(151, fold, basevar_nativeidxs=layout(array.ravel(), kind), c=1, idxs=idxs, sp=sp) == n + 1
    assert_written(sp, 1, np.flatnonzero(lower))
    assert_written(idxs, 1, array[lower])

    # The strides may be those of every second element.
    idxs, sp = blank(n, kind, i64), blank(n, kind, i64)
    call(151, dim=fold["dim"], stride=2 * fold["stride"], basevar_nativeidxs=np.repeat(array, 2), idxs=idxs, sp=sp)
    assert_written(sp, 0, 2 * np.flatnonzero(lower))
    assert_written(idxs, 0, array[lower])

    sparsity, base = view(sparse, kind)
    wanted = np.flatnonzero(sparse * lower)
    idxs, sp = blank(n + 2, kind, i64), blank(n + 2, kind, i64)
    table = {"stride": fold["stride"], "basevar_nativeidxs": base, "sparsity": sparsity}
    assert call(159, table, c=1, idxs=idxs, sp=sp) == len(wanted) + 1
    assert_written(sp, 1, wanted)
    assert_written(idxs, 1, sparse.ravel()[wanted])

    symmetric = np.where(lower, array, array.swapaxes(1, 3))
    for number, triangle in ((163, lower), (164, lower.swapaxes(1, 3))):
        packed, residxs = layout(np.r_[UNTOUCHED, symmetric[triangle]], kind), blank(array.size + 1, kind, i64)
        assert call(number, fold, basevar_nativeidxs=packed, k=1, residxs=residxs) == n + 1
        assert_written(residxs, 0, symmetric.ravel())


@pytest.mark.parametrize("stride", [(1, 1, 40, 5, 1), (17, 5, 40, 1, 1), (9, 16, 90, 3, 1), (9, 5, 90, 30, 2)])
@pytest.mark.parametrize("dim", [(2, 3, 2, 3, 1), (2, 3, 2, 3, 3)])
def test_triangles_by_any_strides(dim, stride):
    native = numbers(250)
    for number, side in ((163, np.tril), (164, np.triu)):
        x = np.argwhere(np.broadcast_to(side(np.ones((3, 3)))[None, :, None, :, None], dim))
        flat, mirror = x @ stride, x[:, [0, 3, 2, 1, 4]] @ stride
        fold = {"dim": i32(dim), "stride": i64(stride), "basevar_nativeidxs": native}
        residxs, expected = blank(250, make=i64), blank(250, make=i64)
        assert call(number, fold, residxs=residxs) == len(x)
        for k in range(len(x)):
            expected[flat[k]] = expected[mirror[k]] = native[k]
        assert residxs.tolist() == expected.tolist()
        if side is np.tril:
            idxs, sp = blank(len(x), make=i64), blank(len(x), make=i64)
            assert call(151, fold, idxs=idxs, sp=sp) == len(x)
            assert sp.tolist() == flat.tolist() and idxs.tolist() == native[flat].tolist()


@kinds
def test_expand_and_stack(kind):
    sparse = numbers((3, 4), 0.5).ravel()
    sparsity, base = view(sparse, kind)
    for number, longer in ((194, {"sparsity": np.r_[sparsity, 12]}), (195, {"basevar_nativeidxs": np.r_[base, 99]})):
        idxs = layout(np.r_[np.zeros(12, np.int64), UNTOUCHED], kind)
        call(number, {"basevar_nativeidxs": base, "sparsity": sparsity} | longer, idxs=idxs)
        assert idxs.tolist() == [*sparse, UNTOUCHED]
    nindex, positions, native = blank(18, kind, i64), blank(8, kind, i64), blank(8, kind, i64)
    call(191, n=12, nindex=nindex, pos=2)
    call(192, basevar_nativeidxs=np.r_[base, 99], nindex=nindex, pos=2, sparsity=sparsity)
    call(188, basevar_nativeidxs=native, bpos=1, sparsity=positions, spos=3, thisnidxs=layout(i64([50, 60, 70]), kind))
    appended, copied = blank(18, kind, i64), blank(18, kind, i64)
    call(189, basevar_nativeidxs=base, nindex=appended, pos=2)
    for number in (197, 202, 203):
        call(number, nativeidxs=base, r=copied)
    written = ((nindex, 2, sparse), (appended, 2, base), (copied, 0, base))
    for target, start, values in (*written, (native, 1, [50, 60, 70]), (positions, 3, [0, 1, 2])):
        assert_written(target, start, values)


@kinds
@pytest.mark.parametrize("hassp", (False, True))
@pytest.mark.parametrize("n", (0, 4))
def test_push_view(kind, hassp, n):
    sparsity, base = i64([2, 3, 5, 2**40]), i64([70, 60, 80, 2**33])
    ri32, ri64, rf64 = blank(8, kind), blank(12, kind, i64), blank(7, kind, f64)
    table = {"ri32": ri32, "ri64": ri64, "rf64": rf64, "basevar_nativeidxs": base, "sparsity": sparsity}
    call(146, table, cofpos=2, hassp=hassp, nidxspos=1, n=n, ptrpos=2, sppos=7)
    assert np.array_equal(ri32, placed(8, 2, i32(range(n + 1))))
    assert np.array_equal(rf64, placed(7, 2, f64([1] * n)))
    wanted = placed(12, 1, base[:n])
    wanted[7 : 7 + n] = sparsity[:n] if hassp else UNTOUCHED
    assert np.array_equal(ri64, wanted)
