#pragma once
/// A diagonal operation ready to apply: amp[x] *= exp(i·(global_phase − scale·v(x))), with the
/// phase of every level of v tabulated once, so that a pass does no sin/cos per amplitude (only
/// when v is stored densely). Ranges can be applied separately, so a pass can ride along with
/// another one (the first tile pass of a layer, or the writing of an initial state).

#include <cstdint>
#include <vector>

#include "corvid/sim/compiler.h"
#include "corvid/sim/kernel_set.h"

namespace corvid {

class DiagonalPass {
 public:
  /// Tabulates `op`, which must outlive this object. O(levels).
  explicit DiagonalPass(const DiagonalOp& op, const KernelSet& kernels = active_kernel_set());

  /// Applies the diagonal to amplitudes [begin, begin + count) of the state at `amps`; begin
  /// and count even unless the state has one amplitude. Serial.
  void apply(Amplitude* amps, std::uint64_t begin, std::uint64_t count) const;

  /// The whole state of 2^num_qubits amplitudes, in one parallel pass.
  void apply_all(Amplitude* amps, unsigned num_qubits) const;

 private:
  const DiagonalOp& op_;
  const KernelSet& kernels_;
  std::vector<Amplitude> table_;
};

}  // namespace corvid
