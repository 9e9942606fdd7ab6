#!/usr/bin/env python3
"""Time kernels against the same loops written by hand in C++ (bench/hand_written.cpp), side by side in one run.

Each line is a case: nanoseconds for one unit (a term, an item, a call) in the kernel and in the hand-written loop, and
the ratio of the two times, above 1 where the kernel is faster. Both are the least of many alternating runs.
"""

import ctypes
import sys
import time
from pathlib import Path

import numpy as np

import fragments as f

BUILD = Path(f.__file__).parent
HAND = ctypes.CDLL(str(BUILD / "libhand_written.so"))
RNG = np.random.default_rng(7)


def by_hand(name, *arguments):
    """A call of a hand-written loop, its arguments converted once: arrays become pointers."""
    convert = {np.ndarray: lambda a: a.ctypes.data_as(ctypes.c_void_p), float: ctypes.c_double, int: ctypes.c_int64}
    converted = [convert[type(a)](a) for a in arguments]
    loop = getattr(HAND, name)
    return lambda: loop(*converted)


def case(name, units, kernel, hand, seconds=0.4):
    """Prints one line."""
    best = [float("inf")] * 2
    end = time.perf_counter() + seconds
    while time.perf_counter() < end:
        for side, call in enumerate((kernel, hand)):
            start = time.perf_counter()
            call()
            best[side] = min(best[side], time.perf_counter() - start)
    ns = [t / units * 1e9 for t in best]
    print(f"{name:46} {ns[0]:9.2f} {ns[1]:9.2f} {ns[1] / ns[0]:7.2f}")


def record(nelem, length, atoms=0):
    """ptr, nidxs, cof and, with `atoms` a term on average, codeptr, code, cconst of a dense record."""
    lengths = RNG.integers(1, 2 * length, nelem) if length > 1 else np.ones(nelem, int)
    ptr = np.r_[0, np.cumsum(lengths)].astype("i4")
    nnz = int(ptr[-1])
    codeptr = np.r_[0, np.cumsum(RNG.integers(1, 2 * atoms, nnz))].astype("i4") if atoms else np.zeros(1, "i4")
    natoms = int(codeptr[-1])
    return ptr, RNG.integers(1, 10**6, nnz), RNG.normal(size=nnz), codeptr, np.ones(natoms, "i4"), RNG.random(natoms)


def sparse_product(length, atoms):
    d0, d1, mdimi = 20, 100, 40
    ptr, nidxs, cof, codeptr, code, cconst = record(d0 * d1, length, atoms)
    msubi, msubj = (k.astype("i4") for k in np.nonzero(RNG.random((mdimi, d1)) < 0.1))
    mval = RNG.normal(size=len(msubi))
    wi32, wf64 = np.concatenate([ptr, codeptr, code]), np.concatenate([cof, cconst])
    at_codeptr, at_code = len(ptr), len(ptr) + len(codeptr)
    ratoms, relements, rterms = f._c_closure_467(
        at_codeptr, d0, d1, False, mdimi, len(msubi), msubi, msubj, len(code), d0 * d1, len(cof), 0, 0, 0, 0, 0,
        wi32, nidxs,
    )  # fmt: skip
    rptr, rcodeptr, rcode = (np.zeros(n, "i4") for n in (relements + 1, rterms + 1, ratoms))
    rsp, rnidxs = np.zeros(relements, "i8"), np.zeros(rterms, "i8")
    rcof, rcconst = np.zeros(rterms), np.zeros(ratoms)
    ri32, ri64 = np.concatenate([rptr, rcodeptr, rcode]), np.concatenate([rsp, rnidxs])
    rf64 = np.concatenate([rcof, rcconst])

    def kernel():
        f._c_closure_472(
            len(cof), at_code, 0, at_codeptr, 0, d0, d1, 0, len(msubi), msubi, msubj, mval, 0, 0, 0,
            rterms, len(rptr) + len(rcodeptr), len(rptr), 0, rf64, True, ri32, ri64, ratoms, relements, 0, 0,
            wf64, wi32, nidxs,
        )  # fmt: skip

    code_in, code_out = ((codeptr, code, cconst), (rcodeptr, rcode, rcconst)) if atoms else ((), ())
    hand = by_hand(
        "sparse_product_with_code" if atoms else "sparse_product",
        d0, d1, len(msubi), msubi, msubj, mval, ptr, nidxs, cof, *code_in, rptr, rsp, rnidxs, rcof, *code_out,
    )  # fmt: skip
    text = f", {atoms} atoms" if atoms else ""
    case(f"sparse matrix product, {length} terms{text}: term", rterms, kernel, hand)


