#include "corvid/qaoa/energy_table.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/term_list.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/util/parallel.h"

namespace corvid {

EnergyTable::EnergyTable(std::span<const double> energies)
    : size_(energies.size()), array_(energies.data()) {}

EnergyTable::EnergyTable(std::shared_ptr<const DiagonalValues> values, double offset,
                         unsigned num_qubits)
    : size_(std::uint64_t{1} << num_qubits), offset_(offset), values_(std::move(values)) {
  if (values_ == nullptr) return;
  for (double level : values_->levels()) table_.push_back(level + offset);
  index8_ = values_->index8();
  index16_ = values_->index16();
  shifted_ = values_->dense();
}

double EnergyTable::min() const {
  if (size_ == 0) return 0.0;
  if (!table_.empty()) return *std::min_element(table_.begin(), table_.end());
  return visit([this](const auto& e) {
    double low = INFINITY;
    const auto n = static_cast<std::int64_t>(size_);
#pragma omp parallel for schedule(static) reduction(min : low) if (parallel_worthwhile(size_))
    for (std::int64_t x = 0; x < n; ++x) low = std::min(low, e(x));
    return low;
  });
}

double EnergyTable::max() const {
  if (size_ == 0) return 0.0;
  if (!table_.empty()) return *std::max_element(table_.begin(), table_.end());
  return visit([this](const auto& e) {
    double high = -INFINITY;
    const auto n = static_cast<std::int64_t>(size_);
#pragma omp parallel for schedule(static) reduction(max : high) if (parallel_worthwhile(size_))
    for (std::int64_t x = 0; x < n; ++x) high = std::max(high, e(x));
    return high;
  });
}

void EnergyTable::expand(double* out) const {
  visit([this, out](const auto& e) {
    const auto n = static_cast<std::int64_t>(size_);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size_))
    for (std::int64_t x = 0; x < n; ++x) out[x] = e(x);
  });
}

AlignedBuffer<double> EnergyTable::to_array() const {
  AlignedBuffer<double> out(size_,
                            "energies of " + std::to_string(std::countr_zero(size_)) + " qubits");
  expand(out.data());
  return out;
}

std::size_t EnergyTable::bytes() const noexcept {
  if (values_ != nullptr) return values_->bytes();
  return array_ != nullptr ? size_ * sizeof(double) : 0;
}

namespace {

// The table over the phase layer's cached diagonal of `form` (none for a constant).
EnergyTable table_of(int num_qubits, const PhaseForm& form) {
  const auto n = static_cast<unsigned>(num_qubits);
  if (form.terms.empty()) return EnergyTable(nullptr, form.constant, n);
  return EnergyTable(cached_diagonal(form.terms, n), form.constant, n);
}

}  // namespace

EnergyTable energy_table_from_z_terms(int num_qubits, std::span<const std::uint64_t> masks,
                                      std::span<const double> coeffs) {
  check_num_bits(num_qubits, "num_qubits");
  check_terms(masks, coeffs, num_qubits, "qubit");
  return table_of(num_qubits, phase_form(masks, coeffs));
}

EnergyTable energy_table_from_monomials(int num_vars, std::span<const std::uint64_t> masks,
                                        std::span<const double> coeffs) {
  check_num_bits(num_vars, "num_vars");
  check_terms(masks, coeffs, num_vars, "variable");
  const TermList z = z_terms_of_monomials(masks, coeffs);
  return table_of(num_vars, phase_form(z.masks, z.coeffs));
}

}  // namespace corvid
