#include "corvid/sim/kernels/kernels.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <utility>

#include "corvid/util/parallel.h"

namespace corvid::kernels {
namespace {

using Index = std::uint64_t;

// Written out so the compiler does not route through the NaN-recovering libgcc routine that
// std::complex multiplication calls by default.
inline Amplitude mul(Amplitude a, Amplitude b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

// -i * s * a
inline Amplitude mul_minus_i(double s, Amplitude a) { return {s * a.imag(), -s * a.real()}; }

// Inserts a zero bit at position q: the k-th index whose bit q is 0.
inline Index insert_zero(Index i, unsigned q) {
  const Index low = i & ((Index{1} << q) - 1);
  return ((i ^ low) << 1) | low;
}

template <class Body>
void parallel_for(Index count, Index work, Body body) {
  const auto n = static_cast<std::int64_t>(count);
#pragma omp parallel for schedule(static) if (parallel_worthwhile(work))
  for (std::int64_t k = 0; k < n; ++k) body(static_cast<Index>(k));
}

// Calls body(i0, i1) for every pair of indices that differ only in bit q (i0 has it clear).
template <class Body>
void for_each_pair(unsigned num_qubits, unsigned q, Body body) {
  assert(q < num_qubits);
  const Index dim = Index{1} << num_qubits;
  const Index bit = Index{1} << q;
  parallel_for(dim / 2, dim, [&](Index k) {
    const Index i0 = insert_zero(k, q);
    body(i0, i0 | bit);
  });
}

// Calls body(i00, ia, ib, iab) for every group of four indices that differ only in bits a and b;
// ia has bit a set, ib bit b, iab both.
template <class Body>
void for_each_quad(unsigned num_qubits, unsigned a, unsigned b, Body body) {
  assert(a < num_qubits && b < num_qubits && a != b);
  const Index dim = Index{1} << num_qubits;
  const Index bit_a = Index{1} << a;
  const Index bit_b = Index{1} << b;
  const auto [lo, hi] = std::minmax(a, b);
  parallel_for(dim / 4, dim, [&](Index k) {
    const Index i00 = insert_zero(insert_zero(k, lo), hi);
    body(i00, i00 | bit_a, i00 | bit_b, i00 | bit_a | bit_b);
  });
}

}  // namespace

void apply_h(Amplitude* amps, unsigned num_qubits, unsigned q) {
  const double r = std::sqrt(0.5);
  for_each_pair(num_qubits, q, [&](Index i0, Index i1) {
    const Amplitude a0 = amps[i0];
    const Amplitude a1 = amps[i1];
    amps[i0] = r * (a0 + a1);
    amps[i1] = r * (a0 - a1);
  });
}

void apply_x(Amplitude* amps, unsigned num_qubits, unsigned q) {
  for_each_pair(num_qubits, q, [&](Index i0, Index i1) { std::swap(amps[i0], amps[i1]); });
}

void apply_y(Amplitude* amps, unsigned num_qubits, unsigned q) {
  for_each_pair(num_qubits, q, [&](Index i0, Index i1) {
    const Amplitude a0 = amps[i0];
    amps[i0] = mul_minus_i(1.0, amps[i1]);
    amps[i1] = mul_minus_i(-1.0, a0);
  });
}

void apply_diagonal1(Amplitude* amps, unsigned num_qubits, unsigned q, Amplitude d0, Amplitude d1) {
  for_each_pair(num_qubits, q, [&](Index i0, Index i1) {
    amps[i0] = mul(d0, amps[i0]);
    amps[i1] = mul(d1, amps[i1]);
  });
}

void apply_rx(Amplitude* amps, unsigned num_qubits, unsigned q, double angle) {
  const double c = std::cos(angle / 2);
  const double s = std::sin(angle / 2);
  for_each_pair(num_qubits, q, [&](Index i0, Index i1) {
    const Amplitude a0 = amps[i0];
    const Amplitude a1 = amps[i1];
    amps[i0] = c * a0 + mul_minus_i(s, a1);
    amps[i1] = c * a1 + mul_minus_i(s, a0);
  });
}

void apply_ry(Amplitude* amps, unsigned num_qubits, unsigned q, double angle) {
  const double c = std::cos(angle / 2);
  const double s = std::sin(angle / 2);
  for_each_pair(num_qubits, q, [&](Index i0, Index i1) {
    const Amplitude a0 = amps[i0];
    const Amplitude a1 = amps[i1];
    amps[i0] = c * a0 - s * a1;
    amps[i1] = s * a0 + c * a1;
  });
}

void apply_cnot(Amplitude* amps, unsigned num_qubits, unsigned control, unsigned target) {
  for_each_quad(num_qubits, control, target,
                [&](Index, Index ic, Index, Index ict) { std::swap(amps[ic], amps[ict]); });
}

void apply_cz(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b) {
  for_each_quad(num_qubits, a, b, [&](Index, Index, Index, Index iab) { amps[iab] = -amps[iab]; });
}

void apply_swap(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b) {
  for_each_quad(num_qubits, a, b,
                [&](Index, Index ia, Index ib, Index) { std::swap(amps[ia], amps[ib]); });
}

void apply_rxx(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b, double angle) {
  const double c = std::cos(angle / 2);
  const double s = std::sin(angle / 2);
  // cos·I − i·sin·X⊗X: X⊗X exchanges |00⟩↔|11⟩ and |01⟩↔|10⟩.
  auto mix = [&](Amplitude& u, Amplitude& v) {
    const Amplitude u0 = u;
    u = c * u + mul_minus_i(s, v);
    v = c * v + mul_minus_i(s, u0);
  };
  for_each_quad(num_qubits, a, b, [&](Index i00, Index ia, Index ib, Index iab) {
    mix(amps[i00], amps[iab]);
    mix(amps[ia], amps[ib]);
  });
}

void apply_ryy(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b, double angle) {
  const double c = std::cos(angle / 2);
  const double s = std::sin(angle / 2);
  // Y⊗Y maps |00⟩→−|11⟩, |11⟩→−|00⟩, |01⟩→|10⟩, |10⟩→|01⟩, so the sign of the sine term
  // flips on the |00⟩,|11⟩ pair.
  auto mix = [&](Amplitude& u, Amplitude& v, double sine) {
    const Amplitude u0 = u;
    u = c * u + mul_minus_i(sine, v);
    v = c * v + mul_minus_i(sine, u0);
  };
  for_each_quad(num_qubits, a, b, [&](Index i00, Index ia, Index ib, Index iab) {
    mix(amps[i00], amps[iab], -s);
    mix(amps[ia], amps[ib], s);
  });
}

void apply_rzz(Amplitude* amps, unsigned num_qubits, unsigned a, unsigned b, double angle) {
  const Amplitude even = std::polar(1.0, -angle / 2);  // qubits agree: Z⊗Z = +1
  const Amplitude odd = std::polar(1.0, angle / 2);
  for_each_quad(num_qubits, a, b, [&](Index i00, Index ia, Index ib, Index iab) {
    amps[i00] = mul(even, amps[i00]);
    amps[iab] = mul(even, amps[iab]);
    amps[ia] = mul(odd, amps[ia]);
    amps[ib] = mul(odd, amps[ib]);
  });
}

}  // namespace corvid::kernels
