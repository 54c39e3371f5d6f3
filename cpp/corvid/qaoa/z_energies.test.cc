// Energies of all states from Z terms and from monomials: by hand, against each other, against
// the phase layer's cached diagonal, and their argument checks.
#include "corvid/qaoa/z_energies.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/qaoa/monomial_energies.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/util/errors.h"

namespace corvid {
namespace {

using Masks = std::vector<std::uint64_t>;
using Coeffs = std::vector<double>;

// 2 x0 x1 + 3 x2 - 1, and its Z form 1 - 0.5 Z0 - 0.5 Z1 - 1.5 Z2 + 0.5 Z0 Z1.
const Masks kMonoMasks = {0b011, 0b100, 0b000};
const Coeffs kMonoCoeffs = {2.0, 3.0, -1.0};
const Masks kZMasks = {0b000, 0b001, 0b010, 0b100, 0b011};
const Coeffs kZCoeffs = {1.0, -0.5, -0.5, -1.5, 0.5};
const std::vector<double> kEnergies = {-1, -1, -1, 1, 2, 2, 2, 4};  // by hand, x = 0..7

TEST(Energies, BothFormsOfAHandDerivedPolynomial) {
  const auto z = energies_from_z_terms(3, kZMasks, kZCoeffs);
  const auto m = energies_from_monomials(3, kMonoMasks, kMonoCoeffs);
  const Masks states = {0b110, 0b001, 0b111, 0b000, 0b110};
  const auto zs = evaluate_z_terms(kZMasks, kZCoeffs, states);
  const auto ms = evaluate_monomials(kMonoMasks, kMonoCoeffs, states);
  for (std::size_t x = 0; x < 8; ++x) {
    EXPECT_DOUBLE_EQ(z[x], kEnergies[x]) << "x=" << x;
    EXPECT_DOUBLE_EQ(m[x], kEnergies[x]) << "x=" << x;
  }
  for (std::size_t s = 0; s < states.size(); ++s) {
    EXPECT_DOUBLE_EQ(zs[s], kEnergies[states[s]]);
    EXPECT_DOUBLE_EQ(ms[s], kEnergies[states[s]]);
  }
  EXPECT_EQ(evaluate_z_terms(kZMasks, kZCoeffs, {}).size(), 0u);
}

TEST(Energies, ConstantOnlyAndEmptyTermLists) {
  const Masks zero = {0, 0};
  const Coeffs c = {2.5, 0.5};
  for (auto energies : {&energies_from_z_terms, &energies_from_monomials}) {
    for (double v : energies(4, zero, c)) EXPECT_EQ(v, 3.0);
    for (double v : energies(4, {}, {})) EXPECT_EQ(v, 0.0);
    const auto single = energies(0, zero, c);
    ASSERT_EQ(single.size(), 1u);
    EXPECT_EQ(single[0], 3.0);
  }
}

TEST(Energies, IntegerMonomialsGiveExactIntegers) {
  std::mt19937_64 rng(42);
  const int n = 14;
  Masks masks;
  Coeffs coeffs;
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

TEST(Energies, ZTermsReuseTheDiagonalOfTheSamePhaseLayer) {
  // 13 qubits: more than one transform block; irrational coefficients, one mask repeated.
  const Masks masks = {0, 0x1001, 0b110, 0x1001, 0x0ff0};
  const Coeffs coeffs = {0.25, std::sqrt(2.0), -0.7, 0.3, 1.0 / 3};
  clear_diagonal_cache();
  const auto direct = energies_from_z_terms(13, masks, coeffs);
  const std::size_t hits = diagonal_cache_hits();
  const std::vector<PhaseTerm> layer = {
      {0x1001, std::sqrt(2.0)}, {0b110, -0.7}, {0x1001, 0.3}, {0x0ff0, 1.0 / 3}};
  cached_diagonal(merge_terms(layer), 13);
  const auto shared = energies_from_z_terms(13, masks, coeffs);
  EXPECT_EQ(diagonal_cache_hits(), hits + 1);
  for (std::size_t x = 0; x < direct.size(); ++x) ASSERT_NEAR(shared[x], direct[x], 1e-14);
}

TEST(Energies, RejectBadArguments) {
  const struct {
    std::function<void()> call;
    std::string message;
  } cases[] = {
      {[] { energies_from_z_terms(64, {}, {}); }, "num_qubits must be between 0 and 63, got 64"},
      {[] { energies_from_z_terms(-1, {}, {}); }, "num_qubits must be between 0 and 63, got -1"},
      {[] { energies_from_z_terms(2, kZMasks, kZCoeffs); },
       "masks[3] = 4 uses qubit 2, but the number of qubits is 2"},
      {[] { energies_from_z_terms(3, kZMasks, Coeffs{1.0}); },
       "masks and coeffs must have the same length, got 5 and 1"},
      {[] { evaluate_z_terms(kZMasks, Coeffs{1.0}, {}); },
       "masks and coeffs must have the same length, got 5 and 1"},
      {[] { energies_from_monomials(64, {}, {}); }, "num_vars must be between 0 and 63, got 64"},
      {[] { energies_from_monomials(1, Masks{std::uint64_t{1} << 40}, Coeffs{1.0}); },
       "masks[0] = 1099511627776 uses variable 40, but the number of variables is 1"},
      {[] { evaluate_monomials(kMonoMasks, Coeffs{}, {}); },
       "masks and coeffs must have the same length, got 3 and 0"},
  };
  for (const auto& c : cases) {
    try {
      c.call();
      ADD_FAILURE() << "no error, expected: " << c.message;
    } catch (const std::invalid_argument& e) {
      EXPECT_EQ(e.what(), c.message);
    }
  }
  EXPECT_THROW(energies_from_z_terms(63, {}, {}), OutOfMemory);
}

}  // namespace
}  // namespace corvid
