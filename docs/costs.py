"""What a call costs, where neither a kernel's comment tells it nor one pass over its arguments is all.

By file, below src/ and without ending: a text for all its kernels, or texts by the kernels' names.
"""

ONE_PASS = "One pass: in proportion to the slots that it reads and writes, by the lengths above."
RADIX = "Counting sort: the items and the buckets, each a constant number of times."
AXES = "The elements times the axes."
CONSTANT = "Constant."

COSTS = {
    "code/compact_code": "In proportion to the atoms and terms.",
    "code/machine": "In proportion to the terms and atoms of the rows.",
    "code/parametrised_rows": dict.fromkeys(
        ("grown_capacity", "capacity_for_need", "grown_capacity_above_top", "capacity_for_need_above_top"),
        "One step for each doubling.",
    ),
    "index/box_slices": AXES,
    "index/multi_index_sort": {"sort_rows_by_axis": RADIX},
    "index/odometers": "At most the number of axes.",
    "index/pattern_order": {"place_elements_by_axis": RADIX, "place_view_by_axis": RADIX},
    "index/positions": "The rows times the axes.",
    "index/shape_products": "The extents that it multiplies.",
    "index/sorted_lists": {
        "bisect_behind_key": "The logarithm of the length of the list.",
        "bisect_before_key": "The logarithm of the length of the list.",
        "merge_sorted_runs": "One merge: the lengths of both runs.",
    },
    "model/view_slices": AXES,
    "stack/diagonal_of_parameter_product": "One pass over the entries of P and, with a sparse E, one merge of each row"
    " with each column that meet on the diagonal; a writer takes the terms of the result besides.",
    "stack/diagonal_of_product": "One pass over the entries of the matrix and, with a sparse E, one merge of each row"
    " with each column that meet on the diagonal; a writer takes the terms of the result besides.",
    "stack/merge_terms": {
        "sort_terms": "The sum over elements of m log m for m terms, or m where the variables lie close together.",
        "sort_terms_on_w": "The sum over elements of m log m for m terms.",
    },
    "stack/multiply_by_matrix": {
        "check_matrix": "One pass over the entries.",
        "check_matrix_to_first_fault": "One pass over the entries at most.",
        "measure_product": "Dense M: constant with a dense E, else the stored elements. Sparse M: its entries times d0"
        " for a dense E; for a sparse E as the writer, without the terms.",
        "write_dense_product_row": "The terms of E.",
        "write_dense_product_code": "The terms of the result and their atoms.",
        "write_dense_sparse_product_row": "The terms of E.",
        "write_dense_sparse_product_code": "The terms of the result and their atoms.",
        "write_sparse_sparse_product_code": "The walk of the product again, and the atoms of the result.",
    },
    "stack/multiply_by_parameter_matrix": "As its measure, and the terms of the result.",
    "stack/multiply_variable": {"sort_entries_by_column": RADIX},
    "stack/permute_dimensions": {
        "write_permuted_positions": AXES,
        "write_dense_permuted": "The terms, and the elements times the axes.",
    },
    "stack/slice": {"measure_slice": AXES, "write_slice": "The elements times the axes, and the terms of the result."},
    "stack/sum_operands": {
        "measure_sparse_sum_of_operands": "The number of operands times the elements of the result.",
        "write_sparse_sum_of_operands": "The number of operands times the elements of the result, and its terms.",
    },
    "stack/symmetrise": {"sort_by_mirror": "Four passes of a counting sort: the stored elements and the four extents."},
    "store/slot_chains": "The length of the chain or run.",
}
