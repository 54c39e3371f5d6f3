#pragma once
/// Scalar reference kernels of the state-vector machine. Each applies one gate shape in place to
/// `amps`, the 2^num_qubits amplitudes of a state (bit q of an index is qubit q).
///
/// Contract shared by all kernels: qubit arguments are < num_qubits and, for two-qubit kernels,
/// distinct (asserted, not validated: callers validate once at the public entry point). Each
/// kernel is one pass over the state, O(2^n) time and O(1) extra memory, and uses the OpenMP
/// team above kParallelThreshold amplitudes. These are the plain, obviously correct versions
/// that faster variants are tested against.

#include "corvid/sim/machine/state_vector.h"

namespace corvid::kernels {

/// Hadamard: (a0, a1) -> ((a0 + a1)/√2, (a0 − a1)/√2).
void apply_h(Amplitude* amps, unsigned num_qubits, unsigned q);
/// Pauli X: swaps the halves of every pair.
void apply_x(Amplitude* amps, unsigned num_qubits, unsigned q);
/// Pauli Y: (a0, a1) -> (−i·a1, i·a0).
void apply_y(Amplitude* amps, unsigned num_qubits, unsigned q);
/// diag(d0, d1) on qubit q (Z, S, T, RZ, P).
void apply_diagonal1(Amplitude* amps, unsigned num_qubits, unsigned q, Amplitude d0, Amplitude d1);
/// exp(−iφX/2) = [[c, −is], [−is, c]] and exp(−iφY/2) = [[c, −s], [s, c]], c = cos(φ/2),
/// s = sin(φ/2).
void apply_rx(Amplitude* amps, unsigned num_qubits, unsigned q, double angle);
void apply_ry(Amplitude* amps, unsigned num_qubits, unsigned q, double angle);

/// Flips `target` where `control` is 1.
void apply_cnot(Amplitude* amps, unsigned num_qubits, unsigned control, unsigned target);
/// Negates the amplitudes where both qubits are 1.
void apply_cz(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b);
/// Exchanges the values of qubits a and b.
void apply_swap(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b);
/// exp(−iφ X⊗X/2), exp(−iφ Y⊗Y/2), exp(−iφ Z⊗Z/2) on qubits a and b.
void apply_rxx(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b, double angle);
void apply_ryy(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b, double angle);
void apply_rzz(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b, double angle);

}  // namespace corvid::kernels
