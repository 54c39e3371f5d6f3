#pragma once
/// The energy of every basis state, read where it is kept rather than copied into a 2^n array
/// of doubles: e(x) = offset + v(x) for the values v of a diagonal (DiagonalValues, one small
/// level index per basis state when the values are few), or an array the caller lends.
/// A cost function of few distinct energies (integer problems, MaxCut) then costs one or two
/// bytes per basis state, shared with the phase layer that uses the same diagonal.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "corvid/sim/compile/diagonal_values.h"
#include "corvid/util/aligned_buffer.h"

namespace corvid {

class EnergyTable {
 public:
  EnergyTable() = default;
  /// Borrows `energies` (e[x] = energies[x]) for the table's lifetime.
  explicit EnergyTable(std::span<const double> energies);
  /// e(x) = offset + values(x) for x < 2^num_qubits; null values: every energy is `offset`.
  EnergyTable(std::shared_ptr<const DiagonalValues> values, double offset, unsigned num_qubits);

  std::uint64_t size() const noexcept { return size_; }
  double operator[](std::uint64_t x) const noexcept;
  /// The least and the greatest energy (0 for an empty table). O(levels) or O(N).
  double min() const;
  double max() const;
  /// out[x] = e(x) for every basis state, in one parallel pass.
  void expand(double* out) const;
  AlignedBuffer<double> to_array() const;
  /// Heap bytes of the per-state storage (an array lent by the caller counts).
  std::size_t bytes() const noexcept;

  /// f(reader) for the form in use, reader(x) = e(x): loops over the states inline the read.
  template <class F>
  decltype(auto) visit(F&& f) const {
    if (index8_ != nullptr) return f(Level<std::uint8_t>{index8_, table_.data()});
    if (index16_ != nullptr) return f(Level<std::uint16_t>{index16_, table_.data()});
    if (shifted_ != nullptr) return f(Shifted{shifted_, offset_});
    if (array_ != nullptr) return f(Array{array_});
    return f(Constant{offset_});
  }

 private:
  template <class T>
  struct Level {
    const T* index;
    const double* table;
    double operator()(std::uint64_t x) const { return table[index[x]]; }
  };
  struct Shifted {
    const double* values;
    double offset;
    double operator()(std::uint64_t x) const { return offset + values[x]; }
  };
  struct Array {
    const double* values;
    double operator()(std::uint64_t x) const { return values[x]; }
  };
  struct Constant {
    double value;
    double operator()(std::uint64_t) const { return value; }
  };

  std::uint64_t size_ = 0;
  double offset_ = 0.0;
  std::shared_ptr<const DiagonalValues> values_;
  std::vector<double> table_;  ///< offset + level, per level
  const std::uint8_t* index8_ = nullptr;
  const std::uint16_t* index16_ = nullptr;
  const double* shifted_ = nullptr;
  const double* array_ = nullptr;
};

inline double EnergyTable::operator[](std::uint64_t x) const noexcept {
  return visit([x](const auto& e) { return e(x); });
}

/// The table of E[x] = sum_t coeffs[t] * (-1)^popcount(x & masks[t]) (see z_energies.h): the
/// constant apart, the other terms as the diagonal the phase layer of the same terms uses,
/// from the diagonal cache or computed into it. Same checks as energies_from_z_terms.
EnergyTable energy_table_from_z_terms(int num_qubits, std::span<const std::uint64_t> masks,
                                      std::span<const double> coeffs);

/// The table of the binary polynomial sum_t coeffs[t] * prod_{i in masks[t]} x_i (see
/// monomial_energies.h), through its Z terms (x_i = (1 - Z_i)/2): exact for integer
/// coefficients while sum_t |coeffs[t]| * 2^|masks[t]| stays below 2^53. Same checks as
/// energies_from_monomials.
EnergyTable energy_table_from_monomials(int num_vars, std::span<const std::uint64_t> masks,
                                        std::span<const double> coeffs);

}  // namespace corvid
