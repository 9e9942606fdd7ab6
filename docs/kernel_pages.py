"""The parts of the site that come from the kernels' declarations, for pages in MyST.

    {k}`472`                     a link to a kernel, with its name
    {family} stack/slice.cpp     the kernels of a file
    {kernels-by} number          an index: by number, name, array or task
    {opcodes}                    the table of opcodes
    {calls}                      a table of calls, a paragraph each: numbers | inputs | what is reserved | preconditions
    {readme-call} 472            the arguments of the README's call
    {slot-0}                     the kernels that set slot 0 of `rptr` and `rcodeptr`
    {intended}                   what comments call intended
    {svg} FILE                   a picture, in the colours of the theme
"""

import re
import sys
from functools import lru_cache
from itertools import groupby
from pathlib import Path

from docutils import nodes
from docutils.parsers.rst import Directive
from docutils.statemachine import StringList
from sphinx import addnodes
from sphinx.domains import Domain, ObjType
from sphinx.util.nodes import make_refnode

ROOT = next(p for p in Path(__file__).resolve().parents if (p / "tools" / "declarations.py").exists())
sys.path.insert(0, str(ROOT / "tools"))

import kernels as tools  # noqa: E402
from search import WORDS  # noqa: E402
from costs import COSTS, ONE_PASS  # noqa: E402

NUMBER = re.compile(r"(?<![\w.^-])\d{1,3}(?![\w-]|\.\d| bits| times)")
ATOM = re.compile(r"\((2, \w|1, \w|8, \w|3\)|5\))")
DEMANDS = re.compile(
    r"\b(must|at least|at most|needs?|callers?|ascends?|only for|lies? inside|in order of|presets?"
    r"|without repetitions?|no two|not read)\b"
)


@lru_cache(maxsize=None)
def all_kernels():
    return tuple(tools.read_kernels())


@lru_cache(maxsize=None)
def numbered():
    """{number: kernel}"""
    return dict(tools.by_number(all_kernels()))


def families():
    """[(family, its kernels)], in the order of the folders."""
    for folder in tools.FOLDERS:
        members = [kernel for kernel in all_kernels() if kernel.family.folder == folder]
        for family, group in groupby(members, key=lambda kernel: kernel.family):
            yield family, list(group)


def page(family):
    """The page of a family, without ending."""
    return f"kernels/{family.folder}-{family.file.stem}"


def heading(kernel):
    return f"{', '.join(map(str, kernel.numbers))} {kernel.name}"


# ---- Links and text


def kernel_reference(number, text):
    return reference_to("kernel", "kernel", str(number), text)


def reference_to(domain, type, target, text):
    reference = addnodes.pending_xref(
        "", refdomain=domain, reftype=type, reftarget=target, refexplicit=True, refwarn=True
    )
    reference += nodes.inline("", text)
    return reference


def kernel_cell(kernel):
    """A link with all numbers of a kernel."""
    return [kernel_reference(kernel.numbers[0], ", ".join(map(str, kernel.numbers)))]


def document_reference(name, text):
    return reference_to("std", "doc", name, text)


def kernel_role(name, rawtext, text, lineno, inliner, options=None, content=None):
    """A link to a kernel: its number and, without `!` in front, its name."""
    number = int(text.lstrip("!"))
    if number not in numbered():
        message = inliner.reporter.error(f"there is no kernel {number}", line=lineno)
        return [inliner.problematic(rawtext, rawtext, message)], [message]
    return [kernel_reference(number, str(number) if text[0] == "!" else f"{number} {numbered()[number].name}")], []


