"""The kernels that this host layer calls, by name.

The module `fragments` offers its kernels by number alone. Arguments are positional: scalars, positions on stack arrays
and the arrays themselves, in the alphabetical order of the parameters' names; counters that a kernel advances come back
as its result.
"""

import sys
from pathlib import Path

try:
    import fragments
except ModuleNotFoundError:  # not installed: take the build of this source tree
    sys.path.append(str(Path(__file__).resolve().parents[2] / "build" / "normal"))
    try:
        import fragments
    except ModuleNotFoundError:
        raise ModuleNotFoundError("the module fragments is neither installed nor built: run make build") from None


def _kernel(number: int):
    return getattr(fragments, f"_c_closure_{number}")


# Leaves: variables and constants
push_variable = _kernel(493)
count_nonzero_constants = _kernel(401)
copy_shape = _kernel(402)
copy_pattern = _kernel(403)
write_constants = _kernel(404)
check_pattern = _kernel(460)

# Product of a constant matrix and an expression
check_matrix = _kernel(475)
measure_product = _kernel(467)
write_sparse_product = _kernel(472)
write_sparse_sparse_product = _kernel(473)
write_sparse_sparse_product_code = _kernel(474)
write_dense_product_row = _kernel(468)
write_dense_product_code = _kernel(469)
write_dense_sparse_product_row = _kernel(470)
write_dense_sparse_product_code = _kernel(471)
repeat_run = _kernel(336)
write_matrix_times_element = _kernel(465)
transpose_dense = _kernel(423)
transpose_sparse = _kernel(422)

# Product of a constant matrix and a plain variable
measure_left_product = _kernel(486)
write_left_product = _kernel(488)
sort_entries_by_column = _kernel(478)
count_used_columns = _kernel(479)
write_right_product = _kernel(480)

# Weighted sums and block sums
count_union = _kernel(508)
add_dense = _kernel(504)
add_dense_and_sparse = _kernel(506)
add_sparse = _kernel(510)
product_of_extents = _kernel(507)
count_blocks = _kernel(496)
write_block_pattern = _kernel(499)
copy_extents = _kernel(498)
copy_i64_run = _kernel(383)
copy_f64_run = _kernel(384)

# Picks and slices
check_indices = _kernel(408)
check_coordinates = _kernel(406)
flatten_coordinates = _kernel(407)
measure_pick = _kernel(409)
write_pick = _kernel(410)
find_picked = _kernel(411)
write_sparse_pick = _kernel(412)
strides_of_record = _kernel(413)
measure_slice = _kernel(414)
write_shape = _kernel(415)
strides_of_result = _kernel(416)
write_slice = _kernel(417)

# Model rows and bounds
write_bounds = _kernel(82)
measure_rows = _kernel(75)
write_rows = _kernel(76)

# Triplet assembly
count_triplets = _kernel(113)
count_triplet_rows = _kernel(124)
sum_row_counts = _kernel(114)
sum_column_counts = _kernel(115)
place_by_column = _kernel(123)
place_by_row = _kernel(126)
count_merged_triplets = _kernel(127)
merge_triplets = _kernel(128)

# Solution
gather_variables = _kernel(17)
gather_rows = _kernel(15)
gather_row_duals = _kernel(16)
combine_row_duals = _kernel(24)
