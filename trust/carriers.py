"""What carries the arguments of a call: arrays in many layouts and kinds of buffers, and objects that fail.

Every array lies in a bytearray of its own, among bytes that no call may touch; so what a call has written shows in the
image of that memory, and a view that it has not released keeps the bytearray from growing.
"""

import array
import ctypes
import math
import mmap
import sys

import numpy as np

import recorder
from calls import ARRAYS, Same
from frame_model import bound

GUARD = 64  # bytes in front of and behind the elements
STEPS = (1, 1, 1, 2, 3, -1, -2)  # from an element to the next, along an axis


class Log(list):
    """What recorder.Buffers write when views are taken and released: "+name" and "-name"."""

    def __init__(self):
        super().__init__()
        self.names = {}

    def buffer(self, *description):
        """A recorder.Buffer(data, format, itemsize, shape) that writes here."""
        name = str(len(self.names))
        made = recorder.Buffer(self, name, *description)
        self.names[id(made)] = name
        return made


class Memory:
    """The memory of an array argument: `values` laid out by `steps`, one an axis."""

    def __init__(self, values, steps):
        self.dtype, self.shape = values.dtype, values.shape
        stride, self.strides, self.offset = values.itemsize, [], GUARD
        for extent, step in reversed([*zip(values.shape, steps)]):
            self.strides.insert(0, stride * step)
            self.offset += max(extent - 1, 0) * stride * -step if step < 0 else 0
            stride *= max(extent, 1) * abs(step)
        self.size = values.nbytes
        self.bytes = bytearray(b"\xa5" * (2 * GUARD + stride))
        self.bytes[:] = self.before = self.with_values(values)

    def with_values(self, values):
        """The image of the memory with these values in it."""
        image = bytearray(b"\xa5" * len(self.bytes))
        np.ndarray(self.shape, self.dtype, image, self.offset, self.strides)[...] = values
        return bytes(image)

    def array(self):
        return np.ndarray(self.shape, self.dtype, self.bytes, self.offset, self.strides)

    def elements(self):
        """The bytes of the elements of a contiguous array."""
        return memoryview(self.bytes)[self.offset : self.offset + self.size]

    def is_held(self):
        """Whether anything still views it, through NumPy, which keeps a reference, or in another way."""
        if sys.getrefcount(self.bytes) > 2:
            return True
        try:
            self.bytes.append(0)
        except BufferError:
            return True
        self.bytes.pop()
        return False


# Carriers of an array of a kind: object for (memory, kind, log). The others take contiguous arrays alone.
ANY_LAYOUT = {
    "array": lambda memory, kind, log: memory.array(),
    "memoryview of an array": lambda memory, kind, log: memoryview(memory.array()),
}


def read_only_array(memory, kind, log):
    view = memory.array()
    view.flags.writeable = False
    return view


def in_recorder(format):
    def carrier(memory, kind, log):
        size = memory.dtype.itemsize
        # Without elements it lies nowhere.
        data = memory.elements() if memory.size else None
        return log.buffer(data, format[memory.dtype.char], size, memory.shape)

    return carrier


def plain_view(memory, kind, log):
    letter = {"i4": "i", "i8": "q", "f8": "d"}[memory.dtype.str[1:]]
    if 0 in memory.shape and len(memory.shape) > 1:  # which casts don't make
        return log.buffer(bytes(8), letter, memory.dtype.itemsize, memory.shape)
    return memory.elements().cast(letter, memory.shape) if memory.size else memory.elements().cast(letter)


READ_ONLY = {
    "read-only array": read_only_array,
    "read-only memoryview": lambda memory, kind, log: memoryview(memory.array()).toreadonly(),
}
CONTIGUOUS = {
    "memoryview": plain_view,
    "recorder": in_recorder({"i": "i", "l": "q", "q": "q", "d": "d"}),
    "recorder of long": in_recorder({"i": "l", "l": "l", "q": "l", "d": "d"}),
}


def table(entries, reverse=False):
    objects = np.empty(len(entries), object)
    for place, entry in enumerate(entries):
        objects[place] = entry
    return objects[::-1].copy()[::-1] if reverse else objects


