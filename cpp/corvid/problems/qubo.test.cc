#include "corvid/problems/qubo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "corvid/problems/problem_testing.h"

namespace corvid {
namespace {

using problem_testing::diagonal_entry;

// x^T Q x + offset evaluated directly, x_i = bit i of `x`.
double qubo_energy(const std::vector<double>& q, std::size_t n, std::uint64_t x, double offset) {
  double e = offset;
  for (std::size_t r = 0; r < n; ++r) {
    for (std::size_t c = 0; c < n; ++c) e += q[r * n + c] * (x >> r & 1) * (x >> c & 1);
  }
  return e;
}

TEST(Qubo, HandDerivedOperator) {
  // E = 2·x0·x1 + 3·x2 − 1 from an upper-triangular Q.
  const std::vector<double> q = {0, 2, 0, 0, 0, 0, 0, 0, 3};
  EXPECT_TRUE(
      qubo_to_operator({q, 3}, -1)
          .approx_equal(
              PauliOperator({{"", 1.0}, {"Z0", -0.5}, {"Z1", -0.5}, {"Z2", -1.5}, {"Z0 Z1", 0.5}}),
              1e-15));
  // The same Q split over both triangles gives the same operator.
  const std::vector<double> split = {0, 0.5, 0, 1.5, 0, 0, 0, 0, 3};
  EXPECT_EQ(qubo_to_operator({split, 3}, -1), qubo_to_operator({q, 3}, -1));
  // Q_ij = −Q_ji cancels the pair completely.
  EXPECT_EQ(qubo_to_operator({std::vector<double>{0, 1, -1, 0}, 2}).size(), 0u);
}

TEST(Qubo, EveryStateEnergyMatchesDirectEvaluation) {
  std::mt19937 gen(11);
  for (std::size_t n : {1u, 2u, 5u, 8u}) {
    for (double density : {0.3, 1.0}) {
      const auto q = problem_testing::random_matrix(n, density, gen);
      const PauliOperator op = qubo_to_operator({q, n}, 0.75);
      for (std::uint64_t x = 0; x < (1u << n); ++x) {
        ASSERT_NEAR(diagonal_entry(op, x), qubo_energy(q, n, x, 0.75), 1e-12) << n << " " << x;
      }
    }
  }
}

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
}

struct BadQubo {
  const char* name;
  std::vector<double> values;
  std::size_t n;
  double offset;
};

class QuboRejects : public testing::TestWithParam<BadQubo> {};
void PrintTo(const BadQubo& c, std::ostream* os) { *os << c.name; }

TEST_P(QuboRejects, WithInvalidArgument) {
  const BadQubo& bad = GetParam();
  EXPECT_THROW(qubo_to_operator({bad.values, bad.n}, bad.offset), std::invalid_argument);
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(Cases, QuboRejects,
                         testing::Values(BadQubo{"not_square", {1, 2, 3}, 2, 0},
                                         BadQubo{"nan", {1, kNaN, 0, 1}, 2, 0},
                                         BadQubo{"inf", {kInf}, 1, 0},
                                         BadQubo{"nan_offset", {1}, 1, kNaN},
                                         BadQubo{"pair_overflow", {0, 1e308, 1e308, 0}, 2, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Qubo, SparseRejectsNonFiniteWeights) {
  const std::vector<WeightedPair> pairs = {{0, 1, 1}, {1, 2, kNaN}};
  try {
    qubo_to_operator({}, pairs);
    FAIL() << "accepted a NaN weight";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("pair 1"), std::string::npos) << e.what();
  }
}

}  // namespace
}  // namespace corvid
