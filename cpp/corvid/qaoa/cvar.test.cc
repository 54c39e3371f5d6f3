#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/qaoa/losses.h"

namespace corvid {
namespace {

/// The definition, literally: a stable sort by descending weight, then the cdf walk.
double naive_cvar(const std::vector<double>& p, const std::vector<double>& e, double alpha) {
  std::vector<std::size_t> order(p.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return p[a] > p[b]; });
  double cdf = 0.0, loss = 0.0;
  for (std::size_t i : order) {
    if (!(cdf < alpha)) break;
    loss += (cdf + p[i] < alpha ? p[i] : alpha - cdf) * e[i];
    cdf += p[i];
  }
  return loss;
}

/// Mass of the heaviest third of the entries, summed in sorted order: an alpha that the
/// cumulative sum hits exactly.
double cumulative_hit(const std::vector<double>& p) {
  std::vector<double> w = p;
  std::stable_sort(w.begin(), w.end(), std::greater<>());
  double cdf = 0.0;
  for (std::size_t k = 0; k < (w.size() + 2) / 3; ++k) cdf += w[k];
  return std::min(cdf, 1.0);
}

struct Case {
  std::string name;
  std::size_t n;
  std::function<double(std::mt19937_64&, std::size_t)> weight;  // unnormalised
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name << "/" << c.n; }

class CvarVsStableSort : public ::testing::TestWithParam<Case> {};

TEST_P(CvarVsStableSort, AgreesForEveryAlpha) {
  const Case& c = GetParam();
  std::mt19937_64 rng(c.n * 31 + c.name.size());
  std::uniform_real_distribution<double> energy(-10.0, 10.0);
  std::vector<double> p(c.n), e(c.n);
  double total = 0.0;
  for (std::size_t i = 0; i < c.n; ++i) total += p[i] = c.weight(rng, i);
  for (std::size_t i = 0; i < c.n; ++i) {
    p[i] /= total;
    e[i] = energy(rng);
  }
  for (double alpha : {0.0, 1e-7, 0.01, 0.37, 0.5, 0.999, 1.0, cumulative_hit(p)}) {
    EXPECT_NEAR(cvar(p, e, alpha), naive_cvar(p, e, alpha), 1e-9) << "alpha=" << alpha;
  }
}

double uniform(std::mt19937_64& rng, std::size_t) {
  return std::uniform_real_distribution<double>(0.0, 1.0)(rng);
}
double all_equal(std::mt19937_64&, std::size_t) { return 1.0; }
double mostly_zero(std::mt19937_64& rng, std::size_t) {
  return rng() % 10 == 0 ? uniform(rng, 0) : 0.0;
}
double three_values(std::mt19937_64& rng, std::size_t) {
  return 1.0 + static_cast<double>(rng() % 3);
}
// Weights over 60 binades, like the amplitudes of a peaked QAOA state, with repeats.
double wide_range(std::mt19937_64& rng, std::size_t) {
  return std::ldexp(1.0 + static_cast<double>(rng() % 4) / 4.0, -static_cast<int>(rng() % 60));
}

INSTANTIATE_TEST_SUITE_P(
    Distributions, CvarVsStableSort,
    ::testing::Values(
        Case{"uniform", 1, uniform}, Case{"uniform", 37, uniform},
        Case{"uniform", (1u << 15) + 3, uniform}, Case{"uniform", 1u << 17, uniform},
        Case{"all_equal", 1000, all_equal}, Case{"all_equal", 1u << 16, all_equal},
        Case{"mostly_zero", 500, mostly_zero}, Case{"mostly_zero", (1u << 16) + 1, mostly_zero},
        Case{"three_values", 999, three_values}, Case{"three_values", (1u << 16) + 5, three_values},
        Case{"wide_range", 4096, wide_range}, Case{"wide_range", 1u << 16, wide_range}),
    [](const auto& info) { return info.param.name + "_" + std::to_string(info.param.n); });

// Edges the random comparison never meets (orderings and ties are its business).
TEST(Cvar, EmptyAndNegativeZeroWeights) {
  EXPECT_EQ(cvar({}, {}, 0.5), 0.0);
  // -0.0 is a zero weight; weights summing below alpha are all taken whole.
  EXPECT_NEAR(cvar(std::vector<double>{-0.0, 0.5}, std::vector<double>{7.0, 2.0}, 0.9), 1.0, 1e-15);
}

TEST(Cvar, RejectsBadArguments) {
  const std::vector<double> p = {0.5, 0.5}, e = {1.0, 2.0};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (double alpha : {-0.1, 1.5, nan, std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(cvar(p, e, alpha), std::invalid_argument) << alpha;
  }
  EXPECT_THROW(cvar(p, std::vector<double>{1.0}, 0.5), std::invalid_argument);
  for (double alpha : {0.0, 0.5}) {
    try {
      cvar(std::vector<double>{0.5, -0.25, 0.75}, std::vector<double>{0, 0, 0}, alpha);
      FAIL();
    } catch (const std::invalid_argument& err) {
      EXPECT_STREQ(err.what(), "p[1] = -0.25 is negative");
    }
  }
  try {
    cvar(p, e, 1.5);
    FAIL();
  } catch (const std::invalid_argument& err) {
    EXPECT_STREQ(err.what(), "alpha must be a number in [0, 1], got 1.5");
  }
  std::vector<double> big(1u << 16, 1.0 / (1u << 16));
  big[40000] = nan;
  EXPECT_THROW(cvar(big, std::vector<double>(big.size(), 0.0), 0.5), std::invalid_argument);
}

}  // namespace
}  // namespace corvid
