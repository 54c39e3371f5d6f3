#include "corvid/testing/random_circuit.h"

#include <algorithm>
#include <numbers>
#include <vector>

namespace corvid::reference {

Circuit random_circuit(unsigned num_qubits, unsigned num_gates, std::mt19937_64& rng) {
  std::uniform_int_distribution<int> any_kind(0, kNumGateKinds - 1);
  std::uniform_int_distribution<std::uint32_t> any_qubit(0, num_qubits - 1);
  std::uniform_real_distribution<double> any_angle(-2 * std::numbers::pi, 2 * std::numbers::pi);

  std::vector<int> kinds(kNumGateKinds);
  for (int k = 0; k < kNumGateKinds; ++k) kinds[k] = k;
  while (kinds.size() < num_gates) kinds.push_back(any_kind(rng));
  std::shuffle(kinds.begin(), kinds.end(), rng);

  Circuit circuit;
  for (int k : kinds) {
    const auto kind = static_cast<GateKind>(k);
    const std::uint32_t a = any_qubit(rng);
    std::uint32_t b = any_qubit(rng);
    while (b == a) b = any_qubit(rng);
    if (gate_info(kind).num_qubits == 1) {
      circuit << Gate(kind, {a}, any_angle(rng));
    } else {
      circuit << Gate(kind, {a, b}, any_angle(rng));
    }
  }
  return circuit;
}

}  // namespace corvid::reference
