#pragma once
/// Helpers shared by the tests of this area (header-only; not part of the library).

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "corvid/pauli/pauli_operator.h"

namespace corvid::problem_testing {

/// <x|H|x> of a Z-only operator, term by term: each Z_q contributes −1 where bit q of x is 1.
inline double diagonal_entry(const PauliOperator& op, std::uint64_t x) {
  double value = 0;
  for (const auto& t : op) {
    double sign = 1;
    for (const PauliFactor& f : t.string.factors()) {
      EXPECT_EQ(f.letter, 'Z');
      if (x >> f.qubit & 1) sign = -sign;
    }
    value += sign * t.coefficient.real();
  }
  return value;
}

/// n×n row-major matrix of normal deviates, with about `density` of the entries nonzero.
inline std::vector<double> random_matrix(std::size_t n, double density, std::mt19937& gen) {
  std::normal_distribution<double> value;
  std::bernoulli_distribution keep(density);
  std::vector<double> m(n * n);
  for (double& v : m) v = keep(gen) ? value(gen) : 0.0;
  return m;
}

}  // namespace corvid::problem_testing
