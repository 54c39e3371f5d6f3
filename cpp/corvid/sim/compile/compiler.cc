#include "corvid/sim/compile/compiler.h"

#include <algorithm>
#include <atomic>
#include <cassert>

#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/util/interrupt.h"

namespace corvid {
namespace {

// A diagonal run is scanned at most this far: bounds the rescans after runs whose CNOTs never
// cancel to O(gates · kMaxScan).
constexpr std::size_t kMaxScan = 4096;
// Runs of fewer gates are cheaper gate by gate than through a diagonal or a layer.
constexpr std::size_t kMinFused = 2;

DiagonalOp diagonal_op(const PhasePolynomial& poly, unsigned n) {
  if (poly.terms.empty()) return {nullptr, 0.0, poly.global_phase};
  return {cached_diagonal(poly.terms, n), poly.scale, poly.global_phase};
}

// The run of one-qubit gates at the front of `gates`: its length, non-I gate count, and the
// product matrix of every qubit it touches.
std::size_t one_qubit_run(std::span<const Gate> gates, std::size_t& weight, LayerOp& layer) {
  std::size_t length = 0;
  weight = 0;
  std::vector<QubitMatrix>& out = layer.gates;
  for (; length < gates.size() && gates[length].num_qubits() == 1; ++length) {
    const Gate& g = gates[length];
    if (g.kind() == GateKind::I) continue;
    ++weight;
    auto it = std::find_if(out.begin(), out.end(),
                           [&](const QubitMatrix& m) { return m.qubit == g.qubit(0); });
    if (it == out.end()) {
      out.push_back({g.qubit(0), matrix_of(g)});
    } else {
      it->matrix = then(it->matrix, matrix_of(g));
    }
  }
  std::sort(out.begin(), out.end(),
            [](const QubitMatrix& a, const QubitMatrix& b) { return a.qubit < b.qubit; });
  return length;
}

std::atomic<bool> fusion{true};

}  // namespace

void set_fusion_enabled(bool enabled) { fusion = enabled; }
bool fusion_enabled() { return fusion; }

CompiledProgram compile(std::span<const Gate> gates, unsigned num_qubits) {
  assert(num_qubits <= 64);
  CompiledProgram out{num_qubits, {}};
  std::size_t i = 0;
  while (i < gates.size()) {
    throw_if_interrupted();  // a new diagonal costs a pass or two over 2^n values
    const auto rest = gates.subspan(i);
    const bool fuse = fusion_enabled();
    if (fuse && is_phase_polynomial_kind(rest[0].kind())) {
      DiagonalRun run = longest_diagonal_run(rest, num_qubits, kMaxScan);
      if (run.length > 0 && run.weight >= kMinFused) {
        const PhasePolynomial& poly = run.polynomial;
        if (!poly.terms.empty() || poly.global_phase != 0.0) {
          out.ops.emplace_back(diagonal_op(poly, num_qubits));
        }
        i += run.length;
        continue;
      }
    }
    if (fuse && rest[0].num_qubits() == 1) {
      std::size_t weight = 0;
      LayerOp layer;
      const std::size_t length = one_qubit_run(rest, weight, layer);
      if (weight >= kMinFused) {
        out.ops.emplace_back(std::move(layer));
        i += length;
        continue;
      }
    }
    if (rest[0].kind() != GateKind::I) out.ops.emplace_back(GateOp{rest[0]});
    ++i;
  }
  return out;
}

}  // namespace corvid
