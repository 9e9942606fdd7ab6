"""Finds kernels by words: those of their names and families, what else people call what a family does, and comments."""

import re

# What people look for in each family, besides the words of its name and of its kernels' names.
WORDS = {
    "code/compact_code": "simplify, fold constants, optimise code, shrink code, bytecode",
    "code/machine": "evaluate code, run code, interpreter, reevaluate, parameter changed, update coefficients",
    "code/parametrised_rows": "table of parametrised rows, parametrized, amortised growth, capacity",
    "index/array_tables": "stack along an axis, concatenate extents, interleave, zip",
    "index/axis_folds": "reshape, collapse axes, group axes, fold, five axes",
    "index/axis_order": "move axis, swap axes, cone members along an axis",
    "index/box_slices": "slice, range, subarray, window, box",
    "index/multi_index_sort": "sort coordinates, lexicographic, radix sort, ravel multi index",
    "index/odometers": "iterate multi index, nested loops, ndindex, counter",
    "index/pattern_elements": "sparsity, gather by pattern, scatter, fill",
    "index/pattern_order": "sort pattern, radix sort, counting sort, sparsity",
    "index/pattern_transpose": "transpose sparsity, column order",
    "index/positions": "ravel, unravel, flat index, linear index, multi index, coordinates, gather, take",
    "index/shape_copies": "reshape, squeeze, expand dims, broadcast, extents, dimensions",
    "index/shape_products": "size of a shape, number of elements, product of extents, count",
    "index/sorted_lists": "binary search, bisect, searchsorted, lookup, merge lists",
    "index/stack_patterns": "stack along an axis, concatenate patterns, vstack, hstack",
    "index/stacked_shapes": "stack along an axis, concatenate shapes, vstack, hstack",
    "index/strides": "row major, C order, reverse",
    "index/sums_and_extremes": "maximum, minimum, total, prefix sum, cumulative",
    "index/table_copies": "ravel, flatten, two dimensional table, gather rows",
    "model/conic_maps": "cone, second order, quadratic, semidefinite, svec, vectorise, pack triangle, affine conic",
    "model/domains": "bounds, ranges, lower, upper, variable domain, box",
    "model/native_numbers": "native indices, classify, filter, split variables",
    "model/parameter_values": "parameters, get value, set value, update",
    "model/permute_views": "transpose view, reorder axes",
    "model/repeat_views": "tile, broadcast, replicate view",
    "model/row_pick": "select coefficients, gather rows, single coefficient",
    "model/row_sides": "linear and conic rows, constraint kinds, split rows",
    "model/row_terms": "constraint rows, linear part, constant part, semidefinite part, linear form to rows, CSR",
    "model/semidefinite": "matrix variable, PSD, positive semidefinite, bar variable, triangle",
    "model/solution": "dual, dual value, primal, level, solution values, multiplier, reduced cost, signs, gather",
    "model/triplets": "COO, CSC, CSR, sparse matrix assembly, sum duplicates, transpose, sort",
    "model/variable_lists": "unique variables, set union, deduplicate",
    "model/variable_views": "view, variable slice, concatenate, stack, scatter",
    "model/view_slices": "slice, index, subview, pick, take",
    "model/view_triangles": "triangle, tril, triu, symmetric, symmetrise, mirror",
    "stack/block_sum": "sum along the last axes, reduce, row sum, contract",
    "stack/check_indices": "validate, bounds check, out of range",
    "stack/compact_terms": "drop zeros, remove terms, prune",
    "stack/diagonal_of_parameter_product": "diag, diagonal of P times E, parameters",
    "stack/diagonal_of_product": "diag, diagonal of M times E, trace, rowwise dot",
    "stack/leaves": "linear form, affine expression, push variable, push constant, atom, operand",
    "stack/merge_terms": "combine like terms, duplicates, linear form, normalise, add up repeated variables",
    "stack/multiply_by_matrix": "matmul, dot, matrix product, matrix times expression, A x, linear map, mul",
    "stack/multiply_by_parameter_matrix": "matmul, dot, product with parameters, mul",
    "stack/multiply_by_parameters": "inner product, dot, hadamard, elementwise, mul",
    "stack/multiply_elementwise": "hadamard, elementwise product, scale, mul elm",
    "stack/multiply_variable": "matmul, dot, matrix times variable, A x, mul",
    "stack/permute_dimensions": "transpose, swap axes, move axis, reorder",
    "stack/pick": "gather, take, fancy index, select elements",
    "stack/repeat": "tile, broadcast, replicate",
    "stack/scale_by_parameter": "parameter times expression, scalar product, mul",
    "stack/scale_off_diagonal": "svec, vectorise, symmetric, sqrt 2, off diagonal",
    "stack/slice": "range, subarray, window, box",
    "stack/slots": "copy fields, fill, zero, initialise, ptr",
    "stack/sort_by_column": "transpose, radix sort, counting sort",
    "stack/stack_records": "stack along an axis, concatenate, vstack, hstack, append, join",
    "stack/sum_axis": "sum along an axis, sum over, reduce, contract, total",
    "stack/sum_of_picks": "gather and add, weighted picks, dot",
    "stack/sum_operands": "add many expressions, total, sum, plus",
    "stack/symmetrise": "symmetric part, mean with the transpose, average with the mirror",
    "stack/triangle": "tril, triu, lower triangle, upper triangle, vech",
    "stack/weighted_sum": "add, subtract, plus, minus, linear combination, difference, linear form",
    "store/axes_to_end": "move axis, rollaxis, axes last",
    "store/check_stored_expression": "validate, well formed",
    "store/expand_by_weights": "weights, scale rows, kronecker, expand",
    "store/merge_repeats": "deduplicate, unique, repeated rows",
    "store/push_stored_expression": "load expression, cached expression, linear form",
    "store/rows_from_triplets": "COO to CSR, group by row, bucket sort",
    "store/scale_values": "multiply by a constant, scale",
    "store/slot_chains": "linked list, free list, allocate, slots",
    "store/sparse_matrix": "dense to sparse, diagonal, transpose matrix, nonzeros, scatter, CSR",
}


