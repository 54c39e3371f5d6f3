#pragma once
/// Quadratic polynomials in Pauli Z operators, the common form that QUBO, Ising and MaxCut
/// problems take as Hamiltonians:
///   H = constant·I + Σ_i linear[i]·Z_i + Σ_p weight_p·Z_{i_p} Z_{j_p}.
/// Qubit i carries variable i; Z_i has eigenvalue +1 on basis states whose bit i is 0 and −1
/// where it is 1.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "corvid/pauli/pauli_operator.h"

namespace corvid {

/// weight · (the product of variables i and j). Used for QUBO pairs, Ising couplings and
/// graph edges.
struct WeightedPair {
  std::uint32_t i;
  std::uint32_t j;
  double weight;
};

/// A dense n×n matrix of doubles, row-major (entry (r, c) at values[r·n + c]). Not owning.
struct SquareMatrixView {
  std::span<const double> values;
  std::size_t n;

  double operator()(std::size_t r, std::size_t c) const { return values[r * n + c]; }
};

/// Throws std::invalid_argument naming `what` and the position of the first NaN or infinity.
void require_finite(std::span<const double> values, const char* what);

/// Throws std::invalid_argument naming `what` and the index of the first pair whose weight is
/// NaN or infinite.
void require_finite(std::span<const WeightedPair> pairs, const char* what);

/// Throws std::invalid_argument unless m.values holds exactly m.n² entries, all finite.
void require_square(SquareMatrixView m, const char* what);

/// Throws std::invalid_argument naming `what` and the first (r, c) where m(r, c) and m(c, r)
/// differ by more than a relative 1e-9, and, if `zero_diagonal`, the first nonzero m(i, i).
void require_symmetric(SquareMatrixView m, const char* what, bool zero_diagonal);

/// The pairs (r, c), r < c, of a square matrix with weight scale·(m(r, c) + m(c, r)), row by
/// row; exact zeros are left out and the diagonal is ignored.
std::vector<WeightedPair> upper_pairs(SquareMatrixView m, double scale);

/// The operator H above. Pairs may come in any order and either orientation; (i, j) and (j, i)
/// are the same string and add up. Exact zeros are dropped. Throws std::invalid_argument for a
/// non-finite value or a pair with i == j (Z_i Z_i = I is a constant: the caller decides what a
/// diagonal means). O(n + t + d log d) for t pairs of which d are distinct; refuses with
/// OutOfMemory, before building, an operator that cannot fit.
PauliOperator quadratic_z_operator(double constant, std::span<const double> linear,
                                   std::span<const WeightedPair> pairs);

}  // namespace corvid
