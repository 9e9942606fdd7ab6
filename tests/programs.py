"""Random coefficient code that is well-formed, with its value worked out beside it.

All values are dyadic fractions of a few digits, so that any order of adding them up is exact.
"""

import numpy as np

PARAMETERS = np.array([2.0, -1.0, 4.0, 0.5, 0.0])
CONSTANTS = (0.0, -0.0, 1.0, -1.0, 2.0, 3.0, 0.25)
UNUSED = -7.75e77  # the operand of an opcode that takes none


def random_program(rng, depth=3):
    """The (opcode, operand) atoms of a random expression of at most so many operations on a path, and its value."""
    kind = rng.integers(8) if depth else rng.integers(2)
    if kind == 0:
        p = int(rng.integers(len(PARAMETERS)))
        return [(1, float(p))], PARAMETERS[p]
    if kind == 1:
        constant = float(rng.choice(CONSTANTS))
        return [(2, constant)], constant
    if kind == 2:
        p = int(rng.integers(4))
        leaf, value = ((1, float(p)), PARAMETERS[p]) if rng.random() < 0.7 else ((2, -2.0), -2.0)
        return [leaf, (6, UNUSED)], 1.0 / value
    count = {3: 1, 4: 2, 5: 2, 6: rng.integers(2, 6), 7: 0}[kind]
    parts = [random_program(rng, depth - 1) for _ in range(count)]
    atoms = [atom for part, _ in parts for atom in part]
    values = [value for _, value in parts]
    if kind == 3:
        return [*atoms, (4, UNUSED)], -values[0]
    if kind == 4:
        return [*atoms, (3, UNUSED)], values[0] + values[1]
    if kind == 5:
        return [*atoms, (5, UNUSED)], values[0] * values[1]
    return [*atoms, (8, float(count))], sum(values)