def weighted_sum(length):
    n = 2000
    ptr1, nidxs1, cof1, *_ = record(n, length)
    ptr2, nidxs2, cof2, *_ = record(n, length)
    rterms = len(cof1) + len(cof2)
    rptr, rnidxs, rcof = np.zeros(n + 1, "i4"), np.zeros(rterms, "i8"), np.zeros(rterms)
    wi32, wi64, wf64 = np.concatenate([ptr1, ptr2]), np.concatenate([nidxs1, nidxs2]), np.concatenate([cof1, cof2])

    def kernel():
        f._c_closure_504(
            0, 0, 0, 0, 0, 0, 0, 0, len(cof1), 0, 2.0, 3.0, 0, 0, 0, len(nidxs1), 0, len(ptr1), 0, 0, 0, 0,
            rcof, rptr, rnidxs, 0, n, 0, 0, wf64, wi32, wi64,
        )  # fmt: skip

    hand = by_hand("weighted_sum", n, 2.0, 3.0, ptr1, nidxs1, cof1, ptr2, nidxs2, cof2, rptr, rnidxs, rcof)
    case(f"weighted sum of two, {length} terms: term", rterms, kernel, hand)


def pick(length):
    ptr, nidxs, cof, *_ = record(4000, length)
    idxs = RNG.integers(0, 4000, 4000)
    rterms = int((ptr[idxs + 1] - ptr[idxs]).sum())
    rptr, rnidxs, rcof = np.zeros(len(idxs) + 1, "i4"), np.zeros(rterms, "i8"), np.zeros(rterms)

    def kernel():
        f._c_closure_410(0, 0, 0, 0, 0, idxs, 0, 0, 0, 0, 0, 0, 0, rcof, rptr, rnidxs, 0, 0, 0, cof, ptr, nidxs)

    hand = by_hand("pick", len(idxs), idxs, ptr, nidxs, cof, rptr, rnidxs, rcof)
    case(f"pick by flat index, {length} terms: term", rterms, kernel, hand)


def copy(n):
    source, target = RNG.integers(0, 9, n), np.zeros(n, "i8")
    case(
        f"copy of {n} i64: item",
        n,
        lambda: f._c_closure_336(0, n, target, 1, 0, source),
        by_hand("copy_i64", n, source, target),
    )


def place_by_column(n):
    subj = RNG.integers(0, 1000, n).astype("i4")
    start = np.r_[0, 0, np.cumsum(np.bincount(subj, minlength=1000))[:-1], n]
    cols = np.zeros(n, "i4")
    both = [start.copy() for _ in range(2)]

    def kernel():
        both[0][:] = start
        f._c_closure_123(cols, both[0], n, subj)

    loop = by_hand("place_by_column", n, subj, both[1], cols)

    def hand():
        both[1][:] = start
        loop()

    case(f"place {n} triplets by column: item", n, kernel, hand)


def code_machine(name, programs, n=20_000):
    """Terms that take their code from `programs` at random, in which "p" and "c" push and the rest is opcodes."""
    opcodes = {"p": 1, "c": 2, "+": 3, "-": 4, "*": 5, "/": 6, "s": 8}
    picked = [programs[k] for k in RNG.integers(0, len(programs), n)]
    code = np.array([opcodes[atom] for program in picked for atom in program], "i4")
    cconst = RNG.integers(0, 50, len(code)).astype(float)
    cconst[code == 8] = [program.count("p") for program in picked if "s" in program]
    sizes = np.array([len(program) for program in picked], "i4")
    zero, variables, values, stack = np.zeros(1, "i4"), RNG.integers(0, 10**6, n), RNG.normal(size=50), np.zeros(16)
    subj, val = np.zeros(n, "i4"), np.zeros(n)
    ends = np.array([n], "i4")
    case(
        f"evaluate {name}: term",
        n,
        lambda: f._c_closure_25(
            cconst, code, variables, zero, sizes, 0, 1, values, zero, ends, 0, 0, subj, val, stack
        ),
        by_hand("evaluate_row", n, sizes, code, cconst, variables, values, stack, subj, val),
    )


def calls():
    """The frame: a call of the shortest kernels, with an array and with a memoryview, against a builtin on the same."""
    shape = np.array([2, 3], "i4")
    view = memoryview(shape)
    repeat = range(1000)
    for name, array in (("array", shape), ("memoryview", view)):
        case(
            f"call with one {name} (hand: memoryview()): call",
            1000,
            lambda array=array: [f._c_closure_0(1, array) for _ in repeat],
            lambda array=array: [memoryview(array) for _ in repeat],
        )


def main():
    print(f"{'':46} {'kernel ns':>9} {'hand ns':>9} {'ratio':>7}")
    for length in (1, 3, 12):
        sparse_product(length, 0)
    for length, atoms in ((1, 1), (1, 6), (3, 2), (12, 2)):
        sparse_product(length, atoms)
    for length in (1, 3, 12):
        weighted_sum(length)
    for length in (1, 3, 12):
        pick(length)
    copy(1_000_000)
    copy(2_000)
    place_by_column(20_000)
    code_machine("a constant", ["c"])
    code_machine("c*p", ["cp*"])
    code_machine("(c*p)*c*c", ["cp*c*c*"])
    code_machine("a sum of 8", ["pppppppps"])
    code_machine("a mix", ["c", "p", "cp*", "cp*c+", "pc*p-c*+", "pppps"])
    calls()


if __name__ == "__main__":
    sys.exit(main())
