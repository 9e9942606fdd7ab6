"""Reads the KERNEL declarations of the C++ sources, and what their comments and src/parameters.md explain.

An explanation is looked up by name: in the kernel's own comment, then in the comment at the head of its file (its
family), then in src/parameters.md. All three write it as an entry, a line with continuations indented by two blanks:

    - NAME, NAME (ROLE): MEANING
    - NAME (ROLE; LENGTH): MEANING

In src/parameters.md NAME:KIND is for parameters of that kind alone.
"""

import re
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SOURCES = ROOT / "src"

# The C++ type of a parameter: its letter in the format, and its kind. An array that is only read has C in front.
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

POSITION = re.compile(r"position in (\w+(?: or \w+)*)")
FIXED_ROLES = {"array", "count", "size", "extent", "axis", "factor"}  # of what does not come back changed
ROLES = FIXED_ROLES | {"cursor", "start", "flag", "index", "value", "step"}

DECLARATION = re.compile(
    r"^(?P<comment>(?:^//[^\n]*\n)*)"
    r"KERNEL\(\((?P<numbers>[\d,\s]+)\),\s*\((?P<results>[\w,\s]*)\),\s*(?P<name>\w+),(?P<parameters>[^)]*)\)",
    re.MULTILINE,
)
ENTRY = re.compile(
    r"- (?P<names>[\w:*]+(?:, [\w:*]+)*) \((?P<role>[\w ]+)(?:; (?P<length>.+?))?\): (?P<meaning>.+)"
)


@dataclass(frozen=True)
class Parameter:
    """A parameter or a result. A result without a name has the name "". Only arrays can be read_only."""

    name: str
    type: str
    letter: str
    kind: str
    read_only: bool

    @classmethod
    def parse(cls, text):
        """From a declaration, which may have attributes in front and the ending `_arg`."""
        words = text.split()
        if words[-1].lstrip("C") in PARAMETER_TYPES:
            words.append("")
        type, name = words[-2:]
        plain_type = type.lstrip("C")
        letter, kind = PARAMETER_TYPES[plain_type]
        return cls(name.removesuffix("_arg"), plain_type, letter, kind, type != plain_type)

    @property
    def is_array(self):
        return self.letter == "O"

    @property
    def access(self):
        return ("read" if self.read_only else "written") if self.is_array else ""


@dataclass(frozen=True)
class Entry:
    """What an entry says of one of its names."""

    name: str  # or name:kind
    role: str
    length: str
    meaning: str

    def arrays(self):
        """The arrays of a position; it is in the first that the kernel has."""
        match = POSITION.fullmatch(self.role)
        return match[1].split(" or ") if match else []

    def has_known_role(self):
        return self.role in ROLES or bool(self.arrays())

    def role_among(self, names):
        """The role, of a position in the first of its arrays that is among the names."""
        arrays = [array for array in self.arrays() if array in names]
        return f"position in {arrays[0]}" if arrays else self.role


@dataclass
class Comment:
    """A comment, or a text of src/parameters.md: its entries by name, and the text without them."""

    text: str = ""
    entries: dict = field(default_factory=dict)
    faults: list = field(default_factory=list)  # lines that look like entries and are none, or explain a name again

    @classmethod
    def parse(cls, text):
        comment = cls()
        lines = []
        for line in text.splitlines():
            if lines and lines[-1].startswith("- ") and line.startswith("  "):
                lines[-1] += " " + line.strip()
            else:
                lines.append(line)
        for line in lines:
            if line.startswith("- "):
                comment.add_entry(line)
        others = "\n".join(line for line in lines if not line.startswith("- "))
        comment.text = re.sub(r"\n{3,}", "\n\n", others).strip()
        return comment

    def add_entry(self, line):
        match = ENTRY.fullmatch(line)
        if not match:
            self.faults.append(f"not an entry: {line}")
            return
        for name in match["names"].split(", "):
            if name in self.entries:
                self.faults.append(f"explains {name} twice")
            self.entries[name] = Entry(name, match["role"], match["length"] or "", match["meaning"])


