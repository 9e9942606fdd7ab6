"""The frame over every kernel: names, parsing, binding, order of release, results. All from the table of kernels.

Calls for all kernels have empty loops: None or empty arrays, and 0 for every scalar.
"""

import array
import re
import sys

import numpy as np
import pytest

import fragments
import recorder
from support import CHECKED, EMPTY, KERNELS, LAYOUTS, call, f64, i32, i64, is_refused, kernel, layout

# Of each kind of array: the formats it takes as (format, item size), and its dimensions.
ACCEPTED = {
    "i32": ([("i", 4), ("l", 4)], 1),
    "i64": ([("q", 8), ("l", 8)], 1),
    "f64": ([("d", 8)], 1),
    "i32x2": ([("i", 4), ("l", 4)], 2),
    "f64x2": ([("d", 8)], 2),
    "i32*": ([("O", 8)], 1),
}
FORMATS = {
    *((letter, size) for letter in "bBhHiIlLqQnNfd?cP" for size in (1, 2, 4, 8)),
    *((order + letter, size) for order in "<>=!@" for letter, size in [("i", 4), *zip("lqld", (4, 8, 8, 8))]),
    *(("O", 8), ("<O", 8), ("OO", 16), ("OO", 8), ("g", 16), ("Zd", 16), ("T{i:x:}", 4), ("4i", 16), ("", 4), ("", 8)),
}

# The kernels that touch an array even where every scalar is 0: dimensions, a slot that is always set, buckets. The
# checked build refuses their calls with empty arrays; in the normal build there is memory behind these.
TOUCHING = {
    54, 67, 103, 139, 146, 151, 163, 164, 220, 222, 235, 241, 243, 266, 267, 291, 295, 299, 313, 327, 334, 338, 339,
    346, 347, 364, 371, 375, 377, 381, 389, 396, 400, 421, 422, 423, 426, 436, 439, 443, 451, 456, 457, 463, 464, 477,
    478, 481, 482, 484, 485, 487, 488, 492, 493, 510, 515, 516, 518, 519, 522, 523, 550, 551, 553, 554, 557, 562, 564,
    570, 572, 574, 609, 646,
}  # fmt: skip


def empty_call(declared):
    """Arguments for empty loops. The sorts by an axis, 54 and 67, need one."""
    axes = 1 if {54, 67} & {*declared.numbers} else 0
    return [axes if (name, kind) == ("nd", "i") else EMPTY.get(kind) for name, kind in declared.parameters]


def assert_runs(number, arguments):
    """The call gives what the kernel declares, or an IndexError where the checked build must refuse it."""
    if CHECKED and number in TOUCHING:
        assert type(failure(number, arguments)) is IndexError, number
    else:
        assert has_result(kernel(number)(*arguments), KERNELS[number].results), number


def array_places(declared):
    return [(place, name, kind) for place, (name, kind) in enumerate(declared.parameters) if kind not in EMPTY]


def failure(number, arguments):
    """The exception of a call."""
    try:
        result = kernel(number)(*arguments)
    except Exception as error:
        return error
    raise AssertionError(f"_c_closure_{number} returned {result} for {arguments}")


def buffer(log, name, format, itemsize, dimensions):
    """An array without elements, but with zeros behind it, that records in `log`."""
    return recorder.Buffer(log, name, bytearray(64), format, itemsize, (0,) * dimensions)


def fitting(log, name, kind):
    formats, dimensions = ACCEPTED[kind]
    return buffer(log, name, *formats[0], dimensions)


def misfit(log, name, kind):
    """An array of the right dimensions but of a format that no parameter takes."""
    return buffer(log, name, "h", 2, ACCEPTED[kind][1])


def references(arguments):
    return [sys.getrefcount(argument) for argument in arguments if isinstance(argument, recorder.Buffer)]


def has_kind(value, kind):
    return type(value) is (bool if kind == "bool" else int)


def has_result(value, results):
    if len(results) < 2:
        return has_kind(value, results[0]) if results else value is None
    return type(value) is tuple and len(value) == len(results) and all(map(has_kind, value, results))


def test_the_module_holds_the_kernels_of_the_table_and_nothing_else():
    standard = {"__name__", "__doc__", "__package__", "__loader__", "__spec__", "__file__"}
    assert set(vars(fragments)) - standard == {f"_c_closure_{number}" for number in KERNELS}
    assert set(KERNELS) == set(range(652))
    assert fragments.__doc__ == ""
    assert not any(kernel(number).__doc__ for number in KERNELS)


