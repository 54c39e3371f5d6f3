#pragma once
/// PauliOperator: a weighted sum of Pauli strings with complex coefficients, the Hamiltonian
/// currency of the library.
///
/// Invariant: the terms are sorted in the PauliString term order (fewer factors first, then
/// qubit indices, then letters X < Y < Z, e.g. "", "Z0", "Z1", "Z2", "Z0 Z1"), each string
/// appears once, and no coefficient is exactly zero (a − a and 0·a are the zero operator, which
/// has no terms). Every operation keeps it, so iteration order, printing and equality are
/// deterministic. A value type: copies are independent.

#include <complex>
#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "corvid/pauli/pauli_string.h"

namespace corvid {

class PauliOperator {
 public:
  using Coefficient = std::complex<double>;

  struct Term {
    PauliString string;
    Coefficient coefficient;

    friend bool operator==(const Term&, const Term&) = default;
  };

  /// The Hamiltonian list form: per term (qubit → letter, real part of the coefficient).
  using Hamiltonian = std::vector<std::pair<std::map<std::uint32_t, char>, double>>;

  /// The zero operator.
  PauliOperator() = default;
  /// scalar · I.
  explicit PauliOperator(Coefficient scalar);
  /// scalar · the string written by `key` (see parse_pauli_key; throws std::invalid_argument).
  PauliOperator(std::string_view key, Coefficient scalar);
  PauliOperator(PauliString string, Coefficient scalar);
  /// The sum of (key, coefficient) pairs; repeated keys are added up.
  explicit PauliOperator(const std::vector<std::pair<std::string, Coefficient>>& terms);

  /// The sum of `terms` in any order, like strings merged and zeros dropped. O(t + d log d) for
  /// d distinct strings (see TermAccumulator).
  static PauliOperator from_terms(std::vector<Term> terms);

  std::size_t size() const noexcept { return terms_.size(); }
  bool empty() const noexcept { return terms_.empty(); }
  const std::vector<Term>& terms() const noexcept { return terms_; }
  auto begin() const noexcept { return terms_.begin(); }
  auto end() const noexcept { return terms_.end(); }

  /// Sums and differences merge the two sorted term lists, O(m + k); adding k terms to m ≫ k
  /// in place inserts each one by binary search instead.
  friend PauliOperator operator+(PauliOperator a, const PauliOperator& b) { return a += b; }
  friend PauliOperator operator-(PauliOperator a, const PauliOperator& b) { return a -= b; }
  /// Operator product: m·k string products summed through a TermAccumulator, O(m·k·q + d log d)
  /// for strings of up to q factors and d distinct products.
  friend PauliOperator operator*(const PauliOperator& a, const PauliOperator& b);
  friend PauliOperator operator*(PauliOperator a, Coefficient s) { return a *= s; }
  friend PauliOperator operator*(Coefficient s, PauliOperator a) { return a *= s; }
  /// a ± s and s ± a treat the number s as s·I.
  friend PauliOperator operator+(PauliOperator a, Coefficient s) { return a += s; }
  friend PauliOperator operator+(Coefficient s, PauliOperator a) { return a += s; }
  friend PauliOperator operator-(PauliOperator a, Coefficient s) { return a -= s; }
  friend PauliOperator operator-(Coefficient s, const PauliOperator& a) { return -a + s; }
  friend PauliOperator operator-(PauliOperator a) { return a *= -1.0; }

  PauliOperator& operator+=(const PauliOperator& b) { return add(b, 1.0); }
  PauliOperator& operator-=(const PauliOperator& b) { return add(b, -1.0); }
  PauliOperator& operator*=(const PauliOperator& b) { return *this = *this * b; }
  PauliOperator& operator+=(Coefficient s) { return add(PauliOperator(s), 1.0); }
  PauliOperator& operator-=(Coefficient s) { return add(PauliOperator(s), -1.0); }
  /// Scales every coefficient; terms that become exactly 0 (s = 0, or underflow) are dropped.
  PauliOperator& operator*=(Coefficient s);

  /// Exact equality of the term sets.
  friend bool operator==(const PauliOperator&, const PauliOperator&) = default;
  /// True when every string's coefficients differ by at most `tol` in absolute value (a string
  /// missing on one side counts as 0 there).
  bool approx_equal(const PauliOperator& other, double tol) const;

  /// The terms in order as (qubit → letter, real part); imaginary parts are ignored.
  Hamiltonian to_hamiltonian() const;

  /// The operator with its qubits renumbered 0, 1, 2, ... in ascending order of the qubit
  /// indices it uses; `mapping` is cleared and then filled with old → new.
  PauliOperator remap_qubit_index(std::map<std::uint32_t, std::uint32_t>& mapping) const;

  /// The largest qubit index any term uses, or −1 when the operator acts on no qubit (zero or a
  /// multiple of I), so that max_index() + 1 is always the number of qubits needed.
  std::int64_t max_index() const;

  /// The printed form: "{" line, then per term `"<key>" : <coefficient>` joined by ",\n",
  /// then "}" line; the zero operator prints "{\n}". A real coefficient prints as %.6f, one
  /// with a nonzero imaginary part as "(<re>+<im>i)" or "(<re>-<|im|>i)", both parts %.6f.
  /// Example: "{\n\"\" : 0.500000,\n\"Z0\" : -0.500000\n}".
  std::string to_string() const;

 private:
  friend class TermAccumulator;  // builds the sorted term list directly

  PauliOperator& add(const PauliOperator& b, double sign);

  std::vector<Term> terms_;
};

std::ostream& operator<<(std::ostream& os, const PauliOperator& op);

}  // namespace corvid
