#!/usr/bin/env python3
"""Read the KERNEL declarations of the C++ sources into a table of kernels.

Run as a script it prints the table: tab-separated, one line a number, with the columns number, body (the lowest number
of its group), format (the letters that the arguments are parsed by), parameters (`name:kind`, in order) and result.
"""

import re
import sys
from dataclasses import dataclass
from pathlib import Path

SOURCES = Path(__file__).resolve().parent.parent / "src"

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

    def line(self, number):
        """The table's line for one of the kernel's numbers."""
        parameters = " ".join(f"{name}:{kind}" for name, kind in self.parameters)
        result = ",".join(self.results) or "none"
        return "\t".join([str(number), str(self.numbers[0]), self.format, parameters, result])


def parse_parameter(text):
    """(name, letter, kind) of one parameter as declared, attributes and the ending `_arg` left out."""
    *_, cpp_type, name = text.split()
    letter, kind = PARAMETER_TYPES[cpp_type]
    return name.removesuffix("_arg"), letter, kind


def read_kernels(sources=SOURCES):
    """All kernels declared below a folder. ValueError if a number is declared twice."""
    kernels = []
    seen = set()
    for file in sorted(sources.rglob("*.cpp")):
        for match in DECLARATION.finditer(file.read_text()):
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
                    comment=re.sub(r"^// ?", "", match["comment"], flags=re.MULTILINE).strip(),
                    file=file,
                )
            )
    return kernels


def main():
    lines = {number: kernel.line(number) for kernel in read_kernels() for number in kernel.numbers}
    print("number\tbody\tformat\tparameters\tresult")
    for number in sorted(lines):
        print(lines[number])


if __name__ == "__main__":
    sys.exit(main())
