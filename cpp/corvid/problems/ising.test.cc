#include "corvid/problems/ising.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "corvid/problems/problem_testing.h"

namespace corvid {
namespace {

using problem_testing::diagonal_entry;

double spin(std::uint64_t x, std::size_t i) { return (x >> i & 1) ? -1.0 : 1.0; }

TEST(Ising, DenseEnergyMatchesHalfQuadraticForm) {
  std::mt19937 gen(5);
  for (std::size_t n : {1u, 3u, 7u}) {
    auto j = problem_testing::random_matrix(n, 0.6, gen);
    for (std::size_t r = 0; r < n; ++r) {  // symmetrise, clear the diagonal
      j[r * n + r] = 0;
      for (std::size_t c = 0; c < r; ++c) j[r * n + c] = j[c * n + r];
    }
    std::vector<double> h(n);
    for (std::size_t i = 0; i < n; ++i) h[i] = 0.25 * static_cast<double>(i) - 0.5;
    const PauliOperator op = ising_to_operator(h, SquareMatrixView{j, n}, -1.25);
    for (std::uint64_t x = 0; x < (1u << n); ++x) {
      double e = -1.25;
      for (std::size_t r = 0; r < n; ++r) {
        e += h[r] * spin(x, r);
        for (std::size_t c = 0; c < n; ++c) e += 0.5 * j[r * n + c] * spin(x, r) * spin(x, c);
      }
      ASSERT_NEAR(diagonal_entry(op, x), e, 1e-12) << n << " " << x;
    }
  }
}

TEST(Ising, SparseCouplingsAddInEitherOrientation) {
  const std::vector<WeightedPair> j = {{2, 0, 1}, {0, 2, 1.5}, {1, 3, -1}};
  const PauliOperator op = ising_to_operator(std::vector<double>{0.5, -2}, j, 3);
  EXPECT_EQ(op,
            PauliOperator({{"", 3.0}, {"Z0", 0.5}, {"Z1", -2.0}, {"Z0 Z2", 2.5}, {"Z1 Z3", -1.0}}));
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(Ising, RejectsInvalidInput) {
  using V = std::vector<double>;
  const std::tuple<V, V, std::size_t> dense[] = {{{0, 0}, {0, 1, 2, 0}, 2},  // asymmetric
                                                 {{0, 0}, {1, 0, 0, 0}, 2},  // a self-coupling
                                                 {{0, 0}, V(9, 0.0), 3},     // h too short
                                                 {{kNaN, 0}, {0, 0, 0, 0}, 2}};
  for (const auto& [h, j, n] : dense) {
    EXPECT_THROW(ising_to_operator(h, SquareMatrixView{j, n}), std::invalid_argument);
  }
  const std::vector<WeightedPair> self = {{1, 1, 1}};
  EXPECT_THROW(ising_to_operator(V{0, 0}, self), std::invalid_argument);
  // Within rounding, an almost symmetric matrix is accepted and averaged.
  const V nearly = {0, 1, 1 + 1e-12, 0};
  EXPECT_NEAR(
      ising_to_operator(V{0, 0}, SquareMatrixView{nearly, 2}).terms().back().coefficient.real(),
      1 + 0.5e-12, 1e-15);
}

}  // namespace
}  // namespace corvid
