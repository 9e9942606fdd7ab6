#!/usr/bin/env python3
"""Builds the coefficient matrices of whole models, from numbers to CSR: through the kernels and with scipy.sparse.

    A X - B          X a matrix of variables, A sparse or dense
    A (C o X + Y)    the same for an expression of two terms an element; o multiplies by element
    sum A_k x_k      ten expressions, stacked along a new axis and summed over it

SciPy's way is one that works for any linear expression: the matrices of its operators, made by Kronecker products and
blocks, are multiplied. Both ways start from the same arrays, and their matrices have to be equal: the same entries once
repeated ones are added up, with values that agree to 1e-12 of each. Either way leaves rows in whatever order. In every
round all builds take turns; the medians of their CPU times are printed.

Exit status: 0 if all matrices are equal, 1 if not.
"""

import argparse
import sys
import time
from dataclasses import dataclass
from typing import Callable, List, Optional, Tuple

import numpy as np
from scipy.sparse import block_diag, csr_matrix, diags, hstack, identity, kron

from host.model import Domain, Model, Variable
from host.operators import Matrix, SparseMatrix, add, constant, multiply, multiply_variable, sum_blocks
from host.products import scale_elements
from host.stacks import Stacks
from host.structure import stack

COLUMNS = 25  # of matrices of variables
ENTRIES = 10  # of a row of a sparse matrix
DENSE = 40  # columns of a dense matrix
SUMMANDS = 10
FREE, ZERO = Domain(-np.inf, np.inf), Domain(0.0, 0.0)
STACKS = Stacks()  # kept for all models


@dataclass(frozen=True)
class Family:
    """Two ways to build one matrix."""

    name: str
    through_kernels: Callable[[], csr_matrix]
    with_scipy: Callable[[], csr_matrix]


def product(name: str, rng: np.random.Generator, A: Matrix) -> Family:
    """A X - B = 0."""
    rows, cols = shape_of(A)
    B = rng.normal(size=(rows, COLUMNS))

    def through_kernels() -> csr_matrix:
        model = Model(STACKS)
        X = model.variable((cols, COLUMNS), FREE)
        push_product(model, A, X)
        constant(model.stacks, B.shape, B.reshape(-1))
        add(model.stacks, 1.0, -1.0)
        model.constraint(ZERO)
        return model.matrix()

    def with_scipy() -> csr_matrix:
        return kron(as_csr(A), identity(COLUMNS), "csr")  # B is a right side

    return Family(name, through_kernels, with_scipy)


def affine_product(name: str, rng: np.random.Generator, A: Matrix) -> Family:
    """A (C o X + Y) = 0."""
    C = rng.normal(size=(shape_of(A)[1], COLUMNS))

    def through_kernels() -> csr_matrix:
        model = Model(STACKS)
        X, Y = model.variable(C.shape, FREE), model.variable(C.shape, FREE)
        model.push(X)
        scale_elements(model.stacks, C)
        model.push(Y)
        add(model.stacks)
        multiply(model.stacks, A)
        model.constraint(ZERO)
        return model.matrix()

    def with_scipy() -> csr_matrix:
        operand = hstack([diags(C.reshape(-1)), identity(C.size)], "csr")
        return kron(as_csr(A), identity(COLUMNS), "csr") @ operand

    return Family(name, through_kernels, with_scipy)


def sum_of_stack(name: str, matrices: List[SparseMatrix]) -> Family:
    """The sum of all A_k x_k = 0."""
    def through_kernels() -> csr_matrix:
        model = Model(STACKS)
        for A in matrices:
            push_product(model, A, model.variable((A.cols,), FREE))
        stack(model.stacks, len(matrices), axis=1)
        sum_blocks(model.stacks)
        model.constraint(ZERO)
        return model.matrix()

    def with_scipy() -> csr_matrix:
        total = kron(np.ones((1, len(matrices))), identity(matrices[0].rows), "csr")
        return total @ block_diag([as_csr(A) for A in matrices], "csr")

    return Family(name, through_kernels, with_scipy)