@dataclass(frozen=True)
class Family:
    """The kernels of a file, explained by the comment at its head."""

    file: Path
    head: Comment

    def place(self):
        """The file, from the root of the tree."""
        return str(self.file.relative_to(ROOT) if self.file.is_relative_to(ROOT) else self.file)

    @property
    def folder(self):
        """The folder of the file, by its name."""
        return self.file.parent.name

    @property
    def key(self):
        """FOLDER/FILE without ending, by which tables tell of families."""
        return f"{self.folder}/{self.file.stem}"

    @property
    def title(self):
        return self.file.stem.replace("_", " ").capitalize()


@dataclass(frozen=True)
class Kernel:
    """One KERNEL declaration.

    numbers: the N of its module functions `_c_closure_N`, ascending; takes and gives: its parameters and results, each
    a Parameter, no results for None, several for a tuple.
    """

    numbers: tuple
    name: str
    takes: tuple
    gives: tuple
    comment: Comment
    family: Family
    dictionary: Comment
    line_number: int

    @property
    def format(self):
        """The letters that the arguments are parsed by."""
        return "".join(parameter.letter for parameter in self.takes)

    @property
    def parameters(self):
        """(name, kind) of each parameter, in order."""
        return tuple((parameter.name, parameter.kind) for parameter in self.takes)

    @property
    def results(self):
        """The C++ types of the results."""
        return tuple(result.type for result in self.gives)

    def place(self):
        """File and line of the declaration."""
        return f"{self.family.place()}:{self.line_number}"

    def names(self):
        """Its module functions, as one text."""
        return ", ".join(f"_c_closure_{number}" for number in self.numbers)

    def own_names(self):
        """The names of its parameters and results."""
        return {declared.name for declared in self.takes + self.gives}

    def entry(self, parameter):
        """What explains a parameter or result, or None."""
        for source in (self.comment, self.family.head, self.dictionary):
            for name in (f"{parameter.name}:{parameter.kind}", parameter.name):
                if name in source.entries:
                    return source.entries[name]
        return None

    def carries_on(self, name):
        """Whether a result is the last value of the parameter of this name."""
        return all(any(name == declared.name for declared in side) for side in (self.takes, self.gives))


def read_kernels(sources=SOURCES):
    """All kernels declared below a folder, in the order of the files. ValueError if a number is declared twice."""
    dictionary = read_dictionary(sources)
    kernels = [kernel for file in sorted(sources.rglob("*.cpp")) for kernel in read_family(file, dictionary)]
    seen = set()
    for kernel in kernels:
        if not seen.isdisjoint(kernel.numbers):
            raise ValueError(f"{kernel.place()}: a number of {kernel.name} is declared twice")
        seen.update(kernel.numbers)
    return kernels


def read_dictionary(sources=SOURCES):
    """The meanings that names have across the system."""
    file = sources / "parameters.md"
    return Comment.parse(file.read_text() if file.exists() else "")


def read_family(file, dictionary):
    """The kernels of a file."""
    text = file.read_text()
    family = Family(file, Comment.parse(uncommented(re.match(r"(//[^\n]*\n)*", text)[0])))
    return [
        Kernel(
            numbers=tuple(sorted(int(number) for number in match["numbers"].split(","))),
            name=match["name"],
            takes=parse_list(match["parameters"]),
            gives=parse_list(match["results"]),
            comment=Comment.parse(uncommented(match["comment"])),
            family=family,
            dictionary=dictionary,
            line_number=text.count("\n", 0, match.start("numbers")) + 1,
        )
        for match in DECLARATION.finditer(text)
    ]


def parse_list(text):
    """The parameters of a list in parentheses."""
    return tuple(Parameter.parse(item) for item in text.split(",") if item.strip())


def uncommented(text):
    """The text of a block of // lines."""
    return re.sub(r"^// ?", "", text, flags=re.MULTILINE).strip("\n")
