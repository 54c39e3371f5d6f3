// Phase polynomials of gate runs against hand-derived terms.
#include "corvid/sim/compile/phase_polynomial.h"

#include <gtest/gtest.h>

#include <numbers>

namespace corvid {
namespace {

constexpr double kPi = std::numbers::pi;

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

struct Case {
  const char* name;
  std::vector<Gate> gates;
  std::vector<PhaseTerm> terms;
  double global_phase;
};

class FixedGates : public ::testing::TestWithParam<Case> {};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

TEST_P(FixedGates, TermsAndGlobalPhase) {
  const DiagonalRun run = scan(GetParam().gates);
  EXPECT_EQ(run.length, GetParam().gates.size());
  ASSERT_EQ(run.polynomial.terms.size(), GetParam().terms.size());
  for (std::size_t t = 0; t < GetParam().terms.size(); ++t) {
    EXPECT_EQ(run.polynomial.terms[t].mask, GetParam().terms[t].mask);
    EXPECT_NEAR(run.polynomial.terms[t].coefficient, GetParam().terms[t].coefficient, 1e-15);
  }
  EXPECT_NEAR(run.polynomial.global_phase, GetParam().global_phase, 1e-15);
}

// diag(1, e^{iφ}) = e^{iφ/2}·exp(−iφ/2·Z); CZ = e^{iπ/4}·exp(−iπ/4·(Z_a + Z_b − Z_aZ_b)).
INSTANTIATE_TEST_SUITE_P(
    Kinds, FixedGates,
    ::testing::Values(Case{"Z", {Gate(GateKind::Z, {1})}, {{0b10, kPi / 2}}, kPi / 2},
                      Case{"S_T",
                           {Gate(GateKind::S, {0}), Gate(GateKind::T, {0})},
                           {{0b1, 3 * kPi / 8}},
                           3 * kPi / 8},
                      Case{"P", {Gate(GateKind::P, {2}, 0.6)}, {{0b100, 0.3}}, 0.3},
                      Case{"CZ",
                           {Gate(GateKind::CZ, {0, 2})},
                           {{0b1, kPi / 4}, {0b100, kPi / 4}, {0b101, -kPi / 4}},
                           kPi / 4},
                      Case{"RZZ", {Gate(GateKind::RZZ, {2, 1}, 1.2)}, {{0b110, 0.6}}, 0.0},
                      Case{"cancelling",
                           {Gate(GateKind::RZ, {0}, 0.7), Gate(GateKind::RZ, {0}, -0.7),
                            Gate(GateKind::I, {1})},
                           {},
                           0.0},
                      // Through a CNOT the target carries the parity of both wires.
                      Case{"conjugated",
                           {Gate(GateKind::CNOT, {2, 0}), Gate(GateKind::RZZ, {0, 1}, 0.4),
                            Gate(GateKind::CNOT, {2, 0})},
                           {{0b111, 0.2}},
                           0.0}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace corvid
