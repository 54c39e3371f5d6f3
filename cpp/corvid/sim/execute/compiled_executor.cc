#include "corvid/sim/execute/compiled_executor.h"

#include <cassert>
#include <chrono>
#include <optional>

#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/execute/executor.h"
#include "corvid/util/interrupt.h"

namespace corvid {
namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

const DiagonalOp* diagonal_at(const CompiledProgram& p, std::size_t i) {
  return i < p.ops.size() ? std::get_if<DiagonalOp>(&p.ops[i]) : nullptr;
}

const LayerOp* layer_at(const CompiledProgram& p, std::size_t i) {
  return i < p.ops.size() ? std::get_if<LayerOp>(&p.ops[i]) : nullptr;
}

// Prepares the initial state; returns the number of operations it already applied. A leading
// layer on |0…0⟩ is a product state: with a second layer after it (and a diagonal between),
// it is written inside that layer's first pass; otherwise in a pass of its own, together with
// the diagonal that follows it. The time goes to `layer` or `init` accordingly.
template <class Real>
std::size_t start_from_zero(BasicStateVector<Real>& state, const CompiledProgram& p,
                            const BasicKernelSet<Real>& k, RunTimings& t) {
  const auto start = Clock::now();
  const LayerOp* layer = layer_at(p, 0);
  if (layer == nullptr) {
    state.reset();
    t.init += seconds_since(start);
    return 0;
  }
  const DiagonalOp* d = diagonal_at(p, 1);
  const std::optional<BasicDiagonalPass<Real>> pass =
      d ? std::optional<BasicDiagonalPass<Real>>(std::in_place, *d, k) : std::nullopt;
  const std::size_t next = d ? 2 : 1;
  if (const LayerOp* second = layer_at(p, next)) {
    apply_rotation_layer<Real>(state.data(), state.num_qubits(), second->gates, k,
                               pass ? &*pass : nullptr, {}, layer->gates);
    t.layer += seconds_since(start);
    return next + 1;
  }
  write_product_state<Real>(state.data(), state.num_qubits(), layer->gates,
                            pass ? &*pass : nullptr);
  t.init += seconds_since(start);
  return next;
}

}  // namespace

template <class Real>
void execute(BasicStateVector<Real>& state, const CompiledProgram& program, bool from_zero,
             RunTimings* timings, const std::type_identity_t<BasicKernelSet<Real>>& kernels) {
  assert(program.num_qubits == state.num_qubits());
  const unsigned n = state.num_qubits();
  RunTimings local;
  RunTimings& t = timings ? *timings : local;
  std::size_t i = 0;
  if (from_zero) i = start_from_zero(state, program, kernels, t);
  while (i < program.ops.size()) {
    throw_if_interrupted();  // between passes, on the calling thread: Ctrl-C stops a long run
    const auto start = Clock::now();
    if (const DiagonalOp* d = diagonal_at(program, i)) {
      const BasicDiagonalPass<Real> pass(*d, kernels);
      if (const LayerOp* layer = layer_at(program, i + 1)) {
        apply_rotation_layer<Real>(state.data(), n, layer->gates, kernels, &pass);
        t.layer += seconds_since(start);
        i += 2;
      } else {
        pass.apply_all(state.data(), n);
        t.diagonal += seconds_since(start);
        i += 1;
      }
    } else if (const LayerOp* layer = layer_at(program, i)) {
      apply_rotation_layer<Real>(state.data(), n, layer->gates, kernels);
      t.layer += seconds_since(start);
      i += 1;
    } else {
      apply_gate(state, std::get<GateOp>(program.ops[i]).gate, kernels);
      t.gates += seconds_since(start);
      i += 1;
    }
  }
}

template void execute<double>(StateVector&, const CompiledProgram&, bool, RunTimings*,
                              const KernelSet&);
template void execute<float>(StateVector32&, const CompiledProgram&, bool, RunTimings*,
                             const KernelSet32&);

}  // namespace corvid
