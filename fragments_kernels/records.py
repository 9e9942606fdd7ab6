"""Checks and shows the expression records that kernels read and write; needs NumPy.

    check_record(stack, record)      raises RecordError, which says what is wrong where
    show_record(stack, record)       prints it as formulas, [0, 2]: 2.5 x7 + 1.7 x9
    mark_unwritten(i32, i64, f64)    fills arrays before a kernel writes them: what stays so is a fault of the record

A stack is an object with the arrays i32, i64 and f64 and, if it tells what is reserved, `top`, three numbers of slots;
or just (i32, i64, f64). None is an empty array. A record is an object or a mapping with the scalars and positions of
its fields:

    shape            position in i32 of `nd` extents, or the extents themselves
    nelem, nnz       the numbers of elements and terms
    ptr, nidxs, cof  positions in i32, i64, f64
    sp               position in i64, if the record is sparse: if `hassp`, or without `hassp` if there is an `sp`
    ncodeatom        the number of atoms; above 0 the record has code: `codeptr`, `code` and `cconst`, positions in i32,
                     i32 and f64
"""

import math
import sys
from typing import Any, Callable, Dict, Iterator, List, Mapping, NamedTuple, Optional, Sequence, TextIO, Tuple

import numpy as np
from numpy.typing import NDArray

ARRAYS = {"i32": np.int32, "i64": np.int64, "f64": np.float64}
NAMES = ("nd", "nelem", "nnz", "ncodeatom", "hassp", "shape", "ptr", "codeptr", "code", "sp", "nidxs", "cof", "cconst")

# How coefficient code works: of each opcode the values that it takes off the stack; all but 0 leave one there.
PARAMETER, CONSTANT, ADD, NEGATE, MULTIPLY, INVERT, ADD_SEVERAL, MOVED_TO_COF = 1, 2, 3, 4, 5, 6, 8, 10
TAKES = {0: 0, PARAMETER: 0, CONSTANT: 0, ADD: 2, NEGATE: 1, MULTIPLY: 2, INVERT: 1}


class RecordError(ValueError):
    """What is wrong with a record, a line each."""


class Field(NamedTuple):
    """A field of a record: its slots, the array that they lie in and where they begin."""

    name: str
    array: str
    start: int
    values: NDArray[Any]

    def slot(self, k: int) -> str:
        """A slot as it is called in faults."""
        return f"{self.name}[{k}] (slot {self.start + k} of {self.array})"


def mark_unwritten(*arrays: NDArray[Any]) -> None:
    """Fills arrays with bytes 0xa5, hardly met in a record: the checks take such slots for never written."""
    for array in map(np.asarray, arrays):
        array[...] = np.frombuffer(b"\xa5" * array.itemsize, dtype=array.dtype)[0]


def check_record(
    stack: Any,
    record: Any,
    *,
    variables: Optional[int] = None,
    semidefinite: Optional[int] = None,
    parameters: Optional[int] = None,
) -> None:
    """Raises RecordError if a record is not what kernels take for one.

    variables: the highest number of a variable; semidefinite: the number of semidefinite elements, which terms name by
    -1 and below; parameters: the number of parameters. None does not check these.
    """
    faults = record_faults(stack, record, variables=variables, semidefinite=semidefinite, parameters=parameters)
    if faults:
        raise RecordError("\n".join(faults))


def record_faults(
    stack: Any,
    record: Any,
    *,
    variables: Optional[int] = None,
    semidefinite: Optional[int] = None,
    parameters: Optional[int] = None,
) -> List[str]:
    """What check_record() would raise, one fault each; the first of its kind stands for others behind it."""
    values = _values(record)
    arrays = _arrays(stack)
    faults = [
        f"{name} is {array.dtype} with {array.ndim} axes, not {np.dtype(ARRAYS[name])} with one"
        for name, array in arrays.items()
        if array.dtype != ARRAYS[name] or array.ndim != 1
    ] + [f"{count} is {values[count]}" for count in ("nd", "nelem", "nnz", "ncodeatom") if values[count] < 0]
    if faults:
        return faults
    fields, faults = _fields(arrays, values, getattr(stack, "top", None))
    if faults:
        return faults

    unwritten = [fault for field in fields.values() for fault in _unwritten(fields, field)]
    if unwritten:
        return unwritten
    faults = [*_pointer_faults(fields["ptr"], values["nnz"], "nnz", "terms"), *_pattern_faults(fields, values)]
    if not faults:
        faults += _variable_faults(fields, variables, semidefinite)
    if "code" in fields:
        of_codeptr = list(_pointer_faults(fields["codeptr"], values["ncodeatom"], "ncodeatom", "atoms"))
        faults += of_codeptr or ([] if faults else _code_faults(fields, parameters))
    return faults


