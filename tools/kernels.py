#!/usr/bin/env python3
"""Write what people and tools want to know of the kernels.

    kernels.py table            one line a number, tab-separated: number, body (the lowest number of its group), format
                                (the letters that the arguments are parsed by), parameters (name:kind), result
    kernels.py describe N ...   the kernels of these numbers, names or words (472, write_sparse_product, symmetrise):
                                what they compute, what each parameter and result means
    kernels.py find WORD ...    the kernels that a phrase may mean ("sum along", transpose): number, name, file, what
    kernels.py check            what is left unexplained or explained wrongly; succeeds if there is nothing
    kernels.py stub             the type stub fragments.pyi
    kernels.py names            the companion's module of names; names-stub: its type stub
    kernels.py reference        the kernel reference in Markdown, by family and by number
"""

import argparse
import keyword
import os
import re
import sys
import textwrap
from itertools import groupby

from declarations import FIXED_ROLES, read_kernels
from search import kernels_for

WIDTH = 120

FOLDERS = {
    "stack": "Operators on expression records",
    "code": "Coefficient code and parametrised rows",
    "index": "Shapes, strides, patterns and lists",
    "store": "Stored expressions, sparse matrices and slot chains",
    "model": "Variable views, model rows, domains and solutions",
}


def by_number(kernels):
    """[(number, kernel)], ascending."""
    return sorted(((number, kernel) for kernel in kernels for number in kernel.numbers), key=lambda item: item[0])


def explanation(kernel, parameter):
    """(role, length, meaning) of a parameter or result, empty where nothing explains it."""
    entry = kernel.entry(parameter)
    return (entry.role_among(kernel.own_names()), entry.length, entry.meaning) if entry else ("", "", "")


def result_explanation(kernel, result):
    """(role, length, meaning) of a result."""
    return ("", "", "carried on") if kernel.carries_on(result.name) else explanation(kernel, result)


def filled(text, width, indent=""):
    """A text in lines of a width, those behind the first indented."""
    return textwrap.fill(text, width, subsequent_indent=indent, break_on_hyphens=False)


def paragraphs(text):
    """The parts of a comment: (True, indented lines as they are) or (False, a paragraph in one line)."""
    for is_literal, lines in groupby(text.splitlines(), key=lambda line: line.startswith("    ")):
        if is_literal:
            yield True, "\n".join(lines)
        else:
            yield from ((False, " ".join(part.split())) for part in "\n".join(lines).split("\n\n") if part.strip())


# table


def table(kernels):
    return "\n".join(["number\tbody\tformat\tparameters\tresult"] + [table_line(*item) for item in by_number(kernels)])


def table_line(number, kernel):
    parameters = " ".join(f"{name}:{kind}" for name, kind in kernel.parameters)
    results = ",".join(kernel.results) or "none"
    return "\t".join([str(number), str(kernel.numbers[0]), kernel.format, parameters, results])


# describe and find

MOST_DESCRIBED = 20  # kernels that words alone bring up


def describe(kernels, wanted):
    """The kernels of these numbers, names or words, each family's head once behind them; a list, if words bring up too
    many. SystemExit if nothing fits one of them."""
    kernel_of = {str(number): kernel for number, kernel in by_number(kernels)}
    kernel_of.update({kernel.name: kernel for kernel in kernels})
    keys = [str(key).removeprefix("_c_closure_") for key in wanted]
    chosen = [kernel_of[key] for key in keys if key in kernel_of]
    words = [key for key in keys if key not in kernel_of]
    for word in words:
        if word.lstrip("-").isdigit():
            raise SystemExit(f"there is no _c_closure_{word}")
    found = found_kernels(kernels, words)
    if len(found) > MOST_DESCRIBED:
        return f"{find(kernels, words)}\n\n{len(found)} kernels: describe some of them by number or name"
    by_family = {}
    for kernel in {kernel.name: kernel for kernel in chosen + found}.values():
        by_family.setdefault(kernel.family.place(), []).append(kernel)
    parts = []
    for place, members in by_family.items():
        parts += [description(kernel) for kernel in members]
        if members[0].family.head.text:
            parts.append(f"--- {place}\n\n{members[0].family.head.text}\n")
    return "\n".join(parts)


def found_kernels(kernels, words):
    """The kernels for words as one phrase, or for each by itself. SystemExit if there are none."""
    found = kernels_for(" ".join(words), kernels)
    for word in [] if found else words:
        of_word = kernels_for(word, kernels)
        if not of_word:
            raise SystemExit(f"no kernel is found by the word {word!r}")
        found += [kernel for kernel in of_word if kernel not in found]
    return found


