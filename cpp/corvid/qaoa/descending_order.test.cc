#include "corvid/qaoa/descending_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

namespace corvid {
namespace {

std::vector<std::uint32_t> stable_reference(const std::vector<double>& p) {
  std::vector<std::uint32_t> order(p.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return p[a] > p[b]; });
  return order;
}

void expect_reference_order(const std::vector<double>& p) {
  const auto order = descending_order(p);
  const auto expected = stable_reference(p);
  ASSERT_EQ(order.size(), expected.size());
  for (std::size_t j = 0; j < expected.size(); ++j) {
    ASSERT_EQ(order[j], expected[j]) << "position " << j << " of " << p.size();
  }
}

class DescendingOrder : public ::testing::TestWithParam<std::size_t> {};

TEST_P(DescendingOrder, MatchesAStableSort) {
  const std::size_t n = GetParam();
  std::mt19937_64 rng(n);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<double> p(n);
  for (double& w : p) w = u(rng);
  expect_reference_order(p);  // distinct weights, all digits in use
  for (double& w : p) w = static_cast<double>(rng() % 5) * 0.125;  // ties and zeros
  expect_reference_order(p);
  for (std::size_t i = 0; i < n; ++i) p[i] = (i % 3 == 0) ? -0.0 : 0.0;  // -0.0 ties +0.0
  expect_reference_order(p);
  const double extremes[] = {DBL_MAX, DBL_TRUE_MIN, DBL_MIN, 1.0, 0.0, 4.9e-300};
  for (double& w : p) w = extremes[rng() % 6];
  expect_reference_order(p);
  for (double& w : p) w = 0.375;  // every digit trivial: the identity
  expect_reference_order(p);
  for (std::size_t i = 0; i < n; ++i)
    p[i] = 1.0 + static_cast<double>(i % 2) * 0x1p-52;  // lowest bit only
  expect_reference_order(p);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DescendingOrder,
                         ::testing::Values(0, 1, 2, 5, 1000, (1u << 14) + 1, (1u << 17) + 3));

TEST(DescendingOrderErrors, RejectsInvalidWeights) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (double bad : {-1e-300, nan, std::numeric_limits<double>::infinity()}) {
    std::vector<double> p(100, 0.01);
    p[57] = bad;
    EXPECT_THROW(descending_order(p), std::invalid_argument) << bad;
    p.assign(1u << 15, 0.5);  // identical weights skip every pass but are still checked
    p[12345] = bad;
    EXPECT_THROW(descending_order(p), std::invalid_argument) << bad;
  }
}

}  // namespace
}  // namespace corvid
