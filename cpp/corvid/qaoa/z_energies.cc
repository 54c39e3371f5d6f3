#include "corvid/qaoa/z_energies.h"

#include <bit>
#include <string>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/term_list.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/util/bit_transform.h"

namespace corvid {

AlignedBuffer<double> energies_from_z_terms(int num_qubits, std::span<const std::uint64_t> masks,
                                            std::span<const double> coeffs) {
  check_num_bits(num_qubits, "num_qubits");
  check_terms(masks, coeffs, num_qubits, "qubit");
  const std::string what = "energies of " + std::to_string(num_qubits) + " qubits";
  // The phase layer of the same cost function holds these values less the constant when it
  // has already run (its coefficients are the Z coefficients exactly): one pass, no transform.
  const auto [constant, terms] = phase_form(masks, coeffs);
  if (!terms.empty()) {
    if (auto values = find_cached_diagonal(terms, static_cast<unsigned>(num_qubits))) {
      AlignedBuffer<double> e(std::size_t{1} << num_qubits, what);
      values->expand(e.data(), constant);
      return e;
    }
  }
  AlignedBuffer<double> e = dense_coefficients(num_qubits, masks, coeffs, what.c_str());
  // The unnormalised Walsh–Hadamard transform: E[x] = sum_m a[m] (-1)^popcount(x & m).
  walsh_transform(e.data(), num_qubits);
  return e;
}

AlignedBuffer<double> evaluate_z_terms(std::span<const std::uint64_t> masks,
                                       std::span<const double> coeffs,
                                       std::span<const std::uint64_t> states) {
  check_same_length(masks.size(), "masks", coeffs.size(), "coeffs");
  return evaluate_terms(masks, coeffs, states, [](std::uint64_t x, std::uint64_t m) {
    return (std::popcount(x & m) & 1) ? -1.0 : 1.0;
  });
}

}  // namespace corvid