LIKELIEST = ["stack", "model", "code", "store", "index"]  # folders, the likeliest first


def kernels_for(phrase, kernels):
    """The kernels that a phrase may mean, the likeliest first.

    Those have all of its words in their name, then in their name and family, then in these and WORDS; if there are
    none, in their comment and the family's. Spellings with z and s are one, and endings don't count.
    """
    stems = [stem(word) for word in words_of(phrase)]
    tiers = ([], [], [], [])
    for kernel in sorted(kernels, key=lambda kernel: folder_rank(kernel.family)) if stems else []:
        words = []
        comments = f"{kernel.comment.text} {kernel.family.head.text}"
        texts = (kernel.name, kernel.family.title, WORDS.get(kernel.family.key, ""), comments)
        for tier, text in zip(tiers, texts):
            words += words_of(text)
            if has_all(stems, words):
                tier.append(kernel)
                break
    tiers[0].sort(key=lambda kernel: kernel.name != phrase)
    return tiers[0] + tiers[1] + tiers[2] or tiers[3]


def folder_rank(family):
    return [*LIKELIEST, family.folder].index(family.folder)


def words_of(text):
    """The words of a text in lower case, -ize spelt -ise."""
    return [re.sub(r"(?<=\w\w)yz|(?<=\w\w)iz(?=[eia])", lambda m: m[0][0] + "s", word)
            for word in re.findall(r"[a-z0-9]+", text.lower())]  # fmt: skip


def stem(word):
    """A word without its ending."""
    return re.sub(r"(?<=\w{4})(ations?|ings?|ed|es|s|e)$", "", word)


def has_all(stems, words):
    """Whether each stem begins one of the words; one of up to three letters has to be the word."""
    return all(any(word.startswith(part) if len(part) > 3 else word == part for word in words) for part in stems)
