// The transforms' results are checked through the energies (z_energies.test.cc); here the
// Walsh transform alone, independent of any energy formula.
#include "corvid/util/bit_transform.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace corvid {
namespace {

TEST(TransformBits, WalshTwiceScalesByTheSize) {
  // H^2 = 2^n I for the unnormalised transform.
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