def show_record(stack: Any, record: Any, *, limit: int = 100, file: Optional[TextIO] = None) -> None:
    """Prints a record, one line for each stored element, `limit` at the most; RecordError if it is none.

    x7 is variable 7, s0 semidefinite element 0, which is variable -1 of the record, p3 parameter 3.
    """
    check_record(stack, record)
    values = _values(record)
    fields, _ = _fields(_arrays(stack), values, None)
    extents = fields["shape"].values
    shape = " x ".join(map(str, extents)) or "scalar"
    size = math.prod(extents.tolist())
    kind = f"sparse, {values['nelem']} of {size} elements" if "sp" in fields else f"dense, {size} elements"
    code = f", {values['ncodeatom']} atoms of code" if values["ncodeatom"] else ""
    lines = [f"{shape}: {kind}, {values['nnz']} terms{code}"]
    lines += [f"{_index(fields, i)}: {_formula(fields, i)}" for i in range(min(values["nelem"], limit))]
    if values["nelem"] > limit:
        lines.append(f"... and {values['nelem'] - limit} more")
    print("\n".join(lines), file=file or sys.stdout)


# What is where


def _arrays(stack: Any) -> Dict[str, NDArray[Any]]:
    arrays = [getattr(stack, name) for name in ARRAYS] if hasattr(stack, "i32") else stack
    empty = {name: np.empty(0, dtype) for name, dtype in ARRAYS.items()}
    return {name: np.asarray(empty[name] if array is None else array) for name, array in zip(ARRAYS, arrays)}


def _values(record: Any) -> Dict[str, Any]:
    """The scalars and positions of a record, None for what it does not have. TypeError if it lacks needed ones."""
    get = record.get if isinstance(record, Mapping) else lambda name: getattr(record, name, None)
    values: Dict[str, Any] = {name: get(name) for name in NAMES}
    values["ncodeatom"] = values["ncodeatom"] or 0
    if values["hassp"] is None:
        values["hassp"] = values["sp"] is not None
    if np.ndim(values["shape"]):
        values["nd"] = len(values["shape"])
    needed = ["nd", "shape", "nelem", "nnz", "ptr", "nidxs", "cof"] + ["sp"] * bool(values["hassp"])
    needed += ["codeptr", "code", "cconst"] * (values["ncodeatom"] > 0)
    missing = [name for name in needed if values[name] is None]
    if missing:
        raise TypeError(f"the record does not tell {', '.join(missing)}")
    return values


def _fields(
    arrays: Mapping[str, NDArray[Any]], values: Mapping[str, Any], top: Optional[Sequence[int]]
) -> Tuple[Dict[str, Field], List[str]]:
    """The fields by name, and those that lie outside their array or what is reserved of it, or in one another."""
    nelem, nnz, atoms = values["nelem"], values["nnz"], values["ncodeatom"]
    layout = {"i32": {"shape": values["nd"], "ptr": nelem + 1}, "i64": {"nidxs": nnz}, "f64": {"cof": nnz}}
    if values["hassp"]:
        layout["i64"]["sp"] = nelem
    if atoms:
        layout["i32"].update(codeptr=nnz + 1, code=atoms)
        layout["f64"].update(cconst=atoms)
    fields, faults = {}, []
    for (array, lengths), reserved in zip(layout.items(), top or (None, None, None)):
        places = []
        for name, n in lengths.items():
            start, slots = values[name], arrays[array]
            if np.ndim(start):
                fields[name] = Field(name, "the extents given", 0, np.array(start, dtype=np.int64))
                continue
            fields[name] = Field(name, array, int(start), slots[max(start, 0) : max(start + n, 0)])
            end = f"{name} takes slots {start} to {start + n - 1} of {array}"
            if n and (start < 0 or start + n > len(slots)):
                faults.append(f"{end}, which has {len(slots)}")
            elif n and reserved is not None and start + n > reserved:
                faults.append(f"{end}, of which {reserved} are reserved")
            elif n:
                places.append((start, start + n, name))
        places.sort()
        faults += [
            f"{second} begins at slot {begin} of {array}, within {first}, which takes slots {start} to {end - 1}"
            for (start, end, first), (begin, _, second) in zip(places, places[1:])
            if begin < end
        ]
    return fields, faults


