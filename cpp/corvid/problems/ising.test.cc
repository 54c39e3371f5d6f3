#include "corvid/problems/ising.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

namespace corvid {
namespace {

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