def test_arrays_stand_in_the_order_of_their_names():
    for number, declared in KERNELS.items():
        names = [name for _, name, _ in array_places(declared)]
        assert names == sorted(set(names)), number


def test_arguments_are_positional_and_all_needed():
    for number, declared in KERNELS.items():
        arguments = empty_call(declared)
        for wrong in ([], arguments[:-1], arguments + [0]):
            assert type(failure(number, wrong)) is TypeError, number
        with pytest.raises(TypeError, match="keyword"):
            kernel(number)(*arguments[:-1], **{declared.parameters[-1][0]: arguments[-1]})


class Truth:
    def __init__(self, truth):
        self.truth = truth

    def __bool__(self):
        if self.truth is None:
            raise ZeroDivisionError
        return self.truth


REFUSED_SCALARS = {
    "i": [(2**31, OverflowError), (-(2**31) - 1, OverflowError), (0.0, TypeError), ("0", TypeError)],
    "L": [(2**63, OverflowError), (-(2**63) - 1, OverflowError), (0.0, TypeError), (None, TypeError)],
    "d": [("0", TypeError), (None, TypeError), (10**400, OverflowError)],
    "p": [(Truth(None), ZeroDivisionError)],
}
TAKEN_SCALARS = {
    "i": [2**31 - 1, -(2**31), True, np.int64(5)],
    "L": [2**63 - 1, -(2**63), np.int32(5)],
    "d": [1, np.float32(0.5), float("nan")],
    "p": [None, "", [0], Truth(True), Truth(False), 0.5],
}


def test_scalars_are_parsed_before_any_array_is_looked_at():
    log = []
    for number, declared in KERNELS.items():
        arguments = empty_call(declared)
        for place, name, kind in array_places(declared):
            arguments[place] = misfit(log, name, kind)
        for place, (_, kind) in enumerate(declared.parameters):
            given = arguments[place]
            for arguments[place], error in REFUSED_SCALARS.get(kind, ()):
                assert type(failure(number, arguments)) is error, (number, place)
            assert log == []
            # A taken scalar leaves the first array to blame.
            for arguments[place] in TAKEN_SCALARS.get(kind, ()) if array_places(declared) else ():
                assert is_refused(failure(number, arguments), number, *array_places(declared)[0][1:]), (number, place)
            log.clear()
            arguments[place] = given


