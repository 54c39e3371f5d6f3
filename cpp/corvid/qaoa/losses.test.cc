#include "corvid/qaoa/losses.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

struct Distribution {
  std::vector<double> p, e;
};

Distribution random_distribution(std::size_t n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0), energy(-10.0, 10.0);
  Distribution d{std::vector<double>(n), std::vector<double>(n)};
  double total = 0.0;
  for (std::size_t i = 0; i < n; ++i) total += d.p[i] = u(rng);
  for (std::size_t i = 0; i < n; ++i) {
    d.p[i] /= total;
    d.e[i] = energy(rng);
  }
  return d;
}

class LossesVsLongDouble : public ::testing::TestWithParam<std::size_t> {};

TEST_P(LossesVsLongDouble, ExpectationAndGibbsSum) {
  const std::size_t n = GetParam();
  const Distribution d = random_distribution(n, 11 + static_cast<unsigned>(n));
  long double mean = 0.0L;
  for (std::size_t i = 0; i < n; ++i) mean += static_cast<long double>(d.p[i]) * d.e[i];
  EXPECT_NEAR(expectation(d.p, d.e), static_cast<double>(mean), 1e-13);
  for (double t : {1.0, 0.5, -2.0}) {
    long double g = 0.0L;
    for (std::size_t i = 0; i < n; ++i)
      g += d.p[i] * std::exp(static_cast<long double>(-d.e[i] / t));
    EXPECT_NEAR(gibbs_sum(d.p, d.e, t), static_cast<double>(g),
                1e-13 * std::fabs(static_cast<double>(g)) + 1e-300)
        << "T=" << t;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, LossesVsLongDouble,
                         ::testing::Values(0, 1, 7, 129, 1000, (1u << 16) + 7, 1u << 18));

TEST(Losses, OverflowIsAValueNotAnError) {
  EXPECT_EQ(gibbs_sum(std::vector<double>{1.0}, std::vector<double>{-1000.0}, 1.0),
            std::numeric_limits<double>::infinity());
  // A zero weight times an overflowing exponential is 0 * inf, as the formula says.
  EXPECT_TRUE(
      std::isnan(gibbs_sum(std::vector<double>{0.0, 1.0}, std::vector<double>{-1000.0, 0.0}, 1.0)));
  EXPECT_EQ(expectation(std::vector<double>{1.0, 1.0}, std::vector<double>{1e308, 1e308}),
            std::numeric_limits<double>::infinity());
}

TEST(Losses, SameResultOnAnyThreadCount) {
  const Distribution d = random_distribution(1u << 18, 5);
  const int before = num_threads();
  set_num_threads(1);
  const double one = expectation(d.p, d.e);
  set_num_threads(3);
  const double three = expectation(d.p, d.e);
  set_num_threads(before);
  EXPECT_EQ(one, three);
}

TEST(Losses, RejectsBadArguments) {
  const std::vector<double> p = {0.5, 0.5}, e = {1.0, 2.0}, short_e = {1.0};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_THROW(expectation(p, short_e), std::invalid_argument);
  EXPECT_THROW(gibbs_sum(p, short_e, 1.0), std::invalid_argument);
  for (double t : {0.0, -0.0, nan, inf})
    EXPECT_THROW(gibbs_sum(p, e, t), std::invalid_argument) << t;
  for (double bad : {nan, inf, -inf}) {
    const std::vector<double> q = {0.5, bad};
    EXPECT_THROW(expectation(q, e), std::invalid_argument) << bad;
    EXPECT_THROW(gibbs_sum(q, e, 1.0), std::invalid_argument) << bad;
  }
  try {
    expectation(std::vector<double>{0.5, 0.25, nan}, std::vector<double>{0.0, 0.0, 0.0});
    FAIL();
  } catch (const std::invalid_argument& err) {
    EXPECT_STREQ(err.what(), "p[2] = nan is not finite");
  }
  try {
    gibbs_sum(p, e, 0.0);
    FAIL();
  } catch (const std::invalid_argument& err) {
    EXPECT_STREQ(err.what(), "temperature must be finite and nonzero, got 0");
  }
}

}  // namespace
}  // namespace corvid