def linked(text, kernel_numbers=()):
    """Inline nodes of a comment: `names` as code, numbers of kernels as links. Numbers below 100 are links only if they
    are among kernel_numbers, because most of them count something."""
    result = []
    for place, part in enumerate(text.split("`")):
        if place % 2:
            result.append(nodes.literal("", part))
            continue
        end = 0
        for match in NUMBER.finditer(part):
            number = int(match[0])
            if number in numbered() and (number >= 100 or number in kernel_numbers):
                result += [nodes.Text(part[end : match.start()]), kernel_reference(number, match[0])]
                end = match.end()
        result.append(nodes.Text(part[end:]))
    return result


def comment_nodes(text, numbers):
    """The paragraphs and tables of a comment."""
    for is_literal, part in tools.paragraphs(text):
        if is_literal:
            width = min(len(line) - len(line.lstrip()) for line in part.splitlines() if line.strip())
            block = nodes.literal_block("with links")  # a source that differs from the text: it is not highlighted
            block += linked("\n".join(line[width:] for line in part.splitlines()).replace("`", ""), numbers)
            yield block
        else:
            yield paragraph(*linked(part, numbers))


def paragraph(*children):
    result = nodes.paragraph()
    result += list(children)
    return result


def table(head, rows, widths, *classes):
    """A table of cells that are lists of nodes or texts."""
    group = nodes.tgroup(cols=len(head))
    group += [nodes.colspec(colwidth=width) for width in widths]
    group += nodes.thead("", table_row(head))
    body = nodes.tbody()
    body += [table_row(row) for row in rows]
    group += body
    result = nodes.table(classes=list(classes))
    result += group
    return result


def table_row(cells):
    row = nodes.row()
    for cell in cells:
        children = [nodes.Text(cell)] if isinstance(cell, str) else list(cell)
        is_block = children and isinstance(children[0], nodes.paragraph)
        row += nodes.entry("", children[0] if is_block else paragraph(*children))
    return row


# ---- The reference


class FamilyPage(Directive):
    required_arguments = 1

    def run(self):
        family, members = next(item for item in families() if item[0].place() == f"src/{self.arguments[0]}")
        numbers = {number for kernel in members for number in kernel.numbers}
        result = list(comment_nodes(family.head.text, numbers))
        if any(ATOM.search(text) for text in (family.head.text, *(kernel.comment.text for kernel in members))):
            code = document_reference("/concepts/code", "Coefficient code")
            text = nodes.Text("Pairs such as (2, factor), and (5), are atoms: ")
            result.append(paragraph(text, code, nodes.Text(".")))
        rows = [(kernel_cell(kernel), [nodes.literal("", kernel.name)], first_sentence(kernel)) for kernel in members]
        result.append(table(["number", "name", "what it does"], rows, [10, 30, 60]))
        result += [kernel_section(kernel, numbers, self.state.document) for kernel in members]
        return result


def first_sentence(kernel):
    return linked(next(sentences(kernel.comment.text)).rstrip(":"))


def kernel_section(kernel, numbers, document):
    section = nodes.section(ids=[f"kernel-{number}" for number in kernel.numbers], names=[heading(kernel).lower()])
    section += nodes.title("", heading(kernel))
    section += list(comment_nodes(kernel.comment.text, numbers))
    names = ", ".join(f"{p.name}: {'C' * p.read_only}{p.type}" for p in kernel.takes)
    results = ", ".join(result.name for result in kernel.gives) or "None"
    call = tools.filled(f"{kernel.name}({names}) -> {results}", 86, "    ")
    section += nodes.literal_block("", call)
    rows = [parameter_row(kernel, p) for p in kernel.takes] + [result_row(kernel, r) for r in kernel.gives]
    section += table(["parameter", "type", "role", "length", "meaning"], rows, [12, 8, 18, 14, 48])
    section += facts(kernel)
    return section


def parameter_row(kernel, parameter):
    role, length, meaning = tools.explanation(kernel, parameter)
    role = f"array, {parameter.access}" if parameter.is_array else role
    return [nodes.literal("", parameter.name)], parameter.kind, role, length, linked(meaning)


