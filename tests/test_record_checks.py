"""check_record names the mistakes of callers that no kernel sees; show_record prints what a record is."""

from types import SimpleNamespace

import pytest

from support import KERNELS, call, f64, i32, i64

from fragments_kernels.records import RecordError, check_record, mark_unwritten, record_faults, show_record

# A 2 x 3 matrix, times a row of the variables 7, 8 and 9.
SUBI, SUBJ, VAL = i32([0, 0, 1]), i32([0, 2, 1]), f64([2.5, 1.7, 1.8])
RECORD = dict(nd=2, shape=0, ptr=2, sp=0, nidxs=2, cof=0, nelem=2, nnz=3)


def product(left_out="", **mistake):
    """The product on the r stack, by a caller who leaves a step out or passes something else than is right."""
    w, r = (SimpleNamespace(i32=i32([0] * 50), i64=i64([0] * 50), f64=f64([0] * 50), top=(0, 0, 0)) for _ in "wr")
    for stack in (w, r):
        mark_unwritten(stack.i32, stack.i64, stack.f64)
    w.i32[:6], w.i64[:3], w.f64[:3] = [2, 1, 0, 1, 2, 3], [7, 8, 9], 1.0
    if left_out != "reserve":
        r.top = (5, 5, 3)
    if left_out != "ptr[0]":
        r.i32[2] = 0
    right = {
        "wi32": w.i32, "wi64": w.i64, "wf64": w.f64, "ri32": r.i32, "ri64": r.i64, "rf64": r.f64, "n": 2, "to": 0,
        "from": 0, "mnnz": 3, "msubi": SUBI, "msubj": SUBJ, "mval": VAL, "d0": 1, "d1": 3, "mdimi": 2, "nelem": 3,
        "nnz": 3, "ptr": 2, "nidxs": 0, "cof": 0, "rhassp": True, "rptr": 2, "rsp": 0, "rnidxs": 2, "rcof": 0,
    }  # fmt: skip
    for number in (361, 472):
        names = {name for name, _ in KERNELS[number].parameters}
        call(number, {name: value for name, value in mistake.items() if name in names}, right)
    return r


@pytest.mark.parametrize("mistake, fault", [
    (dict(rnidxs=3), "nidxs[0] (slot 2 of i64) was never written"),
    (dict(rcof=1), "cof[0] (slot 0 of f64) was never written"),
    (dict(rptr=3), "ptr[1] (slot 3 of i32) was never written"),
    (dict(nidxs=1), "nidxs[1] (slot 3 of i64) was never written"),
    (dict(msubi=SUBJ, msubj=SUBI), "ptr[2] (slot 4 of i32) is 2, but the record has nnz = 3 terms"),
    ({"to": 10, "from": 0}, "shape[0] (slot 0 of i32) was never written, and 1 more"),
    (dict(n=-4), "shape[0] (slot 0 of i32) was never written, and 1 more"),
    (dict(left_out="reserve"), "ptr takes slots 2 to 4 of i32, of which 0 are reserved"),
    (dict(left_out="ptr[0]"), "ptr[0] (slot 2 of i32) was never written"),
])  # fmt: skip
def test_silent_mistakes_are_named(mistake, fault):
    check_record(product(), RECORD)
    assert fault in record_faults(product(**mistake), RECORD)


# [0, 1]: 2.5 x7 - x9,  [1, 2]: (1 - (1/(p3*(-2)) + 4)) s1 + 3 + 1 + p2
FIELDS = dict(
    shape=[2, 3], ptr=[0, 2, 4], codeptr=[0, 1, 2, 9, 12], sp=[1, 5], nidxs=[7, 9, -2, 0], cof=[2.5, -1.0, 1.0, 3.0],
    code=[10, 10, 1, 2, 5, 6, 2, 8, 4, 2, 1, 3],
    cconst=[0.0, 0.0, 3.0, -2.0, 0.0, 0.0, 4.0, 2.0, 0.0, 1.0, 2.0, 9.0],
)  # fmt: skip


def laid_out(**changes):
    """The stack and the record of these fields, each behind the one before it in its array."""
    stack, record = {"i32": [], "i64": [], "f64": []}, {}
    for name, values in {**FIELDS, **changes}.items():
        array = {"sp": "i64", "nidxs": "i64", "cof": "f64", "cconst": "f64"}.get(name, "i32")
        record[name] = len(stack[array])
        stack[array] += values
    record.update(nd=2, nelem=2, nnz=4, ncodeatom=12)
    return (i32(stack["i32"]), i64(stack["i64"]), f64(stack["f64"])), record


