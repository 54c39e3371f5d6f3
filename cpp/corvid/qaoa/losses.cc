#include "corvid/qaoa/losses.h"

#include <cmath>
#include <stdexcept>
#include <string>

#include "corvid/qaoa/checks.h"
#include "corvid/qaoa/pairwise_sum.h"

namespace corvid {
namespace {

/// sum_x term(w(x), e(x)) by pairwise summation. A non-finite weight makes the sum
/// non-finite, so a finite sum needs no separate scan; otherwise the weights are scanned to
/// tell bad input from an overflowing (valid) sum.
template <class Term>
double checked_sum(const Weights& p, const EnergyTable& e, const Term& term) {
  check_same_length(p.size(), "p", e.size(), "e");
  const double sum = p.visit([&](const auto& w) {
    return e.visit([&](const auto& en) {
      return pairwise_sum(p.size(), [&](std::size_t i) { return term(w(i), en(i)); });
    });
  });
  if (!std::isfinite(sum)) p.check(false);
  return sum;
}

}  // namespace

void Weights::check(bool nonnegative) const {
  if (p_ != nullptr) {
    const std::span<const double> p(p_, size_);
    nonnegative ? check_weights(p, "p") : check_finite(p, "p");
    return;
  }
  visit([this](const auto& w) {
    for (std::size_t x = 0; x < size_; ++x) {
      if (!std::isfinite(w(x))) {
        throw std::invalid_argument("the state's amplitude " + std::to_string(x) +
                                    " is not finite");
      }
    }
  });
}

double expectation(std::span<const double> p, std::span<const double> e) {
  return expectation(Weights(p), EnergyTable(e));
}

double expectation(const Weights& p, const EnergyTable& e) {
  return checked_sum(p, e, [](double w, double en) { return w * en; });
}

double gibbs_sum(std::span<const double> p, std::span<const double> e, double temperature) {
  return gibbs_sum(Weights(p), EnergyTable(e), temperature);
}

double gibbs_sum(const Weights& p, const EnergyTable& e, double temperature) {
  check_same_length(p.size(), "p", e.size(), "e");
  if (temperature == 0.0 || !std::isfinite(temperature)) {
    throw std::invalid_argument("temperature must be finite and nonzero, got " +
                                format_double(temperature));
  }
  return checked_sum(
      p, e, [temperature](double w, double en) { return w * std::exp(-en / temperature); });
}

}  // namespace corvid
