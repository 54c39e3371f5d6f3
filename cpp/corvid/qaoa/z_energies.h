#pragma once
/// Energies of a Hamiltonian that is a weighted sum of Pauli-Z products,
///   E[x] = sum_t coeffs[t] * (-1)^popcount(x & masks[t]),
/// the diagonal <x|H|x>. Bit i of a basis index x is qubit i (qubit 0 least significant); bit i
/// of masks[t] is set when term t has a Z on qubit i. Mask 0 is the constant term; repeated
/// masks add.

#include <cstdint>
#include <span>

#include "corvid/util/aligned_buffer.h"

namespace corvid {

/// E[x] for every x < 2^num_qubits, by a fast Walsh–Hadamard transform of the dense
/// coefficient array. O(terms + n 2^n) time, one 2^n buffer (refused with OutOfMemory before
/// allocating when it cannot fit). Throws std::invalid_argument unless
/// 0 <= num_qubits <= 63, masks and coeffs have equal length and every mask < 2^num_qubits.
AlignedBuffer<double> energies_from_z_terms(int num_qubits, std::span<const std::uint64_t> masks,
                                            std::span<const double> coeffs);

/// E[states[s]] for each s, term by term: O(terms x states), for a few sampled states.
/// Throws std::invalid_argument unless masks and coeffs have equal length.
AlignedBuffer<double> evaluate_z_terms(std::span<const std::uint64_t> masks,
                                       std::span<const double> coeffs,
                                       std::span<const std::uint64_t> states);

}  // namespace corvid
