#!/usr/bin/env python3
"""Read the KERNEL declarations of the C++ sources and write what people and tools want to know of them.

    kernels.py table            one line a number, tab-separated: number, body (the lowest number of its group), format
                                (the letters that the arguments are parsed by), parameters (name:kind), result
    kernels.py describe N ...   the kernels of these numbers, with what they compute and where they stand
    kernels.py stub             the type stub fragments.pyi
    kernels.py reference        the kernel reference in Markdown, by family and by number
"""

import argparse
import re
import textwrap
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SOURCES = ROOT / "src"

FOLDERS = {
    "stack": "Operators on expression records",
    "code": "Coefficient code and parametrised rows",
    "index": "Shapes, strides, patterns and lists",
    "store": "Stored expressions, sparse matrices and slot chains",
    "model": "Variable views, model rows, domains and solutions",
}

# The C++ type of a parameter: its letter in the format, and its kind.
PARAMETER_TYPES = {
    "i32": ("i", "i"),
    "i64": ("L", "L"),
    "f64": ("d", "d"),
    "bool": ("p", "p"),
    "I32": ("O", "i32"),
    "I64": ("O", "i64"),
    "F64": ("O", "f64"),
    "I32x2": ("O", "i32x2"),
    "F64x2": ("O", "f64x2"),
    "I32Table": ("O", "i32*"),
}

DECLARATION = re.compile(
    r"^(?P<comment>(?:^//[^\n]*\n)*)"
    r"KERNEL\(\((?P<numbers>[\d,\s]+)\),\s*\((?P<results>[\w,\s]*)\),\s*(?P<name>\w+),(?P<parameters>[^)]*)\)",
    re.MULTILINE,
)


@dataclass(frozen=True)
class Kernel:
    """One KERNEL declaration.

    numbers: the N of its module functions `_c_closure_N`, ascending; parameters: (name, kind) in order, the kinds being
    those of PARAMETER_TYPES; results: C++ types, none for None, several for a tuple; comment: the text above it.
    """

    numbers: tuple
    name: str
    format: str
    parameters: tuple
    results: tuple
    comment: str
    file: Path
    line_number: int

    def line(self, number):
        """The table's line for one of the kernel's numbers."""
        parameters = " ".join(f"{name}:{kind}" for name, kind in self.parameters)
        result = ",".join(self.results) or "none"
        return "\t".join([str(number), str(self.numbers[0]), self.format, parameters, result])

    def names(self):
        """Its module functions, as one text."""
        return ", ".join(f"_c_closure_{number}" for number in self.numbers)

    def place(self):
        """File and line of the declaration, from the root of the tree."""
        return f"{self.file.relative_to(ROOT)}:{self.line_number}"

    def description(self):
        """Several lines for people: names, parameters with their kinds, result, comment, place."""
        parameters = ", ".join(f"{name}: {kind}" for name, kind in self.parameters)
        call = textwrap.fill(f"{self.name}({parameters}) -> {', '.join(self.results) or 'None'}", 110, subsequent_indent="    ")
        return f"{self.names()}   {self.place()}\n{call}\n\n{textwrap.indent(self.comment, '    ')}\n"


def parse_parameter(text):
    """(name, letter, kind) of one parameter as declared, attributes and the ending `_arg` left out."""
    *_, cpp_type, name = text.split()
    letter, kind = PARAMETER_TYPES[cpp_type]
    return name.removesuffix("_arg"), letter, kind


def read_kernels(sources=SOURCES):
    """All kernels declared below a folder, in the order of the files. ValueError if a number is declared twice."""
    kernels = []
    seen = set()
    for file in sorted(sources.rglob("*.cpp")):
        text = file.read_text()
        for match in DECLARATION.finditer(text):
            numbers = tuple(sorted(int(number) for number in match["numbers"].split(",")))
            if not seen.isdisjoint(numbers):
                raise ValueError(f"{file}: a number of {match['name']} is declared twice")
            seen.update(numbers)
            parameters = [parse_parameter(text) for text in match["parameters"].split(",")]
            kernels.append(
                Kernel(
                    numbers=numbers,
                    name=match["name"],
                    format="".join(letter for _, letter, _ in parameters),
                    parameters=tuple((name, kind) for name, _, kind in parameters),
                    results=tuple(match["results"].replace(",", " ").split()),
                    comment=uncommented(match["comment"]),
                    file=file,
                    line_number=text.count("\n", 0, match.start("numbers")) + 1,
                )
            )
    return kernels


