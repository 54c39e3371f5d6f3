#pragma once
/// QUBO problems as Hamiltonians: minimise E(x) = xᵀQx + offset over binary x.
///
/// Variable i is carried by qubit i and x_i = 1 on basis states whose bit i is 1, so x_i
/// becomes (I − Z_i)/2 and the operator's diagonal entry at basis state x is E(x).
/// Because x_i² = x_i, the diagonal Q_ii is the linear coefficient of x_i, and because
/// x_i x_j = x_j x_i, Q_ij and Q_ji both multiply the same product: Q need not be symmetric, and
/// an upper-triangular Q (the other triangle zero) means exactly what it shows.

#include <span>

#include "corvid/pauli/pauli_operator.h"
#include "corvid/problems/quadratic_z.h"

namespace corvid {

/// E(x) = Σ_{i,j} Q(i, j)·x_i·x_j + offset for a dense n×n Q. Throws std::invalid_argument when
/// Q is not n×n or holds NaN or infinity. O(n²) time.
PauliOperator qubo_to_operator(SquareMatrixView q, double offset = 0.0);

/// E(x) = Σ_i linear[i]·x_i + Σ_p w_p·x_{i_p}·x_{j_p} + offset, the sparse form. A pair with
/// i == j adds to the linear coefficient of x_i; repeated pairs add up. Throws
/// std::invalid_argument for NaN or infinity. O(n + t + d log d) for t pairs, d distinct.
PauliOperator qubo_to_operator(std::span<const double> linear,
                               std::span<const WeightedPair> quadratic, double offset = 0.0);

}  // namespace corvid
