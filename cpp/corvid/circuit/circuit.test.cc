#include "corvid/circuit/circuit.h"

#include <gmock/gmock.h>

#include "corvid/circuit/program.h"

namespace corvid {

TEST(Circuit, AppendsInOrderAndInlinesCircuits) {
  Circuit inner;
  inner << Gate(GateKind::H, {0}) << Gate(GateKind::CNOT, {0, 1});
  Circuit c;
  EXPECT_TRUE(c.empty() && c.num_qubits() == 0 && c.to_string().empty());
  c << Gate(GateKind::X, {2}) << inner << Gate(GateKind::RXX, {3, 1}, -3.0);
  EXPECT_EQ(c[3], Gate(GateKind::RXX, {3, 1}, -3.0));
  EXPECT_EQ(c.num_qubits(), 4u);
  EXPECT_EQ(inner.size(), 2u);  // the appended circuit is copied, not moved
  EXPECT_EQ(c.to_string(), "X q[2]\nH q[0]\nCNOT q[0], q[1]\nRXX q[3], q[1], (-3.000000)");
}

TEST(Circuit, AppendingItselfDoublesIt) {
  Circuit c;
  for (int q = 0; q < 20; ++q) c << Gate(GateKind::RY, {std::uint32_t(q)}, q * 0.1);
  Circuit expected = c;
  for (const Gate& g : Circuit(c)) expected << g;
  c << c;
  EXPECT_EQ(c, expected);
}

TEST(Program, MeasureAllPairsListsAndChecksThem) {
  const std::vector<Qubit> qs{Qubit(0, 4), Qubit(1, 4)};
  const std::vector<CBit> cs{CBit(0, 4), CBit(1, 4)};
  const auto ms = measure_all(qs, cs);
  ASSERT_EQ(ms.size(), 2u);
  EXPECT_EQ(ms[1].qubit, Qubit(1, 4));
  EXPECT_EQ(ms[1].cbit, CBit(1, 4));
  EXPECT_EQ(ms[1].machine(), 4u);
  EXPECT_THROW(measure_all(qs, std::vector<CBit>{CBit(0, 4)}), std::invalid_argument);
  EXPECT_THROW(Measurement(Qubit(0, 4), CBit(0, 5)), std::invalid_argument);
  EXPECT_THROW(Measurement(Qubit(70), CBit(0)), std::out_of_range);
}

}  // namespace corvid
