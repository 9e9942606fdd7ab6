"""Draws records and stacks as they lie in memory, from arrays that kernels have filled: SVG in the page's colours."""

import sys
from html import escape
from itertools import groupby
from pathlib import Path

import numpy as np

ROOT = next(p for p in Path(__file__).resolve().parents if (p / "tools" / "declarations.py").exists())
sys.path[:0] = [str(Path(__file__).parent), str(ROOT / "examples")]

from host import operators, sums  # noqa: E402
from host.stacks import Stacks  # noqa: E402
from workbench import as_operand, operand, room, run  # noqa: E402

TINTS = ["#4c8eda", "#e0803c", "#4caf6a", "#b06cc9", "#d0a72c", "#d9566a", "#38a6a5", "#8d8d8d"]
ARRAYS = {"i32": ("shape", "ptr", "codeptr", "code"), "i64": ("nidxs", "sp"), "f64": ("cof", "cconst")}


class Drawing:
    """Rows of slots, one below the other."""

    def __init__(self, title, slot=34, left=64):
        self.title, self.slot, self.left = title, slot, left
        self.parts, self.y, self.width = [], 8, 0

    def text(self, x, y, text, size=12, anchor="middle", color="currentColor"):
        self.parts.append(
            f'<text x="{x}" y="{y}" font-size="{size}" text-anchor="{anchor}" fill="{color}">{escape(str(text))}</text>'
        )

    def note(self, text):
        self.text(0, self.y + 14, text, 13, "start")
        self.width = max(self.width, 8 * len(text))
        self.y += 26

    def row(self, label, slots, first=0):
        """Slots [(value, field, tint or None)]; neighbours of one field and tint share a bracket, the name below it."""
        top = self.y + 12
        self.text(0, top + 17, label, 13, "start")
        for k, (value, _, tint) in enumerate(slots):
            x = self.left + k * self.slot
            self.text(x + self.slot / 2, top - 3, first + k, 8)
            fill = f'fill="{tint}" fill-opacity="0.3"' if tint else 'fill="none"'
            self.parts.append(
                f'<rect x="{x}" y="{top}" width="{self.slot}" height="25" {fill}'
                ' stroke="currentColor" stroke-opacity="0.5"/>'
            )
            self.text(x + self.slot / 2, top + 17, value)
        begin = 0
        for (name, _), group in groupby(slots, key=lambda slot: slot[1:]):
            count = len(list(group))
            if name:
                x, width = self.left + begin * self.slot, count * self.slot
                self.parts.append(
                    f'<path d="M{x + 3} {top + 29}v4h{width - 6}v-4" fill="none"'
                    ' stroke="currentColor" stroke-opacity="0.6"/>'
                )
                self.text(x + width / 2, top + 46, name, 12)
            begin += count
        self.width = max(self.width, self.left + len(slots) * self.slot + 2)
        self.y = top + 54

    def svg(self):
        return (
            f'<svg xmlns="http://www.w3.org/2000/svg" role="img" aria-label="{escape(self.title)}"'
            f' width="{self.width}" height="{self.y}" viewBox="0 0 {self.width} {self.y}"'
            f' font-family="var(--font-stack--monospace), monospace">'
            f"{''.join(self.parts)}</svg>"
        )


def number(value):
    return f"{value:g}" if isinstance(value, (float, np.floating)) else str(value)


def slots_of(array, values, fields):
    """The slots of one array of a stack that holds a record: value, field and the tint of the field."""
    owner = {}
    nelem, nnz, ncodeatom = fields["nelem"], fields["nnz"], fields["ncodeatom"]
    lengths = {
        "shape": fields["nd"], "ptr": nelem + 1, "codeptr": nnz + 1, "code": ncodeatom,
        "nidxs": nnz, "sp": nelem * fields["hassp"], "cof": nnz, "cconst": ncodeatom,
    }  # fmt: skip
    for tint, name in zip(TINTS, lengths):
        if name in ARRAYS[array] and (fields["ncodeatom"] or name not in ("codeptr", "code", "cconst")):
            for k in range(lengths[name]):
                owner[fields[name] + k] = name, tint
    return [(number(v), *owner.get(k, ("", None))) for k, v in enumerate(values)]


def without_operands(values, code):
    """The operands of atoms; those that take none are never written."""
    return ["·" if opcode not in (1, 2, 8) else value for value, opcode in zip(values, code)]