@pytest.mark.parametrize("kind", ACCEPTED)
def test_arrays_of_other_types_and_dimensions_are_refused(kind):
    log = []
    formats, dimensions = ACCEPTED[kind]
    wrong = [buffer(log, "", *format, dimensions) for format in FORMATS - set(formats)]
    wrong += [buffer(log, "", *format, other) for format in formats for other in range(4) if other != dimensions]
    for number, declared in KERNELS.items():
        for place, name, _ in filter(lambda parameter: parameter[2] == kind, array_places(declared)):
            arguments = empty_call(declared)
            for arguments[place] in wrong:
                assert is_refused(failure(number, arguments), number, name, kind), number
    assert log == ["+", "-"] * (len(log) // 2)


@pytest.mark.parametrize("kind", ACCEPTED)
def test_arrays_of_the_right_type_are_taken(kind):
    log = []
    formats, dimensions = ACCEPTED[kind]
    for number, declared in KERNELS.items():
        for place, _, _ in filter(lambda parameter: parameter[2] == kind, array_places(declared)):
            arguments = empty_call(declared)
            for other, _, other_kind in array_places(declared):
                arguments[other] = fitting(log, "", other_kind)
            for format in formats:
                arguments[place] = buffer(log, "", *format, dimensions)
                assert_runs(number, arguments)
    assert log.count("+") == log.count("-") > 0


@pytest.mark.parametrize("left_out", [None, 0, 1], ids=["all arrays", "every odd array None", "every even array None"])
def test_views_are_released_in_reverse_order(left_out):
    """On success, and after a failure at each array: of its type, of its dimensions, of its buffer."""
    for number, declared in KERNELS.items():
        log = []
        arguments = empty_call(declared)
        bound = []  # in order, the names of the arrays so far that are not None
        for k, (place, name, kind) in enumerate(array_places(declared)):
            other_dimensions = buffer(log, name, *ACCEPTED[kind][0][0], 3)
            for arguments[place] in (misfit(log, name, kind), other_dimensions, object()):
                is_array = isinstance(arguments[place], recorder.Buffer)
                # Whatever stands in the places behind is not looked at.
                for behind, later, later_kind in array_places(declared)[k + 1 :]:
                    arguments[behind] = misfit(log, later, later_kind)
                counts = references(arguments)
                error = failure(number, arguments)
                assert type(error) is (ValueError if is_array else TypeError), number
                taken = bound + [name] * is_array
                assert log == ["+" + x for x in taken] + ["-" + x for x in reversed(taken)], number
                assert references(arguments) == counts, number
                log.clear()
            if k % 2 == left_out and number not in TOUCHING:
                arguments[place] = None
            else:
                arguments[place] = fitting(log, name, kind)
                bound.append(name)
        counts = references(arguments)
        assert_runs(number, arguments)
        assert log == ["+" + x for x in bound] + ["-" + x for x in reversed(bound)], number
        assert references(arguments) == counts, number


def test_none_stands_for_every_array_that_is_not_touched():
    for number, declared in KERNELS.items():
        if CHECKED or number not in TOUCHING:
            assert_runs(number, empty_call(declared))


def test_an_empty_buffer_is_an_array_even_at_no_address():
    """To the measure of a product None means a dense matrix, an empty array one without entries."""
    nowhere = recorder.Buffer([], "", None, "i", 4, (0,))
    assert call(467, mdimi=2, nnz=3)[2] == 6
    assert call(467, mdimi=2, nnz=3, msubi=nowhere, msubj=nowhere)[2] == 0


def test_results_hold_references_of_their_own():
    before = sys.getrefcount(None), sys.getrefcount(True), sys.getrefcount(0)
    for number in KERNELS.keys() - TOUCHING:
        arguments = empty_call(KERNELS[number])
        for _ in range(100):
            kernel(number)(*arguments)
    after = sys.getrefcount(None), sys.getrefcount(True), sys.getrefcount(0)
    assert max(abs(x - y) for x, y in zip(before, after)) < 50


def test_exceptions_of_the_buffer_itself_stand():
    released = memoryview(b"")
    released.release()
    for wrong, error in ((released, ValueError), (np.zeros(2, "datetime64[s]"), ValueError), ([1, 2], TypeError)):
        with pytest.raises(error) as expected:
            memoryview(wrong)
        with pytest.raises(error, match=re.escape(str(expected.value))):
            call(454, msubi=wrong, msubj=i32([]))


def in_array(values):
    return array.array(values.dtype.char.replace("l", "q"), values.tolist())


# What the values of a NumPy array of one of the three types come in.
CARRIERS = {
    **{kind: lambda values, kind=kind: layout(values, kind) for kind in LAYOUTS},
    "read-only": lambda values: np.frombuffer(values.tobytes(), values.dtype),
    "long long": lambda values: values.astype(values.dtype.char.replace("l", "longlong")),
    "array": in_array,
    "array of long": lambda values: array.array(values.dtype.char, values.tolist()),
    "memoryview": lambda values: memoryview(in_array(values[::-1]))[::-1],
}
ONE_ELEMENT = dict(msubi=i32([0]), msubj=i32([0]), mval=f64([-2]))
OPERAND = dict(wi32=i32([0, 3]), wi64=i64([4, 2**40, -6]), wf64=f64([1, 0, 7]))
RESULT = dict(ri32=i32([0, 9]), ri64=i64([9, 9, 9]), rf64=f64([9, 9, 9]))


@pytest.mark.parametrize("carrier", CARRIERS)
def test_elements_are_reached_in_every_carrier(carrier):
    """One matrix entry times an element of three terms: each array in the carrier, then all of them."""
    plain = ONE_ELEMENT | OPERAND | RESULT
    names = [name for name in plain if carrier != "read-only" or name not in RESULT]
    for carried in [*([name] for name in names), names]:
        arrays = {name: values.copy() for name, values in plain.items()}
        arrays |= {name: CARRIERS[carrier](arrays[name]) for name in carried}
        assert call(472, d0=1, d1=1, mnnz=1, **arrays) == (0, 1, 3)
        assert [list(arrays[name]) for name in ("ri32", "ri64", "rf64")] == [[0, 3], [4, 2**40, -6], [-2, 0, -14]]


@pytest.mark.parametrize(
    "carry", [np.copy, np.asfortranarray, lambda m: np.flip(m).copy()[::-1, ::-1], lambda m: m.repeat(2, 1)[:, ::2]]
)
def test_matrix_elements_are_reached_in_every_order(carry):
    matrix = i32([[1, 2], [3, 4], [5, 6]])
    res = i64([0, 0, 0])
    call(450, nd=2, res=res, s=i64([10, 1]), vsub=carry(matrix))
    assert res.tolist() == [12, 34, 56]
