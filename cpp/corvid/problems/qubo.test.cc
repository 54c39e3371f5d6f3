#include "corvid/problems/qubo.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace corvid {
namespace {

TEST(Qubo, SparseFormAgreesWithDense) {
  // Pairs in both orientations, a repeated pair and a diagonal pair (x² = x).
  const std::vector<double> linear = {1.5, 0, -2};
  const std::vector<WeightedPair> pairs = {
      {0, 1, 1}, {1, 0, 2}, {2, 1, -1}, {1, 1, 4}, {0, 1, 0.5}};
  const std::vector<double> dense = {1.5, 3.5, 0, 0, 4, 0, 0, -1, -2};
  EXPECT_TRUE(
      qubo_to_operator(linear, pairs, 2).approx_equal(qubo_to_operator({dense, 3}, 2), 1e-15));
  // A pair beyond the linear terms extends the problem.
  const std::vector<WeightedPair> far = {{0, 4, 1}};
  EXPECT_EQ(qubo_to_operator({}, far).max_index(), 4);
  // Q_ij = −Q_ji cancels the pair completely: no zero term is left.
  EXPECT_EQ(qubo_to_operator({std::vector<double>{0, 1, -1, 0}, 2}).size(), 0u);
}

TEST(Qubo, RejectsNonFiniteOrMisshapenInput) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const struct {
    const char* what;
    std::vector<double> values;
    std::size_t n;
    double offset;
  } cases[] = {{"not square", {1, 2, 3}, 2, 0},
               {"nan", {1, kNaN, 0, 1}, 2, 0},
               {"inf", {std::numeric_limits<double>::infinity()}, 1, 0},
               {"nan offset", {1}, 1, kNaN},
               {"pair overflow", {0, 1e308, 1e308, 0}, 2, 0}};
  for (const auto& [what, values, n, offset] : cases) {
    EXPECT_THROW(qubo_to_operator({values, n}, offset), std::invalid_argument) << what;
  }
  const std::vector<WeightedPair> pairs = {{0, 1, 1}, {1, 2, kNaN}};
  EXPECT_THAT([&] { qubo_to_operator({}, pairs); },
              ::testing::ThrowsMessage<std::invalid_argument>(::testing::HasSubstr("pair 1")));
}

}  // namespace
}  // namespace corvid
