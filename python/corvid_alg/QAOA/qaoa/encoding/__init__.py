"""Problem encoding: binary variables and polynomials as Pauli-Z operators."""