def find(kernels, words):
    """A line for each kernel that the words may mean."""
    rows = [("number", "name", "file", "what")]
    for kernel in found_kernels(kernels, words):
        first, *others = kernel.numbers
        numbers = f"{first} and {len(others)} more" if others else str(first)
        rows.append((numbers, kernel.name, kernel.family.place(), first_sentence(kernel.comment.text)))
    return in_columns(rows)


def first_sentence(text):
    """The first sentence of a comment, in one line."""
    return re.split(r"(?<=[.:])\s+(?=[A-Z`]|$)", " ".join(text.split("\n\n")[0].split()))[0].rstrip(":")


def description(kernel):
    names = ", ".join(name for name, _ in kernel.parameters)
    results = ", ".join(result.name or result.type for result in kernel.gives) or "None"
    call = filled(f"{kernel.name}({names}) -> {results}", WIDTH, "    ")
    rows = [("parameter", "kind", "role", "", "length", "meaning")]
    for parameter in kernel.takes:
        role, *rest = explanation(kernel, parameter)
        rows.append((parameter.name, parameter.kind, role, parameter.access, *rest))
    if kernel.gives:
        rows.append(("result", "", "", "", "", ""))
    for result in kernel.gives:
        role, *rest = result_explanation(kernel, result)
        rows.append((result.name, result.type, role, "", *rest))
    return f"{kernel.names()}   {kernel.place()}\n{call}\n\n{kernel.comment.text}\n\n{in_columns(rows)}\n"


def in_columns(rows):
    """Rows of cells as lines, the last column wrapped."""
    widths = [max(map(len, column)) for column in zip(*rows)][:-1]
    lines = []
    for *cells, last in rows:
        start = "".join(cell.ljust(width + 2) for cell, width in zip(cells, widths) if width)
        room = max(WIDTH - len(start), 40)
        wrapped = textwrap.wrap(last, room) or [""]
        lines += [(start + wrapped[0]).rstrip()] + [" " * len(start) + rest for rest in wrapped[1:]]
    return "\n".join(lines)


# check

COMPANION = {"call", "checked", "fragments", "kernel", "records"}  # what fragments_kernels has besides kernels

# A comment is read alone, so that it can't point to the one before it.
LEANING = re.compile(
    r"\AThe same\b|\b(as above|see above|see below|ditto|likewise|the other way (a)?round|of that (with|without))\b"
)
# Numbers of kernels that stand in comments. Those of fewer digits are all taken, so that none of them can be wrong.
CITED = re.compile(r"(?<![\w.^-])\d{3}(?!\w|\.\d)")


def check(kernels):
    """What is wrong, one line each."""
    declared = {number for kernel in kernels for number in kernel.numbers}
    faults = []
    for family, members in groupby(kernels, key=lambda kernel: kernel.family):
        members = list(members)
        names = set().union(*(kernel.own_names() for kernel in members))
        place = f"{family.place()}:1 head"
        faults += [f"{place}: {fault}" for fault in comment_faults(family.head, names, declared)]
        for kernel in members:
            place = f"{kernel.place()} {kernel.name}"
            faults += [f"{place}: {fault}" for fault in kernel_faults(kernel, declared)]
    faults += [f"{kernel.place()} {kernel.name}: {fault}" for kernel, fault in name_faults(kernels)]
    return faults + [f"src/parameters.md: {fault}" for fault in dictionary_faults(kernels)]


def comment_faults(comment, names, declared):
    """Faults of a comment over parameters and results of these names."""
    yield from entry_faults(comment)
    for name in comment.entries:
        if name not in names:
            yield f"explains {name}, which is not there"
    for number in CITED.findall(comment.text):
        if int(number) not in declared:
            yield f"names {number}, which is no kernel"


def entry_faults(comment):
    yield from comment.faults
    for entry in comment.entries.values():
        if not entry.has_known_role():
            yield f"gives {entry.name} the unknown role {entry.role}"


def kernel_faults(kernel, declared):
    yield from comment_faults(kernel.comment, kernel.own_names(), declared)
    if not kernel.comment.text:
        yield "has no comment"
    leaning = LEANING.search(kernel.comment.text)
    if leaning:
        yield f"leans on another comment: {leaning[0]}"
    for parameter in kernel.takes:
        yield from explanation_faults(kernel, parameter)
    for result in kernel.gives:
        if not result.name:
            yield f"has a result {result.type} without a name"
        elif not kernel.carries_on(result.name):
            yield from explanation_faults(kernel, result)
        elif (result.name, result.kind) not in kernel.parameters:
            yield f"gives {result.name} back in another type"


