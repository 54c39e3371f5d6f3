// The three losses against plain references (long-double sums, a stable sort for CVaR) on
// weight sets with ties, zeros and wide ranges, and their argument checks.
#include "corvid/qaoa/losses.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using ::testing::ThrowsMessage;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

/// The CVaR definition, literally: a stable sort by descending weight, then the cdf walk.
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
  std::function<double(std::mt19937_64&)> weight;  // unnormalised
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name << "/" << c.n; }

class Losses : public ::testing::TestWithParam<Case> {};

TEST_P(Losses, MatchTheirReferences) {
  const Case& c = GetParam();
  std::mt19937_64 rng(c.n * 31 + c.name.size());
  std::uniform_real_distribution<double> energy(-10.0, 10.0);
  std::vector<double> p(c.n), e(c.n);
  double total = 0.0;
  for (std::size_t i = 0; i < c.n; ++i) total += p[i] = c.weight(rng);
  long double mean = 0.0L;
  for (std::size_t i = 0; i < c.n; ++i) {
    p[i] /= total;
    e[i] = energy(rng);
    mean += static_cast<long double>(p[i]) * e[i];
  }
  EXPECT_NEAR(expectation(p, e), static_cast<double>(mean), 1e-13);
  for (double t : {1.0, 0.5, -2.0}) {
    long double g = 0.0L;
    for (std::size_t i = 0; i < c.n; ++i) g += p[i] * std::exp(static_cast<long double>(-e[i] / t));
    EXPECT_NEAR(gibbs_sum(p, e, t), static_cast<double>(g), 1e-13 * static_cast<double>(g))
        << "T=" << t;
  }
  for (double alpha : {0.0, 1e-7, 0.01, 0.37, 0.5, 0.999, 1.0, cumulative_hit(p)}) {
    EXPECT_NEAR(cvar(p, e, alpha), naive_cvar(p, e, alpha), 1e-9) << "alpha=" << alpha;
  }
}

double uniform(std::mt19937_64& rng) { return std::uniform_real_distribution<double>()(rng); }
double all_equal(std::mt19937_64&) { return 1.0; }
double mostly_zero(std::mt19937_64& rng) { return rng() % 10 == 0 ? uniform(rng) : 0.0; }
double three_values(std::mt19937_64& rng) { return 1.0 + static_cast<double>(rng() % 3); }
// Weights over 60 binades, like the amplitudes of a peaked QAOA state, with repeats.
double wide_range(std::mt19937_64& rng) {
  return std::ldexp(1.0 + static_cast<double>(rng() % 4) / 4.0, -static_cast<int>(rng() % 60));
}

// Sizes on both sides of the parallel and radix-pass thresholds.
INSTANTIATE_TEST_SUITE_P(
    Distributions, Losses,
    ::testing::Values(
        Case{"uniform", 0, uniform}, Case{"uniform", 1, uniform}, Case{"uniform", 37, uniform},
        Case{"uniform", (1u << 15) + 3, uniform}, Case{"uniform", 1u << 17, uniform},
        Case{"all_equal", 1000, all_equal}, Case{"all_equal", 1u << 16, all_equal},
        Case{"mostly_zero", 500, mostly_zero}, Case{"mostly_zero", (1u << 16) + 1, mostly_zero},
        Case{"three_values", 999, three_values}, Case{"three_values", (1u << 16) + 5, three_values},
        Case{"wide_range", 4096, wide_range}, Case{"wide_range", 1u << 16, wide_range}),
    [](const auto& info) { return info.param.name + "_" + std::to_string(info.param.n); });

// Edges the random comparison never meets.
TEST(Losses, OverflowNegativeZeroAndThreadCount) {
  const std::vector<double> one = {1.0}, zero_one = {0.0, 1.0}, huge = {1e308, 1e308};
  EXPECT_EQ(gibbs_sum(one, std::vector<double>{-1000.0}, 1.0), kInf);  // a value, not an error
  // A zero weight times an overflowing exponential is 0 * inf, as the formula says.
  EXPECT_TRUE(std::isnan(gibbs_sum(zero_one, std::vector<double>{-1000.0, 0.0}, 1.0)));
  EXPECT_EQ(expectation(std::vector<double>{1.0, 1.0}, huge), kInf);
  // -0.0 is a zero weight; weights summing below alpha are all taken whole.
  EXPECT_NEAR(cvar(std::vector<double>{-0.0, 0.5}, std::vector<double>{7.0, 2.0}, 0.9), 1.0, 1e-15);
  std::vector<double> p(1u << 18), e(p.size());
  std::mt19937_64 rng(5);
  for (std::size_t i = 0; i < p.size(); ++i) p[i] = uniform(rng), e[i] = uniform(rng) - 0.5;
  const int before = num_threads();
  set_num_threads(1);
  const double single = expectation(p, e);
  set_num_threads(3);
  EXPECT_EQ(expectation(p, e), single);
  set_num_threads(before);
}

TEST(Losses, RejectBadArguments) {
  const std::vector<double> p = {0.5, 0.5}, e = {1.0, 2.0}, short_e = {1.0}, zeros(3, 0.0);
  for (double bad : {kNaN, kInf, -kInf}) {
    const std::vector<double> q = {0.5, bad};
    EXPECT_THROW(expectation(q, e), std::invalid_argument) << bad;
    EXPECT_THROW(gibbs_sum(q, e, 1.0), std::invalid_argument) << bad;
    EXPECT_THROW(cvar(q, e, 0.5), std::invalid_argument) << bad;
    EXPECT_THROW(gibbs_sum(p, e, bad), std::invalid_argument) << bad;
    EXPECT_THROW(cvar(p, e, bad), std::invalid_argument) << bad;
  }
  for (double t : {0.0, -0.0}) EXPECT_THROW(gibbs_sum(p, e, t), std::invalid_argument);
  EXPECT_THROW(cvar(p, e, -0.1), std::invalid_argument);
  EXPECT_THROW(expectation(p, short_e), std::invalid_argument);
  EXPECT_THROW(gibbs_sum(p, short_e, 1.0), std::invalid_argument);
  EXPECT_THROW(cvar(p, short_e, 0.5), std::invalid_argument);
  const std::vector<double> negative = {0.5, -0.25, 0.75}, nan_last = {0.5, 0.25, kNaN};
  const std::pair<std::function<void()>, std::string> messages[] = {
      {[&] { expectation(nan_last, zeros); }, "p[2] = nan is not finite"},
      {[&] { gibbs_sum(p, e, 0.0); }, "temperature must be finite and nonzero, got 0"},
      {[&] { cvar(negative, zeros, 0.0); }, "p[1] = -0.25 is negative"},
      {[&] { cvar(negative, zeros, 0.5); }, "p[1] = -0.25 is negative"},
      {[&] { cvar(p, e, 1.5); }, "alpha must be a number in [0, 1], got 1.5"},
  };
  for (const auto& [call, message] : messages) {
    EXPECT_THAT(call, ThrowsMessage<std::invalid_argument>(message));
  }
  std::vector<double> big(1u << 16, 1.0 / (1u << 16));
  big[40000] = kNaN;  // past the first block
  EXPECT_THROW(cvar(big, std::vector<double>(big.size(), 0.0), 0.5), std::invalid_argument);
}

}  // namespace
}  // namespace corvid
