#pragma once
/// Random circuits for tests: every gate kind at least once, random distinct qubits, angles in
/// [−2π, 2π].

#include <random>

#include "corvid/circuit/circuit.h"

namespace corvid::reference {

/// A circuit on `num_qubits` (>= 2) qubits with max(num_gates, kNumGateKinds) gates in random
/// order, each kind occurring at least once.
Circuit random_circuit(unsigned num_qubits, unsigned num_gates, std::mt19937_64& rng);

}  // namespace corvid::reference
