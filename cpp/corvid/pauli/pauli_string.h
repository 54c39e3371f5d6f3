#pragma once
/// A Pauli string: a tensor product of single-qubit X, Y and Z factors on distinct qubits, the
/// identity on every other qubit. Stored sparsely as factors sorted by qubit index.

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "corvid/pauli/factor_list.h"

namespace corvid {

struct PauliProduct;

class PauliString {
 public:
  /// The identity (no factors).
  PauliString() = default;

  /// The string of `factors`, given in any order (factors on distinct qubits commute).
  /// Throws std::invalid_argument when a letter is not X, Y or Z or a qubit appears twice.
  /// O(k log k) for k factors.
  explicit PauliString(std::span<const PauliFactor> factors);
  PauliString(std::initializer_list<PauliFactor> factors)
      : PauliString(std::span<const PauliFactor>(factors.begin(), factors.size())) {}

  /// Factors sorted by ascending qubit index, one per qubit.
  std::span<const PauliFactor> factors() const noexcept { return factors_.span(); }
  std::size_t size() const noexcept { return factors_.size(); }
  bool is_identity() const noexcept { return factors_.size() == 0; }

  friend bool operator==(const PauliString& a, const PauliString& b) {
    return std::ranges::equal(a.factors(), b.factors());
  }

  /// The term order of every PauliOperator: fewer factors first; then the qubit indices
  /// compared lexicographically; then the letters compared lexicographically (X < Y < Z).
  /// So "", "Z0", "Z1", "X0 Z1", "Z0 Z1", "Z0 Z2".
  friend std::strong_ordering operator<=>(const PauliString& a, const PauliString& b) {
    if (auto c = a.size() <=> b.size(); c != 0) return c;
    std::span<const PauliFactor> fa = a.factors(), fb = b.factors();
    for (std::size_t i = 0; i < fa.size(); ++i) {
      if (auto c = fa[i].qubit <=> fb[i].qubit; c != 0) return c;
    }
    for (std::size_t i = 0; i < fa.size(); ++i) {
      if (auto c = fa[i].letter <=> fb[i].letter; c != 0) return c;
    }
    return std::strong_ordering::equal;
  }

 private:
  friend PauliProduct multiply(const PauliString& a, const PauliString& b);

  FactorList factors_;
};

/// The product a·b of two Pauli strings: i^phase times `string`.
struct PauliProduct {
  int phase;  ///< power of i, in 0..3
  PauliString string;
};

/// Multiplies two Pauli strings qubit by qubit: X·Y = iZ, Y·Z = iX, Z·X = iY, the reversed
/// products carry −i, and equal letters cancel to the identity. O(|a| + |b|).
PauliProduct multiply(const PauliString& a, const PauliString& b);

}  // namespace corvid
