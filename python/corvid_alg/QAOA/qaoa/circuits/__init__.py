"""Circuit construction: the phase circuit of a diagonal Hamiltonian, the ansatz, its execution."""
