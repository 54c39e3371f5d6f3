#include "corvid/qaoa/term_list.h"

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

}  // namespace corvid
