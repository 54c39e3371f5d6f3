#pragma once
/// The state of an n-qubit register: 2^n complex amplitudes in one 64-byte aligned buffer.
/// Amplitude i belongs to the basis state whose bit q is the value of qubit q.

#include <complex>
#include <cstddef>
#include <cstdint>

#include "corvid/sim/buffer_pool.h"

namespace corvid {

using Amplitude = std::complex<double>;

/// Bytes a state of `num_qubits` qubits needs, saturating at SIZE_MAX.
std::size_t state_vector_bytes(std::uint64_t num_qubits) noexcept;

/// Throws OutOfMemory naming the register size when a state of `num_qubits` qubits cannot be
/// allocated; allocates nothing.
void require_state_memory(std::uint64_t num_qubits);

class StateVector {
 public:
  StateVector() = default;
  /// Allocates 2^num_qubits amplitudes (refused with OutOfMemory before allocating when they do
  /// not fit) and sets |0…0⟩. The buffer is first written by the threads that later work on it.
  explicit StateVector(unsigned num_qubits);
  /// Allocates like the above but leaves the amplitudes unwritten, for a caller that writes
  /// every one of them next (first touch by the threads that keep working on them).
  static StateVector uninitialized(unsigned num_qubits);

  /// Sets |0…0⟩ again without reallocating. O(2^n), parallel.
  void reset();

  unsigned num_qubits() const noexcept { return num_qubits_; }
  std::uint64_t size() const noexcept { return amplitudes_.size(); }
  Amplitude* data() noexcept { return amplitudes_.data(); }
  const Amplitude* data() const noexcept { return amplitudes_.data(); }
  Amplitude& operator[](std::uint64_t i) noexcept { return amplitudes_[i]; }
  const Amplitude& operator[](std::uint64_t i) const noexcept { return amplitudes_[i]; }

 private:
  unsigned num_qubits_ = 0;
  PooledBuffer<Amplitude> amplitudes_;
};

}  // namespace corvid