def result_row(kernel, result):
    role, length, meaning = tools.result_explanation(kernel, result)
    if kernel.carries_on(result.name):
        meaning = "the last value of the parameter"
    return [nodes.Text("returns "), nodes.literal("", result.name)], result.type, role, length, linked(meaning)


def facts(kernel):
    """Cost, preconditions, words and place of a kernel."""
    entries = nodes.definition_list(classes=["kernel-facts"])
    for term, children in (
        ("Cost", [paragraph(*linked(cost(kernel)))]),
        ("Preconditions", [bullets(preconditions(kernel))]),
        ("Called as", [paragraph(*linked(", ".join(f"`_c_closure_{number}`" for number in kernel.numbers)))]),
        ("In words", [paragraph(nodes.Text("; ".join([kernel.name.replace("_", " "), *words(kernel.family)])))]),
        ("Source", [paragraph(nodes.literal("", kernel.place()))]),
    ):
        item = nodes.definition_list_item("", nodes.term("", term))
        definition = nodes.definition()
        definition += children
        item += definition
        entries += item
    return entries


def words(family):
    """What people call what a family does, in both spellings."""
    told = WORDS.get(family.key, "")
    for phrase in filter(None, [family.title.lower(), *told.split(", ")]):
        other = re.sub(r"(?<=\w\w)is(?=(e|ed|ing|ation)\b)", "iz", phrase)
        yield from (phrase, other) if other != phrase and "wise" not in phrase else (phrase,)  # not elementwize


def bullets(texts):
    result = nodes.bullet_list()
    for text in texts:
        result += nodes.list_item("", paragraph(*linked(text)))
    return result


def cost(kernel):
    """What a call costs: its comment's own words, or those of its file."""
    own = [s for s in sentences(kernel.comment.text) if "O(" in s]
    costs = COSTS.get(kernel.family.key, ONE_PASS)
    return " ".join(own) or (costs.get(kernel.name, ONE_PASS) if isinstance(costs, dict) else costs)


def sentences(text):
    for is_literal, part in tools.paragraphs(text):
        if not is_literal:
            yield from re.split(r"(?<=[.])\s+(?=[A-Z`\d])", part)


def preconditions(kernel):
    """What a caller must see to."""
    told = [*sentences(kernel.comment.text), *sentences(kernel.family.head.text)]
    result = [sentence for sentence in told if DEMANDS.search(sentence) and "O(" not in sentence]
    explained = [(p, tools.explanation(kernel, p)) for p in kernel.takes]
    ascending = [p.name for p, (_, _, meaning) in explained if "ascending" in meaning and p.name != "rsp"]
    if ascending:
        result.append(f"{named(ascending)}: ascending, as the table says.")
    fields = [p.name for p, (role, length, _) in explained if role.startswith("position") and length]
    arrays = [p.name for p, (_, length, _) in explained if p.is_array and length and not length.startswith("up to")]
    if fields:
        result.append(f"The fields at {named(fields)} lie inside their arrays, with the lengths of the table.")
    if arrays:
        result.append(f"{named(arrays)}: as long as the table says, or None where nothing is touched.")
    own = {f"r{name}" for name in ("ptr", "codeptr") if not sets_slot_0(kernel, name)} & kernel.own_names()
    if own:
        result.append(f"Slot 0 of {named(sorted(own, reverse=True))} is yours: set it to 0 before or after.")
    return result or ["None beyond the types."]


def named(names):
    return ", ".join(f"`{name}`" for name in names)


def sets_slot_0(kernel, field):
    """Whether a kernel's body sets slot 0 of the result's `ptr` or `codeptr`."""
    text = "\n".join(kernel.family.file.read_text().splitlines()[kernel.line_number - 1 :])
    return f"result.{field}[0] = 0" in text.split("\n}\n")[0]


