#include "corvid/qaoa/z_energies.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/util/errors.h"

namespace corvid {
namespace {

// 1 - 0.5 Z0 - 0.5 Z1 - 1.5 Z2 + 0.5 Z0 Z1 is 2 x0 x1 + 3 x2 - 1 under x_i = (1 - Z_i) / 2.
const std::vector<std::uint64_t> kMasks = {0b000, 0b001, 0b010, 0b100, 0b011};
const std::vector<double> kCoeffs = {1.0, -0.5, -0.5, -1.5, 0.5};
const std::vector<double> kEnergies = {-1, -1, -1, 1, 2, 2, 2, 4};  // by hand, x = 0..7

TEST(ZEnergies, HandDerivedPolynomial) {
  const auto e = energies_from_z_terms(3, kMasks, kCoeffs);
  ASSERT_EQ(e.size(), 8u);
  for (std::size_t x = 0; x < 8; ++x) EXPECT_DOUBLE_EQ(e[x], kEnergies[x]) << "x=" << x;
  EXPECT_DOUBLE_EQ(e[0b001], -1.0);
  EXPECT_DOUBLE_EQ(e[0b110], 2.0);
}

TEST(ZEnergies, ReuseTheDiagonalOfTheSamePhaseLayer) {
  // 13 qubits: more than one transform block; irrational coefficients, one mask repeated.
  const std::vector<std::uint64_t> masks = {0, 0x1001, 0b110, 0x1001, 0x0ff0};
  const std::vector<double> coeffs = {0.25, std::sqrt(2.0), -0.7, 0.3, 1.0 / 3};
  clear_diagonal_cache();
  const auto direct = energies_from_z_terms(13, masks, coeffs);
  const std::size_t hits = diagonal_cache_hits();
  const std::vector<PhaseTerm> layer = {{0x1001, std::sqrt(2.0)}, {0b110, -0.7}, {0x1001, 0.3},
                                        {0x0ff0, 1.0 / 3}};
  cached_diagonal(merge_terms(layer), 13);
  const auto shared = energies_from_z_terms(13, masks, coeffs);
  EXPECT_EQ(diagonal_cache_hits(), hits + 1);
  for (std::size_t x = 0; x < direct.size(); ++x) ASSERT_NEAR(shared[x], direct[x], 1e-14);
}

TEST(ZEnergies, ConstantOnlyAndEmptyTermLists) {
  const std::vector<std::uint64_t> zero = {0, 0};
  const std::vector<double> c = {2.5, 0.5};
  for (double v : energies_from_z_terms(4, zero, c)) EXPECT_EQ(v, 3.0);
  for (double v : energies_from_z_terms(4, {}, {})) EXPECT_EQ(v, 0.0);
  const auto single = energies_from_z_terms(0, zero, c);
  ASSERT_EQ(single.size(), 1u);
  EXPECT_EQ(single[0], 3.0);
}

TEST(ZEnergies, EvaluateMatchesTheWholeDiagonal) {
  const std::vector<std::uint64_t> states = {0b110, 0b001, 0b111, 0b000, 0b110};
  const auto e = evaluate_z_terms(kMasks, kCoeffs, states);
  ASSERT_EQ(e.size(), states.size());
  for (std::size_t s = 0; s < states.size(); ++s) EXPECT_DOUBLE_EQ(e[s], kEnergies[states[s]]);
  EXPECT_EQ(evaluate_z_terms(kMasks, kCoeffs, {}).size(), 0u);
}

TEST(ZEnergies, RejectsBadArguments) {
  auto message_of = [](auto&& call) {
    try {
      call();
    } catch (const std::invalid_argument& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ(message_of([] { energies_from_z_terms(64, {}, {}); }),
            "num_qubits must be between 0 and 63, got 64");
  EXPECT_EQ(message_of([] { energies_from_z_terms(-1, {}, {}); }),
            "num_qubits must be between 0 and 63, got -1");
  EXPECT_EQ(message_of([] { energies_from_z_terms(2, kMasks, kCoeffs); }),
            "masks[3] = 4 uses qubit 2, but the number of qubits is 2");
  EXPECT_EQ(message_of([] { energies_from_z_terms(3, kMasks, std::vector<double>{1.0}); }),
            "masks and coeffs must have the same length, got 5 and 1");
  EXPECT_EQ(message_of([] { evaluate_z_terms(kMasks, std::vector<double>{1.0}, {}); }),
            "masks and coeffs must have the same length, got 5 and 1");
  EXPECT_THROW(energies_from_z_terms(63, {}, {}), OutOfMemory);
}

}  // namespace
}  // namespace corvid
