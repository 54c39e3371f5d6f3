#include "corvid/sim/machine/probabilities.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "corvid/sim/execute/executor.h"
#include "corvid/sim/machine/basis_key.h"
#include "corvid/testing/dense_reference.h"
#include "corvid/testing/random_circuit.h"

namespace corvid {

// 14 qubits reaches all three strategies: the full register in order, few outcomes (private
// tables) and many outcomes (> 2^12, per-output sums).
TEST(Probabilities, MarginalsOfEverySizeAndOrderMatchBruteForce) {
  const unsigned n = 14;
  std::mt19937_64 rng(5);
  StateVector state(n);
  execute(state, reference::random_circuit(n, 80, rng).gates());
  reference::Vector copy(state.data(), state.data() + state.size());

  std::vector<unsigned> all(n);
  std::iota(all.begin(), all.end(), 0u);
  std::vector<std::vector<unsigned>> cases = {
      all, {all.rbegin(), all.rend()}, {}, {0}, {13}, {5, 2}, {0, 1, 2}};
  for (unsigned k : {4u, 11u, 13u}) {
    std::vector<unsigned> subset = all;
    std::shuffle(subset.begin(), subset.end(), rng);
    subset.resize(k);
    cases.push_back(subset);
  }
  for (const auto& qubits : cases) {
    const ProbabilityTable got = marginal_probabilities(state, qubits);
    const std::vector<double> want = reference::reference_probabilities(copy, qubits);
    ASSERT_EQ(got.num_qubits, qubits.size());
    ASSERT_EQ(got.values.size(), want.size());
    double total = 0.0;
    for (std::size_t j = 0; j < want.size(); ++j) {
      ASSERT_NEAR(got.values[j], want[j], 1e-13) << "k=" << qubits.size() << " entry " << j;
      total += got.values[j];
    }
    EXPECT_NEAR(total, 1.0, 1e-12);
  }
}

TEST(BasisKey, QubitZeroIsRightMost) {
  EXPECT_EQ(basis_key(1, 3), "001");
  EXPECT_EQ(basis_key(6, 3), "110");
  EXPECT_EQ(basis_key(0, 0), "");
  EXPECT_EQ(parse_basis_key("001", 3), 1u);
  EXPECT_EQ(parse_basis_key("110", 3), 6u);
  EXPECT_EQ(parse_basis_key(basis_key(~std::uint64_t{0}, 64), 64), ~std::uint64_t{0});
  for (const char* bad : {"01", "0011", "0a1", "0 1", ""}) {
    EXPECT_FALSE(parse_basis_key(bad, 3).has_value()) << bad;
  }
}

}  // namespace corvid