def _index(fields: Mapping[str, Field], i: int) -> str:
    """The multi-index of a stored element, or its flat position where that lies outside the shape."""
    flat = int(fields["sp"].values[i]) if "sp" in fields else i
    extents = fields["shape"].values.tolist()
    if not 0 <= flat < math.prod(extents):
        return f"flat position {flat}"
    index: List[int] = []
    for extent in reversed(extents):
        flat, coordinate = divmod(flat, extent)
        index.insert(0, coordinate)
    return str(index)


def _place(fields: Mapping[str, Field], term: int) -> str:
    """The element of a term."""
    element = int(np.searchsorted(fields["ptr"].values, term, side="right")) - 1
    return f"in element {element}, {_index(fields, element)}"


def _first(faulty: NDArray[Any]) -> Tuple[int, str]:
    """Where the first fault is, and how many follow; there must be one."""
    places = np.flatnonzero(faulty)
    return int(places[0]), f", and {len(places) - 1} more" if len(places) > 1 else ""


# Checks, each of what those before it found in order


def _unwritten(fields: Mapping[str, Field], field: Field) -> Iterator[str]:
    if field.array not in ARRAYS:
        return
    marked = np.empty(1, dtype=field.values.dtype)
    mark_unwritten(marked)
    faulty = field.values.view(f"i{marked.itemsize}") == marked.view(f"i{marked.itemsize}")  # bit for bit
    if field.name == "cconst":  # most opcodes never read their operand
        faulty &= np.isin(fields["code"].values, [PARAMETER, CONSTANT, ADD_SEVERAL])
    if faulty.any():
        k, more = _first(faulty)
        yield f"{field.slot(k)} was never written{more}"


def _pointer_faults(ptr: Field, end: int, count: str, what: str) -> Iterator[str]:
    """`ptr` and `codeptr`: from 0 to the number of terms or atoms, never down."""
    values = ptr.values
    if values[0] != 0:
        yield f"{ptr.slot(0)} is {values[0]}, not 0: slot 0 is the caller's to set"
        return
    falls = values[1:] < values[:-1]
    if falls.any():
        k, more = _first(falls)
        yield f"{ptr.slot(k + 1)} is {values[k + 1]}, below {ptr.name}[{k}] = {values[k]}{more}"
    elif values[-1] != end:
        yield f"{ptr.slot(len(values) - 1)} is {values[-1]}, but the record has {count} = {end} {what}"


def _pattern_faults(fields: Mapping[str, Field], values: Mapping[str, Any]) -> Iterator[str]:
    """The shape, and which elements of it are stored."""
    shape, nelem = fields["shape"], values["nelem"]
    if (shape.values < 0).any():
        k, _ = _first(shape.values < 0)
        yield f"{shape.slot(k)} is {shape.values[k]}, an extent below 0"
        return
    extents = shape.values.tolist()
    size = math.prod(extents)
    if "sp" not in fields:
        if nelem != size:
            yield f"a dense record of shape {extents} has {size} elements, but nelem = {nelem}"
        return
    sp = fields["sp"]
    outside, steps = (sp.values < 0) | (sp.values >= size), sp.values[1:] <= sp.values[:-1]
    if outside.any():
        i, more = _first(outside)
        yield f"{sp.slot(i)} is {sp.values[i]}, outside 0..{size - 1} of the shape {extents}{more}"
    if steps.any():
        i, more = _first(steps)
        yield f"{sp.slot(i + 1)} is {sp.values[i + 1]}, not above sp[{i}] = {sp.values[i]}{more}"


def _variable_faults(
    fields: Mapping[str, Field], variables: Optional[int], semidefinite: Optional[int]
) -> Iterator[str]:
    nidxs = fields["nidxs"]
    for limit, faulty, what in [
        (variables, None if variables is None else nidxs.values > variables, "the highest variable is"),
        (semidefinite, None if semidefinite is None else nidxs.values < -(semidefinite or 0),
         "the number of semidefinite elements is"),
    ]:  # fmt: skip
        if faulty is not None and faulty.any():
            t, more = _first(faulty)
            yield f"{nidxs.slot(t)} is {nidxs.values[t]}, but {what} {limit}; {_place(fields, t)}{more}"


