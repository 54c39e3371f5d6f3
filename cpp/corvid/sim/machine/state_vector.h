#pragma once
/// The state of an n-qubit register: 2^n complex amplitudes in one 64-byte aligned buffer, in
/// double (StateVector) or single precision (StateVector32). Amplitude i belongs to the basis
/// state whose bit q is the value of qubit q.

#include <complex>
#include <cstddef>
#include <cstdint>

#include "corvid/sim/machine/buffer_pool.h"

namespace corvid {

using Amplitude = std::complex<double>;
using Amplitude32 = std::complex<float>;

/// Bytes a state of `num_qubits` qubits needs at `amplitude_bytes` per amplitude (16 for
/// double, 8 for single precision), saturating at SIZE_MAX.
std::size_t state_vector_bytes(std::uint64_t num_qubits, std::size_t amplitude_bytes = 16) noexcept;

/// Throws OutOfMemory naming the register size when a state of `num_qubits` qubits cannot be
/// allocated (a free pooled block of its size counts as available); allocates nothing.
void require_state_memory(std::uint64_t num_qubits, std::size_t amplitude_bytes = 16);

template <class Real>
class BasicStateVector {
 public:
  using Value = std::complex<Real>;

  BasicStateVector() = default;
  /// Allocates 2^num_qubits amplitudes (refused with OutOfMemory before allocating when they do
  /// not fit) and sets |0…0⟩. The buffer is first written by the threads that later work on it.
  explicit BasicStateVector(unsigned num_qubits);
  /// Allocates like the above but leaves the amplitudes unwritten, for a caller that writes
  /// every one of them next (first touch by the threads that keep working on them).
  static BasicStateVector uninitialized(unsigned num_qubits);

  /// Sets |0…0⟩ again without reallocating. O(2^n), parallel.
  void reset();

  unsigned num_qubits() const noexcept { return num_qubits_; }
  std::uint64_t size() const noexcept { return amplitudes_.size(); }
  Value* data() noexcept { return amplitudes_.data(); }
  const Value* data() const noexcept { return amplitudes_.data(); }
  Value& operator[](std::uint64_t i) noexcept { return amplitudes_[i]; }
  const Value& operator[](std::uint64_t i) const noexcept { return amplitudes_[i]; }
  /// Gives up the buffer (the state becomes empty), e.g. to reuse it for a table in place.
  PooledBuffer<Value> release_buffer() noexcept;

 private:
  unsigned num_qubits_ = 0;
  PooledBuffer<Value> amplitudes_;
};

using StateVector = BasicStateVector<double>;
using StateVector32 = BasicStateVector<float>;

extern template class BasicStateVector<double>;
extern template class BasicStateVector<float>;

}  // namespace corvid
