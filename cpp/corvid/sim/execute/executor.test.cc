// The kernels, reached through the executor, against the dense reference.
#include "corvid/sim/execute/executor.h"

#include <gtest/gtest.h>

#include <random>

#include "corvid/testing/dense_reference.h"
#include "corvid/testing/random_circuit.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

constexpr double kTol = 1e-12;

StateVector run(const Circuit& circuit, unsigned num_qubits) {
  StateVector state(num_qubits);
  execute(state, circuit.gates());
  return state;
}

void expect_matches_reference(const Circuit& circuit, unsigned n) {
  const StateVector got = run(circuit, n);
  const reference::Vector want = reference::reference_state(circuit, n);
  for (std::uint64_t i = 0; i < want.size(); ++i) {
    ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0, kTol) << "amplitude " << i << "\n"
                                                       << circuit.to_string();
  }
}

}  // namespace

// Each kind alone, on every ordered pair of qubits, after a random circuit has made every
// amplitude nonzero, so that a kernel touching the wrong index cannot hide behind zeros.
TEST(Executor, EveryKindOnEveryQubitPlacement) {
  const unsigned n = 4;
  std::mt19937_64 rng(7);
  const Circuit prefix = reference::random_circuit(n, 30, rng);
  for (int k = 0; k < kNumGateKinds; ++k) {
    const auto kind = static_cast<GateKind>(k);
    for (std::uint32_t a = 0; a < n; ++a) {
      for (std::uint32_t b = 0; b < n; ++b) {
        if (gate_info(kind).num_qubits == 1 ? b != 0 : a == b) continue;
        Circuit c = prefix;
        c << (gate_info(kind).num_qubits == 1 ? Gate(kind, {a}, 0.9) : Gate(kind, {a, b}, -1.3));
        expect_matches_reference(c, n);
      }
    }
  }
}

// Above the parallel threshold: a random circuit on six qubits spread over a 16-qubit register
// must leave the same amplitudes at the embedded indices, and zero elsewhere.
TEST(Executor, LargeRegisterWithWideStridesMatchesReference) {
  const unsigned small = 6, big = 17;  // at the parallel threshold
  const std::uint32_t place[small] = {15, 3, 9, 0, 12, 7};
  std::mt19937_64 rng(11);
  const Circuit c = reference::random_circuit(small, 60, rng);
  Circuit spread;
  for (const Gate& g : c) {
    const std::uint32_t a = place[g.qubit(0)];
    spread << (g.num_qubits() == 1 ? Gate(g.kind(), {a}, g.angle())
                                   : Gate(g.kind(), {a, place[g.qubit(1)]}, g.angle()));
  }
  ASSERT_TRUE(parallel_worthwhile(std::uint64_t{1} << big));
  const StateVector got = run(spread, big);
  const reference::Vector want = reference::reference_state(c, small);
  std::vector<bool> seen(got.size(), false);
  for (std::uint64_t j = 0; j < want.size(); ++j) {
    std::uint64_t i = 0;
    for (unsigned b = 0; b < small; ++b) i |= ((j >> b) & 1) << place[b];
    seen[i] = true;
    ASSERT_NEAR(std::abs(got[i] - want[j]), 0.0, kTol) << "index " << i;
  }
  for (std::uint64_t i = 0; i < got.size(); ++i) {
    if (!seen[i]) ASSERT_EQ(got[i], Amplitude(0.0)) << "index " << i;
  }
}

}  // namespace corvid