def explanation_faults(kernel, parameter):
    entry = kernel.entry(parameter)
    if not entry:
        yield f"does not explain {parameter.name}:{parameter.kind}"
    elif (entry.role == "array") != parameter.is_array:
        yield f"takes {parameter.name}:{parameter.kind} for: {entry.role}"
    elif entry.arrays() and kernel.own_names().isdisjoint(entry.arrays()):
        yield f"has no array for {parameter.name}, {entry.role}"
    elif entry.role in FIXED_ROLES and kernel.carries_on(parameter.name):
        yield f"gives {parameter.name} back, which is no {entry.role} then"
    elif entry.role == "cursor" and all(result.name for result in kernel.gives) and parameter in kernel.takes:
        if not kernel.carries_on(parameter.name):
            yield f"does not give the cursor {parameter.name} back"


def name_faults(kernels):
    """(kernel, fault) of names that the companion cannot give."""
    first = {}
    for kernel in kernels:
        if first.setdefault(kernel.name, kernel) is not kernel:
            yield kernel, f"has the name of {first[kernel.name].place()}"
        if kernel.name in COMPANION or keyword.iskeyword(kernel.name):
            yield kernel, "has a name that means something else in fragments_kernels"


def dictionary_faults(kernels):
    dictionary = kernels[0].dictionary
    used = {id(kernel.entry(declared)) for kernel in kernels for declared in kernel.takes + kernel.gives}
    yield from entry_faults(dictionary)
    for entry in dictionary.entries.values():
        if id(entry) not in used:
            yield f"explains {entry.name}, which no kernel needs"


# stub

STUB_HEAD = '''\
"""The kernels. Arguments are positional; arrays are buffers, None stands for an empty one.

The element type of a NumPy array is told from others; array.array and memoryview have no types that would tell it.
For type checkers the memoryview of a NumPy array is its `data`.
"""

from array import array
from typing import Any, Tuple, Union

import numpy
from numpy.typing import NDArray

Int = Union[int, numpy.integer[Any]]
Float = Union[float, numpy.floating[Any], numpy.integer[Any]]
Flag = object  # its truth counts
I32 = Union[NDArray[numpy.int32], array[int], memoryview, None]  # one-dimensional, 4-byte signed integers
I64 = Union[NDArray[numpy.int64], array[int], memoryview, None]  # one-dimensional, 8-byte signed integers
F64 = Union[NDArray[numpy.float64], array[float], memoryview, None]  # one-dimensional, doubles
I32x2 = Union[NDArray[numpy.int32], memoryview, None]  # two-dimensional, 4-byte signed integers
F64x2 = Union[NDArray[numpy.float64], memoryview, None]  # two-dimensional, doubles
I32Table = Union[NDArray[numpy.object_], memoryview, None]  # one-dimensional, references to I32 arrays or None
'''

STUB_TYPES = {"i32": "Int", "i64": "Int", "f64": "Float", "bool": "Flag"}  # arrays have their C++ types
STUB_RESULTS = {"i32": "int", "i64": "int", "bool": "bool"}


def stub(kernels):
    functions = [stub_function(f"_c_closure_{number}", kernel) for number, kernel in by_number(kernels)]
    return "\n".join([STUB_HEAD, *functions])


def stub_function(name, kernel):
    parameters = ", ".join(f"{python_name(p.name)}:~{STUB_TYPES.get(p.type, p.type)}" for p in kernel.takes)
    results = [STUB_RESULTS[result.type] for result in kernel.gives]
    result = f"Tuple[{',~'.join(results)}]" if len(results) > 1 else "".join(results) or "None"
    # No line ends between a name and its type, or outside the parentheses.
    signature = filled(f"def {name}({parameters}, /)~->~{result}:", WIDTH, " " * 8).replace("~", " ")
    doc = textwrap.indent(stub_doc(kernel), "    ").replace("\\", "\\\\")
    return f'{signature}\n    """\n{doc}\n    """\n'


def python_name(name):
    """A parameter's name; they are positional, so that one which Python has taken can be changed."""
    return name + "_" if keyword.iskeyword(name) else name


def stub_doc(kernel):
    """The comment, then the parameters and the results."""
    lines = [stub_doc_line(p.name, *explanation(kernel, p)) for p in kernel.takes]
    lines += ["returns"] if kernel.gives else []
    lines += [stub_doc_line(r.name or r.type, *result_explanation(kernel, r)) for r in kernel.gives]
    parts = [text if is_literal else filled(text, WIDTH - 4) for is_literal, text in paragraphs(kernel.comment.text)]
    numbers = ", ".join(map(str, kernel.numbers))
    return "\n\n".join([f"{kernel.name}, {numbers}", *parts, "\n".join(lines)])


