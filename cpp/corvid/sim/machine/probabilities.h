#pragma once
/// Exact outcome probabilities of a state vector, over all of its qubits or a subset.

#include <cstdint>
#include <span>

#include "corvid/sim/machine/buffer_pool.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

/// Probabilities of the basis states of `num_qubits` listed qubits: entry j is the probability
/// that listed qubit b reads bit b of j (the first listed qubit is bit 0, printed right-most).
/// It may hold only the first entries of the full 2^num_qubits table (see Machine::probabilities).
struct ProbabilityTable {
  unsigned num_qubits = 0;
  PooledBuffer<double> values;  ///< returns to the buffer pool when the table goes
};

/// The marginal distribution of `qubits` (distinct, each < state.num_qubits(); asserted) in the
/// order given. One pass over the state, O(2^n + 2^k · threads) time; the table of 2^k entries
/// is refused with OutOfMemory before allocating when it does not fit.
template <class Real>
ProbabilityTable marginal_probabilities(const BasicStateVector<Real>& state,
                                        std::span<const unsigned> qubits);

/// The table of all qubits in order, written over a single-precision state's own buffer (one
/// float64 probability per 8-byte amplitude, so no second 2^n buffer is needed); the state is
/// consumed. One parallel pass.
ProbabilityTable probabilities_in_place(StateVector32&& state);

}  // namespace corvid
