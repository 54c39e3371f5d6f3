#pragma once
/// The interface between the machine and the device that holds the state. The machine validates
/// programs and owns allocation bookkeeping and sampling; a backend only evolves one register and
/// reports on it. The CPU backend is the first implementation; others sit behind the same calls
/// and are held to the same tests.

#include <complex>
#include <cstdint>
#include <span>
#include <string_view>

#include "corvid/circuit/gate.h"
#include "corvid/sim/machine/probabilities.h"
#include "corvid/sim/machine/run_timings.h"

namespace corvid {

class Backend {
 public:
  virtual ~Backend() = default;

  /// Human-readable name, e.g. "cpu".
  virtual std::string_view name() const = 0;

  /// Prepares |0…0⟩ on `num_qubits` qubits, reusing the current storage when the size matches.
  /// Throws OutOfMemory (before allocating) when the register does not fit.
  virtual void reset(unsigned num_qubits) = 0;

  /// Applies `gates` in order to the prepared state. Qubits are < num_qubits (validated by the
  /// caller).
  virtual void run(std::span<const Gate> gates) = 0;

  /// Marginal probabilities of `qubits` (distinct, < num_qubits) of the current state. A
  /// backend may consume the state to build the table (see precision.h).
  virtual ProbabilityTable probabilities(std::span<const unsigned> qubits) = 0;

  /// Number of qubits of the prepared state (0 before the first reset).
  virtual unsigned num_qubits() const = 0;

  /// Copies the 2^num_qubits amplitudes of the current state to `out` (host memory).
  /// Throws std::invalid_argument when the state was consumed by probabilities().
  virtual void copy_state(std::complex<double>* out) const = 0;

  /// Time spent per kind of operation by the last reset, run and probabilities calls.
  virtual RunTimings last_run_timings() const = 0;

  /// Frees the state.
  virtual void release() = 0;
};

}  // namespace corvid
