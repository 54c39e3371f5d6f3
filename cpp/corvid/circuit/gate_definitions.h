#pragma once
/// What each gate kind does, written once: its name and shape, its matrix and, for the kinds
/// a phase polynomial absorbs, its phase rule. Every consumer derives from this table: the
/// kernels' matrices (sim/kernels/matrix2.h, two_qubit_matrix.h), the plain executor, the
/// compiler's phase polynomials and the dense test oracle. Adding a gate takes a GateKind in
/// gate.h and a row in gate_definitions.cc.
///
/// Bit order: a two-qubit matrix is row-major on the local index l = bit of qubits()[0] +
/// 2 · bit of qubits()[1]; a one-qubit matrix on (|0⟩, |1⟩).

#include <array>
#include <complex>
#include <cstdint>
#include <string_view>

#include "corvid/circuit/gate.h"

namespace corvid {

/// A 2×2 (dim 2) or 4×4 (dim 4) complex matrix, row-major in the first dim² entries.
struct GateMatrix {
  unsigned dim = 2;
  std::array<std::complex<double>, 16> entries{};
  std::complex<double> operator()(unsigned row, unsigned col) const {
    return entries[row * dim + col];
  }
};

/// How a gate acts inside a run of CNOT and diagonal gates (sim/compile/phase_polynomial.h).
enum class PhaseShape : std::uint8_t {
  kNone,             ///< neither diagonal nor CNOT: ends such a run
  kIdentity,         ///< nothing
  kParity,           ///< CNOT: the target wire takes the parity of both wires
  kPhase,            ///< diag(1, e^{iφ}) on its qubit
  kZRotation,        ///< exp(−iφ/2 · Z⊗…⊗Z) on the parity of all its qubits
  kControlledPhase,  ///< diag(1, 1, 1, e^{iφ}) on its two qubits
};

struct PhaseRule {
  PhaseShape shape = PhaseShape::kNone;
  /// φ for kinds without an angle (Z: π, S: π/2, T: π/4, CZ: π); kinds with one use theirs.
  double fixed_angle = 0.0;
};

struct GateDefinition {
  GateInfo info;
  /// One line for documentation, e.g. "RX(angle) = exp(-i*angle*X/2)".
  std::string_view doc;
  GateMatrix (*matrix)(double angle);
  PhaseRule phase;
};

const GateDefinition& gate_definition(GateKind kind);

/// The matrix of `gate` (its angle applied).
inline GateMatrix gate_matrix(const Gate& gate) {
  return gate_definition(gate.kind()).matrix(gate.angle());
}

}  // namespace corvid
