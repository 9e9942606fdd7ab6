"""Arrays of arrays: what their kernels compute, how entries are bound, refused and released."""

import ctypes
import itertools
import sys
from pathlib import Path

import numpy as np
import pytest

import recorder
from support import CHECKED, KERNELS, LAYOUTS, call, f64, i32, i64, is_refused, kinds, layout


def table(*entries, kind="contiguous"):
    objects = np.empty(len(entries), dtype=object)
    for k, entry in enumerate(entries):
        objects[k] = entry
    return layout(objects, kind)


def recorded(log, name, *values):
    return recorder.Buffer(log, name, i32(values), "i", 4, (len(values),))


@kinds
@pytest.mark.parametrize("entry_kind", LAYOUTS)
def test_extents_of_shapes_add_up(kind, entry_kind):
    shapes = [layout(i32(shape), entry_kind) for shape in ([2, 3], [4, 5, 6], [7], [2**31 - 1, 8])]
    rshape = i32([9, 10])
    call(231, d=1, n=3, rshape=rshape, shapes=table(*shapes, kind=kind))
    assert rshape.tolist() == [9, 10 + 3 + 5 + 1]
    call(231, d=0, n=2, rshape=rshape, shapes=table(None, *shapes, kind=kind))
    assert rshape.tolist() == [9 + 1 + 2, 19]
    call(445, dim=0, resshape=rshape, shapes=table(*shapes[:3], kind=kind))
    assert rshape.tolist() == [12 + 2 + 4 + 7, 19]


@pytest.mark.parametrize("shapes", [None, table(), recorder.Buffer([], "", None, "O", 8, (0,))])
def test_no_shapes_leave_the_result(shapes):
    rshape = i32([9])
    call(231, d=0, n=0, rshape=rshape, shapes=shapes)
    call(445, dim=0, resshape=rshape, shapes=shapes)
    assert rshape.tolist() == [9]


@kinds
def test_lists_interleave(kind):
    lists = table(i32([1, 2, 3, 4, 5, 6, 7]), layout(i32([-1, -2, -3, -4, -5, -6]), kind), None, kind=kind)
    for nd, rows in ((2, 6), (1, 2), (0, 1), (3, 0)):
        target = layout(i32([99] * 14), kind)
        call(256, con_nativeidxs=target, width=2, nd=nd, nidxlist=lists, resshape=i32([2, 3, 0]))
        assert target.tolist() == [sign * r for r in range(1, rows + 1) for sign in (1, -1)] + [99] * (14 - 2 * rows)


@pytest.mark.parametrize("width, rows", [(1, 5), (2, 5), (3, 5), (1, 40), (2, 1100), (5, 900)])
def test_lists_interleave_element_by_element(width, rows):
    end = 5 + width * rows
    for shared, offset in itertools.product(range(width), [*range(0, end, rows // 4), end]):
        memory, expected = (np.arange(end + rows, dtype=np.int32) for _ in range(2))
        lists = [i32(range(-rows * j, rows - rows * j)) for j in range(width)]
        lists[shared] = expected[offset : offset + rows]
        for k in range(width * rows):
            expected[5 + k] = lists[k % width][k // width]
        lists[shared] = memory[offset : offset + rows]
        call(256, con_nativeidxs=memory[5:end], width=width, nd=1, nidxlist=table(*lists), resshape=i32([rows]))
        assert memory.tolist() == expected.tolist()


def test_a_null_reference_is_none():
    rshape = i32([0])
    call(231, d=0, n=2, rshape=rshape, shapes=recorder.Buffer([], "", bytes(16), "O", 8, (2,)))
    assert rshape.tolist() == [2]


TABLES = [(number, name) for number in KERNELS for name, kind in KERNELS[number].parameters if kind == "i32*"]


@pytest.mark.parametrize("number, name", TABLES)
def test_what_is_no_table_of_i32_arrays_is_refused(number, name):
    for wrong in (f64([1]), i64([1]), i32([[1]]), i32(1), np.uint32([1])):
        with pytest.raises(ValueError) as refusal:
            call(number, **{name: table(None, i32([1]), wrong)})
        assert is_refused(refusal.value, number, f"{name}[2]" if CHECKED else name, "i32")
    for wrong in (i32([1]), np.empty((1, 1), object), np.array(None), (ctypes.py_object * 1)(None)):
        with pytest.raises(ValueError) as refusal:
            call(number, **{name: wrong})
        assert is_refused(refusal.value, number, name, "i32*")
    for wrong in (object(), [None], table(None, object())):
        with pytest.raises(TypeError, match="bytes-like"):
            call(number, **{name: wrong})


@pytest.mark.parametrize("number, name", TABLES)
@pytest.mark.parametrize("fault", [None, "entry of another type", "entry without buffer", "array after the table"])
def test_entries_are_released_before_their_table_in_ascending_order(number, name, fault):
    log = []
    names = [parameter for parameter, kind in KERNELS[number].parameters if kind.startswith("i32")]
    before, after = names[: names.index(name)], names[names.index(name) + 1 :]
    if fault == "array after the table" and not after:
        return
    arrays = {parameter: recorded(log, parameter, 0) for parameter in names}
    taken = ["first", "second", "third"]
    entries = [recorded(log, entry, 1) for entry in taken]
    if fault == "entry of another type":
        entries[1] = recorder.Buffer(log, "second", f64([1]), "d", 8, (1,))
        del taken[2]
    elif fault == "entry without buffer":
        entries[1] = object()
        del taken[1:]
    elif fault:
        arrays[after[0]] = recorder.Buffer(log, after[0], f64([1]), "d", 8, (1,))
        del after[1:]
    if fault and fault.startswith("entry"):
        after = []
    objects = table(*entries)
    arrays[name] = recorder.Buffer(log, name, objects, "O", 8, (len(entries),))

    held = [objects, *arrays.values(), *entries]
    references = [sys.getrefcount(x) for x in held]
    if fault:
        with pytest.raises(TypeError if fault == "entry without buffer" else ValueError):
            call(number, **arrays)
    else:
        call(number, **arrays)
    assert [sys.getrefcount(x) for x in held] == references
    drops = [*reversed(after), *taken, name, *reversed(before)]
    assert log == ["+" + x for x in (*before, name, *taken, *after)] + ["-" + x for x in drops]


def test_what_a_table_was_bound_in_is_freed():
    def pages():
        return int(Path("/proc/self/statm").read_text().split()[1])

    entries, before = table(*[None] * 10**6), pages()
    for _ in range(30):
        call(231, rshape=i32([0]), shapes=entries)
    assert pages() - before < 50_000  # each call takes 7,800 or more