def product():
    """The matrix, the operand and the result of the README's product."""
    matrix = dict(
        msubi=np.array([0, 0, 1], np.int32), msubj=np.array([0, 2, 1], np.int32), mval=np.array([2.5, 1.7, 1.8]), mnnz=3
    )
    w = operand((3,), [{7: 1.0}, {8: 1.0}, {9: 1.0}])
    given = {name: matrix[name] for name in ("mnnz", "msubi", "msubj")}
    atoms, elements, terms = run("measure_product", w, d0=1, d1=3, mdimi=2, **given, rncodeatom=0, rnelem=0, rnnz=0)
    r = room((2, 1), elements, terms, atoms, sp=True)
    run("write_sparse_product", w, r, d0=1, d1=3, **matrix, codei=0, elmi=0, nzi=0)
    return matrix, w, r


def draw_record():
    """The product times parameter 4, which has all eight fields."""
    _, _, result = product()
    w = as_operand(result)
    r = room((2, 1), w["nelem"], w["nnz"], 3 * w["nnz"], sp=True)
    run("write_parameter_times_expression", w, r, p=4)
    i32, i64, f64 = r.arrays
    fields, values = r.fields, list(map(float, f64))
    code = i32[fields["code"] : fields["code"] + fields["ncodeatom"]]
    values[fields["cconst"] :] = without_operands(values[fields["cconst"] :], code)
    drawing = Drawing("A record across the three arrays")
    drawing.row("i32", slots_of("i32", i32, fields))
    drawing.row("i64", slots_of("i64", i64, fields))
    drawing.row("f64", slots_of("f64", values, fields))
    return drawing.svg()


def draw_product():
    matrix, w, r = product()
    drawing = Drawing("A product slot by slot")
    by_row = [TINTS[k] for k in matrix["msubi"]]
    drawing.note("the matrix: entry k is mval[k] in row msubi[k] and column msubj[k]")
    for name in ("msubi", "msubj", "mval"):
        drawing.row(name, [(number(v), "", tint) for v, tint in zip(matrix[name], by_row)])
    drawing.note("the operand, on w: three elements of one term each")
    f = w.fields
    drawing.row("ptr", [(number(v), "", None) for v in w.arrays[0][f["ptr"] :]])
    drawing.row("nidxs", [(number(v), "", None) for v in w.arrays[1]])
    drawing.row("cof", [(number(v), "", None) for v in w.arrays[2]])
    f, by_element = r.fields, [TINTS[0], TINTS[0], TINTS[1]]
    drawing.note("the result, on r: element 0 = 2.5 x7 + 1.7 x9, element 1 = 1.8 x8")
    drawing.row("rptr", [(number(v), "", tint) for v, tint in zip(r.arrays[0][f["ptr"] :], [None, *TINTS])])
    drawing.row("rsp", [(number(v), "", tint) for v, tint in zip(r.arrays[1][f["sp"] :], TINTS)])
    drawing.row("rnidxs", [(number(v), "", tint) for v, tint in zip(r.arrays[1], by_element)])
    drawing.row("rcof", [(number(v), "", tint) for v, tint in zip(r.arrays[2], by_element)])
    return drawing.svg()


class Halted(Exception):
    pass


def draw_stacks():
    """The three stacks at the end of a sparse sum along axis 0, before its result moves to w."""
    s = Stacks()
    operators.variable(s, (2,), np.array([5, 6]))
    operators.variable(s, (2, 2), np.array([1, 2, 3]), np.array([0, 1, 3]))
    held = {}

    def finish(operands, result, without_pattern=False):
        held["result"] = result
        raise Halted

    s.finish = finish
    try:
        sums.sum_axis(s, 0)
    except Halted:
        pass
    drawing = Drawing("The w, r and x stacks while a sum runs", slot=26, left=64)
    for stack, note, records in (
        (s.w, "w holds operands: below, an expression that waits; on top, the operand", s.records),
        (s.r, "r takes the result", [held["result"]]),
        (s.x, "x is scratch: buckets and two orders of the elements", []),
    ):
        drawing.note(note)
        for name, array, top in zip(("i32", "i64", "f64"), (stack.i32, stack.i64, stack.f64), stack.top):
            slots = [(number(v), "", None) for v in array[:top].tolist()]
            for tint, record in zip(TINTS, records):
                for k, slot in enumerate(slots_of(name, array[:top], vars(record))):
                    if slot[1]:
                        slots[k] = (slot[0], slot[1], tint)
            label = {id(s.w): "w", id(s.r): "r", id(s.x): "x"}[id(stack)] + name
            if slots:
                drawing.row(label, slots)
    return drawing.svg()


def draw():
    """{name: SVG}"""
    return {"record": draw_record(), "product": draw_product(), "stacks": draw_stacks()}
