#include "corvid/qaoa/term_list.h"

#include <bit>
#include <cmath>
#include <unordered_map>

namespace corvid {

AlignedBuffer<double> dense_coefficients(int num_bits, std::span<const std::uint64_t> masks,
                                         std::span<const double> coeffs, const char* what) {
  const std::size_t size = std::size_t{1} << num_bits;
  AlignedBuffer<double> a(size, what);
  // Zeroed in parallel so each thread first touches the pages it transforms later.
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
  for (std::int64_t i = 0; i < static_cast<std::int64_t>(size); ++i) a[i] = 0.0;
  for (std::size_t t = 0; t < masks.size(); ++t) a[masks[t]] += coeffs[t];
  return a;
}

PhaseForm phase_form(std::span<const std::uint64_t> masks, std::span<const double> coeffs) {
  PhaseForm form;
  for (std::size_t t = 0; t < masks.size(); ++t) {
    if (masks[t] == 0) {
      form.constant += coeffs[t];
    } else {
      form.terms.push_back({masks[t], coeffs[t]});
    }
  }
  form.terms = merge_terms(std::move(form.terms));
  return form;
}

TermList z_terms_of_monomials(std::span<const std::uint64_t> masks,
                              std::span<const double> coeffs) {
  // c * prod_{i in T} x_i = c * 2^-|T| * sum_{S subset of T} (-1)^|S| Z_S.
  std::unordered_map<std::uint64_t, double> z;
  for (std::size_t t = 0; t < masks.size(); ++t) {
    const double share = std::ldexp(coeffs[t], -std::popcount(masks[t]));
    for (std::uint64_t s = masks[t];; s = (s - 1) & masks[t]) {
      z[s] += (std::popcount(s) & 1) ? -share : share;
      if (s == 0) break;
    }
  }
  TermList out;
  for (const auto& [mask, c] : z) {
    out.masks.push_back(mask);
    out.coeffs.push_back(c);
  }
  return out;
}

}  // namespace corvid