class Index(Directive):
    required_arguments = 1

    def run(self):
        return getattr(self, f"by_{self.arguments[0]}")()

    def by_number(self):
        rows = [
            ([kernel_reference(number, str(number))], [nodes.literal("", kernel.name)], first_sentence(kernel))
            for number, kernel in sorted(numbered().items())
        ]
        return [table(["number", "name", "what it does"], rows, [8, 30, 62])]

    def by_name(self):
        rows = [
            ([kernel_reference(k.numbers[0], k.name)], ", ".join(map(str, k.numbers)), first_sentence(k))
            for k in sorted(all_kernels(), key=lambda kernel: kernel.name)
        ]
        return [table(["name", "numbers", "what it does"], rows, [30, 12, 58])]

    def by_task(self):
        uses = {}
        for family, _ in families():
            for phrase in words(family):
                uses.setdefault(phrase, []).append(family)
        links = {family.place(): document_reference("/" + page(family), family.title) for family, _ in families()}
        rows = [
            (phrase, joined(links[family.place()].deepcopy() for family in found))
            for phrase, found in sorted(uses.items(), key=lambda item: item[0].lower())
        ]
        return [table(["to", "look at"], rows, [40, 60])]

    def by_array(self):
        uses = {}
        for kernel in all_kernels():
            for parameter in kernel.takes:
                if parameter.is_array:
                    uses.setdefault(parameter.name, ([], []))[0 if parameter.read_only else 1].append(kernel)
        rows = [
            ([nodes.literal("", name)], kernel_list(read), kernel_list(written))
            for name, (read, written) in sorted(uses.items())
        ]
        return [table(["array", "read by", "written by"], rows, [14, 43, 43])]


def kernel_list(kernels):
    return joined(kernel_reference(number, str(number)) for number, _ in tools.by_number(kernels))


def joined(links):
    """Links with commas between them."""
    return [node for link in links for node in (nodes.Text(", "), link)][1:]


class Opcodes(Directive):
    """The constants of src/code/opcodes.h with what each does to the stack."""

    EFFECTS = {
        "push_parameter": ("number of a parameter", "pushes the parameter's value", "+1"),
        "push_constant": ("the constant", "pushes it", "+1"),
        "add": ("none", "pops two, pushes their sum", "-1"),
        "negate": ("none", "changes the sign of the top value", "0"),
        "multiply": ("none", "pops two, pushes their product", "-1"),
        "invert": ("none", "replaces the top value v by 1/v", "0"),
        "add_several": ("a count n", "pops n, pushes their sum, added from the top down", "1 - n, but +1 below 1"),
        "moved_to_cof": ("anything", "nothing: the mark of a term whose coefficient stands in `cof` alone", "0"),
    }

    def run(self):
        text = (ROOT / "src/code/opcodes.h").read_text()
        rows = [
            ([nodes.literal("", number)], name.replace("_", " "), *map(linked, self.EFFECTS[name]))
            for name, number in re.findall(r"constexpr i32 (\w+) = (\d+);", text)
        ]
        rows.append(("others", "", "anything", "nothing", "0"))
        return [table(["opcode", "name", "operand", "effect", "depth"], rows, [8, 18, 20, 40, 14])]


class SetSlot0(Directive):
    """The kernels that set slot 0 of a pointer field themselves."""

    def run(self):
        rows = [
            ([nodes.literal("", f"r{field}")], kernel_list(k for k in all_kernels() if sets_slot_0(k, field)))
            for field in ("ptr", "codeptr")
        ]
        return [table(["field", "slot 0 is set by"], rows, [20, 80])]


class Intended(Directive):
    """The kernels whose comments, or those of their files, call something intended."""

    def run(self):
        rows = []
        for family, members in families():
            numbers = {number for kernel in members for number in kernel.numbers}
            texts = [(kernel.comment.text, kernel_cell(kernel)) for kernel in members]
            for text, place in [(family.head.text, [nodes.Text(family.title)]), *texts]:
                told = list(sentences(text))
                for at, sentence in enumerate(told):
                    if "intended" in sentence:
                        start = at - (len(sentence) < 60 and at > 0)  # a short one leans on the sentence before
                        rows.append((place, linked(" ".join(told[start : at + 1]), numbers)))
        return [table(["kernel", "behaviour"], rows, [20, 80])]


