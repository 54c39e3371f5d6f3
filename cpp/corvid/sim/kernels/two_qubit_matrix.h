#pragma once
/// Two-qubit gates as 4×4 matrices, and a kernel that applies one to a state of either
/// precision. Single-precision states run their unfused two-qubit gates through it.

#include <array>
#include <complex>

#include "corvid/circuit/gate.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

/// Row-major on the local index l = bit of qubits()[0] + 2 · bit of qubits()[1].
using Matrix4 = std::array<Amplitude, 16>;

/// The matrix of a two-qubit gate (gate.num_qubits() == 2; asserted).
Matrix4 matrix4_of(const Gate& gate);

/// Applies `m` to qubits a (low local bit) and b (high local bit) of the 2^num_qubits
/// amplitudes at `amps`; a != b, both < num_qubits (asserted). One parallel pass.
template <class Real>
void apply_matrix4(std::complex<Real>* amps, unsigned num_qubits, unsigned a, unsigned b,
                   const Matrix4& m);

}  // namespace corvid
