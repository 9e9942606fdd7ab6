"""A loop without an iteration touches nothing: calls that are empty through one count, with None for what then is left
alone. A read ahead of the loop is an IndexError on the checked build and ends the process on the normal one."""

import numpy as np
import pytest

from support import KERNELS, call, f64, i32, i64

NO_ROWS, NO_AXES = i32(np.zeros((0, 3))), i32(np.zeros((3, 0)))
WEIGHTS = dict(a=f64([1]), bfix=f64([1, 2]), sub=i32([]), d=2, m=2, n=2)
BOX = dict(hassp=True, nelem=2, count=3, nidxs=i32([5, 6]))

# A line a way of being empty: the kernels, what they take (all else is None or 0), the result.
CALLS = [
    ([28, 36], dict(ncon=3, nlin=4), (3, 4)),
    ([29, 30, 37, 38], dict(acc=5, c=2, first=3, last=1), (5, 2)),
    ([55, 68], dict(curperm=i32([0, 1, 2]), midxs=NO_AXES, n=3, sparsity=i64([9] * 3)), None),
    ([55, 68], dict(nd=2, midxs=NO_ROWS), None),
    ([76, 79], {}, None),
    ([82], dict(nd=2, ri32=i32([2, 3]), domsp=NO_ROWS), None),
    ([82], dict(scalar=True), None),
    ([100], dict(nd=2, domsp=NO_ROWS), None),
    ([165, 166, 183, 208, 209], dict(nd=3, first=2, step=4), None),
    ([170, 187, 260], dict(nd=2), None),
    ([185], dict(nd=2, c=4), 4),
    ([186], dict(nd=2, c=4), 4),
    ([282], dict(init=6, usubi=i32([1, 2]), usubj=i32([0, 0])), 8),
    ([282], dict(init=6, lsubi=i32([1, 2]), lsubj=i32([0, 0])), 8),
    ([286], dict(rows=3, pos=5), 5),
    ([286], dict(cols=3, pos=5), 5),
    ([317, 320], dict(nd=2, pos=5), 5),
    ([318], dict(nd=2, count=5), 5),
    ([318], BOX, 5),
    ([320], BOX | dict(pos=0, rnidxs=i32([0, 0]), rsp=i64([0, 0])), 2),
    ([386], dict(ptr=1, codeptr=2), None),
    ([414], dict(nd=2, hassp=True, ncodeatom=1, e=3, c=2, k=1), (2, 3, 1)),
    ([414], dict(nelem=2, hassp=True, wi32=i32([0, 1, 3]), e=3, c=2, k=1), (2, 5, 4)),
    ([417], dict(nd=2, rhascode=1, hassp=True, e=3, c=2, k=1), (2, 3, 1)),
    ([417], dict(nd=2, rhascode=1, e=3, c=2, k=1), (2, 3, 1)),
    ([417], dict(nelem=1, hassp=True, wi32=i32([0, 0]), ri32=i32([9, 9]), ri64=i64([9])), (0, 1, 0)),
    ([419], dict(nelem=2, sp=i64([9, 9])), None),
    ([419], dict(nd=2**31 - 1), None),
    ([468], dict(d0=2, d1=-3, ei=7, nzi=4, ri32=i32([0] * 3)), (7, 2, 4)),
    ([476], dict(n=1, res=5, xnd=1, d1=3), 1),
    ([476], dict(res=5, xnd=2, d1=3), 5),
    ([483], dict(xd0=1), (0, 0)),
    ([483], dict(mdimj=3, xd0=2, wi32=i32([0] * 9), perm=2), (0, 0)),
    ([484], dict(mdimj=3, rhassp=True, ri32=i32([9]), wi32=i32([0] * 9), xd0=0), None),
    ([486], dict(xd1=3), (0, 0)),
    ([496], dict(blk=3, acc=5), 5),
    ([499], dict(cur=3, n=5, rhassp=True), 3),
    ([522, 523], dict(hascode=True, nelem=i32([0])), None),
    ([525], dict(hascode=True, n=2, nelem=i32([0, 0])), None),
    ([525], dict(hascode=True), None),
    ([564], dict(dim=i32([2] * 5), sortidx=i32([0, 1, 2, 3]), xi32=i32([0] * 9)), (0, 0)),
    ([565, 567], dict(sp=1, key=1), None),
    ([566], dict(sp=1), None),
    ([569], dict(ncodeatom=1, c=2, t=4), None),
    ([578, 580], dict(n=3, sp=i64([1, 2, 3]), sparsity=NO_AXES), None),
    ([578, 580], dict(m=3, sparsity=NO_ROWS), None),
    ([589], WEIGHTS | dict(bfix=f64([]), sub=i32([1])), None),
    ([589, 593], WEIGHTS | dict(flag=True), None),
    ([591], WEIGHTS | dict(k=3), 3),
    ([593], WEIGHTS | dict(n=0, sub=i32([1])), None),
]  # fmt: skip
IDS = [f"{'-'.join(map(str, numbers))} {index}" for index, (numbers, _, _) in enumerate(CALLS)]


@pytest.mark.parametrize("numbers, arguments, result", CALLS, ids=IDS)
def test_an_empty_loop(numbers, arguments, result):
    for number in numbers:
        returned = call(number, arguments)
        assert result is None or returned == result


# Walks over the five extents of a fold, with the scalar that comes back as it came in.
@pytest.mark.parametrize("number", [151, 159, 163, 267, 551, 553, 554, 570, 572])
@pytest.mark.parametrize("axis", [0, 1, 2, 4])
def test_an_empty_axis_of_a_fold(number, axis):
    names = {name for name, kind in KERNELS[number].parameters if kind == "i"} - {"hassp"}
    cursors = {name: 7 for name in names & {"c", "k", "nc", "nnz", "t", "g", "e"}}
    given = {"dim": i32(np.where(np.arange(5) == axis, 0, [3, 2, 3, 2, 3])), "ncodeatom": 1, "rhascode": 1}
    returned = call(number, given, cursors)
    assert returned is None or {*np.atleast_1d(returned)} == {7}
