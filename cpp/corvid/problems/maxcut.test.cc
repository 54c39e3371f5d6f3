#include "corvid/problems/maxcut.h"

#include <gtest/gtest.h>

#include <limits>

namespace corvid {
namespace {

TEST(MaxCut, MatrixFormAgreesWithEdges) {
  const std::vector<double> w = {0, 2, 0, 2, 0, -1, 0, -1, 0};
  const std::vector<WeightedPair> edges = {{0, 1, 2}, {1, 2, -1}};
  EXPECT_EQ(maxcut_operator(SquareMatrixView{w, 3}), maxcut_operator(edges));
  EXPECT_TRUE(maxcut_operator(std::span<const WeightedPair>{}).empty());
}

TEST(MaxCut, RejectsInvalidGraphs) {
  const std::vector<WeightedPair> loop = {{0, 1, 1}, {2, 2, 1}};
  const std::vector<WeightedPair> nan = {{0, 1, std::numeric_limits<double>::quiet_NaN()}};
  const std::vector<double> asymmetric = {0, 1, 0, 0};
  const std::vector<double> with_loop = {1, 1, 1, 0};
  EXPECT_THROW(maxcut_operator(loop), std::invalid_argument);
  EXPECT_THROW(maxcut_operator(nan), std::invalid_argument);
  EXPECT_THROW(maxcut_operator(SquareMatrixView{asymmetric, 2}), std::invalid_argument);
  EXPECT_THROW(maxcut_operator(SquareMatrixView{with_loop, 2}), std::invalid_argument);
}

}  // namespace
}  // namespace corvid
