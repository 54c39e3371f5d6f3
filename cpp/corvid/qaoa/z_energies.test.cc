// Energies of all states from Z terms and from monomials against term-by-term sums, the phase
// layer's cached diagonal shared with them, and their argument checks.
#include "corvid/qaoa/z_energies.h"

#include <gmock/gmock.h>

#include <bit>
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

struct Terms {
  Masks masks;
  Coeffs coeffs;
};

/// Random terms over n bits, with a constant and a repeated mask among them; with `integer`,
/// integer coefficients, whose monomial sums must come out exact.
Terms random_terms(int n, bool integer, std::mt19937_64& rng) {
  Terms t;
  const std::uint64_t all = (std::uint64_t{1} << n) - 1;
  std::uniform_real_distribution<double> coeff(-2.0, 2.0);
  for (int k = 0; k < 3 * n + 4; ++k) {
    t.masks.push_back(rng() & all & rng());  // sparse-ish masks
    t.coeffs.push_back(integer ? static_cast<double>(static_cast<int>(rng() % 2001) - 1000)
                               : coeff(rng));
  }
  t.masks.insert(t.masks.end(), {0, t.masks.front()});
  t.coeffs.insert(t.coeffs.end(), {0.75, -1.25});
  return t;
}

double brute_z(const Terms& t, std::uint64_t x) {
  double e = 0.0;
  for (std::size_t k = 0; k < t.masks.size(); ++k) {
    e += (std::popcount(x & t.masks[k]) % 2 ? -1.0 : 1.0) * t.coeffs[k];
  }
  return e;
}

double brute_monomial(const Terms& t, std::uint64_t x) {
  double e = 0.0;
  for (std::size_t k = 0; k < t.masks.size(); ++k) {
    if ((x & t.masks[k]) == t.masks[k]) e += t.coeffs[k];
  }
  return e;
}

// Sizes cover a single state, the in-block levels only, and the grouped high levels with a
// partial last group on a parallel-sized array.
class Energies : public ::testing::TestWithParam<int> {};

TEST_P(Energies, MatchTermByTermSums) {
  const int n = GetParam();
  std::mt19937_64 rng(1000 + n);
  for (int trial = 0; trial < 3; ++trial) {
    const Terms t = random_terms(n, trial == 0, rng);
    const auto z = energies_from_z_terms(n, t.masks, t.coeffs);
    const auto m = energies_from_monomials(n, t.masks, t.coeffs);
    ASSERT_EQ(z.size(), std::size_t{1} << n);
    ASSERT_EQ(m.size(), std::size_t{1} << n);
    for (std::uint64_t x = 0; x < z.size(); ++x) {
      ASSERT_NEAR(z[x], brute_z(t, x), 1e-11) << "n=" << n << " x=" << x;
      if (trial == 0) ASSERT_EQ(m[x], brute_monomial(t, x)) << "n=" << n << " x=" << x;
      ASSERT_NEAR(m[x], brute_monomial(t, x), 1e-11) << "n=" << n << " x=" << x;
    }
    const Masks states = {z.size() - 1, rng() % z.size(), 0, rng() % z.size()};
    const auto zs = evaluate_z_terms(t.masks, t.coeffs, states);
    const auto ms = evaluate_monomials(t.masks, t.coeffs, states);
    for (std::size_t s = 0; s < states.size(); ++s) {
      EXPECT_NEAR(zs[s], z[states[s]], 1e-11);
      EXPECT_NEAR(ms[s], m[states[s]], 1e-11);
    }
  }
  for (auto energies : {&energies_from_z_terms, &energies_from_monomials}) {
    for (double v : energies(n, {}, {})) ASSERT_EQ(v, 0.0);
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, Energies, ::testing::Values(0, 1, 2, 3, 7, 10, 12, 13, 16, 17));

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
  static const Masks z_masks = {0b000, 0b001, 0b010, 0b100, 0b011}, mono_masks = {3, 4, 0};
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[] { energies_from_z_terms(64, {}, {}); }, "num_qubits must be between 0 and 63, got 64"},
      {[] { energies_from_z_terms(-1, {}, {}); }, "num_qubits must be between 0 and 63, got -1"},
      {[] { energies_from_z_terms(2, z_masks, Coeffs(5)); },
       "masks[3] = 4 uses qubit 2, but the number of qubits is 2"},
      {[] { energies_from_z_terms(3, z_masks, Coeffs{1.0}); },
       "masks and coeffs must have the same length, got 5 and 1"},
      {[] { evaluate_z_terms(z_masks, Coeffs{1.0}, {}); },
       "masks and coeffs must have the same length, got 5 and 1"},
      {[] { energies_from_monomials(64, {}, {}); }, "num_vars must be between 0 and 63, got 64"},
      {[] { energies_from_monomials(1, Masks{std::uint64_t{1} << 40}, Coeffs{1.0}); },
       "masks[0] = 1099511627776 uses variable 40, but the number of variables is 1"},
      {[] { evaluate_monomials(mono_masks, Coeffs{}, {}); },
       "masks and coeffs must have the same length, got 3 and 0"},
  };
  for (const auto& [call, message] : cases) {
    EXPECT_THAT(call, ::testing::ThrowsMessage<std::invalid_argument>(message));
  }
  EXPECT_THROW(energies_from_z_terms(63, {}, {}), OutOfMemory);
}

}  // namespace
}  // namespace corvid
