#pragma once
/// Runs compiled programs: each operation is about one pass over the state, done by the active
/// kernel set over cache-sized tiles on the OpenMP team. A diagonal followed by a layer shares
/// the layer's first pass, and a leading layer on |0…0⟩ is a product state written directly:
/// inside the first pass of the layer that follows it (after the diagonal between them), or in
/// a pass of its own with the diagonal that follows it.

#include <type_traits>

#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/machine/run_timings.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

/// Applies `program` (num_qubits == state.num_qubits(); asserted) to `state`. With
/// `from_zero`, the state's contents are ignored and the run starts from |0…0⟩. Adds the time
/// of each kind of operation to `timings` when given (a diagonal or an initial state sharing a
/// layer's pass counts as layer time, a diagonal sharing the initial state's pass as init time).
/// Double- and single-precision states alike (plain gates run through apply_gate).
template <class Real>
void execute(BasicStateVector<Real>& state, const CompiledProgram& program, bool from_zero,
             RunTimings* timings = nullptr,
             const std::type_identity_t<BasicKernelSet<Real>>& kernels = active_kernels<Real>());

}  // namespace corvid
