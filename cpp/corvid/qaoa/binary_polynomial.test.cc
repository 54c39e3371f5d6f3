#include "corvid/qaoa/binary_polynomial.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "corvid/problems/problem_testing.h"
#include "corvid/util/errors.h"

namespace corvid {
namespace {

using problem_testing::diagonal_entry;

// The operator built with the operator algebra (x_v = (1 - Z_v)/2) rather than the subset
// expansion.
PauliOperator by_products(const std::vector<Monomial>& monomials) {
  PauliOperator sum;
  for (const Monomial& m : monomials) {
    PauliOperator term(m.coefficient);
    for (std::uint32_t v : m.variables) term *= 0.5 - PauliOperator("Z" + std::to_string(v), 0.5);
    sum += term;
  }
  return sum;
}

// Cancelling, empty and zero terms leave no term behind (the values alone would not show it).
TEST(BinaryPolynomial, ZeroTermsArePruned) {
  EXPECT_TRUE(binary_polynomial_to_z_operator({{{3}, 1.0}, {{3}, -1.0}}).empty());
  EXPECT_TRUE(binary_polynomial_to_z_operator({}).empty());
  EXPECT_TRUE(binary_polynomial_to_z_operator({{{1, 2}, 0.0}}).empty());
}

TEST(BinaryPolynomial, MatchesOperatorProductsAndPolynomialValues) {
  std::mt19937 gen(3);
  std::uniform_int_distribution<std::uint32_t> var(0, 5);
  std::uniform_int_distribution<int> degree(0, 4);
  std::normal_distribution<double> value;
  for (int round = 0; round < 30; ++round) {
    std::vector<Monomial> poly(6);
    for (Monomial& m : poly) {
      for (int d = degree(gen); d > 0; --d) m.variables.push_back(var(gen));
      m.coefficient = value(gen);
    }
    PauliOperator h = binary_polynomial_to_z_operator(poly);
    EXPECT_TRUE(h.approx_equal(by_products(poly), 1e-12));
    for (std::uint64_t bits = 0; bits < 64; ++bits) {
      double direct = 0;
      for (const Monomial& m : poly) {
        bool all_one = true;
        for (std::uint32_t v : m.variables) all_one &= (bits >> v & 1) != 0;
        direct += all_one ? m.coefficient : 0.0;
      }
      ASSERT_NEAR(diagonal_entry(h, bits), direct, 1e-12);
    }
  }
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