class Assembly:
    """Arguments for a call, each in a carrier drawn by chance, and what their memory holds after the call.

    carriers: those to draw from; plain: scalars as they are, and no NumPy objects if the carriers are none. Then
    arguments: the list to call with; memories: by place, the Memory of each array, or a list of them for a table. log:
    what recorder.Buffers among them write.
    """

    def __init__(self, call, declared, rng, carriers=ANY_LAYOUT | READ_ONLY | CONTIGUOUS, plain=False):
        self.call, self.declared, self.rng, self.carriers = call, declared, rng, carriers
        self.arguments, self.memories, self.log = [], {}, Log()
        for place, (value, parameter) in enumerate(zip(call.arguments, declared.takes)):
            if isinstance(value, Same):
                self.arguments.append(self.arguments[value.place])
            elif parameter.letter != "O":
                self.arguments.append(value if plain else equivalent(value, parameter.letter, rng))
            elif value is None:
                self.arguments.append(None)
            elif parameter.kind == "i32*":
                self.memories[place], entries = [], []
                for entry in value:
                    entries.append(None if entry is None else self.carried(entry, "i32", self.memories[place]))
                if plain:
                    references = (ctypes.py_object * len(entries))(*entries)
                    self.arguments.append(self.log.buffer(references, "O", 8, (len(entries),)))
                    continue
                objects = table(entries, rng.random() < 0.3)
                self.arguments.append(memoryview(objects) if rng.random() < 0.3 else objects)
            else:
                held = []
                self.arguments.append(self.carried(value, parameter.kind, held))
                (self.memories[place],) = held

    def carried(self, values, kind, held):
        """An object that carries the values; their Memory is appended to `held`."""
        name = self.rng.choice(list(self.carriers))
        contiguous = name in CONTIGUOUS or self.rng.random() < 0.4
        steps = [1 if contiguous else self.rng.choice(STEPS) for _ in values.shape]
        memory = Memory(values, steps)
        held.append(memory)
        return self.carriers[name](memory, kind, self.log)

    def every_memory(self):
        """(place, Memory) of all arrays, those of tables too."""
        for place, held in self.memories.items():
            yield from ((place, memory) for memory in (held if isinstance(held, list) else [held]))

    def images(self, is_refused):
        """(place, Memory, the image that it has to have after the call)."""
        for place, memory in self.every_memory():
            after = None if is_refused else self.call.after.get(place)
            yield place, memory, memory.before if after is None else memory.with_values(after)

    def name(self, place):
        return f"argument '{self.declared.takes[place].name}'"


class Gives:
    """An object whose index, float, truth or length is what `gives` is; an exception is raised."""

    def __init__(self, gives):
        self.gives = gives

    def give(self):
        if isinstance(self.gives, BaseException):
            raise self.gives
        return self.gives

    def __repr__(self):
        return f"{type(self).__name__}({self.gives!r})"


class Index(Gives):
    __index__ = Gives.give


class Float(Gives):
    __float__ = Gives.give


class Truth(Gives):
    __bool__ = Gives.give


class Length(Gives):
    __len__ = Gives.give


class Number(int):
    """An int of another class."""


def equivalent(value, letter, rng):
    """Another object that stands for a scalar argument, or the value itself."""
    if rng.random() < 0.7:
        return value
    if letter in "iL":
        others = [Number(value), Index(value), np.int64(value)]
        others += [bool(value)] if value in (0, 1) else []
    elif letter == "d":
        others = [np.float64(value), Float(value)]
        others += [int(value), Index(int(value))] if math.isfinite(value) and value == int(value) != 0 else []
    else:
        true, false = [1, "0", 0.5, math.nan, (0,), Truth(True), Length(3)], [0, "", None, 0.0, Truth(False), Length(0)]
        others = true if value else false
    return rng.choice(others)


class Trouble(Exception):
    """What failing objects raise."""


NOT_NUMBERS = ["1", b"1", None, object(), [1], {}, 1j, (), Ellipsis, int]
NOT_INTEGERS = [*NOT_NUMBERS, 0.0, 1.5, math.nan, math.inf, np.float64(1), np.array([1, 2]), Index("1"), Index(1.0)]
NOT_INTEGERS += [Float(1.0), Index(Trouble("no index")), Index(KeyboardInterrupt("no index"))]
HUGE = [2**63, -(2**63) - 1, 2**64, -(2**64), 2**100, -(10**400), Index(2**63)]

# By letter, scalars that are refused.
BAD_SCALARS = {
    "i": [*NOT_INTEGERS, *HUGE, 2**31, -(2**31) - 1, 2**32, np.int64(2**31), Index(-(2**40)), np.uint32(2**32 - 1)],
    "L": [*NOT_INTEGERS, *HUGE, np.uint64(2**63)],
    "d": [*NOT_NUMBERS, Float("1"), Float(1), Float(Trouble("no float")), Index(Trouble("no index")), 10**400],
    "p": [Truth(Trouble("no truth")), Truth(1), Truth(None), Length(Trouble("no length")), Length(-1), np.zeros(2)],
}