def _code_faults(fields: Mapping[str, Field], parameters: Optional[int]) -> List[str]:
    """Every program leaves one value and takes only what it has pushed."""
    ptr, code, cconst = (fields[name].values for name in ("codeptr", "code", "cconst"))
    lengths = np.diff(ptr)
    term = np.repeat(np.arange(len(lengths)), lengths)
    is_moved = (code == MOVED_TO_COF) & (lengths[term] == 1)
    is_sum = code == ADD_SEVERAL

    def fault(faulty: NDArray[Any], text: Callable[[int], str]) -> List[str]:
        a, more = _first(faulty)
        return [f"{fields['code'].slot(a)} is {code[a]}, {text(a)}; term {term[a]} {_place(fields, term[a])}{more}"]

    unknown = ~np.isin(code, [*TAKES, ADD_SEVERAL]) & ~is_moved
    if unknown.any():
        return fault(unknown, lambda a: "no opcode")
    numbers = np.where((code == PARAMETER) | is_sum, cconst, 0)
    no_number = ~((numbers >= 0) & (numbers < 2**31)) | (numbers != np.floor(numbers))
    if no_number.any():
        return fault(no_number, lambda a: f"which takes a number, not {cconst[a]}")
    if parameters is not None and (numbers[code == PARAMETER] >= parameters).any():
        beyond = (code == PARAMETER) & (numbers >= parameters)
        return fault(beyond, lambda a: f"parameter {cconst[a]:.0f}, but there are {parameters}")

    takes = np.select([code == op for op in TAKES], list(TAKES.values()), 0)
    takes += np.where(is_sum, cconst, 0).astype(np.int64)
    total = np.concatenate([[0], np.cumsum((code != 0) - takes)])
    depth = total[:-1] - total[ptr[term]]  # before each atom
    if (depth < takes).any():
        return fault(depth < takes, lambda a: f"which takes {takes[a]} values from a stack of {depth[a]}")
    left = total[ptr[1:]] - total[ptr[:-1]]
    if (left != 1).any():
        t, more = _first(left != 1)
        return [f"the code of term {t}, {lengths[t]} atoms, leaves {left[t]} values, not 1; {_place(fields, t)}{more}"]
    return []


# Formulas


def _formula(fields: Mapping[str, Field], element: int) -> str:
    ptr = fields["ptr"].values
    terms = [_term(fields, t) for t in range(ptr[element], ptr[element + 1])]
    text = " + ".join(terms) or "0"
    return text.replace("+ -", "- ")


def _term(fields: Mapping[str, Field], t: int) -> str:
    number, coefficient = int(fields["nidxs"].values[t]), _coefficient(fields, t)
    if not number:
        return coefficient
    variable = f"x{number}" if number > 0 else f"s{~number}"
    if " " in coefficient:
        coefficient = f"({coefficient})"
    return {"1": variable, "-1": f"-{variable}"}.get(coefficient, f"{coefficient} {variable}")


def _number(value: float) -> str:
    return repr(float(value)).removesuffix(".0")


def _coefficient(fields: Mapping[str, Field], t: int) -> str:
    """`cof` plus the value of the code."""
    cof = _number(fields["cof"].values[t])
    if "code" not in fields:
        return cof
    begin, end = fields["codeptr"].values[t : t + 2]
    code = fields["code"].values[begin:end].tolist()
    if code == [MOVED_TO_COF]:
        return cof
    text = _infix(code, fields["cconst"].values[begin:end].tolist())
    return cof if text == "0" else text if cof in ("0", "-0") else f"{cof} + {text}"


def _infix(code: Sequence[int], operands: Sequence[float]) -> str:
    """A well-formed program as a formula."""
    stack: List[str] = []

    def pop(n: int) -> List[str]:
        taken = stack[len(stack) - n :]
        del stack[len(stack) - n :]
        return taken

    def factor(text: str) -> str:
        return f"({text})" if " " in text or text[0] == "-" or "/" in text else text

    for opcode, operand in zip(code, operands):
        if opcode == PARAMETER:
            stack.append(f"p{int(operand)}")
        elif opcode == CONSTANT:
            stack.append(_number(operand))
        elif opcode in (ADD, ADD_SEVERAL):
            stack.append(" + ".join(pop(2 if opcode == ADD else int(operand))) or "0")
        elif opcode == MULTIPLY:
            stack.append("*".join(map(factor, pop(2))))
        elif opcode == NEGATE:
            stack.append(f"-{factor(pop(1)[0])}")
        elif opcode == INVERT:
            divisor = pop(1)[0]
            stack.append(f"1/({divisor})" if "*" in divisor else f"1/{factor(divisor)}")
    return stack[0]
