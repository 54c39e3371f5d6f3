#pragma once
/// Ising problems as Hamiltonians: minimise E(s) = Σ_i h_i·s_i + Σ_{i<j} J_ij·s_i·s_j + offset
/// over spins s_i ∈ {+1, −1}.
///
/// Spin i is carried by qubit i and is the eigenvalue of Z_i: s_i = +1 on basis states whose
/// bit i is 0 and −1 where it is 1. So h_i becomes the coefficient of Z_i and J_ij that of
/// Z_i Z_j, and the operator's diagonal entry at basis state x is E(s(x)).

#include <span>

#include "corvid/pauli/pauli_operator.h"
#include "corvid/problems/quadratic_z.h"

namespace corvid {

/// Dense couplings: J is n×n with n = h.size(), symmetric (within a relative 1e-9; the mean of
/// the two entries is used) with a zero diagonal, and each pair counts once:
/// Σ_{i<j} J_ij·s_i·s_j = ½·sᵀJs. Throws std::invalid_argument for a wrong shape, NaN or
/// infinity, an asymmetric J or a nonzero diagonal (s_i² = 1, so it would only be a constant:
/// put it in `offset`). O(n²) time.
PauliOperator ising_to_operator(std::span<const double> h, SquareMatrixView j, double offset = 0.0);

/// Sparse couplings: E(s) = Σ_i h_i·s_i + Σ_p w_p·s_{i_p}·s_{j_p} + offset, pairs in either
/// orientation, repeats added up; a coupling index may exceed h.size() (its field is 0). Throws
/// std::invalid_argument for NaN or infinity, or a coupling with i == j.
PauliOperator ising_to_operator(std::span<const double> h, std::span<const WeightedPair> couplings,
                                double offset = 0.0);

}  // namespace corvid
