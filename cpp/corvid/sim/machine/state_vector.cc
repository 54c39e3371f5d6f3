#include "corvid/sim/machine/state_vector.h"

#include <bit>
#include <cstdint>
#include <string>

#include "corvid/util/errors.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

std::string describe(std::uint64_t num_qubits, std::size_t amplitude_bytes) {
  return std::string(amplitude_bytes == 8 ? "single-precision " : "") + "state vector of " +
         std::to_string(num_qubits) + " qubits";
}

}  // namespace

std::size_t state_vector_bytes(std::uint64_t num_qubits, std::size_t amplitude_bytes) noexcept {
  const auto log2 = static_cast<std::uint64_t>(std::countr_zero(amplitude_bytes));
  if (num_qubits + log2 >= 64) return SIZE_MAX;
  return std::size_t{1} << (num_qubits + log2);
}

void require_state_memory(std::uint64_t num_qubits, std::size_t amplitude_bytes) {
  const std::size_t bytes = state_vector_bytes(num_qubits, amplitude_bytes);
  if (bytes == SIZE_MAX) {
    // Checked apart from require_block: with no readable limit it would let this through.
    throw OutOfMemory(describe(num_qubits, amplitude_bytes) + " needs 2^" +
                      std::to_string(num_qubits + std::countr_zero(amplitude_bytes)) +
                      " bytes, more than any machine has");
  }
  require_block(bytes, describe(num_qubits, amplitude_bytes));  // a pooled block counts
}

template <class Real>
BasicStateVector<Real>::BasicStateVector(unsigned num_qubits)
    : BasicStateVector(uninitialized(num_qubits)) {
  reset();
}

template <class Real>
BasicStateVector<Real> BasicStateVector<Real>::uninitialized(unsigned num_qubits) {
  require_state_memory(num_qubits, sizeof(Value));
  BasicStateVector state;
  state.num_qubits_ = num_qubits;
  state.amplitudes_ =
      PooledBuffer<Value>(std::size_t{1} << num_qubits, describe(num_qubits, sizeof(Value)));
  return state;
}

template <class Real>
void BasicStateVector<Real>::reset() {
  Value* a = amplitudes_.data();
  const auto n = static_cast<std::int64_t>(amplitudes_.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(amplitudes_.size()))
  for (std::int64_t i = 0; i < n; ++i) a[i] = Value(0, 0);
  if (n > 0) a[0] = Value(1, 0);
}

template <class Real>
PooledBuffer<std::complex<Real>> BasicStateVector<Real>::release_buffer() noexcept {
  num_qubits_ = 0;
  return std::move(amplitudes_);
}

template class BasicStateVector<double>;
template class BasicStateVector<float>;

}  // namespace corvid
