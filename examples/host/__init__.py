"""A small host layer over the kernels of `fragments`: linear models, from expressions to a solver and back.

Read it in this order: `stacks` (records and where they lie), `operators` (how kernels make records out of records),
`model` (from records to rows, bounds and one matrix), `solver`. More operators are in `structure`, `sums`, `products`
and `axis_pairs`. `parameters` has coefficients that change while a model stays, `cones` semidefinite variables and
conic constraints, solved by `cone_solver`. `checks` refuses wrong arguments by name. `kernels` gives the kernels names.
"""
