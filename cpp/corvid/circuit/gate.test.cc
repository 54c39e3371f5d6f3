#include "corvid/circuit/gate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

namespace corvid {

TEST(Gate, KnowsItsShape) {
  EXPECT_EQ(gate_info(GateKind::CNOT).name, "CNOT");
  EXPECT_EQ(gate_info(GateKind::RZZ).num_qubits, 2u);
  EXPECT_TRUE(gate_info(GateKind::P).has_angle);
  EXPECT_FALSE(gate_info(GateKind::SWAP).has_angle);
  // Every kind has a distinct printed name.
  for (int a = 0; a < kNumGateKinds; ++a) {
    for (int b = a + 1; b < kNumGateKinds; ++b) {
      EXPECT_NE(gate_info(GateKind(a)).name, gate_info(GateKind(b)).name);
    }
  }
}

TEST(Gate, PrintsOneLine) {
  EXPECT_EQ(Gate(GateKind::H, {0}).to_string(), "H q[0]");
  EXPECT_EQ(Gate(GateKind::CNOT, {3, 1}).to_string(), "CNOT q[3], q[1]");
  EXPECT_EQ(Gate(GateKind::RZ, {2}, -3.0).to_string(), "RZ q[2], (-3.000000)");
  EXPECT_EQ(Gate(GateKind::RXX, {0, 1}, 0.2).to_string(), "RXX q[0], q[1], (0.200000)");
}

TEST(Gate, AngleIsDroppedForFixedGatesAndOwnerIsNotPartOfTheValue) {
  EXPECT_EQ(Gate(GateKind::X, {1}, 5.0).angle(), 0.0);
  EXPECT_EQ(Gate(GateKind::RZ, {0}, 3.0, 0.5).angle(), 1.5);
  EXPECT_EQ(Gate(GateKind::RZ, {0}, 3.0, 0.5), Gate(GateKind::RZ, {0}, 1.5));
  EXPECT_EQ(Gate(GateKind::RX, {Qubit(1, 7)}, 0.5), Gate(GateKind::RX, {1}, 0.5));
  EXPECT_EQ(Gate(GateKind::RX, {Qubit(1, 7)}, 0.5).machine(), 7u);
  EXPECT_NE(Gate(GateKind::RX, {1}, 0.5), Gate(GateKind::RY, {1}, 0.5));
  EXPECT_NE(Gate(GateKind::CNOT, {0, 1}), Gate(GateKind::CNOT, {1, 0}));
}

struct BadGate {
  const char* what;
  std::function<void()> build;
  bool index_error;
};

class GateRejects : public ::testing::TestWithParam<BadGate> {};

TEST_P(GateRejects, WithAClearError) {
  const BadGate& c = GetParam();
  if (c.index_error) {
    EXPECT_THROW(c.build(), std::out_of_range) << c.what;
  } else {
    EXPECT_THROW(c.build(), std::invalid_argument) << c.what;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GateRejects,
    ::testing::Values(
        BadGate{"same qubit twice",
                [] {
                  Gate(GateKind::CNOT, {2, 2});
                },
                false},
        BadGate{"rxx same qubit",
                [] {
                  Gate(GateKind::RXX, {0, 0}, 1.0);
                },
                false},
        BadGate{"too few qubits", [] { Gate(GateKind::SWAP, {1}); }, false},
        BadGate{"too many qubits",
                [] {
                  Gate(GateKind::H, {1, 2});
                },
                false},
        BadGate{"nan angle", [] { Gate(GateKind::RZ, {0}, std::nan("")); }, false},
        BadGate{"inf angle",
                [] {
                  Gate(GateKind::RYY, {0, 1}, std::numeric_limits<double>::infinity());
                },
                false},
        BadGate{"nan scale", [] { Gate(GateKind::RZ, {0}, 1.0, std::nan("")); }, false},
        BadGate{"angle times scale overflows", [] { Gate(GateKind::P, {0}, 1e200, 1e200); }, false},
        BadGate{"two machines",
                [] {
                  Gate(GateKind::CZ, {Qubit(0, 1), Qubit(1, 2)});
                },
                false},
        BadGate{"qubit past 63", [] { Gate(GateKind::X, {64}); }, true}));

}  // namespace corvid