def push_product(model: Model, A: Matrix, X: Variable) -> None:
    """Pushes the record of A X."""
    if isinstance(A, SparseMatrix):
        multiply_variable(model.stacks, A, X.shape, X.nidxs)
    else:
        model.push(X)
        multiply(model.stacks, A)


def shape_of(A: Matrix) -> Tuple[int, ...]:
    return (A.rows, A.cols) if isinstance(A, SparseMatrix) else A.shape


def as_csr(A: Matrix) -> csr_matrix:
    return csr_matrix((A.val, (A.subi, A.subj)), (A.rows, A.cols)) if isinstance(A, SparseMatrix) else csr_matrix(A)


def random_matrix(rng: np.random.Generator, n: int) -> SparseMatrix:
    """A matrix of n x n, n at least ENTRIES, with that many entries in each row."""
    subj = np.sort(rng.integers(0, n - ENTRIES + 1, (n, ENTRIES)), axis=1) + np.arange(ENTRIES)
    subi = np.repeat(np.arange(n, dtype=np.int32), ENTRIES)
    return SparseMatrix(n, n, subi, subj.reshape(-1).astype(np.int32), rng.normal(size=subi.size))


def families(terms: int, rng: np.random.Generator) -> List[Family]:
    """All families, with matrices of about so many entries."""
    def sparse(copies: int) -> SparseMatrix:
        return random_matrix(rng, max(ENTRIES, terms // (copies * ENTRIES)))

    def dense(copies: int) -> np.ndarray:
        return rng.normal(size=(max(1, terms // (copies * DENSE)), DENSE))

    return [product("A X - B, A sparse", rng, sparse(COLUMNS)),
            product("A X - B, A dense", rng, dense(COLUMNS)),
            affine_product("A (C o X + Y), A sparse", rng, sparse(2 * COLUMNS)),
            affine_product("A (C o X + Y), A dense", rng, dense(2 * COLUMNS)),
            sum_of_stack("sum A_k x_k", [sparse(SUMMANDS) for _ in range(SUMMANDS)])]


def are_equal(a: csr_matrix, b: csr_matrix) -> bool:
    """Whether two matrices have the same entries, whatever their order, with values that agree."""
    a, b = a.copy(), b.copy()
    a.sum_duplicates()
    b.sum_duplicates()
    return (a.shape == b.shape and np.array_equal(a.indptr, b.indptr) and np.array_equal(a.indices, b.indices)
            and np.allclose(a.data, b.data, rtol=1e-12, atol=0.0))


def seconds(build: Callable[[], csr_matrix]) -> float:
    start = time.process_time()
    build()
    return time.process_time() - start


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--terms", type=int, default=100000, help="entries of a matrix (default: %(default)s)")
    parser.add_argument("--seconds", type=float, default=10.0,
                        help="how long to repeat, three rounds at least (default: %(default)s)")
    options = parser.parse_args(arguments)
    found = families(options.terms, np.random.default_rng(1))
    matrices = [(family.through_kernels(), family.with_scipy()) for family in found]
    equal = [are_equal(*pair) for pair in matrices]
    entries = [by_scipy.nnz for _, by_scipy in matrices]
    del matrices

    rounds: List[List[Tuple[float, float]]] = []
    end = time.monotonic() + options.seconds
    while len(rounds) < 3 or time.monotonic() < end:
        rounds.append([(seconds(family.through_kernels), seconds(family.with_scipy)) for family in found])

    print(f"{'model':<26}{'entries':>10}{'kernels, ms':>14}{'SciPy, ms':>12}{'ratio':>8}")
    for k, (kernels, scipy) in enumerate(1e3 * np.median(rounds, axis=0)):
        print(f"{found[k].name:<26}{entries[k]:>10}{kernels:>14.2f}{scipy:>12.2f}{scipy / kernels:>8.2f}"
              f"{'' if equal[k] else '   the matrices differ'}")
    return 0 if all(equal) else 1


if __name__ == "__main__":
    sys.exit(main())
