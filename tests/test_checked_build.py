"""The checked build: an index outside an array ends the kernel with an IndexError that names it, what a kernel can't
work on is refused by a ValueError that says what is wanted, and scratch that can't be had is a MemoryError."""

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import fragments
import recorder
from support import CHECKED, KERNELS, call, f64, i32, i64
from test_array_tables import table

checked_build = pytest.mark.skipif(not CHECKED, reason="the build is not checked")


def check(number, message, error=IndexError, **arguments):
    """The call ends with this error and message on the checked build, and without an error on the normal one."""
    if not CHECKED:
        return call(number, **arguments)
    with pytest.raises(error) as fault:
        call(number, **arguments)
    assert str(fault.value) == f"_c_closure_{number}: {message}"


@checked_build
@pytest.mark.parametrize("number", [454, 459, 466])
def test_the_first_index_outside_is_named(number):
    check(number, "msubi[2] outside 0..2", mnnz=4, msubi=i32([0, 0]), msubj=i32([0, 0, 0, 0]))
    check(number, "msubj[1] outside 0..1", mdimi=1, mnnz=4, msubi=i32([0, 0, 0, 0])[::2], msubj=i32([0]))
    check(number, "msubi[0], but msubi is None", mnnz=1, msubj=i32([0]))


@checked_build
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
    check(472, "rf64[0], but rf64 is None", **good | dict(rf64=None))


@checked_build
def test_read_only_arrays_are_refused_where_they_are_written():
    carriers = {"i32": bytes(4), "i64": bytes(8), "f64": bytes(8), "i32x2": bytes(4), "f64x2": bytes(8)}
    for number, declared in KERNELS.items():
        for parameter in declared.takes:
            if parameter.kind not in carriers:
                continue
            view = memoryview(carriers[parameter.kind]).cast({"i32": "i", "i64": "q", "f64": "d"}[parameter.kind[:3]])
            view = view.cast("B").cast(view.format, (1, 1)) if "x2" in parameter.kind else view
            refusal = f"_c_closure_{number}: {parameter.name}: want an array to write; got a read-only one"
            try:
                call(number, **{parameter.name: view})
                refused = False
            except (ValueError, IndexError) as fault:
                refused = str(fault) == refusal
            assert refused == (not parameter.read_only), (number, parameter.name)


@checked_build
def test_tables_and_their_entries():
    check(445, "shapes[1][1] outside 0..1", dim=1, resshape=i32([0, 0]), shapes=table(i32([1, 2]), i32([1])))
    check(445, "shapes[1][0], but shapes[1] is None", resshape=i32([0]), shapes=table(i32([1]), None))
    check(231, "shapes[2] outside 0..2", n=3, rshape=i32([0]), shapes=table(None, None))
    check(256, "nidxlist[0], but nidxlist is None", con_nativeidxs=i32([0]), width=1, resshape=None)


@checked_build
def test_matrices():
    rows = dict(nd=2, n=3, sp=i64([0] * 3), strides=i64([1] * 3))
    check(44, "sparsity[2, 0] outside 0..2, 0..3", **rows, sparsity=np.zeros((2, 3), np.int32))
    check(44, "sparsity[0, 1] outside 0..3, 0..1", **rows, sparsity=np.zeros((3, 1), np.int32))
    check(177, "midxs[-1, 0] outside 0..3, 0..1", row=-1, n=1, midxs=np.zeros((3, 1), np.int32), strides=i64([1]))
    check(44, "sparsity[0, 0], but sparsity is None", **rows)
    # A column of a table without gaps is no table of pairs, though its rows lie as theirs do.
    check(287, "inst[0, 1] outside 0..2, 0..1", inst=i32(np.zeros((2, 2)))[:, :1], msubi=i32([3]), msubj=i32([4]))


@checked_build
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


@checked_build
def test_runs_inside_the_arrays_keep_their_bounds():
    tables = dict(n=2, nd=1, nelem=i32([2, 2]), hassp=i32([0, 0]), ncodeatom=i32([0, 0]))
    tables |= dict.fromkeys(("shape_base", "nidxs_base", "cof_base", "ptr_base"), i32([0, 0]))
    arrays = dict(wi32=i32([2, 2, 2]), ri32=i32([0] * 9), ri64=i64([0] * 2))
    check(439, "ri64[2] outside 0..2", **tables, **arrays)
    views = dict(nd=1, n=1, nativeidxs=i64([1]), residxs=i64([0]), perm=i32([5]), pstrides=i64([1]), shape=i32([1]))
    check(208, "scratch[5] outside 0..1", **views)


@checked_build
def test_other_types_and_axes_are_named():
    given = {
        **{"int64, 1 axis": i64([1]), "uint32, 1 axis": np.uint32([1]), "float32, 1 axis": np.float32([1])},
        **{"int32, 2 axes": i32([[1]]), "int32, 0 axes": i32(1), "bool, 1 axis": np.array([True])},
        **{"object, 1 axis": table(None), "format '>i', 1 axis": np.array([1], ">i4")},
        **{"format 'T{i:x:}', 1 axis": np.zeros(1, [("x", "i4")])},
    }
    for got, array in given.items():
        check(472, f"msubi: want int32, 1 axis; got {got}", ValueError, msubi=array)
    check(44, "sparsity: want int32, 2 axes; got int32, 1 axis", ValueError, sparsity=i32([1]))
    check(445, "shapes: want object, 1 axis; got int32, 1 axis", ValueError, shapes=i32([1]))
    check(445, "shapes[1]: want int32, 1 axis; got int64, 1 axis", ValueError, shapes=table(None, i64([1])))


