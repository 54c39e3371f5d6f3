"""QAOA: the quantum approximate optimisation algorithm for binary polynomials."""
