#include "corvid/qaoa/losses.h"

#include <cmath>
#include <stdexcept>
#include <string>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/pairwise_sum.h"

namespace corvid {
namespace {

/// A non-finite weight makes the sum non-finite, so a finite sum needs no separate scan;
/// otherwise the weights are scanned to tell bad input from an overflowing (valid) sum.
double checked_sum(double sum, std::span<const double> p) {
  if (!std::isfinite(sum)) check_finite(p, "p");
  return sum;
}

}  // namespace

double expectation(std::span<const double> p, std::span<const double> e) {
  check_same_length(p.size(), "p", e.size(), "e");
  return checked_sum(pairwise_sum(p.size(), [&](std::size_t i) { return p[i] * e[i]; }), p);
}

double gibbs_sum(std::span<const double> p, std::span<const double> e, double temperature) {
  check_same_length(p.size(), "p", e.size(), "e");
  if (temperature == 0.0 || !std::isfinite(temperature)) {
    throw std::invalid_argument("temperature must be finite and nonzero, got " +
                                format_double(temperature));
  }
  return checked_sum(
      pairwise_sum(p.size(), [&](std::size_t i) { return p[i] * std::exp(-e[i] / temperature); }),
      p);
}

}  // namespace corvid