class Calls(Directive):
    """A table of calls, a paragraph each. What the last kernel of each gives back is added."""

    has_content = True

    def run(self):
        rows = []
        for lines in re.split(r"\n\s*\n", "\n".join(self.content).strip()):
            numbers, inputs, reserved, needs = (cell.strip() for cell in " ".join(lines.split()).split("|"))
            called = [(int(number), numbered()[int(number)]) for number in numbers.split(",")]
            call = joined(kernel_reference(number, f"{number} {kernel.name}") for number, kernel in called)
            results = called[-1][1].gives
            back = linked(", ".join(f"`{result.name}`" for result in results)) if results else "None"
            rows.append((call, self.parsed(inputs), self.parsed(reserved), back, self.parsed(needs)))
        head = ["call", "inputs", "what you reserve", "what comes back", "preconditions"]
        return [table(head, rows, [20, 22, 22, 14, 22], "calls")]

    def parsed(self, text):
        if not text:
            return ""
        node = nodes.Element()
        self.state.nested_parse(StringList([text], ""), self.content_offset, node)
        return node.children


class ReadmeCall(Directive):
    """The arguments of a kernel in the README's example, with the names of their parameters."""

    required_arguments = 1

    def run(self):
        kernel = numbered()[int(self.arguments[0])]
        call = re.search(rf"_c_closure_{self.arguments[0]}\((.*?)\)", (ROOT / "README.md").read_text(), re.DOTALL)
        arguments = [argument.strip() for argument in call[1].split(",")]
        if len(arguments) != len(kernel.takes):
            raise self.error(f"the README gives {len(arguments)} arguments, not {len(kernel.takes)}")
        rows = [
            (str(place), *([nodes.literal("", text)] for text in (parameter.name, argument)), linked(meaning))
            for place, (parameter, argument) in enumerate(zip(kernel.takes, arguments), 1)
            for _, _, meaning in [tools.explanation(kernel, parameter)]
        ]
        return [table(["", "parameter", "argument", "meaning"], rows, [5, 15, 20, 60])]


class Picture(Directive):
    required_arguments = 1

    def run(self):
        svg = (Path(__file__).parent / self.arguments[0]).read_text()
        return [nodes.raw("", f'<div class="picture">{svg}</div>', format="html")]


# ---- Sphinx


class KernelDomain(Domain):
    """Kernels as objects, which the search finds by number and name, and to which links lead."""

    name = label = "kernel"
    object_types = {"kernel": ObjType("kernel", "kernel")}

    def get_objects(self):
        for kernel in all_kernels():
            yield heading(kernel), heading(kernel), "kernel", page(kernel.family), f"kernel-{kernel.numbers[0]}", 0

    def resolve_xref(self, env, fromdocname, builder, typ, target, node, contnode):
        kernel = numbered()[int(target)]
        return make_refnode(builder, fromdocname, page(kernel.family), f"kernel-{target}", contnode, kernel.name)

    def resolve_any_xref(self, *arguments):
        return []

    def merge_domaindata(self, docnames, otherdata):
        pass


def setup(app):
    app.add_domain(KernelDomain)
    app.add_role("k", kernel_role)
    app.add_directive("family", FamilyPage)
    app.add_directive("kernels-by", Index)
    app.add_directive("opcodes", Opcodes)
    app.add_directive("calls", Calls)
    app.add_directive("slot-0", SetSlot0)
    app.add_directive("intended", Intended)
    app.add_directive("readme-call", ReadmeCall)
    app.add_directive("svg", Picture)
    return {"version": "1", "parallel_read_safe": True, "parallel_write_safe": True}
