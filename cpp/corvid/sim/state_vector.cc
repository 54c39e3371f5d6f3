#include "corvid/sim/state_vector.h"

#include <cstdint>
#include <string>

#include "corvid/util/errors.h"
#include "corvid/util/memory.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

std::string describe(std::uint64_t num_qubits) {
  return "state vector of " + std::to_string(num_qubits) + " qubits";
}

}  // namespace

std::size_t state_vector_bytes(std::uint64_t num_qubits) noexcept {
  constexpr std::uint64_t kBytesLog2 = 4;  // sizeof(Amplitude) == 16
  if (num_qubits + kBytesLog2 >= 64) return SIZE_MAX;
  return std::size_t{1} << (num_qubits + kBytesLog2);
}

void require_state_memory(std::uint64_t num_qubits) {
  const std::size_t bytes = state_vector_bytes(num_qubits);
  if (bytes == SIZE_MAX) {
    // Checked apart from require_memory: with no readable limit it would let this through.
    throw OutOfMemory(describe(num_qubits) + " needs 2^" + std::to_string(num_qubits + 4) +
                      " bytes, more than any machine has");
  }
  require_memory(bytes, describe(num_qubits));
}

StateVector::StateVector(unsigned num_qubits) : StateVector(uninitialized(num_qubits)) { reset(); }

StateVector StateVector::uninitialized(unsigned num_qubits) {
  require_state_memory(num_qubits);
  StateVector state;
  state.num_qubits_ = num_qubits;
  state.amplitudes_ = PooledBuffer<Amplitude>(std::size_t{1} << num_qubits, describe(num_qubits));
  return state;
}

void StateVector::reset() {
  Amplitude* a = amplitudes_.data();
  const auto n = static_cast<std::int64_t>(amplitudes_.size());
#pragma omp parallel for schedule(static) if (parallel_worthwhile(amplitudes_.size()))
  for (std::int64_t i = 0; i < n; ++i) a[i] = Amplitude(0.0, 0.0);
  if (n > 0) a[0] = Amplitude(1.0, 0.0);
}

}  // namespace corvid