def uncommented(text):
    """The text of a block of // lines."""
    return re.sub(r"^// ?", "", text, flags=re.MULTILINE).strip()


def by_number(kernels):
    """[(number, kernel)], ascending."""
    return sorted((number, kernel) for kernel in kernels for number in kernel.numbers)


def table(kernels):
    lines = [kernel.line(number) for number, kernel in by_number(kernels)]
    return "\n".join(["number\tbody\tformat\tparameters\tresult", *lines])


STUB_HEAD = '''\
"""The kernels. Arguments are positional; arrays are any objects with a buffer, changed in place."""

from typing import Any, Tuple, Union

from typing_extensions import Buffer

I32 = Union[Buffer, None]  # one-dimensional, 4-byte signed integers
I64 = Union[Buffer, None]  # one-dimensional, 8-byte signed integers
F64 = Union[Buffer, None]  # one-dimensional, doubles
I32x2 = Union[Buffer, None]  # two-dimensional, 4-byte signed integers
F64x2 = Union[Buffer, None]  # two-dimensional, doubles
I32Table = Union[Buffer, None]  # one-dimensional, references to I32 arrays or None
'''

STUB_KINDS = {
    "i": "int", "L": "int", "d": "float", "p": "Any",
    "i32": "I32", "i64": "I64", "f64": "F64", "i32x2": "I32x2", "f64x2": "F64x2", "i32*": "I32Table",
}  # fmt: skip
STUB_RESULTS = {"i32": "int", "i64": "int", "bool": "bool"}


def stub(kernels):
    functions = [STUB_HEAD]
    for number, kernel in by_number(kernels):
        parameters = ", ".join(f"{name}: {STUB_KINDS[kind]}" for name, kind in kernel.parameters)
        results = [STUB_RESULTS[result] for result in kernel.results]
        result = f"Tuple[{', '.join(results)}]" if len(results) > 1 else "".join(results) or "None"
        comment = textwrap.indent(kernel.comment.replace("\\", "\\\\"), "    ").strip()
        functions.append(f'def _c_closure_{number}({parameters}, /) -> {result}:\n    """{comment}"""\n')
    return "\n".join(functions)


def reference(kernels):
    lines = ["# Kernel reference", "", "By family; [by number](#by-number) at the end.", ""]
    for folder, title in FOLDERS.items():
        files = sorted({kernel.file for kernel in kernels if kernel.file.parent.name == folder})
        lines += [f"## {title}", ""] if files else []
        for file in files:
            head = re.match(r"(//[^\n]*\n)*", file.read_text())[0]
            lines += [f"### {file.stem.replace('_', ' ').capitalize()}", "", uncommented(head), ""]
            for kernel in kernels:
                if kernel.file != file:
                    continue
                parameters = ", ".join(f"`{name}` {kind}" for name, kind in kernel.parameters)
                lines += [
                    f'<a id="{kernel.numbers[0]}"></a>**{kernel.name}**: {kernel.names()} ({kernel.place()})',
                    "",
                    kernel.comment,
                    "",
                    f"- parameters: {parameters}",
                    f"- result: {', '.join(kernel.results) or 'None'}",
                    "",
                ]
    lines += ["## By number", ""]
    lines += [f"- _c_closure_{number}: [{kernel.name}](#{kernel.numbers[0]})" for number, kernel in by_number(kernels)]
    return "\n".join(lines)


def describe(kernels, numbers):
    """The descriptions of the kernels of these numbers. SystemExit if there is none for a number."""
    kernel_of = dict(by_number(kernels))
    for number in numbers:
        if number not in kernel_of:
            raise SystemExit(f"there is no _c_closure_{number}")
    return "\n".join(kernel_of[number].description() for number in numbers)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("command", choices=["table", "describe", "stub", "reference"])
    parser.add_argument("numbers", type=int, nargs="*", metavar="N", help="for describe")
    arguments = parser.parse_args()
    kernels = read_kernels()
    if arguments.command == "describe":
        print(describe(kernels, arguments.numbers))
    else:
        print({"table": table, "stub": stub, "reference": reference}[arguments.command](kernels))


if __name__ == "__main__":
    main()
