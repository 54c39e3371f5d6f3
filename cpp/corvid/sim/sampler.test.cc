#include "corvid/sim/sampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

namespace corvid {
namespace {

std::uint64_t total_hits(const std::vector<OutcomeCount>& counts) {
  std::uint64_t t = 0;
  for (const auto& c : counts) t += c.hits;
  return t;
}

}  // namespace

// Weight sets chosen for their edges: zeros at both ends and between, a single certain outcome,
// unnormalised weights, one tiny weight.
class Sampler : public ::testing::TestWithParam<std::vector<double>> {};

TEST_P(Sampler, FrequenciesWithinFiveSigmaAndZerosNeverDrawn) {
  const std::vector<double>& w = GetParam();
  const double sum = std::accumulate(w.begin(), w.end(), 0.0);
  std::mt19937_64 rng(42);
  const std::uint64_t shots = 200000;
  const auto counts = sample_counts(w, shots, rng);
  EXPECT_EQ(total_hits(counts), shots);
  std::vector<std::uint64_t> hits(w.size(), 0);
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (i > 0) ASSERT_LT(counts[i - 1].outcome, counts[i].outcome);  // ascending, merged
    ASSERT_LT(counts[i].outcome, w.size());
    ASSERT_GT(counts[i].hits, 0u);
    hits[counts[i].outcome] = counts[i].hits;
  }
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
    ::testing::Values(std::vector<double>{0.5, 0.5}, std::vector<double>{0, 0, 1, 0},
                      std::vector<double>{0, 0.25, 0, 0.75, 0},
                      std::vector<double>{3, 1, 0, 4},  // not normalised
                      std::vector<double>{1e-6, 1 - 1e-6, 0},
                      std::vector<double>{0.1, 0.2, 0.3, 0.1, 0.05, 0.05, 0.15, 0.05}));

TEST(SamplerRng, SameSeedSameCountsAndOneShot) {
  const std::vector<double> w{0.2, 0.3, 0.5};
  std::mt19937_64 a(9), b(9);
  EXPECT_EQ(sample_counts(w, 1000, a), sample_counts(w, 1000, b));
  // The generator moves on: the next draw differs from the first.
  std::mt19937_64 c(9);
  const auto first = sample_counts(w, 1000, c);
  EXPECT_NE(first, sample_counts(w, 1000, c));
  const auto one = sample_counts(w, 1, c);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0].hits, 1u);
  EXPECT_TRUE(sample_counts(w, 0, c).empty());
}

}  // namespace corvid