def test_elements_that_lie_askew():
    """Refused by the checked build, and taken by the normal one, as long as there is an element that depends on it."""
    stride = "mval: want strides of whole elements, 8 bytes each; got a stride of 12 bytes"
    check(472, stride, ValueError, mval=recorder.Buffer([], "", bytes(24), "d", 8, (2,), -1, 12))
    address = "mval: want an address that is a multiple of 8; got one that is 1 past it"
    check(472, address, ValueError, mval=memoryview(bytearray(17))[1:].cast("d"))
    matrix = recorder.Buffer([], "", bytes(24), "i", 4, (2, 2), -1, 6)
    stride = "sparsity: want strides of whole elements, 4 bytes each; got a stride of 6 bytes"
    check(44, stride, ValueError, sparsity=matrix)
    indirect = recorder.Buffer([], "", bytes(8), "d", 8, (1,), 0)
    check(472, "mval: want one block of memory; got suboffsets", ValueError, mval=indirect)
    for harmless in (recorder.Buffer([], "", bytes(8), "d", 8, (1,), -1, 12), memoryview(bytearray(9))[1:1].cast("d")):
        call(472, mval=harmless)


@checked_build
@pytest.mark.parametrize("stride", [0, -1])
@pytest.mark.parametrize("number, name", [(414, "st"), (417, "st"), (317, "stride"), (318, "stride"), (320, "stride")])
def test_boxes_have_positive_strides(number, name, stride):
    arrays = {name: i64([1, stride]), "sp": i64([0, 1]), "rst": i64([3, 1]), "rstride": i64([3, 1])}
    arrays |= dict.fromkeys(("last", "astop", "shape", "wi32"), i32([3, 3]))
    arrays |= dict.fromkeys(("first", "astart", "nidxs", "index"), i32([0, 0])) | {"wi64": i64([0, 1])}
    for hassp in (True, False):
        given = {name: arrays[name] for name, kind in KERNELS[number].parameters if name in arrays and kind != "i"}
        given |= {"nd": 2, "nelem": 2, "hassp": hassp} if number in (414, 417) else {"nd": 2}
        check(number, f"{name}: want numbers above 0; got {stride} as element 1", ValueError, **given)


COUNTS = dict(n=1, ng=1, inner=1, nelem=1, pnelem=1)
ARRAYS = dict.fromkeys(("wi64", "xi64", "val", "sp", "nativeidxs", "residxs"), i64([1]))
ARRAYS |= dict.fromkeys(("wi32", "xi32", "ri32", "ptrb", "astart", "index"), i32([0, 0]))


@checked_build
@pytest.mark.parametrize("number, what, given", [
    (103, "q * r", dict(r=1, perm=i32([0]))), (208, "shape", dict(nd=2, perm=i32([0, 1]), shape=i32([1, 0]))),
    (295, "inner * extent", dict(axis_inner=1, inner=0, dimsizes=i32([2]))), (343, "columns", dict(ecols=1)),
    (318, "shape", dict(nd=2, shape=i32([1, 0]), stride=i64([1, 1]), astop=i32([1, 1]), nidxs=i32([0]))),
    (419, "stride", dict(nd=1, dperm=i32([0]), stride=i64([0]))), (499, "blk", {}), (531, "ext_inner", dict(outer=1)),
    (531, "outer", dict(ext_inner=1))])  # fmt: skip
def test_nothing_is_divided_by_0(number, what, given):
    kinds = dict(KERNELS[number].parameters)
    arrays = {name: array for name, array in ARRAYS.items() if kinds.get(name, "i") != "i"}
    counts = {name: count for name, count in COUNTS.items() if name in kinds}
    check(number, f"{what}: want a number to divide by; got 0", ValueError, **counts | arrays | given)


OUT_OF_MEMORY = """
import resource, sys
from support import KERNELS, call, i32, i64

resource.setrlimit(resource.RLIMIT_AS, (2**30, 2**30))
for number in map(int, sys.argv[1:]):
    parameters = KERNELS[number].parameters
    arrays = {name: {"i32": i32, "i64": i64}[kind]([1]) for name, kind in parameters if kind in ("i32", "i64")}
    scalars = {name: 1 for name in ("n", "nelem") if (name, "i") in parameters}
    try:
        call(number, **arrays, **scalars | {"nd" if ("nd", "i") in parameters else "n": 2**31 - 1})
    except MemoryError as error:
        print(error)
"""


@pytest.mark.skipif("asan" in os.environ.get("LD_PRELOAD", ""), reason="the sanitizer takes all memory that is left")
def test_scratch_that_cannot_be_had():
    """For 2^31 - 1 axes or operands: a MemoryError on the checked build; the normal one ends the process."""
    numbers = [82, 187, 260, 407, 419, 442, 525]
    folders = os.pathsep.join(map(str, (Path(fragments.__file__).parent, Path(__file__).parent)))
    command = [sys.executable, "-c", OUT_OF_MEMORY, *map(str, numbers)]
    run = subprocess.run(command, env=dict(os.environ, PYTHONPATH=folders), capture_output=True, text=True)
    if CHECKED:
        assert run.stdout.splitlines() == [f"_c_closure_{number}: no memory for scratch" for number in numbers]
    else:
        assert run.returncode < 0 and "no memory for the scratch of a fragments kernel" in run.stderr
