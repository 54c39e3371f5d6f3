#include "corvid/sim/kernels/two_qubit_matrix.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "corvid/circuit/gate_definitions.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

inline Index insert_zero(Index i, unsigned q) {
  const Index low = i & ((Index{1} << q) - 1);
  return ((i ^ low) << 1) | low;
}

// a·b without the NaN-recovering library call of std::complex multiplication.
template <class V>
V mul(V a, V b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

}  // namespace

Matrix4 matrix4_of(const Gate& gate) {
  assert(gate.num_qubits() == 2);
  Matrix4 m;
  std::copy_n(gate_matrix(gate).entries.begin(), 16, m.begin());
  return m;
}

// Where the matrix is a permutation of unit entries (CNOT, SWAP) or diagonal (CZ, RZZ), the
// pass moves or scales amplitudes instead of a full 4×4 product.
template <class Real>
void apply_matrix4(std::complex<Real>* amps, unsigned num_qubits, unsigned a, unsigned b,
                   const Matrix4& md) {
  using V = std::complex<Real>;
  assert(a != b && a < num_qubits && b < num_qubits);
  std::array<V, 16> m;
  for (int k = 0; k < 16; ++k) m[k] = V(md[k]);
  bool diagonal = true, permutation = true;
  std::array<int, 4> from{};
  for (int r = 0; r < 4; ++r) {
    int ones = 0;
    for (int col = 0; col < 4; ++col) {
      const Amplitude v = md[r * 4 + col];
      if (col != r && v != 0.0) diagonal = false;
      if (v == 1.0) {
        from[r] = col;
        ++ones;
      } else if (v != 0.0) {
        permutation = false;
      }
    }
    if (ones != 1) permutation = false;
  }
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
      if (permutation) {
        amps[idx[r]] = in[from[r]];
      } else if (diagonal) {
        amps[idx[r]] = mul(m[r * 5], in[r]);
      } else {
        V sum = 0;
        for (int col = 0; col < 4; ++col) sum += mul(m[r * 4 + col], in[col]);
        amps[idx[r]] = sum;
      }
    }
  }
}

template void apply_matrix4<double>(Amplitude*, unsigned, unsigned, unsigned, const Matrix4&);
template void apply_matrix4<float>(Amplitude32*, unsigned, unsigned, unsigned, const Matrix4&);

}  // namespace corvid
