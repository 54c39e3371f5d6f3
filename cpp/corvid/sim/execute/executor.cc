#include "corvid/sim/execute/executor.h"

#include <cassert>

#include "corvid/sim/execute/rotation_layer.h"
#include "corvid/sim/kernels/two_qubit_matrix.h"

namespace corvid {

template <class Real>
void apply_gate(BasicStateVector<Real>& state, const Gate& gate,
                const std::type_identity_t<BasicKernelSet<Real>>& kernels) {
#ifndef NDEBUG
  for (std::uint32_t q : gate.qubits()) assert(q < state.num_qubits());
#endif
  if (gate.kind() == GateKind::I) return;
  if (gate.num_qubits() == 1) {
    const QubitMatrix m{gate.qubit(0), matrix_of(gate)};
    return apply_rotation_layer<Real>(state.data(), state.num_qubits(), {&m, 1}, kernels);
  }
  apply_matrix4(state.data(), state.num_qubits(), gate.qubit(0), gate.qubit(1), matrix4_of(gate));
}

template <class Real>
void execute(BasicStateVector<Real>& state, std::span<const Gate> gates,
             const std::type_identity_t<BasicKernelSet<Real>>& kernels) {
  for (const Gate& g : gates) apply_gate(state, g, kernels);
}

template void apply_gate<double>(StateVector&, const Gate&, const KernelSet&);
template void apply_gate<float>(StateVector32&, const Gate&, const KernelSet32&);
template void execute<double>(StateVector&, std::span<const Gate>, const KernelSet&);
template void execute<float>(StateVector32&, std::span<const Gate>, const KernelSet32&);

}  // namespace corvid
