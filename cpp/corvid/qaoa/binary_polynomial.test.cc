#include "corvid/qaoa/binary_polynomial.h"

#include <gtest/gtest.h>

#include <chrono>

#include "corvid/util/errors.h"

namespace corvid {
namespace {

// Cancelling, empty and zero terms leave no term behind (the values alone would not show it).
TEST(BinaryPolynomial, ZeroTermsArePruned) {
  EXPECT_TRUE(binary_polynomial_to_z_operator({{{3}, 1.0}, {{3}, -1.0}}).empty());
  EXPECT_TRUE(binary_polynomial_to_z_operator({}).empty());
  EXPECT_TRUE(binary_polynomial_to_z_operator({{{1, 2}, 0.0}}).empty());
}

TEST(BinaryPolynomial, DenseQuadraticOnThirtyVariablesIsFast) {
  std::vector<Monomial> poly;
  for (std::uint32_t i = 0; i < 30; ++i)
    for (std::uint32_t j = i; j < 30; ++j) poly.push_back({{i, j}, 1.0 + i + 0.5 * j});
  ASSERT_EQ(poly.size(), 465u);
  auto start = std::chrono::steady_clock::now();
  PauliOperator h = binary_polynomial_to_z_operator(poly);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(h.size(), 1u + 30 + 435);
  EXPECT_LT(seconds, 0.05);  // typically a fraction of a millisecond; loose for loaded machines
}

TEST(BinaryPolynomial, RefusesExpansionsThatCannotFit) {
  std::vector<std::uint32_t> many(70);
  for (std::uint32_t v = 0; v < 70; ++v) many[v] = v;
  EXPECT_THROW(binary_polynomial_to_z_operator({{many, 1.0}}), OutOfMemory);
  many.resize(48);
  EXPECT_THROW(binary_polynomial_to_z_operator({{many, 1.0}}), OutOfMemory);
}

}  // namespace
}  // namespace corvid
