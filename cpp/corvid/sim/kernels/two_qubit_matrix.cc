#include "corvid/sim/kernels/two_qubit_matrix.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

inline Index insert_zero(Index i, unsigned q) {
  const Index low = i & ((Index{1} << q) - 1);
  return ((i ^ low) << 1) | low;
}

}  // namespace

Matrix4 matrix4_of(const Gate& gate) {
  assert(gate.num_qubits() == 2);
  const double c = std::cos(gate.angle() / 2), s = std::sin(gate.angle() / 2);
  const Amplitude is(0, s), e(c, -s), o(c, s);
  Matrix4 m{};
  auto set = [&](int r, int col, Amplitude v) { m[r * 4 + col] = v; };
  switch (gate.kind()) {
    case GateKind::CNOT:  // control = local bit 0: flips local bit 1 where bit 0 is set
      set(0, 0, 1); set(2, 2, 1); set(1, 3, 1); set(3, 1, 1); break;
    case GateKind::CZ: set(0, 0, 1); set(1, 1, 1); set(2, 2, 1); set(3, 3, -1); break;
    case GateKind::SWAP: set(0, 0, 1); set(1, 2, 1); set(2, 1, 1); set(3, 3, 1); break;
    case GateKind::RXX:  // c·I − i·s·X⊗X
      for (int l = 0; l < 4; ++l) { set(l, l, c); set(l, 3 - l, -is); }
      break;
    case GateKind::RYY:  // Y⊗Y: |00⟩↔−|11⟩, |01⟩↔|10⟩
      for (int l = 0; l < 4; ++l) set(l, l, c);
      set(0, 3, is); set(3, 0, is); set(1, 2, -is); set(2, 1, -is);
      break;
    case GateKind::RZZ: set(0, 0, e); set(1, 1, o); set(2, 2, o); set(3, 3, e); break;
    default: assert(false && "not a two-qubit gate");
  }
  return m;
}

template <class Real>
void apply_matrix4(std::complex<Real>* amps, unsigned num_qubits, unsigned a, unsigned b,
                   const Matrix4& md) {
  using V = std::complex<Real>;
  assert(a != b && a < num_qubits && b < num_qubits);
  std::array<V, 16> m;
  for (int k = 0; k < 16; ++k) m[k] = V(md[k]);
  const Index dim = Index{1} << num_qubits;
  const auto [lo, hi] = std::minmax(a, b);
  const Index bit_a = Index{1} << a, bit_b = Index{1} << b;
  const auto count = static_cast<std::int64_t>(dim / 4);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(dim))
  for (std::int64_t k = 0; k < count; ++k) {
    const Index i0 = insert_zero(insert_zero(static_cast<Index>(k), lo), hi);
    const Index idx[4] = {i0, i0 | bit_a, i0 | bit_b, i0 | bit_a | bit_b};
    const V in[4] = {amps[idx[0]], amps[idx[1]], amps[idx[2]], amps[idx[3]]};
    for (int r = 0; r < 4; ++r) {
      V sum = 0;
      for (int col = 0; col < 4; ++col) sum += m[r * 4 + col] * in[col];
      amps[idx[r]] = sum;
    }
  }
}

template void apply_matrix4<double>(Amplitude*, unsigned, unsigned, unsigned, const Matrix4&);
template void apply_matrix4<float>(Amplitude32*, unsigned, unsigned, unsigned, const Matrix4&);

}  // namespace corvid
