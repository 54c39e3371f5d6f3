#include "corvid/qaoa/monomial_energies.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include "corvid/qaoa/z_energies.h"

namespace corvid {
namespace {

// 2 x0 x1 + 3 x2 - 1.
const std::vector<std::uint64_t> kMasks = {0b011, 0b100, 0b000};
const std::vector<double> kCoeffs = {2.0, 3.0, -1.0};

TEST(MonomialEnergies, HandDerivedPolynomialAgreesWithItsZForm) {
  const auto e = energies_from_monomials(3, kMasks, kCoeffs);
  EXPECT_EQ(e[0b001], -1.0);
  EXPECT_EQ(e[0b110], 2.0);
  const auto z = energies_from_z_terms(3, std::vector<std::uint64_t>{0, 1, 2, 4, 3},
                                       std::vector<double>{1.0, -0.5, -0.5, -1.5, 0.5});
  for (std::size_t x = 0; x < 8; ++x) EXPECT_DOUBLE_EQ(e[x], z[x]) << "x=" << x;
}

TEST(MonomialEnergies, IntegerCoefficientsGiveExactIntegers) {
  std::mt19937_64 rng(42);
  const int n = 14;
  std::vector<std::uint64_t> masks;
  std::vector<double> coeffs;
  for (int k = 0; k < 60; ++k) {
    masks.push_back(rng() & rng() & ((1u << n) - 1));
    coeffs.push_back(static_cast<double>(static_cast<std::int64_t>(rng() % 2001) - 1000));
  }
  const auto e = energies_from_monomials(n, masks, coeffs);
  for (std::uint64_t x = 0; x < e.size(); ++x) {
    std::int64_t exact = 0;
    for (std::size_t k = 0; k < masks.size(); ++k) {
      if ((x & masks[k]) == masks[k]) exact += static_cast<std::int64_t>(coeffs[k]);
    }
    ASSERT_EQ(e[x], static_cast<double>(exact)) << "x=" << x;
  }
}

TEST(MonomialEnergies, EvaluateMatchesTheWholeTable) {
  const std::vector<std::uint64_t> states = {0, 1, 2, 3, 4, 5, 6, 7, 6};
  const auto table = energies_from_monomials(3, kMasks, kCoeffs);
  const auto e = evaluate_monomials(kMasks, kCoeffs, states);
  for (std::size_t s = 0; s < states.size(); ++s) EXPECT_EQ(e[s], table[states[s]]);
}

TEST(MonomialEnergies, RejectsBadArguments) {
  EXPECT_THROW(energies_from_monomials(64, {}, {}), std::invalid_argument);
  EXPECT_THROW(energies_from_monomials(2, kMasks, kCoeffs), std::invalid_argument);
  EXPECT_THROW(evaluate_monomials(kMasks, std::vector<double>{}, {}), std::invalid_argument);
  try {
    energies_from_monomials(1, std::vector<std::uint64_t>{std::uint64_t{1} << 40},
                            std::vector<double>{1.0});
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "masks[0] = 1099511627776 uses variable 40, but the number of variables is 1");
  }
}

}  // namespace
}  // namespace corvid
