"""Problem builders in C++: QUBO, Ising and MaxCut problems as Z operators.

Qubit i carries variable i: x_i = 1 (binary) and s_i = -1 (spin) where bit i of a basis index is
1. Friendlier entry points (dicts, edge lists, files) are in ``corvid_alg.QAOA.problems``.
"""

from ._core.problems import (  # noqa: F401
    ising_terms_to_operator,
    ising_to_operator,
    maxcut_matrix_operator,
    maxcut_operator,
    qubo_terms_to_operator,
    qubo_to_operator,
)
