"""Numerics over all 2^n basis states, in C++: energies of a diagonal Hamiltonian from its Z
terms or binary monomials, the energy expectation, CVaR and Gibbs sums of a distribution, its
order by descending weight and its mass per energy bin. Bit i of a basis index is qubit i."""

from ._core.diagonal import (  # noqa: F401
    EnergyTable,
    cvar,
    descending_order,
    descending_order_after,
    energies_from_monomials,
    energies_from_z_terms,
    energy_histogram,
    energy_table_from_monomials,
    energy_table_from_z_terms,
    evaluate_monomials,
    evaluate_z_terms,
    expectation,
    gibbs_sum,
)
