"""Checks and shows the expression records that kernels read and write."""
