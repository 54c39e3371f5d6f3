#include "corvid/circuit/gate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvid {

TEST(Gate, AngleIsDroppedForFixedGatesAndOwnerIsNotPartOfTheValue) {
  EXPECT_EQ(Gate(GateKind::X, {1}, 5.0).angle(), 0.0);
  EXPECT_EQ(Gate(GateKind::RZ, {0}, 3.0, 0.5).angle(), 1.5);
  EXPECT_EQ(Gate(GateKind::RZ, {0}, 3.0, 0.5), Gate(GateKind::RZ, {0}, 1.5));
  EXPECT_EQ(Gate(GateKind::RX, {Qubit(1, 7)}, 0.5), Gate(GateKind::RX, {1}, 0.5));
  EXPECT_EQ(Gate(GateKind::RX, {Qubit(1, 7)}, 0.5).machine(), 7u);
  EXPECT_NE(Gate(GateKind::RX, {1}, 0.5), Gate(GateKind::RY, {1}, 0.5));
  EXPECT_NE(Gate(GateKind::CNOT, {0, 1}), Gate(GateKind::CNOT, {1, 0}));
}

TEST(Gate, RejectsBadGatesWithAClearError) {
  const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
  const struct {
    const char* what;
    GateKind kind;
    std::vector<Qubit> qubits;
    double angle, scale;
  } cases[] = {
      {"same qubit twice", GateKind::CNOT, {2, 2}, 0, 1},
      {"rxx same qubit", GateKind::RXX, {0, 0}, 1, 1},
      {"too few qubits", GateKind::SWAP, {1}, 0, 1},
      {"too many qubits", GateKind::H, {1, 2}, 0, 1},
      {"nan angle", GateKind::RZ, {0}, nan, 1},
      {"inf angle", GateKind::RYY, {0, 1}, inf, 1},
      {"nan scale", GateKind::RZ, {0}, 1, nan},
      {"angle times scale overflows", GateKind::P, {0}, 1e200, 1e200},
      {"two machines", GateKind::CZ, {Qubit(0, 1), Qubit(1, 2)}, 0, 1},
  };
  for (const auto& c : cases) {
    EXPECT_THROW(Gate(c.kind, c.qubits, c.angle, c.scale), std::invalid_argument) << c.what;
  }
  EXPECT_THROW(Gate(GateKind::X, {64}), std::out_of_range);  // qubit past 63
}

}  // namespace corvid
