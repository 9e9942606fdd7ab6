"""The kernels that this host layer calls, by name.

The module `fragments` offers its kernels by number alone; the names here are those of their declarations in `src/`,
which tell what each of them does (`make describe N=472`). Arguments are positional: scalars, positions on stack arrays
and the arrays themselves, in an order of each kernel's own; counters that a kernel advances come back as its result.
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
count_nonzeros = _kernel(401)
push_extents = _kernel(402)
push_pattern = _kernel(403)
write_constants = _kernel(404)
check_pattern = _kernel(460)

# Product of a constant matrix and an expression
check_matrix_to_first_fault = _kernel(475)
measure_product = _kernel(467)
write_sparse_product = _kernel(472)
write_sparse_sparse_product = _kernel(473)
write_sparse_sparse_product_code = _kernel(474)
write_dense_product_row = _kernel(468)
write_dense_product_code = _kernel(469)
write_dense_sparse_product_row = _kernel(470)
write_dense_sparse_product_code = _kernel(471)
repeat_variables = _kernel(336)
write_matrix_times_element = _kernel(465)
write_dense_transpose = _kernel(423)
write_sparse_transpose = _kernel(422)

# Product of a constant matrix and a plain variable
measure_left_dense_product = _kernel(486)
write_sparse_left_product = _kernel(488)
sort_entries_by_column = _kernel(478)
count_used_columns = _kernel(479)
write_sparse_right_product = _kernel(480)

# Weighted sums and block sums
count_union = _kernel(508)
write_dense_sum = _kernel(504)
write_dense_sparse_sum = _kernel(506)
write_sparse_sum = _kernel(510)
range_size64_hi_lo_acc_base_wi32 = _kernel(497)
count_blocks = _kernel(496)
write_blocks = _kernel(499)
copy_summand_extents = _kernel(498)
copy_record_extents = _kernel(361)
copy_ptr = _kernel(381)

# Picks and slices
has_index_outside = _kernel(408)
has_coordinate_outside = _kernel(406)
flatten_coordinates = _kernel(407)
measure_pick = _kernel(409)
write_pick = _kernel(410)
find_pick = _kernel(411)
write_found_pick = _kernel(412)
write_operand_strides = _kernel(413)
measure_slice = _kernel(414)
push_slice_extents = _kernel(415)
write_slice_strides = _kernel(416)
write_slice = _kernel(417)

# Stacking, repeating and permuting axes
check_operands = _kernel(428)
stacked_extent = _kernel(429)
measure_stack = _kernel(430)
write_offsets = _kernel(432)
leading_size_init_n_top_wi32 = _kernel(424)
trailing_size_init_dim_nd_top_wi32 = _kernel(425)
write_dense_stack = _kernel(436)
write_first_axis_stack = _kernel(439)
largest_extent = _kernel(440)
write_stack_keys = _kernel(441)
sort_stack_keys = _kernel(442)
write_sorted_stack = _kernel(443)
repeat = _kernel(426)
write_permuted_shape = _kernel(418)
write_permuted_positions = _kernel(419)
write_permuted = _kernel(420)
write_dense_permuted = _kernel(421)

# Sum along an axis, weighted sum of many operands, merging of terms
greatest_extent = _kernel(526)
write_identity_permutation = _kernel(527)
sort_by_group = _kernel(528)
count_groups = _kernel(531)
copy_extents_behind_axis = _kernel(533)
write_sparse_sum_along_axis = _kernel(534)
write_dense_sum_along_axis = _kernel(539)
have_equal_shapes = _kernel(511)
has_code = _kernel(512)
measure_dense_sum_of_operands = _kernel(513)
measure_sparse_sum_of_operands = _kernel(514)
copy_first_extents = _kernel(515)
zero_ptr_on_r = _kernel(516)
zero_ptr_on_x = _kernel(517)
count_sparse_operand = _kernel(518)
count_dense_operand = _kernel(519)
add_up_ptr_on_r = _kernel(520)
add_up_ptr_on_x = _kernel(521)
write_sparse_operand = _kernel(522)
write_dense_operand = _kernel(523)
shift_ptr_up = _kernel(524)
write_sparse_sum_of_operands = _kernel(525)
are_variables_ascending = _kernel(394)
longest_element = _kernel(391)
sort_terms = _kernel(392)
measure_merged_terms = _kernel(397)
write_merged_terms = _kernel(400)
copy_pattern = _kernel(385)

# Products with constant arrays, diagonal of a matrix product
measure_elementwise_product = _kernel(461)
write_elementwise_product = _kernel(463)
write_scalar_product = _kernel(464)
check_picked_elements = _kernel(446)
count_terms_of_picks = _kernel(447)
write_sum_of_picks = _kernel(448)
sort_matrix_by_column = _kernel(451)
measure_right_diagonal = _kernel(452)
write_right_diagonal = _kernel(453)
measure_left_diagonal = _kernel(455)
write_left_diagonal = _kernel(456)
measure_sparse_left_diagonal = _kernel(457)
write_sparse_left_diagonal = _kernel(458)

# Two axes as the sides of a matrix
fold_leading_dim_shape_wi32_n = _kernel(547)
fold_inner_dim_shape_wi32_lo_hi = _kernel(548)
fold_trailing_dim_hi_shape_wi32_lo = _kernel(549)
fold_strides = _kernel(550)
fold_strides64 = _kernel(562)
measure_triangle = _kernel(551)
write_lower_triangle_positions = _kernel(553)
write_upper_triangle_positions = _kernel(554)
write_triangle = _kernel(555)
copy_record = _kernel(557)
scale_off_diagonal = _kernel(545)
scale_off_diagonal_with_code = _kernel(546)
sort_by_mirror = _kernel(564)
measure_sparse_mean = _kernel(565)
write_mirror_keys = _kernel(566)
count_mean_elements = _kernel(567)
write_sparse_mean = _kernel(569)
measure_dense_mean = _kernel(570)
write_dense_mean = _kernel(572)

# Model rows and bounds
write_bounds = _kernel(82)
measure_rows_by_term = _kernel(75)
split_linear_and_constant_terms = _kernel(76)
split_nonzero_terms = _kernel(79)
measure_rows_by_coefficient = _kernel(78)
write_row_matrices = _kernel(77)
write_row_matrices_wide = _kernel(80)
measure_row = _kernel(46)
split_row = _kernel(47)
write_semidefinite_terms = _kernel(48)

# Semidefinite variables and conic constraints
number_semidefinite_variables = _kernel(7)
fill_semidefinite_block = _kernel(8)
scatter_triangle = _kernel(267)
bind_ranged_expressions = _kernel(1)
bind_expressions = _kernel(2)
enter_elements = _kernel(4)
enter_variables = _kernel(9)
remove_variables = _kernel(10)
scale_triangle_elements = _kernel(87)
pack_triangles = _kernel(88)

# Triplet assembly
count_rows_and_columns = _kernel(113)
count_rows = _kernel(124)
add_up_rows = _kernel(114)
add_up_columns = _kernel(115)
place_by_column = _kernel(123)
place_by_row = _kernel(126)
count_merged = _kernel(127)
merge_repeated = _kernel(128)

# Solution
gather_scalar_values = _kernel(17)
gather_constraint_values = _kernel(15)
gather_constraint_duals = _kernel(16)
subtract_constraint_duals = _kernel(24)
gather_variable_values = _kernel(19)
gather_variable_duals = _kernel(20)
subtract_variable_duals = _kernel(23)

# Parameters: values, products, code, rows
read_parameters = _kernel(101)
set_parameters = _kernel(102)
zero_slots = _kernel(333)
write_even_ptr = _kernel(334)
write_parameters_times_element_code = _kernel(337)
write_parameter_times_expression = _kernel(338)
measure_inner_product = _kernel(355)
write_inner_product = _kernel(357)
write_inner_product_of_dense = _kernel(358)
measure_elementwise_parameter_product = _kernel(359)
write_elementwise_parameter_product = _kernel(362)
write_elementwise_parameter_product_of_dense = _kernel(363)
compact_code = _kernel(380)
measure_kept_terms = _kernel(386)
write_kept_terms = _kernel(390)
count_parametrised_terms = _kernel(135)
lay_out_rows = _kernel(136)
file_rows = _kernel(137)
take_out_rows = _kernel(138)
grown_capacity = _kernel(140)
evaluate_rows = _kernel(25)
evaluate_all_rows = _kernel(134)
