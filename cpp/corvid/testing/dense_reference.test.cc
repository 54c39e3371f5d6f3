// The oracle is checked against states worked out by hand, so that kernel tests compare with
// something known to be right.
#include "corvid/testing/dense_reference.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>

namespace corvid::reference {
namespace {

void expect_state(const Vector& got, const Vector& want, const char* what) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (std::size_t k = 0; k < got.size(); ++k) {
    EXPECT_NEAR(std::abs(got[k] - want[k]), 0.0, 1e-14) << what << ", amplitude " << k;
  }
}

TEST(DenseReference, StatesWorkedOutByHand) {
  const Complex i(0, 1);
  const double r = 1 / std::sqrt(2.0), pi = std::numbers::pi, phi = 0.7;
  const double c = std::cos(phi / 2), s = std::sin(phi / 2);
  using K = GateKind;
  const struct {
    const char* what;
    std::vector<Gate> gates;
    Vector want;  // its size gives the number of qubits
  } cases[] = {
      {"bell", {Gate(K::H, {0}), Gate(K::CNOT, {0, 1})}, {r, 0, 0, r}},
      {"control 1 set", {Gate(K::X, {1}), Gate(K::CNOT, {1, 0})}, {0, 0, 0, 1}},
      {"control 0 clear", {Gate(K::X, {1}), Gate(K::CNOT, {0, 1})}, {0, 0, 1, 0}},
      {"RX(pi) = -iX", {Gate(K::RX, {0}, pi)}, {0, -i}},
      {"RY on qubit 1", {Gate(K::RY, {1}, pi / 2)}, {r, 0, r, 0}},
      {"RZ on |1>", {Gate(K::X, {0}), Gate(K::RZ, {0}, 1.0)}, {0, std::exp(i * 0.5)}},
      {"P S T",
       {Gate(K::H, {0}), Gate(K::P, {0}, 0.3), Gate(K::S, {0}), Gate(K::T, {0})},
       {r, r * std::exp(i * (0.3 + pi / 2 + pi / 4))}},
      // From |00>: RXX and RYY mix in |11> with -i·sin and +i·sin; RZZ only adds a phase.
      {"RXX", {Gate(K::RXX, {0, 2}, phi)}, {c, 0, 0, 0, 0, -i * s, 0, 0}},
      {"RYY", {Gate(K::RYY, {0, 1}, phi)}, {c, 0, 0, i * s}},
      {"RZZ, qubits differ",
       {Gate(K::X, {1}), Gate(K::RZZ, {0, 1}, phi)},
       {0, 0, std::exp(i * (phi / 2)), 0}},
      {"SWAP CZ",
       {Gate(K::X, {0}), Gate(K::SWAP, {0, 2}), Gate(K::CZ, {2, 1})},
       {0, 0, 0, 0, 1, 0, 0, 0}},
  };
  for (const auto& [what, gates, want] : cases) {
    Circuit circuit;
    for (const Gate& g : gates) circuit << g;
    expect_state(reference_state(circuit, std::countr_zero(want.size())), want, what);
  }
}

TEST(DenseReference, MarginalsSumOverOtherQubits) {
  Circuit c;
  c << Gate(GateKind::H, {0}) << Gate(GateKind::X, {2});
  // Qubit 2 is bit 0 of the outcome (always 1), qubit 0 is bit 1 (half and half).
  const std::vector<double> p =
      reference_probabilities(reference_state(c, 3), std::vector<unsigned>{2, 0});
  const double want[] = {0.0, 0.5, 0.0, 0.5};
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(p[k], want[k], 1e-14) << k;
}

}  // namespace
}  // namespace corvid::reference
