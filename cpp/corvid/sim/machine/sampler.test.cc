#include "corvid/sim/machine/sampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <tuple>
#include <vector>

namespace corvid {
// Weight sets chosen for their edges: zeros at both ends and between, a single certain outcome,
// unnormalised weights, one tiny weight. Each runs as given (more shots than outcomes: counts
// drawn outcome by outcome) and tiled past the shot count (the sorted-variate walk); tiled
// outcomes are pooled by their place in the set.
class Sampler : public ::testing::TestWithParam<std::tuple<std::vector<double>, bool>> {};

TEST_P(Sampler, FrequenciesWithinFiveSigmaAndZerosNeverDrawn) {
  const auto& [w, tiled] = GetParam();
  const std::uint64_t shots = 200000;
  std::vector<double> weights;
  do weights.insert(weights.end(), w.begin(), w.end());
  while (tiled && weights.size() < shots);
  const double sum = std::accumulate(w.begin(), w.end(), 0.0);
  std::mt19937_64 rng(42);
  const auto counts = sample_counts(weights, shots, rng);
  std::vector<std::uint64_t> hits(w.size(), 0);
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (i > 0) ASSERT_LT(counts[i - 1].outcome, counts[i].outcome);  // ascending, merged
    ASSERT_LT(counts[i].outcome, weights.size());
    ASSERT_GT(counts[i].hits, 0u);
    hits[counts[i].outcome % w.size()] += counts[i].hits;
  }
  EXPECT_EQ(std::accumulate(hits.begin(), hits.end(), std::uint64_t{0}), shots);
  for (std::size_t j = 0; j < w.size(); ++j) {
    const double p = w[j] / sum;
    if (p == 0.0) {
      EXPECT_EQ(hits[j], 0u) << "outcome " << j << " has weight 0";
      continue;
    }
    const double sigma = std::sqrt(shots * p * (1 - p));
    EXPECT_NEAR(double(hits[j]), shots * p, 5 * sigma + 1) << "outcome " << j;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Weights, Sampler,
    ::testing::Combine(
        ::testing::Values(std::vector<double>{0.5, 0.5}, std::vector<double>{0, 0, 1, 0},
                          std::vector<double>{0, 0.25, 0, 0.75, 0},
                          std::vector<double>{3, 1, 0, 4},  // not normalised
                          std::vector<double>{1e-6, 1 - 1e-6, 0},
                          std::vector<double>{0.1, 0.2, 0.3, 0.1, 0.05, 0.05, 0.15, 0.05}),
        ::testing::Bool()),
    [](const auto& info) {
      return "set" + std::to_string(info.index / 2) + (std::get<1>(info.param) ? "_tiled" : "");
    });

TEST(SamplerRng, ZeroToHugeShotCountsCostOneDrawPerOutcome) {
  const std::vector<double> w{0.25, 0, 0.75};
  std::mt19937_64 rng(3);
  for (std::uint64_t shots : {std::uint64_t{1} << 60, std::uint64_t{1} << 62,
                              (std::uint64_t{1} << 62) + 1, std::uint64_t{INT64_MAX}}) {
    const auto counts = sample_counts(w, shots, rng);
    ASSERT_EQ(counts.size(), 2u);
    EXPECT_EQ(counts[0].hits + counts[1].hits, shots);
    EXPECT_NEAR(double(counts[0].hits) / double(shots), 0.25, 1e-6);
  }
  EXPECT_TRUE(sample_counts(w, 0, rng).empty());
}

// Binomial(n, p) by each of its paths: inversion (n·p < 30, also for huge n), BTPE's direct
// ratio near the mode and its squeeze, counts past 2^53 and p above 1/2 (drawn as n - Bin(1-p)).
// Mean and variance of many draws within 5 sigma of n·p and n·p·q.
class Binomial : public ::testing::TestWithParam<std::tuple<std::uint64_t, double>> {};

TEST_P(Binomial, MeanAndVarianceMatch) {
  const auto [n, p] = GetParam();
  const int draws = 20000;
  std::mt19937_64 rng(7);
  long double sum = 0, sum_sq = 0;
  const double mean = double(n) * p, var = double(n) * p * (1 - p);
  for (int i = 0; i < draws; ++i) {
    const std::uint64_t x = binomial(n, p, rng);
    ASSERT_LE(x, n);
    const long double d = static_cast<long double>(x) - mean;
    sum += d;
    sum_sq += d * d;
  }
  const double sample_mean = double(sum / draws);
  const double sample_var = double(sum_sq / draws) - sample_mean * sample_mean;
  EXPECT_NEAR(sample_mean, 0.0, 5 * std::sqrt(var / draws));
  EXPECT_NEAR(sample_var / var, 1.0, 5 * std::sqrt(2.0 / draws) + 1.0 / var);
}

using Draw = std::tuple<std::uint64_t, double>;
INSTANTIATE_TEST_SUITE_P(Counts, Binomial,
                         ::testing::Values(Draw{10, 0.3}, Draw{1000, 0.01}, Draw{1ull << 40, 1e-11},
                                           Draw{1000000, 0.3}, Draw{1ull << 62, 0.25},
                                           Draw{(1ull << 62) + 1, 0.5}, Draw{INT64_MAX, 0.9},
                                           Draw{50, 0.97}));

// The exact distribution, not only its moments: frequencies of Binomial(100, 0.45) (BTPE with
// every acceptance test in play) against the probability function; certain and impossible draws.
TEST(BinomialExact, FrequenciesFollowTheProbabilityFunction) {
  const std::uint64_t n = 100;
  const double p = 0.45;
  const int draws = 400000;
  std::mt19937_64 rng(11);
  std::vector<int> hits(n + 1, 0);
  for (int i = 0; i < draws; ++i) ++hits[binomial(n, p, rng)];
  for (std::uint64_t k = 0; k <= n; ++k) {
    const double log_pk = std::lgamma(n + 1.0) - std::lgamma(k + 1.0) - std::lgamma(n - k + 1.0) +
                          double(k) * std::log(p) + double(n - k) * std::log1p(-p);
    const double expected = draws * std::exp(log_pk);
    EXPECT_NEAR(hits[k], expected, 5 * std::sqrt(expected) + 1) << "k = " << k;
  }
  EXPECT_EQ(binomial(0, 0.5, rng), 0u);
  EXPECT_EQ(binomial(12, 0.0, rng), 0u);
  EXPECT_EQ(binomial(std::uint64_t{1} << 62, 1.0, rng), std::uint64_t{1} << 62);
}

}  // namespace corvid
