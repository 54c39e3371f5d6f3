#include "corvid/circuit/gate_definitions.h"

#include <cmath>
#include <numbers>

namespace corvid {
namespace {

using C = std::complex<double>;
constexpr double kPi = std::numbers::pi;
const double kHalf = std::sqrt(0.5);
const C kI(0, 1);

GateMatrix two(std::initializer_list<C> m) {
  GateMatrix out{2, {}};
  std::copy(m.begin(), m.end(), out.entries.begin());
  return out;
}

GateMatrix four(std::initializer_list<C> m) {
  GateMatrix out{4, {}};
  std::copy(m.begin(), m.end(), out.entries.begin());
  return out;
}

// exp(−iφ/2 · P) = cos(φ/2)·I − i·sin(φ/2)·P for a Pauli product P (P² = I).
GateMatrix rotation(double phi, const GateMatrix& pauli) {
  GateMatrix m = pauli;
  const double c = std::cos(phi / 2), s = std::sin(phi / 2);
  for (unsigned r = 0; r < m.dim; ++r) {
    for (unsigned col = 0; col < m.dim; ++col) {
      m.entries[r * m.dim + col] = (r == col ? c : 0.0) - kI * s * pauli(r, col);
    }
  }
  return m;
}

const GateMatrix kX = two({0, 1, 1, 0});
const GateMatrix kY = two({0, -kI, kI, 0});
const GateMatrix kXX = four({0, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0});
const GateMatrix kYY = four({0, 0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, -1, 0, 0, 0});

// Diagonal rotations are written as phases, e^{∓iφ/2}, so that cos and sin pair exactly.
C half_turn(double phi, double sign) { return {std::cos(phi / 2), sign * std::sin(phi / 2)}; }

using P = PhaseShape;

// One row per GateKind, in enum order: the shape, the documentation line, the matrix as a
// function of the angle, the phase rule.
// clang-format off
const GateDefinition kDefinitions[kNumGateKinds] = {
    {{"I", 1, false}, "identity (kept in the circuit as a gate)", [](double) { return two({1, 0, 0, 1}); }, {P::kIdentity}},
    {{"H", 1, false}, "Hadamard: |0> -> (|0> + |1>)/sqrt(2), |1> -> (|0> - |1>)/sqrt(2)",
     [](double) { return two({kHalf, kHalf, kHalf, -kHalf}); }, {}},
    {{"X", 1, false}, "Pauli X (NOT)", [](double) { return kX; }, {}},
    {{"Y", 1, false}, "Pauli Y", [](double) { return kY; }, {}},
    {{"Z", 1, false}, "Pauli Z = diag(1, -1)", [](double) { return two({1, 0, 0, -1}); },
     {P::kPhase, kPi}},
    {{"S", 1, false}, "S = diag(1, i)", [](double) { return two({1, 0, 0, kI}); },
     {P::kPhase, kPi / 2}},
    {{"T", 1, false}, "T = diag(1, exp(i*pi/4))",
     [](double) { return two({1, 0, 0, C(kHalf, kHalf)}); }, {P::kPhase, kPi / 4}},
    {{"RX", 1, true}, "RX(angle) = exp(-i*angle*X/2)", [](double a) { return rotation(a, kX); },
     {}},
    {{"RY", 1, true}, "RY(angle) = exp(-i*angle*Y/2)", [](double a) { return rotation(a, kY); },
     {}},
    {{"RZ", 1, true}, "RZ(angle) = exp(-i*angle*Z/2) = diag(exp(-i*angle/2), exp(i*angle/2))",
     [](double a) { return two({half_turn(a, -1), 0, 0, half_turn(a, 1)}); },
     {P::kZRotation}},
    {{"P", 1, true}, "P(angle) = diag(1, exp(i*angle))",
     [](double a) { return two({1, 0, 0, std::polar(1.0, a)}); }, {P::kPhase}},
    // Control = local bit 0: flips local bit 1 where bit 0 is set.
    {{"CNOT", 2, false}, "controlled NOT: flips `target` where `control` is 1",
     [](double) { return four({1, 0, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0}); },
     {P::kParity}},
    {{"CZ", 2, false}, "controlled Z: negates the amplitude where both qubits are 1",
     [](double) { return four({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1}); },
     {P::kControlledPhase, kPi}},
    {{"SWAP", 2, false}, "exchanges two qubits",
     [](double) { return four({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1}); }, {}},
    {{"RXX", 2, true}, "RXX(angle) = exp(-i*angle*X(x)X/2)",
     [](double a) { return rotation(a, kXX); }, {}},
    {{"RYY", 2, true}, "RYY(angle) = exp(-i*angle*Y(x)Y/2)",
     [](double a) { return rotation(a, kYY); }, {}},
    {{"RZZ", 2, true}, "RZZ(angle) = exp(-i*angle*Z(x)Z/2)",
     [](double a) {
       const C e = half_turn(a, -1), o = half_turn(a, 1);
       return four({e, 0, 0, 0, 0, o, 0, 0, 0, 0, o, 0, 0, 0, 0, e});
     },
     {P::kZRotation}},
};
// clang-format on

}  // namespace

const GateDefinition& gate_definition(GateKind kind) {
  return kDefinitions[static_cast<std::size_t>(kind)];
}

}  // namespace corvid
