"""The checked build: an index outside an array ends the kernel with an IndexError that names it, and so does a read-only
array that the kernel writes with a ValueError."""

import numpy as np
import pytest

import recorder
from support import CHECKED, KERNELS, call, f64, i32, i64
from test_array_tables import table

pytestmark = pytest.mark.skipif(not CHECKED, reason="the build is not checked")


def check(number, message, **arguments):
    with pytest.raises(IndexError) as fault:
        call(number, **arguments)
    assert str(fault.value) == f"_c_closure_{number}: {message}"


@pytest.mark.parametrize("number", [454, 459, 466])
def test_the_first_index_outside_is_named(number):
    check(number, "msubi[2] outside 0..2", mnnz=4, msubi=i32([0, 0]), msubj=i32([0, 0, 0, 0]))
    check(number, "msubj[1] outside 0..1", mdimi=1, mnnz=4, msubi=i32([0, 0, 0, 0])[::2], msubj=i32([0]))
    check(number, "msubi[0] outside 0..0", mnnz=1, msubj=i32([0]))


def test_positions_count_from_the_start_of_the_array():
    product = dict(d0=1, d1=1, mnnz=1, msubi=i32([0]), msubj=i32([0]), mval=f64([1]))
    operand = dict(ptr=1, wi32=i32([9, 0, 2]), nidxs=1, wi64=i64([9, 4, 5]), cof=2, wf64=f64([9, 9, 1, 2]))
    result = dict(ri32=i32([0, 0]), ri64=i64([0, 0]), rf64=f64([0, 0]))
    good = product | operand | result
    assert call(472, **good) == (0, 1, 2)
    check(472, "wf64[4] outside 0..4", **good | dict(cof=3))
    check(472, "wf64[-1] outside 0..4", **good | dict(cof=-1))
    check(472, "ri64[2] outside 0..2", **good | dict(rnidxs=1))
    check(472, "ri32[2] outside 0..2", **good | dict(rptr=1))
    check(472, f"wi64[{2**31 - 1}] outside 0..3", **good | dict(nidxs=2**31 - 1))
    check(472, "rf64[0] outside 0..0", **good | dict(rf64=None))


def test_read_only_arrays_are_refused_where_they_are_written():
    carriers = {"i32": bytes(4), "i64": bytes(8), "f64": bytes(8), "i32x2": bytes(4), "f64x2": bytes(8)}
    for number, declared in KERNELS.items():
        for parameter in declared.takes:
            if parameter.kind not in carriers:
                continue
            view = memoryview(carriers[parameter.kind]).cast({"i32": "i", "i64": "q", "f64": "d"}[parameter.kind[:3]])
            view = view.cast("B").cast(view.format, (1, 1)) if "x2" in parameter.kind else view
            refusal = f"Read-only array for argument '{parameter.name}', which is written"
            try:
                call(number, **{parameter.name: view})
                refused = False
            except (ValueError, IndexError) as fault:
                refused = str(fault) == refusal
            assert refused == (not parameter.read_only), (number, parameter.name)


def test_tables_and_their_entries():
    check(445, "shapes[1] outside 0..1", dim=1, resshape=i32([0, 0]), shapes=table(i32([1, 2]), i32([1])))
    check(445, "shapes[0] outside 0..0", resshape=i32([0]), shapes=table(i32([1]), None))
    check(231, "shapes[2] outside 0..2", n=3, rshape=i32([0]), shapes=table(None, None))
    check(256, "nidxlist[0] outside 0..0", con_nativeidxs=i32([0]), width=1, resshape=None)


def test_matrices():
    rows = dict(nd=2, n=3, sp=i64([0] * 3), strides=i64([1] * 3))
    check(44, "sparsity[2, 0] outside 0..2, 0..3", **rows, sparsity=np.zeros((2, 3), np.int32))
    check(44, "sparsity[0, 1] outside 0..3, 0..1", **rows, sparsity=np.zeros((3, 1), np.int32))
    check(177, "midxs[-1, 0] outside 0..3, 0..1", row=-1, n=1, midxs=np.zeros((3, 1), np.int32), strides=i64([1]))


def test_a_fault_ends_the_kernel_there_and_releases_all():
    log = []
    memory = i32([9] * 8)
    arrays = dict(con_nativeidxs=memory, nidxlist=table(i32([1, 2, 3]), i32([4, 5, 6])), resshape=i32([3]))
    for name, data in arrays.items():
        format = "O" if name == "nidxlist" else "i"
        arrays[name] = recorder.Buffer(log, name, data, format, data.itemsize, (min(len(data), 5),))
    check(256, "con_nativeidxs[5] outside 0..5", width=2, nd=1, **arrays)
    assert memory.tolist() == [1, 4, 2, 5, 3, 9, 9, 9]
    assert log == ["+" + name for name in arrays] + ["-" + name for name in reversed(arrays)]


def test_runs_inside_the_arrays_keep_their_bounds():
    tables = dict(n=2, nd=1, nelem=i32([2, 2]), hassp=i32([0, 0]), ncodeatom=i32([0, 0]))
    tables |= dict.fromkeys(("shape_base", "nidxs_base", "cof_base", "ptr_base"), i32([0, 0]))
    arrays = dict(wi32=i32([2, 2, 2]), ri32=i32([0] * 9), ri64=i64([0] * 2))
    check(439, "ri64[2] outside 0..2", **tables, **arrays)
    views = dict(nd=1, n=1, nativeidxs=i64([1]), residxs=i64([0]), perm=i32([5]), pstrides=i64([1]), shape=i32([1]))
    check(208, "scratch[5] outside 0..1", **views)