def stub_doc_line(name, role, length, meaning):
    brackets = "; ".join(filter(None, [role, length]))
    text = f"{name} ({brackets}): {meaning}" if brackets else f"{name}: {meaning}" if meaning else name
    return filled(text, WIDTH - 4, "    ")


# the companion's names


def names(kernels):
    """The module of the kernels under their names, those of several numbers under the lowest."""
    lines = ['"""The kernels of `fragments` under their names, and what they take: written by tools/kernels.py."""', ""]
    lines += ["from fragments import ("]
    lines += [f"    _c_closure_{kernel.numbers[0]} as {kernel.name}," for kernel in kernels]
    lines += [")", "", "# Of each name the numbers and the parameters, name:kind in the order of a call.", "SIGNATURES = {"]
    for kernel in kernels:
        parameters = " ".join(f"{name}:{kind}" for name, kind in kernel.parameters)
        lines.append(f'    "{kernel.name}": ({kernel.numbers}, "{parameters}"),')
    return "\n".join(lines + ["}"])


def names_stub(kernels):
    """The type stub of that module."""
    head = STUB_HEAD.replace("import Any, Tuple", "import Any, Dict, Tuple")
    head += "\nSIGNATURES: Dict[str, Tuple[Tuple[int, ...], str]]\n"
    return "\n".join([head, *(stub_function(kernel.name, kernel) for kernel in kernels)])


# reference


def reference(kernels):
    lines = ["# Kernel reference", "", "By family; [by number](#by-number) at the end.", ""]
    for folder, title in FOLDERS.items():
        lines += [f"## {title}", ""]
        members = [kernel for kernel in kernels if kernel.family.folder == folder]
        for family, group in groupby(members, key=lambda kernel: kernel.family):
            lines += [f"### {family.title}", "", markdown(family.head.text), ""]
            for kernel in group:
                lines += reference_lines(kernel)
    lines += ["## By number", ""]
    for number, kernel in by_number(kernels):
        lines.append(f"- \\_c_closure_{number}: [{kernel.name}](#{kernel.numbers[0]})")
    return "\n".join(lines)


def reference_lines(kernel):
    title = f'<a id="{kernel.numbers[0]}"></a>**{kernel.name}**: `{kernel.names()}` ({kernel.place()})'
    lines = [title, "", markdown(kernel.comment.text), ""]
    lines += ["| parameter | kind | role | | length | meaning |", "| --- | --- | --- | --- | --- | --- |"]
    for parameter in kernel.takes:
        role, length, meaning = explanation(kernel, parameter)
        lines.append(markdown_row(f"`{parameter.name}`", parameter.kind, role, parameter.access, length, meaning))
    for result in kernel.gives:
        role, length, meaning = result_explanation(kernel, result)
        name = f"returns `{result.name}`" if result.name else "returns"
        lines.append(markdown_row(name, result.type, role, "", length, meaning))
    return lines + [""]


def markdown(text):
    """A comment in Markdown: its indented lines as they are, all else in paragraphs with nothing but `names` marked."""
    return "\n\n".join(part if is_literal else escaped(part) for is_literal, part in paragraphs(text))


def escaped(text):
    """A line of text in Markdown, nothing but code in backticks being marked up."""
    parts = text.split("`")
    parts[::2] = [re.sub(r"([\\*_<>\[\]#|~+-])", r"\\\1", part) for part in parts[::2]]
    return "`".join(parts)


def markdown_row(*cells):
    return f"| {' | '.join(map(escaped, cells))} |"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = ["table", "describe", "find", "check", "stub", "names", "names-stub", "reference"]
    parser.add_argument("command", choices=commands)
    parser.add_argument("words", nargs="*", metavar="N", help="for describe and find")
    arguments = parser.parse_args()
    if arguments.command == "describe" and not arguments.words:
        raise SystemExit("describe needs numbers, names or words: make describe N=472, N='472 473', N=symmetrise")
    if arguments.command == "find" and not arguments.words:
        raise SystemExit("find needs a word or more: make find WORD=transpose, WORD='sum along'")
    try:
        run(arguments.command, arguments.words)
        sys.stdout.flush()
    except BrokenPipeError:  # a reader may stop early; what is left goes nowhere
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())


def run(command, words):
    kernels = read_kernels()
    if command == "describe":
        print(describe(kernels, words))
    elif command == "find":
        print(find(kernels, words))
    elif command == "check":
        faults = check(kernels)
        print("\n".join(faults), end="\n" if faults else "")
        raise SystemExit(1 if faults else 0)
    else:
        writers = {"table": table, "stub": stub, "names": names, "names-stub": names_stub, "reference": reference}
        print(writers[command](kernels))


if __name__ == "__main__":
    main()
