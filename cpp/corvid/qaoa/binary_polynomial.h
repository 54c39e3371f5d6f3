#pragma once
/// Binary polynomials as Ising Hamiltonians: each binary variable x_v (carried by qubit v,
/// x_v = 1 on basis states whose bit v is 1) becomes the operator (I − Z_v)/2.

#include <cstdint>
#include <vector>

#include "corvid/pauli/pauli_operator.h"

namespace corvid {

/// coefficient · Π_{v in variables} x_v. A variable listed twice counts once (x² = x for a
/// binary x); no variables means the constant `coefficient`.
struct Monomial {
  std::vector<std::uint32_t> variables;
  double coefficient;
};

/// The Z operator equal to Σ monomials after x_v → (I − Z_v)/2: a monomial c·Π_{v∈T} x_v
/// contributes c·2^{−|T|}·Σ_{S⊆T} (−1)^{|S|} Z_S. Like strings are merged and exact zeros
/// dropped; coefficients are real.
/// Cost O(Σ 2^|T| · (|T| + log)) for the distinct variable sets T; throws OutOfMemory when that
/// many terms cannot fit in memory (one monomial of 40 distinct variables alone has 2^40).
PauliOperator binary_polynomial_to_z_operator(const std::vector<Monomial>& monomials);

}  // namespace corvid
