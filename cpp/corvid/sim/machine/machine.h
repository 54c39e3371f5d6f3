#pragma once
/// The state-vector machine: allocates qubits and classical bits, runs programs on a backend,
/// and reports exact probabilities or sampled measurement counts.
///
/// Every run starts from |0…0⟩ on all qubits allocated so far; the state is allocated at run
/// time and kept (for inspection and reuse by the next run) until finalize() or destruction.
/// Public calls are serialised by a mutex, so one machine may be shared between threads. A call
/// waiting for the mutex polls throw_if_interrupted(), so the host can stop the wait; hosts with
/// a global lock of their own (Python's) must release it before calling in.

#include <complex>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include "corvid/circuit/program.h"
#include "corvid/circuit/qubit.h"
#include "corvid/sim/machine/backend.h"
#include "corvid/sim/machine/precision.h"
#include "corvid/sim/machine/probabilities.h"
#include "corvid/sim/machine/run_timings.h"
#include "corvid/sim/machine/sampler.h"

namespace corvid {

class Machine {
 public:
  /// A CPU machine. `seed` seeds the sampler; without one it is drawn from std::random_device.
  /// `precision` defaults to default_precision() at construction.
  explicit Machine(std::optional<std::uint64_t> seed = std::nullopt,
                   std::optional<Precision> precision = std::nullopt);
  Machine(std::unique_ptr<Backend> backend, std::optional<std::uint64_t> seed);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  /// The precision of the state (double unless the machine was made for single).
  Precision precision() const;

  /// Unique among all machines of the process, never 0; handles carry it.
  std::uint64_t id() const;

  /// Starts over: drops every allocated qubit and classical bit and the state. When something
  /// was allocated the machine takes a new id, so handles from before are foreign afterwards.
  void init();

  /// Appends `count` qubits to the register and returns their handles (addresses continue after
  /// the ones allocated before). Throws std::invalid_argument for count < 0 and OutOfMemory,
  /// naming the register size, when the whole register's state could not be allocated now.
  std::vector<Qubit> allocate_qubits(std::int64_t count);
  /// Appends `count` classical bits; std::invalid_argument for count < 0.
  std::vector<CBit> allocate_cbits(std::int64_t count);

  unsigned num_qubits() const;
  std::uint32_t num_cbits() const;

  /// Runs `program` (its measurements are ignored: they are terminal and do not change the
  /// outcome distribution) and returns the probabilities of the basis states of `qubits`, entry j
  /// meaning qubits[b] reads bit b of j. select_max = -1 returns all 2^k entries; a positive value
  /// returns only the first min(select_max, 2^k) entries in basis order.
  /// Throws std::invalid_argument for another machine's handle, a repeated qubit or a bad
  /// select_max; std::out_of_range for a qubit that is not allocated; OutOfMemory when the state
  /// or the table does not fit. O(gates · 2^n) time.
  ProbabilityTable probabilities(const Program& program, std::span<const Qubit> qubits,
                                 std::int64_t select_max = -1);

  /// Runs `program` and measures `shots` times. Returns the observed outcomes in ascending
  /// order with their hit counts; bit b of an outcome is the value measured into cbits[b] (a bit
  /// that no measurement writes reads 0; when several measurements write one bit, the last wins).
  /// Throws std::invalid_argument for shots <= 0, a repeated or foreign bit, more than 64 bits;
  /// std::out_of_range for a bit that is not allocated. O(gates · 2^n + shots) time.
  std::vector<OutcomeCount> sample(const Program& program, std::span<const CBit> cbits,
                                   std::int64_t shots);

  /// Number of amplitudes of the state of the last run (2^n).
  std::uint64_t state_size() const;
  /// Copies the final state of the last run (before any measurement) to `out`, which must hold
  /// exactly state_size() amplitudes. Throws std::invalid_argument when nothing has been run
  /// since the last init(), when the sizes differ, or when a single-precision machine turned
  /// the state into its probability table (see precision.h).
  void copy_state(std::span<std::complex<double>> out) const;
  /// The same copy in a new buffer, sized under the same lock as the copy (so a run from another
  /// thread between sizing and copying cannot make the two disagree).
  std::vector<std::complex<double>> state() const;

  /// Seconds spent in the last run per kind of operation (compile, initial state, diagonal
  /// passes, one-qubit layers, plain gates, probabilities); all zero before the first run.
  RunTimings last_run_timings() const;

  /// Releases the machine; any later call other than finalize() throws std::invalid_argument.
  void finalize();
  bool finalized() const;

 private:
  std::unique_lock<std::timed_mutex> lock() const;
  void require_live() const;
  void check_program(const Program& program) const;
  std::vector<unsigned> check_qubits(std::span<const Qubit> qubits) const;
  std::vector<unsigned> check_cbits(std::span<const CBit> cbits) const;
  void run(const Program& program);

  mutable std::timed_mutex mutex_;
  std::unique_ptr<Backend> backend_;
  Precision precision_ = Precision::kDouble;
  std::mt19937_64 rng_;
  std::uint64_t id_;
  unsigned num_qubits_ = 0;
  std::uint32_t num_cbits_ = 0;
  bool has_run_ = false;
  bool finalized_ = false;
};

}  // namespace corvid
