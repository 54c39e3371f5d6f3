#pragma once
/// The program compiler: turns a gate list into fewer, larger operations that each cost about
/// one pass over the state.
///   - A run of CNOT and diagonal gates whose CNOTs cancel becomes one diagonal (see
///     phase_polynomial.h), its values shared through the diagonal cache.
///   - A run of one-qubit gates becomes one matrix per qubit, applied as a cache-blocked layer.
///   - Everything else, and runs too short to pay, stays a plain gate.
/// Compiled and plain execution agree to rounding, global phase included.

#include <cstddef>
#include <memory>
#include <span>
#include <variant>
#include <vector>

#include "corvid/circuit/gate.h"
#include "corvid/sim/compile/diagonal_values.h"
#include "corvid/sim/execute/rotation_layer.h"

namespace corvid {

/// amp[x] *= exp(i·(global_phase − scale·values->at(x))); without values, exp(i·global_phase).
struct DiagonalOp {
  std::shared_ptr<const DiagonalValues> values;
  double scale = 0.0;
  double global_phase = 0.0;
};

/// One-qubit matrices on distinct qubits, ascending.
struct LayerOp {
  std::vector<QubitMatrix> gates;
};

struct GateOp {
  Gate gate;
};

using CompiledOp = std::variant<DiagonalOp, LayerOp, GateOp>;

struct CompiledProgram {
  unsigned num_qubits = 0;
  std::vector<CompiledOp> ops;
};

/// Compiles `gates` (qubits < num_qubits <= 64; asserted). Diagonals are looked up in or added
/// to the diagonal cache, which may cost O(n·2^n) once per new key (and may throw OutOfMemory;
/// corvid::Interrupted between operations). Otherwise O(gates · log gates).
CompiledProgram compile(std::span<const Gate> gates, unsigned num_qubits);

/// Process-wide switch, on by default: when off, compile() keeps every gate a plain gate, which
/// gives the gate-by-gate reference path (for comparisons and benchmarks).
void set_fusion_enabled(bool enabled);
bool fusion_enabled();

}  // namespace corvid
