"""What the frame has to answer to any arguments, from the table of kernels alone.

The interpreter's own part, the parsing of scalars and the taking of views, is asked of the interpreter itself.
"""

import ctypes
import functools
from dataclasses import replace

import recorder
from calls import ARRAYS

STORED = {"i": ctypes.c_int, "L": ctypes.c_longlong, "d": ctypes.c_double, "p": ctypes.c_int, "O": ctypes.c_void_p}
parse = ctypes.pythonapi.PyArg_ParseTuple


@functools.lru_cache(None)
def room(format):
    """Where the parser may store arguments of a format."""
    return [ctypes.byref(STORED[letter]()) for letter in format]


def raised(function, *arguments):
    """(exception type, text) of a call, or None."""
    try:
        function(*arguments)
    except BaseException as error:
        return type(error), str(without_traceback(error))


def without_traceback(error):
    """An exception that holds no frame any more, and so none of the arguments of a call."""
    error.__traceback__ = error.__context__ = None
    return error


def expectation(declared, arguments, checked):
    """((type, text) of the exception that a call is refused with, None if it is carried out; for each array that was
    bound the objects of which views were taken, in the order of release).

    The exception is the parser's, or that of the first array that can't be bound. Its text is that of the normal build;
    with bounds checking it says more about the array of that name.
    """
    error = raised(parse, ctypes.py_object(tuple(arguments)), declared.format.encode(), *room(declared.format))
    taken = []
    for value, parameter in zip(arguments, declared.takes):
        if error:
            break
        if parameter.letter == "O":
            error, viewed = bound(value, parameter, checked)
            taken.append(viewed)
    return error, taken


def bound(value, parameter, checked):
    """The same for one array."""
    if value is None:
        return None, []
    error = raised(memoryview, value)
    if error:
        return error, []
    view = memoryview(value)
    if not has_form(view, parameter.kind):
        return (ValueError, f"Invalid array shape or type for argument '{parameter.name}'"), [value]
    if parameter.kind == "i32*":
        return bound_table(value, replace(parameter, kind="i32", read_only=True), checked)
    if checked and view.readonly and not parameter.read_only:
        return (ValueError, f"read-only '{parameter.name}'"), [value]
    return None, [value]


def bound_table(table, entry_parameter, checked):
    views = []
    for entry in entries(table):
        error, viewed = bound(entry, entry_parameter, checked)
        views += viewed
        if error:
            return error, [*views, table]
    return None, [*views, table]


def entries(table):
    """The entries of an array of arrays. A recorder.Buffer here holds null references, which stand for None."""
    if isinstance(table, recorder.Buffer):
        return []
    return (table.obj if isinstance(table, memoryview) else table).tolist()


def has_form(view, kind):
    """Whether a view has the elements and dimensions of a kind of array."""
    letters, size, dimensions, _ = ARRAYS[kind]
    if kind == "i32*":
        return view.ndim == 1 and view.format == "O"
    return view.ndim == dimensions and view.format[:1] in [*letters] and view.itemsize == size
