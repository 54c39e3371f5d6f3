#pragma once
/// Runs gates on a state vector by dispatching each gate to its kernel. This is the reference
/// execution path: one pass over the state per gate, in program order.

#include <span>

#include "corvid/circuit/gate.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

/// Applies `gate` to `state`. The gate's qubits must be < state.num_qubits() (asserted; the
/// machine validates programs before running them). O(2^n).
void apply_gate(StateVector& state, const Gate& gate);

/// Applies `gates` first to last. O(gates · 2^n).
void execute(StateVector& state, std::span<const Gate> gates);

}  // namespace corvid
