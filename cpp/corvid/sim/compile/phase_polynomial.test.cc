// Where a diagonal run ends and what its parity ladder becomes, by hand; each gate's phase rule
// meets the plain path in compiler.test.cc.
#include "corvid/sim/compile/phase_polynomial.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

DiagonalRun scan(const std::vector<Gate>& gates, unsigned n = 3, std::size_t max = 100) {
  return longest_diagonal_run(gates, n, max);
}

TEST(PhasePolynomial, ParityLadderGivesOneTermOnTheParity) {
  // CNOT(0,1) CNOT(1,2) RZ(2, φ) CNOT(1,2) CNOT(0,1) = exp(−iφ/2·Z0Z1Z2).
  const std::vector<Gate> g = {Gate(GateKind::CNOT, {0, 1}), Gate(GateKind::CNOT, {1, 2}),
                               Gate(GateKind::RZ, {2}, 0.8), Gate(GateKind::CNOT, {1, 2}),
                               Gate(GateKind::CNOT, {0, 1})};
  const DiagonalRun run = scan(g);
  EXPECT_EQ(run.length, 5u);
  EXPECT_EQ(run.weight, 5u);
  EXPECT_EQ(run.polynomial.terms, (std::vector<PhaseTerm>{{0b111, 0.4}}));
  EXPECT_EQ(run.polynomial.global_phase, 0.0);
}

TEST(PhasePolynomial, RunEndsAtTheLastPointWhereEveryWireIsItsOwn) {
  const std::vector<Gate> g = {Gate(GateKind::RZ, {0}, 1.0), Gate(GateKind::CNOT, {0, 1}),
                               Gate(GateKind::RZ, {1}, 2.0), Gate(GateKind::H, {0})};
  const DiagonalRun run = scan(g);
  EXPECT_EQ(run.length, 1u);  // the CNOT never cancels; H stops the scan
  EXPECT_EQ(run.polynomial.terms, (std::vector<PhaseTerm>{{0b1, 0.5}}));
  EXPECT_EQ(scan(g, 3, 0).length, 0u);
}

}  // namespace
}  // namespace corvid
