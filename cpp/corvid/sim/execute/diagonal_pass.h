#pragma once
/// A diagonal operation ready to apply: amp[x] *= exp(i·(global_phase − scale·v(x))), with the
/// phase of every level of v tabulated once, so that a pass does no sin/cos per amplitude (only
/// when v is stored densely). Ranges can be applied separately, so a pass can ride along with
/// another one (the first tile pass of a layer, or the writing of an initial state).
/// Real = double or float: the precision of the state it applies to.

#include <complex>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/kernels/kernel_set.h"

namespace corvid {

template <class Real>
class BasicDiagonalPass {
 public:
  using Value = std::complex<Real>;

  /// Tabulates `op`, which must outlive this object. O(levels).
  explicit BasicDiagonalPass(
      const DiagonalOp& op,
      const std::type_identity_t<BasicKernelSet<Real>>& kernels = active_kernels<Real>());

  /// Applies the diagonal to amplitudes [begin, begin + count) of the state at `amps`; begin
  /// and count multiples of 4 unless the state is smaller. Serial.
  void apply(Value* amps, std::uint64_t begin, std::uint64_t count) const;

  /// The whole state of 2^num_qubits amplitudes, in one parallel pass.
  void apply_all(Value* amps, unsigned num_qubits) const;

 private:
  const DiagonalOp& op_;
  const BasicKernelSet<Real>& kernels_;
  std::vector<Value> table_;
};

using DiagonalPass = BasicDiagonalPass<double>;
using DiagonalPass32 = BasicDiagonalPass<float>;

extern template class BasicDiagonalPass<double>;
extern template class BasicDiagonalPass<float>;

}  // namespace corvid