def test_records_are_shown_as_formulas(capsys):
    show_record(*laid_out())
    show_record((i32([0, 0]), None, None), dict(shape=(), nelem=1, nnz=0, ptr=0, nidxs=0, cof=0))
    stack, record = laid_out()
    show_record(stack, {**record, "ncodeatom": 0}, limit=1)
    check_record(stack, record, variables=9, semidefinite=2, parameters=4)
    check_record((i32([0, 2, 0]), None, None), dict(shape=0, nd=2, nelem=0, nnz=0, ptr=2, nidxs=0, cof=0))
    assert capsys.readouterr().out.splitlines() == [
        "2 x 3: sparse, 2 of 6 elements, 4 terms, 12 atoms of code",
        "[0, 1]: 2.5 x7 - x9",
        "[1, 2]: (1 - (1/(p3*(-2)) + 4)) s1 + 3 + 1 + p2",
        "scalar: dense, 1 elements, 0 terms",
        "[]: 0",
        "2 x 3: sparse, 2 of 6 elements, 4 terms",
        "[0, 1]: 2.5 x7 - x9",
        "... and 1 more",
    ]


@pytest.mark.parametrize("changes, limits, fault", [
    (dict(shape=[2, -3]), {}, "shape[1] (slot 1 of i32) is -3, an extent below 0"),
    (dict(ptr=[1, 2, 4]), {}, "ptr[0] (slot 2 of i32) is 1, not 0: slot 0 is the caller's to set"),
    (dict(ptr=[0, 5, 4]), {}, "ptr[2] (slot 4 of i32) is 4, below ptr[1] = 5"),
    (dict(sp=[1, 6]), {}, "sp[1] (slot 1 of i64) is 6, outside 0..5 of the shape [2, 3]"),
    (dict(shape=[2, 3], sp=[-1, 5]), {}, "sp[0] (slot 0 of i64) is -1, outside 0..5 of the shape [2, 3]"),
    (dict(sp=[5, 5]), {}, "sp[1] (slot 1 of i64) is 5, not above sp[0] = 5"),
    ({}, dict(variables=8), "nidxs[1] (slot 3 of i64) is 9, but the highest variable is 8; in element 0, [0, 1]"),
    ({}, dict(semidefinite=1), "nidxs[2] (slot 4 of i64) is -2, but the number of semidefinite elements is 1; "
                               "in element 1, [1, 2]"),
    ({}, dict(parameters=3), "code[2] (slot 12 of i32) is 1, parameter 3, but there are 3; term 2 in element 1, "
                             "[1, 2]"),
    (dict(code=[10, 10, 1, 2, 5, 6, 2, 7, 4, 2, 1, 3]), {},
     "code[7] (slot 17 of i32) is 7, no opcode; term 2 in element 1, [1, 2]"),
    (dict(cconst=[0.0, 0.0, 3.0, -2.0, 0.0, 0.0, 4.0, float("inf"), 0.0, 1.0, 2.0, 9.0]), {},
     "code[7] (slot 17 of i32) is 8, which takes a number, not inf; term 2 in element 1, [1, 2]"),
    (dict(code=[10, 5, 1, 2, 5, 6, 2, 8, 4, 2, 1, 3]), {},
     "code[1] (slot 11 of i32) is 5, which takes 2 values from a stack of 0; term 1 in element 0, [0, 1]"),
    (dict(code=[10, 10, 1, 2, 5, 6, 2, 4, 4, 2, 1, 3]), {},
     "the code of term 2, 7 atoms, leaves 2 values, not 1; in element 1, [1, 2]"),
    (dict(codeptr=[0, 1, 2, 9, 9]), {}, "codeptr[4] (slot 9 of i32) is 9, but the record has ncodeatom = 12 atoms"),
])  # fmt: skip
def test_faults_are_named_with_their_place(changes, limits, fault):
    stack, record = laid_out(**changes)
    assert record_faults(stack, record, **limits) == [fault]
    with pytest.raises(RecordError):
        check_record(stack, record, **limits)


def test_places_are_checked_before_contents():
    stack, record = laid_out()
    assert record_faults(stack, {**record, "nidxs": 1, "cof": 8, "cconst": -1}) == [
        "nidxs begins at slot 1 of i64, within sp, which takes slots 0 to 1",
        "cconst takes slots -1 to 10 of f64, which has 16",
    ]
    assert record_faults((stack[0][:21], *stack[1:]), record) == ["code takes slots 10 to 21 of i32, which has 21"]
    assert record_faults(stack, {**record, "nnz": -4}) == ["nnz is -4"]
    assert record_faults((stack[0], stack[2], stack[2]), record) == ["i64 is float64 with 1 axes, not int64 with one"]
    with pytest.raises(TypeError, match="does not tell nidxs, code$"):
        check_record(stack, {**record, "nidxs": None, "code": None})


def test_the_host_layer_checks_records_if_it_is_told_to(monkeypatch):
    from host import operators, stacks

    monkeypatch.setattr(stacks, "DEBUG", True)
    s = stacks.Stacks()
    operators.variable(s, (3,), i64([1, 2, 3]))
    operators.multiply(s, f64([[1.0, 2.0, 3.0]]))
    with pytest.raises(RecordError, match="never written"):
        s.finish(1, s.r.reserve_record(1, 2, 2))
