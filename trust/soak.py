#!/usr/bin/env python3
"""Makes millions of mixed calls of all kernels, legal and refused, and watches the memory of the process.

After a warm-up of some rounds neither the resident size nor the memory that malloc has given out may grow by more than
the room allowed.
"""

import ctypes
import resource
import sys
from pathlib import Path

from calls import command_line, load
from rounds import culprits, repeated_calls
from workers import Progress

WARM_UP = 5  # rounds
RESIDENT_ROOM = 2 << 20  # bytes that the resident size may grow by
MALLOC_ROOM = 2 << 10  # bytes that malloc may have given out more, and those for each round
MALLOC_ROOM_OF_ROUND = 8


class MallocInfo(ctypes.Structure):
    """glibc's struct mallinfo2."""

    _fields_ = [
        (name, ctypes.c_size_t)
        for name in "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks keepcost".split()
    ]


mallinfo = ctypes.CDLL(None).mallinfo2
mallinfo.restype = MallocInfo


def resident():
    """Bytes of the process in memory."""
    return int(Path("/proc/self/statm").read_text().split()[1]) * resource.getpagesize()


def given_out():
    """Bytes that malloc has given out, and blocks of the interpreter's own allocator."""
    info = mallinfo()
    return info.uordblks + info.hblkhd + 16 * sys.getallocatedblocks()


def main():
    options = command_line(__doc__, 10_000_000)
    repeated = repeated_calls(load(options.recorded), options.seed, 6, 2)
    rounds = max(options.calls // len(repeated), 2 * WARM_UP)
    progress = Progress(rounds * len(repeated))
    done = 0
    try:
        for done in range(1, rounds + 1):
            for call in repeated:
                call.make()
            if done == WARM_UP:
                first_resident, first_given_out = resident(), given_out()
            if done >= WARM_UP:
                grown, more = resident() - first_resident, given_out() - first_given_out
                progress.show(done * len(repeated), f", resident {grown >> 10:+,} kB, malloc {more:+,} bytes")
                has_grown = grown > RESIDENT_ROOM or more > MALLOC_ROOM + MALLOC_ROOM_OF_ROUND * done
                if has_grown:
                    break
    except KeyboardInterrupt:
        progress.end()
        print("soak: interrupted")
        raise SystemExit(130)
    progress.end()
    what = f"{done * len(repeated):,} calls, {len(repeated):,} different ones, seed {options.seed}"
    print(f"soak: {what}; resident size {grown >> 10:+,} kB, given out {more:+,} bytes")
    if has_grown:
        for growth, text in culprits(repeated, given_out)[:20]:
            print(f"{growth:,} bytes in 200 calls of {text}")
        raise SystemExit("soak: the memory grows")


if __name__ == "__main__":
    main()
