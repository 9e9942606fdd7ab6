"""A small host layer over the kernels of `fragments`: linear models, from expressions to a solver and back.

Read it in this order: `stacks` (records and where they lie), `operators` (how kernels make records out of records),
`model` (from records to rows, bounds and one matrix), `solver`. More operators are in `structure`, `sums`, `products`
and `axis_pairs`. `parameters` has coefficients that change while a model stays, `cones` semidefinite variables and
conic constraints, solved by `cone_solver`. `checks` refuses wrong arguments by name. `kernels` gives the kernels names.
"""

import sys
from pathlib import Path

try:
    import fragments  # noqa: F401
except ModuleNotFoundError:  # not installed: take the build of this source tree
    sys.path.append(str(Path(__file__).resolve().parents[2] / "build" / "normal"))
    try:
        import fragments  # noqa: F401
    except ModuleNotFoundError:
        raise ModuleNotFoundError("the module fragments is neither installed nor built: run make build") from None

import fragments_kernels as kernels  # noqa: E402, F401  what the modules here import as `kernels`