RELEASED = memoryview(b"released")
RELEASED.release()
closed = mmap.mmap(-1, 8)
closed.close()
NO_BUFFERS = [0, 1.5, math.nan, 2**100, "text", [1, 2], {}, (), object(), True, Ellipsis, int, Index(0)]
NO_BUFFERS += [RELEASED, closed, np.zeros(2, "datetime64[s]"), np.float64]

# Formats with item sizes that some array might be taken for.
SIZED = [(letter, size) for letter in "bBhHiIlLqQnNfdgc?PsOZ" for size in (1, 2, 4, 8, 16)]
MARKED = [(mark + letter, size) for mark in "<>=!@" for letter, size in zip("iqldO", (4, 8, 8, 8, 8))]
ODD = [("OO", 16), ("OO", 8), ("O!", 8), ("2O", 16), ("T{O:x:}", 8), ("T{i:x:}", 4), ("T{i:x:i:y:}", 8), ("4i", 16)]
ODD += [("", 1), ("", 4), ("", 8), (" i", 4), ("xi", 8), ("(2)i", 8), ("X", 8), ("&d", 8), ("Zd", 16), ("-", 4)]
FORMATS = SIZED + MARKED + ODD
# Those that are closest to the formats of each kind.
NEAR = {
    kind: [
        (format, size)
        for format, size in FORMATS
        if size == ARRAYS[kind][1] and format in "iIlLqQnNfdP" or set(format) & set(ARRAYS[kind][0]) and size in (4, 8)
    ]
    for kind in ("i32", "i64", "f64")
} | {"i32*": [(format, size) for format, size in FORMATS if "O" in format]}
DTYPES = [">i4", ">i8", ">f8", "i1", "i2", "u4", "u8", "f2", "f4", "c8", "c16", "?", "S4", "S8", "V8", "O"]
DTYPES += [[("x", "i4")], [("x", "f8")], [("x", "i4"), ("y", "i4")]]


def wrong_format(rng, kind, log):
    """A buffer of the kind's dimensions of any format, and zeros behind it."""
    format, size = rng.choice(NEAR[kind.removesuffix('x2')] if rng.random() < 0.5 else FORMATS)
    shape = tuple(rng.choice((0, 1, 2)) for _ in range(ARRAYS[kind][2]))
    return log.buffer(bytes(16 * 4), format, size, shape)


def wrong_dtype(rng, kind, log):
    return np.zeros([rng.choice((0, 1, 3)) for _ in range(ARRAYS[kind][2])], rng.choice(DTYPES))


def wrong_dimensions(rng, kind, log):
    """An array of the kind's type, of other dimensions."""
    dimensions = rng.choice([n for n in range(5) if n != ARRAYS[kind][2]])
    shape = tuple(rng.choice((0, 1, 2)) for _ in range(dimensions))
    if kind == "i32*" or rng.random() < 0.5:
        return np.zeros(shape, ARRAYS[kind][3])
    return log.buffer(bytes(8 * 16), rng.choice(ARRAYS[kind][0]), ARRAYS[kind][1], shape)


def cast_view(rng, kind, log):
    """A memoryview in a native format."""
    view = memoryview(bytearray(16)).cast(rng.choice(["b", "B", "c", "h", "H", "I", "L", "Q", "n", "N", "f", "?", "P"]))
    return view if ARRAYS[kind][2] == 1 else view.cast("B").cast(view.format, (1, 16 // view.itemsize))


def other_array(rng, kind, log):
    """An array that fits another kind."""
    other = rng.choice([other for other in ARRAYS if ARRAYS[other][2:] != ARRAYS[kind][2:]])
    return np.zeros((2,) * ARRAYS[other][2], ARRAYS[other][3])


def no_buffer(rng, kind, log):
    return rng.choice(NO_BUFFERS)


def wrong_library(rng, kind, log):
    return rng.choice([array.array("u"), array.array("f", [1]), b"bytes", bytearray(8), (ctypes.py_object * 1)(None)])


BAD_ARRAYS = [wrong_format, wrong_dtype, wrong_dimensions, cast_view, other_array, no_buffer, wrong_library]


def bad_values(parameter, log, rng, plain=False):
    """Objects that are refused for a parameter, without end; plain: no NumPy objects among them."""
    while True:
        if parameter.letter != "O":
            value = rng.choice(BAD_SCALARS[parameter.letter])
        else:
            value = rng.choice(BAD_ARRAYS)(rng, parameter.kind, log)
            if not bound(value, parameter, False)[0]:
                continue
        if not plain or not isinstance(value, (np.ndarray, np.generic, type)):
            yield value
