"""Flat positions above 2^32: kernels on a few far elements of arrays that could never be dense.

Variables above 2^32 are everywhere in records.py.
"""

import copy

import numpy as np
import pytest

from records import FIRST, Record, Stack, result
from support import blank, call, f64, i32, i64

FAR = 2**31 - 1  # the greatest extent

# The box of rows 1 to 3 and columns from 5 on of a 4 x FAR array, and four of its elements, the first just outside.
BOX = {"nd": 2, "shape": i32([4, FAR]), "stride": i64([FAR, 1]), "index": blank(2), "key": blank(2)}
BOX |= dict.fromkeys(("first", "astart"), i32([1, 5])) | dict.fromkeys(("last", "astop"), i32([4, FAR]))
BOX |= dict.fromkeys(("sp", "sparsity"), i64([FAR + 4, FAR + 5, 2 * FAR + 7, 3 * FAR + 8]))
IN_BOX = [0, FAR - 5 + 2, 2 * (FAR - 5) + 3]
NUMBERS = i64([2**33, 2**34, 2**35, 2**36])
# Two elements of an array folded to the extents (1, FAR, 4, FAR, 1), at (0, 1, 3) and (5, 0, 2), and their mirrors.
FOLD = {"stride": i64([FAR**2, 4 * FAR, FAR, 1, 1]), "n": 2, "nelem": 2, "nidxs": 2, "xi32": i32([1, 0])}
FOLD |= {"wi64": i64([FAR + 3, 20 * FAR + 2, 7, 8]), "xi64": i64([8 * FAR + 5, 13 * FAR])}

# By kernel: its arguments, and what it returns and leaves in some of its arrays.
CASES = {
    103: ({"p": 2, "q": FAR, "r": 2, "perm": i32([0, 1, 2]), "ptrb": blank(5),
           "val": i64([2 * FAR + 3, 5, 2 * FAR + 2])}, None, {"perm": [1, 2, 0], "ptrb": [0, 1, 2, 3, 3]}),
    185: (BOX, 3, {}),
    186: (BOX | {"basevar_nativeidxs": NUMBERS, "sliceshape": i32([3, FAR - 5]), "idxs": blank(3, make=i64),
                 "sp": blank(3, make=i64)}, 3, {"idxs": NUMBERS[1:], "sp": IN_BOX}),
    318: (BOX | {"nidxs": i32(range(4))}, 3, {}),
    320: (BOX | {"nidxs": i32(range(4)), "rstride": i64([FAR - 5, 1]), "rnidxs": i32([0] * 3), "rsp": i64([0] * 3)},
          3, {"rnidxs": [1, 2, 3], "rsp": IN_BOX}),
    214: ({"step": 2**33, "reps": 2, "n": 1, "tsp": i64([2**40]), "tnativeidxs": NUMBERS, "rsp": i64([0] * 2),
           "rnativeidxs": i64([0] * 2)}, 2, {"rsp": [2**40, 2**40 + 2**33], "rnativeidxs": [2**33] * 2}),
    216: ({"p": 2, "q": 2**20, "reps": 2, "n": 1, "u": 2**22, "v": 2**21, "w": 2**20, "tnativeidxs": NUMBERS,
           "tsp": i64([5000 * 2**21 + 2**20 + 3]), "rsp": i64([0] * 2), "rnativeidxs": i64([0] * 2)},
          2, {"rsp": [5000 * 2**22 + 2**20 + 3, 5000 * 2**22 + 3 * 2**20 + 3], "rnativeidxs": [2**33] * 2}),
    238: ({"p": 3, "q": FAR, "n": 1, "numnz": i32([3]), "offset": i32([1]), "sdims": i32([2]),
           "rsp": i64([5, FAR + 4, 3 * FAR + 1])}, 3, {"rsp": [FAR + 5, 2 * FAR + 4, 5 * FAR + 1]}),
    295: ({"itemsizes": i64([2**33]), "n": 1, "offset": 2**34, "sp": i64([5])}, 2**34 + 2**33, {"sp": [2**34 + 5]}),
    376: ({"ecols": 2, "nelem": 3, "pcols": FAR, "pnelem": 3, "wi32": i32(range(4)), "xi32": i32([0, 1, 2]),
           "wi64": i64([10, 2 * FAR - 3, 2 * FAR - 1]), "xi64": i64([5, 3 * FAR - 2, 3 * FAR - 1])}, (9, 2, 3), {}),
    387: ({"nd": 2, "nelem": 1, "wi32": i32([2**16, 2**16])}, True, {}),
    485: ({"mdimi": 1, "msubi": i32([0, 0]), "msubj": i32([7, FAR - 1]), "xnd": 2, "nelem": 1, "xd1": 3, "mrowptr": 0,
           "colptr": 3, "perm": 8, "rows": 10, "cols": 12, "xi32": blank(14), "xi64": i64([3 * FAR - 1])}, (1, 1), {}),
    499: ({"blk": 2, "n": 3, "ng": 2, "rhassp": True, "ri32": i32([0] * 3), "ri64": i64([0] * 2), "wi32": i32(range(4)),
           "wi64": i64([2**33, 2**33 + 1, 2**34])}, 3, {"ri64": [2**32, 2**33], "ri32": [0, 2, 3]}),
    566: ({**FOLD, "xi64": i64([0, 0])}, None, {"xi64": [8 * FAR + 5, 13 * FAR]}),
    569: (FOLD | {"wi32": i32([0, 1, 2]), "wf64": f64([2, 4]), "ri32": i32([0] * 5), "ri64": i64([0] * 8), "rnidxs": 4,
                  "rf64": f64([0] * 4)},
          (0, 2, 4, 2, 4), {"ri64": [FAR + 3, 8 * FAR + 5, 13 * FAR, 20 * FAR + 2, 7, 8, 7, 8], "rf64": [1, 2, 1, 2]}),
}  # fmt: skip


