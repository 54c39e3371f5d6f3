#include "corvid/circuit/qasm.h"

#include <gmock/gmock.h>

#include <numbers>
#include <random>
#include <stdexcept>
#include <string>

#include "corvid/testing/random_circuit.h"

namespace corvid {
namespace {

TEST(Qasm, EveryGateAndMeasurementRoundTripsExactly) {
  std::mt19937_64 rng(4);  // every kind, angles with all their digits
  Program p(reference::random_circuit(5, 2 * kNumGateKinds, rng));
  p << Measurement(Qubit(4), CBit(1)) << Measurement(Qubit(0), CBit(0));
  for (int version : {2, 3}) {
    const Program back = from_qasm(to_qasm(p, {version, true, false}));
    ASSERT_EQ(back.circuit().size(), p.circuit().size()) << version;
    for (std::size_t i = 0; i < p.circuit().size(); ++i) {
      EXPECT_EQ(back.circuit().gates()[i], p.circuit().gates()[i]) << version << " gate " << i;
    }
    EXPECT_EQ(back.measurements(), p.measurements());
  }
}

TEST(Qasm, WritesStandardNamesFusesRzzAndDropsIdentities) {
  Program p;
  p << Gate(GateKind::I, {Qubit(0)}) << Gate(GateKind::CNOT, {Qubit(0), Qubit(2)})
    << Gate(GateKind::RZ, {Qubit(2)}, 0.5) << Gate(GateKind::CNOT, {Qubit(0), Qubit(2)})
    << Gate(GateKind::P, {Qubit(1)}, 0.25);
  EXPECT_EQ(to_qasm(p),
            "OPENQASM 2.0;\ninclude \"qelib1.inc\";\n"
            "gate rzz(theta) a, b { cx a, b; rz(theta) b; cx a, b; }\n"
            "qreg q[3];\nrzz(0.5) q[0], q[2];\nu1(0.25) q[1];\n");
  EXPECT_EQ(from_qasm(to_qasm(p)).circuit().gates()[0],
            Gate(GateKind::RZZ, {Qubit(0), Qubit(2)}, 0.5));
  EXPECT_THROW(to_qasm(p, {4}), std::invalid_argument);
}

TEST(Qasm, ReadsRegistersBroadcastsExpressionsAndBothMeasureForms) {
  const Program p = from_qasm(R"(OPENQASM 3.0;
    include "stdgates.inc";  // a comment
    qubit[2] a; qubit b; /* a register
    of one */ bit[2] c; bit d;
    h a;
    rz(-pi/2 + 2*(0.25)) b[0];
    sdg a[1]; tdg b;
    barrier a, b;
    cx a[1], b[0];
    d[0] = measure b[0];
    measure a -> c;
  )");
  const Gate expected[] = {
      Gate(GateKind::H, {Qubit(0)}),
      Gate(GateKind::H, {Qubit(1)}),
      Gate(GateKind::RZ, {Qubit(2)}, -std::numbers::pi / 2 + 0.5),
      Gate(GateKind::P, {Qubit(1)}, -std::numbers::pi / 2),
      Gate(GateKind::P, {Qubit(2)}, -std::numbers::pi / 4),
      Gate(GateKind::CNOT, {Qubit(1), Qubit(2)}),
  };
  ASSERT_EQ(p.circuit().size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i)
    EXPECT_EQ(p.circuit().gates()[i], expected[i]);
  const std::vector<Measurement> measured = {Measurement(Qubit(2), CBit(2)),
                                             Measurement(Qubit(0), CBit(0)),
                                             Measurement(Qubit(1), CBit(1))};
  EXPECT_EQ(p.measurements(), measured);
}

TEST(Qasm, RefusesWithTheLine) {
  const std::string head = "OPENQASM 2.0;\nqreg q[2];\ncreg c[2];\n";
  const std::pair<std::string, std::string> cases[] = {
      {"OPENQASM 4.0;", "line 1: OpenQASM version 4.0 is not supported"},
      {"qreg q[1];", "expected 'OPENQASM 2.0;'"},
      {head + "u3(1,2,3) q[0];", "line 4: gate 'u3' is not in corvid's gate set"},
      {head + "h q[2];", "line 4: index 2 is outside q[2]"},
      {head + "h r[0];", "'r' is not a declared qubit register"},
      {head + "cx q[0];", "acts on 2 qubits, given 1"},
      {head + "cx q[0], q[0];", "line 4:"},
      {head + "rx q[0];", "needs an angle"},
      {head + "h(0.5) q[0];", "takes no angle"},
      {head + "rx(1 +) q[0];", "expected a number, pi or '('"},
      {head + "rx(" + std::string(100, '(') + "1" + std::string(100, ')') + ") q[0];",
       "nested too deeply"},
      {head + "measure q[0] -> c[0];\nh q[1];", "line 5: measurements are terminal"},
      {head + "gate foo a { h a; }", "gate definitions other than"},
      {head + "include \"other.inc\";", "only qelib1.inc and stdgates.inc"},
      {head + "/* open", "a comment is not closed"},
      {head + "h q[0]", "expected ';' at the end of the text"},
      {head + "qreg r[63];", "registers may hold 64 qubits in all"},
      {head + "qreg q[1];", "'q' is declared twice"},
      {head + "h q[0]; $", "unexpected character '$'"},
  };
  for (const auto& [text, fragment] : cases) {
    EXPECT_THAT([&] { from_qasm(text); },
                ::testing::ThrowsMessage<std::invalid_argument>(::testing::HasSubstr(fragment)))
        << text;
  }
}

}  // namespace
}  // namespace corvid
