#pragma once
/// Runs gates on a state vector one at a time: the reference execution path, one pass over the
/// state per gate, in program order (the compiled path fuses them instead). A gate runs from its
/// matrix (circuit/gate_definitions.h): one-qubit gates through the kernel set's layer pass,
/// two-qubit gates through the 4×4 kernel. Double and single precision alike.

#include <span>
#include <type_traits>

#include "corvid/circuit/gate.h"
#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

/// Applies `gate` to `state`. The gate's qubits must be < state.num_qubits() (asserted; the
/// machine validates programs before running them). O(2^n).
template <class Real>
void apply_gate(BasicStateVector<Real>& state, const Gate& gate,
                const std::type_identity_t<BasicKernelSet<Real>>& kernels = active_kernels<Real>());

/// Applies `gates` first to last. O(gates · 2^n).
template <class Real>
void execute(BasicStateVector<Real>& state, std::span<const Gate> gates,
             const std::type_identity_t<BasicKernelSet<Real>>& kernels = active_kernels<Real>());

}  // namespace corvid
