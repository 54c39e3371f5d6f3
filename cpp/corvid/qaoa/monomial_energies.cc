#include "corvid/qaoa/monomial_energies.h"

#include <string>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/term_list.h"
#include "corvid/util/bit_transform.h"

namespace corvid {

AlignedBuffer<double> energies_from_monomials(int num_vars, std::span<const std::uint64_t> masks,
                                              std::span<const double> coeffs) {
  check_num_bits(num_vars, "num_vars");
  check_terms(masks, coeffs, num_vars, "variable");
  const std::string what = "energies of " + std::to_string(num_vars) + " variables";
  AlignedBuffer<double> e = dense_coefficients(num_vars, masks, coeffs, what.c_str());
  // Subset sums: after bit i, e[x] holds the sum over masks that agree with x above bit i
  // and are contained in x at and below it.
  subset_sum_transform(e.data(), num_vars);
  return e;
}

AlignedBuffer<double> evaluate_monomials(std::span<const std::uint64_t> masks,
                                         std::span<const double> coeffs,
                                         std::span<const std::uint64_t> states) {
  check_same_length(masks.size(), "masks", coeffs.size(), "coeffs");
  return evaluate_terms(masks, coeffs, states,
                        [](std::uint64_t x, std::uint64_t m) { return (x & m) == m ? 1.0 : 0.0; });
}

}  // namespace corvid
