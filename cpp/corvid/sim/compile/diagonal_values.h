#pragma once
/// The values v(x) = Σ_t r_t·(−1)^popcount(x & mask_t) of a phase polynomial over all 2^n basis
/// states (bit q of x is qubit q), stored in the most compact exact form: when v takes at most
/// 256 (65536) distinct values, one uint8 (uint16) level index per basis state and the sorted
/// list of levels; otherwise the values themselves as doubles. A diagonal pass then multiplies
/// by a per-level table of phases instead of evaluating sin/cos per amplitude.

#include <cstdint>
#include <span>
#include <vector>

#include "corvid/sim/compile/phase_polynomial.h"
#include "corvid/util/aligned_buffer.h"

namespace corvid {

class DiagonalValues {
 public:
  /// Computes v for `terms` (masks < 2^num_qubits, coefficients r_t = terms[t].coefficient) with a
  /// Walsh–Hadamard transform per cache-sized block: O(n·2^n) time, O(block) scratch per thread,
  /// parallel. Levels are compared exactly (no rounding). Throws OutOfMemory before allocating
  /// when the result does not fit.
  DiagonalValues(unsigned num_qubits, std::span<const PhaseTerm> terms);

  unsigned num_qubits() const noexcept { return num_qubits_; }
  std::uint64_t size() const noexcept { return std::uint64_t{1} << num_qubits_; }
  /// Distinct values in ascending order; empty when the values are stored densely.
  std::span<const double> levels() const noexcept { return levels_; }
  /// Level index per basis state, or nullptr when another form is used.
  const std::uint8_t* index8() const noexcept { return index8_.size() ? index8_.data() : nullptr; }
  const std::uint16_t* index16() const noexcept {
    return index16_.size() ? index16_.data() : nullptr;
  }
  /// v(x) per basis state, or nullptr when an index is used.
  const double* dense() const noexcept { return dense_.size() ? dense_.data() : nullptr; }
  /// v at basis state x, whatever the form. O(1).
  double at(std::uint64_t x) const noexcept;
  /// out[x] = offset + v(x) for every basis state, in one parallel pass.
  void expand(double* out, double offset) const;
  /// Heap bytes held.
  std::size_t bytes() const noexcept;

 private:
  unsigned num_qubits_;
  std::vector<double> levels_;
  AlignedBuffer<std::uint8_t> index8_;
  AlignedBuffer<std::uint16_t> index16_;
  AlignedBuffer<double> dense_;
};

}  // namespace corvid