@pytest.mark.parametrize("number", CASES)
def test_far_positions(number):
    arguments, returned, written = copy.deepcopy(CASES[number])
    assert call(number, arguments) == returned
    assert {name: list(arguments[name]) for name in written} == {name: list(values) for name, values in written.items()}


def far_record(*sp):
    """A sparse record with one term at each of these positions."""
    return Record((4, FAR), i64(sp), np.arange(len(sp) + 1), FIRST + np.arange(len(sp)), np.ones(len(sp)))


@pytest.mark.parametrize(
    "number, operands, arguments, expected",
    [
        (422, [far_record(3 * FAR - 2, 3 * FAR - 1)], {"rows": FAR, "cols": 3, "bucket": 2},
         [2 * FAR - 1, 3 * FAR - 1]),
        (439, [far_record(3), far_record(FAR, 3 * FAR)], {"n": 2, "nd": 2}, [3, 5 * FAR, 7 * FAR]),
        (453, [far_record(2 * FAR, 3 * FAR - 1)],
         {"mdimj": 3, "d1": FAR, "msubi": i32([0, FAR - 1]), "msubj": i32([2, 2])}, [2]),
        (458, [far_record(3 * FAR - 1)], {"d1": 3, "msubi": i32([0, 2]), "msubj": i32([1, FAR - 1])}, [2]),
        (473, [far_record(2, 3 * FAR - 1)], {"d0": FAR, "d1": 3, "msubi": i32([2, 2]), "msubj": i32([1, 2])},
         [2 * FAR, 3 * FAR - 1]),
        (510, [far_record(3, 2**32 + 7), far_record(7, 2**32 + 3)], {"nelem1": 2, "nelem2": 2},
         [3, 7, 2**32 + 3, 2**32 + 7]),
    ],
)  # fmt: skip
def test_far_elements_of_records(number, operands, arguments, expected):
    rng = np.random.default_rng(number)
    w = Stack("w", rng, operands)
    common = {"from": w.fields(0)["sp"], "xi32": i32(range(9)), "hassp": True, "rhassp": True}
    common |= {"mnnz": 2, "mval": f64([1, 1])}
    if len(operands) > 1:
        common |= {**w.tables(), **w.fields(0, suffix="1"), **w.fields(1, suffix="2")}
    r = result(rng, (), (0, len(expected), sum(record.nnz for record in operands)))
    call(number, arguments, common, w.arguments, r.arguments)
    assert r.read(0).sp.tolist() == expected
