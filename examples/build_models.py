#!/usr/bin/env python3
"""Builds coefficient matrices of whole models, from numbers to CSR: once through the kernels, once with scipy.sparse.

    A X - B          A sparse or dense, X a matrix of variables
    A (C * X + Y)    the same of an expression of two terms an element, * by element
    sum of stack     the sum of ten expressions A_k x that are stacked along a new axis

Both ways start from the same arrays and give matrices in CSR form, which are checked to be equal: the same entries,
and values that agree to 1e-12. Times are medians of rounds in which the two ways take turns.

Exit status: 0 if all matrices are equal, 1 if not.
"""

import argparse
import statistics
import sys
import time
from typing import Callable, Dict, List, Optional, Tuple

import numpy as np
from scipy.sparse import coo_matrix, csr_matrix, diags, hstack, identity, kron, vstack

from host.model import Domain, Model, Variable
from host.operators import Matrix, SparseMatrix, add, multiply, multiply_variable, sum_blocks
from host.products import scale_elements
from host.structure import stack

COLUMNS = 25  # of matrices of variables
ENTRIES = 10  # of a row of a sparse matrix
SUMMANDS = 10  # of the stack
FREE, ZERO = Domain(-np.inf, np.inf), Domain(0.0, 0.0)

Way = Callable[[], csr_matrix]
Family = Tuple[Way, Way]  # through the kernels, with scipy.sparse


def random_matrix(rng: np.random.Generator, rows: int, cols: int) -> SparseMatrix:
    """A matrix with ENTRIES random entries in each row."""
    subj = np.sort(rng.integers(0, cols - ENTRIES + 1, (rows, ENTRIES)), axis=1) + np.arange(ENTRIES)
    subi = np.repeat(np.arange(rows, dtype=np.int32), ENTRIES)
    return SparseMatrix(rows, cols, subi, subj.reshape(-1).astype(np.int32), rng.normal(size=subi.size))


def as_csr(matrix: Matrix) -> csr_matrix:
    if not isinstance(matrix, SparseMatrix):
        return csr_matrix(matrix)
    return coo_matrix((matrix.val, (matrix.subi, matrix.subj)), shape=(matrix.rows, matrix.cols)).tocsr()


def product(A: Matrix, B: np.ndarray) -> Family:
    """A X - B = 0, with X row-major."""
    def through_kernels() -> csr_matrix:
        model = Model()
        X = model.variable((as_shape(A)[1], COLUMNS), FREE)
        times(model, A, X)
        model.constraint(Domain(B.reshape(-1), B.reshape(-1)))
        return model.problem().A

    def with_scipy() -> csr_matrix:
        return kron(as_csr(A), identity(COLUMNS), "csr")

    return through_kernels, with_scipy
