"""Finds kernels by words: those of their names, families and comments, and the words that people have for the same."""
