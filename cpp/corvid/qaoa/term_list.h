#pragma once
/// The ways a term list (masks[t], coeffs[t]) over basis indices is turned into energies:
/// scattered into a dense 2^n coefficient array for a whole-space transform, evaluated term by
/// term at a few states, or put in the form the phase layer keys its diagonal by. Callers
/// validate the lists first (checks.h).

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "corvid/sim/compile/phase_polynomial.h"
#include "corvid/util/aligned_buffer.h"
#include "corvid/util/parallel.h"

namespace corvid {

/// a[m] = sum of coeffs[t] over the terms with masks[t] == m, for m < 2^num_bits; every mask
/// must be below 2^num_bits. O(terms + 2^n); `what` names the buffer if it is refused.
AlignedBuffer<double> dense_coefficients(int num_bits, std::span<const std::uint64_t> masks,
                                         std::span<const double> coeffs, const char* what);

/// A Z-term list as the phase layer holds it: the mask-0 terms summed into `constant`, the
/// others merged (merge_terms: by mask, like masks added, zeros dropped).
struct PhaseForm {
  double constant = 0.0;
  std::vector<PhaseTerm> terms;
};
PhaseForm phase_form(std::span<const std::uint64_t> masks, std::span<const double> coeffs);

/// A term list: masks[t] with coefficient coeffs[t].
struct TermList {
  std::vector<std::uint64_t> masks;
  std::vector<double> coeffs;
  friend bool operator==(const TermList&, const TermList&) = default;
};

/// The Z terms of the binary polynomial sum_t coeffs[t] * prod_{i in masks[t]} x_i, with
/// x_i = (1 - Z_i)/2: one term per distinct subset of a monomial, in no particular order.
/// Exact (scalings by powers of two) while the sums fit a double's mantissa.
/// O(sum_t 2^|masks[t]|).
TermList z_terms_of_monomials(std::span<const std::uint64_t> masks, std::span<const double> coeffs);

/// out[s] = sum_t coeffs[t] * factor(states[s], masks[t]), summed in term order.
/// O(terms x states), parallel over states when that product is large.
template <class Factor>
AlignedBuffer<double> evaluate_terms(std::span<const std::uint64_t> masks,
                                     std::span<const double> coeffs,
                                     std::span<const std::uint64_t> states, const Factor& factor) {
  AlignedBuffer<double> out(states.size(), "energies of the given states");
  const auto count = static_cast<std::int64_t>(states.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(masks.size() * states.size()))
  for (std::int64_t s = 0; s < count; ++s) {
    double e = 0.0;
    for (std::size_t t = 0; t < masks.size(); ++t) e += coeffs[t] * factor(states[s], masks[t]);
    out[s] = e;
  }
  return out;
}

}  // namespace corvid
