#pragma once
/// A naive dense simulator, the oracle of the kernel and machine tests. Every gate's matrix
/// (from circuit/gate_definitions.h, whose rows dense_reference.test.cc checks against states
/// worked out by hand) is expanded to the full 2^n × 2^n operator and applied by a full
/// matrix-vector product: O(4^n) per gate, for registers of a few qubits only. It shares no
/// code with the kernels.

#include <complex>
#include <cstdint>
#include <span>
#include <vector>

#include "corvid/circuit/circuit.h"

namespace corvid::reference {

using Complex = std::complex<double>;
using Vector = std::vector<Complex>;
/// Row-major square matrix.
using Matrix = std::vector<Complex>;

/// The gate's own matrix in row-major order: 2x2 on (|0⟩, |1⟩) for one qubit; 4x4 for two,
/// where local index l = bit of qubits()[0] + 2 · bit of qubits()[1].
Matrix gate_matrix(const Gate& gate);

/// The gate as an operator on `num_qubits` qubits (2^n × 2^n, row-major).
Matrix full_matrix(const Gate& gate, unsigned num_qubits);

/// |0…0⟩ on `num_qubits` qubits evolved by `circuit`.
Vector reference_state(const Circuit& circuit, unsigned num_qubits);

/// Marginal probabilities of `qubits` (entry j: qubits[b] reads bit b of j) by summing |a_i|^2
/// over all i.
std::vector<double> reference_probabilities(const Vector& state, std::span<const unsigned> qubits);

}  // namespace corvid::reference
