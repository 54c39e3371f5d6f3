#include "corvid/util/bit_transform.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "corvid/qaoa/monomial_energies.h"
#include "corvid/qaoa/z_energies.h"

namespace corvid {
namespace {

struct Terms {
  std::vector<std::uint64_t> masks;
  std::vector<double> coeffs;
};

/// Random terms over n bits, with a constant and a repeated mask among them.
Terms random_terms(int n, std::mt19937_64& rng) {
  Terms t;
  const std::uint64_t all = (std::uint64_t{1} << n) - 1;
  std::uniform_real_distribution<double> coeff(-2.0, 2.0);
  for (int k = 0; k < 3 * n + 4; ++k) {
    t.masks.push_back(rng() & all & rng());  // sparse-ish masks
    t.coeffs.push_back(coeff(rng));
  }
  t.masks.push_back(0);
  t.coeffs.push_back(0.75);
  t.masks.push_back(t.masks.front());
  t.coeffs.push_back(-1.25);
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
class TransformVsBruteForce : public ::testing::TestWithParam<int> {};

TEST_P(TransformVsBruteForce, WalshAndZetaMatchTermByTermSums) {
  const int n = GetParam();
  std::mt19937_64 rng(1000 + n);
  for (int trial = 0; trial < 3; ++trial) {
    const Terms t = random_terms(n, rng);
    const auto z = energies_from_z_terms(n, t.masks, t.coeffs);
    const auto m = energies_from_monomials(n, t.masks, t.coeffs);
    ASSERT_EQ(z.size(), std::size_t{1} << n);
    ASSERT_EQ(m.size(), std::size_t{1} << n);
    for (std::uint64_t x = 0; x < z.size(); ++x) {
      ASSERT_NEAR(z[x], brute_z(t, x), 1e-11) << "n=" << n << " x=" << x;
      ASSERT_NEAR(m[x], brute_monomial(t, x), 1e-11) << "n=" << n << " x=" << x;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, TransformVsBruteForce,
                         ::testing::Values(0, 1, 2, 3, 7, 10, 12, 13, 16, 17));

TEST(TransformBits, WalshTwiceScalesByTheSize) {
  // H^2 = 2^n I for the unnormalised transform: a check independent of any energy formula.
  const int n = 18;
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> a(std::size_t{1} << n);
  for (double& v : a) v = u(rng);
  std::vector<double> b = a;
  walsh_transform(b.data(), n);
  walsh_transform(b.data(), n);
  for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(b[i], a[i] * a.size(), 1e-7);
}

}  // namespace
}  // namespace corvid
