#include "corvid/problems/maxcut.h"

#include <gtest/gtest.h>

#include <limits>

#include "corvid/problems/problem_testing.h"

namespace corvid {
namespace {

using problem_testing::diagonal_entry;

double cut(const std::vector<WeightedPair>& edges, std::uint64_t x) {
  double total = 0;
  for (const WeightedPair& e : edges) total += ((x >> e.i & 1) != (x >> e.j & 1)) ? e.weight : 0;
  return total;
}

TEST(MaxCut, EnergyIsMinusCutWeightForRandomGraphs) {
  std::mt19937 gen(7);
  std::uniform_int_distribution<std::uint32_t> node(0, 6);
  std::normal_distribution<double> weight(1.0, 1.0);
  for (int round = 0; round < 10; ++round) {
    std::vector<WeightedPair> edges;
    while (edges.size() < 12) {
      const std::uint32_t i = node(gen), j = node(gen);
      if (i != j) edges.push_back({i, j, weight(gen)});  // parallel edges allowed
    }
    const PauliOperator op = maxcut_operator(edges);
    for (std::uint64_t x = 0; x < 128; ++x)
      ASSERT_NEAR(diagonal_entry(op, x), -cut(edges, x), 1e-12);
  }
}

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
