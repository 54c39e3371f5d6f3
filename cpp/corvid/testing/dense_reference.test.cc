// The oracle is checked against states worked out by hand, so that kernel tests compare with
// something known to be right.
#include "corvid/testing/dense_reference.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace corvid::reference {
namespace {

constexpr double kTol = 1e-14;
const Complex i1(0, 1);

void expect_state(const Vector& got, const Vector& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t k = 0; k < got.size(); ++k) {
    EXPECT_NEAR(std::abs(got[k] - want[k]), 0.0, kTol) << "amplitude " << k;
  }
}

}  // namespace

TEST(DenseReference, BellStateAndControlOrientation) {
  Circuit bell;
  bell << Gate(GateKind::H, {0}) << Gate(GateKind::CNOT, {0, 1});
  const double r = 1 / std::sqrt(2.0);
  expect_state(reference_state(bell, 2), {r, 0, 0, r});

  // X on qubit 1 (index 2), then CNOT with control 1 sets qubit 0 as well: index 3.
  Circuit c;
  c << Gate(GateKind::X, {1}) << Gate(GateKind::CNOT, {1, 0});
  expect_state(reference_state(c, 2), {0, 0, 0, 1});
  // Control 0 is |0⟩, so nothing happens to qubit 1.
  Circuit d;
  d << Gate(GateKind::X, {1}) << Gate(GateKind::CNOT, {0, 1});
  expect_state(reference_state(d, 2), {0, 0, 1, 0});
}

TEST(DenseReference, RotationsByHand) {
  const double pi = std::numbers::pi;
  Circuit rx;
  rx << Gate(GateKind::RX, {0}, pi);  // RX(π) = −iX
  expect_state(reference_state(rx, 1), {0, -i1});
  Circuit ry;
  ry << Gate(GateKind::RY, {1}, pi / 2);  // (|0⟩ + |1⟩)/√2 on qubit 1
  expect_state(reference_state(ry, 2), {1 / std::sqrt(2.0), 0, 1 / std::sqrt(2.0), 0});
  Circuit rz;
  rz << Gate(GateKind::X, {0}) << Gate(GateKind::RZ, {0}, 1.0);  // e^{i/2} on |1⟩
  expect_state(reference_state(rz, 1), {0, std::exp(i1 * 0.5)});
  Circuit p;
  p << Gate(GateKind::H, {0}) << Gate(GateKind::P, {0}, 0.3) << Gate(GateKind::S, {0})
    << Gate(GateKind::T, {0});
  const double r = 1 / std::sqrt(2.0);
  expect_state(reference_state(p, 1), {r, r * std::exp(i1 * (0.3 + pi / 2 + pi / 4))});
}

TEST(DenseReference, TwoQubitRotationsByHand) {
  const double phi = 0.7, c = std::cos(phi / 2), s = std::sin(phi / 2);
  // From |00⟩: RXX and RYY mix in |11⟩ with −i·sin and +i·sin; RZZ only adds e^{−iφ/2}.
  Circuit xx;
  xx << Gate(GateKind::RXX, {0, 2}, phi);
  expect_state(reference_state(xx, 3), {c, 0, 0, 0, 0, -i1 * s, 0, 0});
  Circuit yy;
  yy << Gate(GateKind::RYY, {0, 1}, phi);
  expect_state(reference_state(yy, 2), {c, 0, 0, i1 * s});
  Circuit zz;
  zz << Gate(GateKind::X, {1}) << Gate(GateKind::RZZ, {0, 1}, phi);  // qubits differ: e^{+iφ/2}
  expect_state(reference_state(zz, 2), {0, 0, std::exp(i1 * (phi / 2)), 0});
  Circuit sw;
  sw << Gate(GateKind::X, {0}) << Gate(GateKind::SWAP, {0, 2}) << Gate(GateKind::CZ, {2, 1});
  expect_state(reference_state(sw, 3), {0, 0, 0, 0, 1, 0, 0, 0});
}

TEST(DenseReference, MarginalsSumOverOtherQubits) {
  Circuit c;
  c << Gate(GateKind::H, {0}) << Gate(GateKind::X, {2});
  const Vector state = reference_state(c, 3);
  const std::vector<unsigned> q20{2, 0};
  const std::vector<double> p = reference_probabilities(state, q20);
  // qubit 2 is bit 0 of the outcome (always 1), qubit 0 is bit 1 (half and half).
  EXPECT_NEAR(p[0], 0.0, kTol);
  EXPECT_NEAR(p[1], 0.5, kTol);
  EXPECT_NEAR(p[2], 0.0, kTol);
  EXPECT_NEAR(p[3], 0.5, kTol);
}

}  // namespace corvid::reference
