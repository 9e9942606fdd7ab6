"""Calls kernels with the standard library's arrays alone, for interpreters that have neither NumPy nor pytest."""

import array
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tools"))

import fragments  # noqa: E402
import fragments_kernels  # noqa: E402
from kernels import read_kernels  # noqa: E402

numbers = sorted(number for declared in read_kernels() for number in declared.numbers)
assert sorted(int(name[11:]) for name in vars(fragments) if name.startswith("_c_closure_")) == numbers

# Row 0 of the matrix (-2) times an element with the coefficients 1, 2, 3.
wi32, wf64, mval = array.array("i", [0, 3]), array.array("d", [3, 2, 1]), array.array("d", [-2])
ri32, rf64 = array.array("i", [0, 0]), array.array("d", [0, 0, 0])
backwards = memoryview(wf64)[::-1]
result = fragments._c_closure_468(0, 1, 0, 0, 0, 1, mval, 0, 0, 0, rf64, ri32, 0, backwards, wi32)
assert (result, ri32.tolist(), rf64.tolist()) == ((1, 1, 3), [0, 3], [-2.0, -4.0, -6.0])

try:
    fragments._c_closure_454(False, False, 1, 1, 1, wi32, wf64)
except ValueError as error:
    checked = "_c_closure_454: msubj: want int32, 1 axis; got float64, 1 axis"
    assert str(error) in ("Invalid array shape or type for argument 'msubj'", checked)
else:
    raise AssertionError("an f64 array was taken for an i32 one")

assert fragments_kernels.write_dense_product_row is fragments._c_closure_468
fragments_kernels.call("zero_slots", top=1, rf64=rf64, n=1)
fragments_kernels.call(378, top=2, rf64=rf64, n=1)
assert rf64.tolist() == [-2.0, 0.0, 0.0] and "numpy" not in sys.modules

print(f"{sys.implementation.name} {sys.version.split()[0]}: {len(numbers)} kernels, {fragments.__file__}")
