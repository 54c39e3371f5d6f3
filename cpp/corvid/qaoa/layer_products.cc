// The gradient's inner products, Σ Im(conj(λ)·H·φ) over ranges of two states: portable and AVX2
// kernels, and the watchers that take them inside a layer's passes.
#include "corvid/qaoa/layer_products.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <stdexcept>
#include <type_traits>

#include <immintrin.h>
#include <omp.h>

#include "corvid/qaoa/adjoint.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;
using Amp = std::complex<double>;

// Work unit of the read pass over both states: 2^12 amplitudes.
constexpr unsigned kChunkBits = 12;

// Σ range(begin, count) over a state of 2^n amplitudes in chunks, in one parallel pass.
template <class Range>
double chunked_sum(unsigned n, const Range& range) {
  const Index size = Index{1} << n;
  const Index chunk = std::min(size, Index{1} << kChunkBits);
  const auto chunks = static_cast<std::int64_t>(size / chunk);
  double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(size))
  for (std::int64_t c = 0; c < chunks; ++c) sum += range(static_cast<Index>(c) * chunk, chunk);
  return sum;
}

// Im(conj(a)·b).
inline double im_dot(Amp a, Amp b) { return a.real() * b.imag() - a.imag() * b.real(); }

// Inserts a zero at bit `bit` of t.
inline Index insert_zero(Index t, unsigned bit) {
  const Index low = t & ((Index{1} << bit) - 1);
  return ((t >> bit) << (bit + 1)) | low;
}

// The inner products of the gradient, Σ Im(conj(λ)·H·φ) over ranges of the two states, for H
// the phase diagonal or X on one qubit. Portable here; AVX2 below.
// D(x) from the diagonal's storage: a level table and an index per state, or the values.
template <class T>
inline double level(const T* index, const double* table, Index i) {
  if constexpr (std::is_same_v<T, double>) {
    return index[i];
  } else {
    return table[index[i]];
  }
}

// Σ Im(conj(λ)·X_j·φ) over the pairs of rows whose numbers differ in bit j, by `cross`.
template <class Cross>
double row_bit(Cross cross, const Amp* const* lam, const Amp* const* phi, unsigned row_bits,
               unsigned j, Index length) {
  const Index bit = Index{1} << j;
  double z = 0.0;
  for (Index r = 0; r < (Index{1} << row_bits); ++r) {
    if ((r & bit) == 0) z += cross(lam[r], phi[r | bit], lam[r | bit], phi[r], length);
  }
  return z;
}

namespace portable {

// Σ_j Im(conj(a_j)·b_j) + Im(conj(c_j)·d_j) over j < count (complex values as pairs of
// doubles). Eight independent sums over the doubles, so that the additions overlap instead of
// waiting for each other and the loop vectorises: five times faster than one sum per term.
double cross(const Amp* ac, const Amp* bc, const Amp* cc, const Amp* dc, Index count) {
  const auto* a = reinterpret_cast<const double*>(ac);
  const auto* b = reinterpret_cast<const double*>(bc);
  const auto* c = reinterpret_cast<const double*>(cc);
  const auto* d = reinterpret_cast<const double*>(dc);
  double acc[8] = {};
  const Index m = 2 * count;
  Index k = 0;
  for (; k + 8 <= m; k += 8) {
    for (unsigned u = 0; u < 8; u += 2) {
      acc[u] += a[k + u] * b[k + u + 1] + c[k + u] * d[k + u + 1];
      acc[u + 1] += a[k + u + 1] * b[k + u] + c[k + u + 1] * d[k + u];
    }
  }
  double s = (acc[0] - acc[1]) + (acc[2] - acc[3]) + ((acc[4] - acc[5]) + (acc[6] - acc[7]));
  for (; k < m; k += 2) s += a[k] * b[k + 1] - a[k + 1] * b[k] + c[k] * d[k + 1] - c[k + 1] * d[k];
  return s;
}

// Σ Im(conj(λ)·X_q·φ) over the pairs (x, x + 2^q) inside [0, count), count a multiple of
// 2^(q+1).
double pairs(const Amp* lam, const Amp* phi, Index count, unsigned q) {
  const Index step = Index{1} << q;
  double z = 0.0;
  for (Index base = 0; base < count; base += 2 * step)
    z += cross(lam + base, phi + base + step, lam + base + step, phi + base, step);
  return z;
}

// Σ_q of the same over `qubits`.
double range(const Amp* lam, const Amp* phi, Index count, std::span<const unsigned> qubits) {
  double z = 0.0;
  for (unsigned q : qubits) z += pairs(lam, phi, count, q);
  return z;
}

// Σ_j Σ Im(conj(λ)·X_j·φ) over 2^row_bits rows of `length` amplitudes, X_j exchanging the rows
// whose numbers differ in bit j.
double rows(const Amp* const* lam, const Amp* const* phi, unsigned row_bits, Index length) {
  double z = 0.0;
  for (unsigned j = 0; j < row_bits; ++j) z += row_bit(cross, lam, phi, row_bits, j, length);
  return z;
}

// Σ d(x)·Im(conj(λ_x)·φ_x) over [0, count), d(x) = table[index[x]] (or index[x] itself).
template <class T>
double weighted(const T* index, const double* table, const Amp* lam, const Amp* phi, Index count) {
  double s0 = 0.0, s1 = 0.0;
  const auto d = [&](Index i) { return level(index, table, i); };
  Index i = 0;
  for (; i + 2 <= count; i += 2) {
    s0 += d(i) * im_dot(lam[i], phi[i]);
    s1 += d(i + 1) * im_dot(lam[i + 1], phi[i + 1]);
  }
  for (; i < count; ++i) s0 += d(i) * im_dot(lam[i], phi[i]);
  return s0 + s1;
}

}  // namespace portable

#pragma GCC push_options
#pragma GCC target("avx2,fma")
namespace avx2 {

// Lanes (a.re·b.im, a.im·b.re) of two amplitudes added to acc: Im(conj(a)·b) is their difference.
inline __m256d im_fma(const Amp* a, const Amp* b, __m256d acc) {
  const __m256d bv = _mm256_loadu_pd(reinterpret_cast<const double*>(b));
  return _mm256_fmadd_pd(_mm256_loadu_pd(reinterpret_cast<const double*>(a)),
                         _mm256_permute_pd(bv, 0x5), acc);
}

inline double im_total(__m256d a, __m256d b, __m256d c, __m256d d) {
  alignas(32) double v[4];
  _mm256_store_pd(v, _mm256_add_pd(_mm256_add_pd(a, b), _mm256_add_pd(c, d)));
  return (v[0] - v[1]) + (v[2] - v[3]);
}

double cross(const Amp* a, const Amp* b, const Amp* c, const Amp* d, Index count) {
  __m256d s0 = _mm256_setzero_pd(), s1 = s0, s2 = s0, s3 = s0;
  Index i = 0;
  for (; i + 4 <= count; i += 4) {
    s0 = im_fma(a + i, b + i, s0);
    s1 = im_fma(a + i + 2, b + i + 2, s1);
    s2 = im_fma(c + i, d + i, s2);
    s3 = im_fma(c + i + 2, d + i + 2, s3);
  }
  for (; i < count; i += 2) {
    s0 = im_fma(a + i, b + i, s0);
    s2 = im_fma(c + i, d + i, s2);
  }
  return im_total(s0, s1, s2, s3);
}

// Σ over qubit 0's pairs, which share a vector: its halves swapped (and re with im) instead.
double first_qubit(const Amp* lam, const Amp* phi, Index count) {
  __m256d s0 = _mm256_setzero_pd(), s1 = s0;
  const auto* l = reinterpret_cast<const double*>(lam);
  const auto* f = reinterpret_cast<const double*>(phi);
  for (Index i = 0; i < 2 * count; i += 8) {
    s0 = _mm256_fmadd_pd(_mm256_loadu_pd(l + i),
                         _mm256_permute4x64_pd(_mm256_loadu_pd(f + i), 0x1B), s0);
    s1 = _mm256_fmadd_pd(_mm256_loadu_pd(l + i + 4),
                         _mm256_permute4x64_pd(_mm256_loadu_pd(f + i + 4), 0x1B), s1);
  }
  return im_total(s0, s1, _mm256_setzero_pd(), _mm256_setzero_pd());
}

// Two qubits per sweep over four runs of `length` amplitudes (run j: bit 0 of j the first
// qubit set, bit 1 the second): each vector loaded once for both, φ's re/im swap shared.
inline void quad(const Amp* const* l, const Amp* const* f, Index length, __m256d (&acc)[4]) {
  for (Index i = 0; i < length; i += 2) {
    __m256d lv[4], fs[4];
    for (unsigned j = 0; j < 4; ++j) {
      lv[j] = _mm256_loadu_pd(reinterpret_cast<const double*>(l[j] + i));
      fs[j] = _mm256_permute_pd(_mm256_loadu_pd(reinterpret_cast<const double*>(f[j] + i)), 0x5);
    }
    acc[0] = _mm256_add_pd(acc[0], _mm256_fmadd_pd(lv[0], fs[1], _mm256_mul_pd(lv[1], fs[0])));
    acc[1] = _mm256_add_pd(acc[1], _mm256_fmadd_pd(lv[2], fs[3], _mm256_mul_pd(lv[3], fs[2])));
    acc[2] = _mm256_add_pd(acc[2], _mm256_fmadd_pd(lv[0], fs[2], _mm256_mul_pd(lv[2], fs[0])));
    acc[3] = _mm256_add_pd(acc[3], _mm256_fmadd_pd(lv[1], fs[3], _mm256_mul_pd(lv[3], fs[1])));
  }
}

double range(const Amp* lam, const Amp* phi, Index count, std::span<const unsigned> qubits) {
  double z = 0.0;
  std::size_t g = 0;
  if (g < qubits.size() && qubits[g] == 0) z += first_qubit(lam, phi, count), ++g;
  __m256d acc[4] = {_mm256_setzero_pd(), _mm256_setzero_pd(), _mm256_setzero_pd(),
                    _mm256_setzero_pd()};
  for (; g + 2 <= qubits.size(); g += 2) {
    const Index a = Index{1} << qubits[g], b = Index{1} << qubits[g + 1];
    const Index mask = a | b, offsets[4] = {0, a, b, a | b};
    // Indices below a are contiguous: one run per base with both bits clear.
    for (Index base = 0; base < count; base = ((base | mask | (a - 1)) + 1) & ~mask) {
      const Amp* l[4];
      const Amp* f[4];
      for (unsigned j = 0; j < 4; ++j)
        l[j] = lam + base + offsets[j], f[j] = phi + base + offsets[j];
      quad(l, f, a, acc);
    }
  }
  z += im_total(acc[0], acc[1], acc[2], acc[3]);
  if (g < qubits.size()) {
    const Index step = Index{1} << qubits[g];
    for (Index base = 0; base < count; base += 2 * step)
      z += cross(lam + base, phi + base + step, lam + base + step, phi + base, step);
  }
  return z;
}

double rows(const Amp* const* lam, const Amp* const* phi, unsigned row_bits, Index length) {
  __m256d acc[4] = {_mm256_setzero_pd(), _mm256_setzero_pd(), _mm256_setzero_pd(),
                    _mm256_setzero_pd()};
  unsigned j = 0;
  for (; j + 2 <= row_bits; j += 2) {
    const Index mask = Index{3} << j;
    for (Index r = 0; r < (Index{1} << row_bits); ++r) {
      if (r & mask) continue;
      const Index at[4] = {r, r | Index{1} << j, r | Index{2} << j, r | mask};
      const Amp* l[4] = {lam[at[0]], lam[at[1]], lam[at[2]], lam[at[3]]};
      const Amp* f[4] = {phi[at[0]], phi[at[1]], phi[at[2]], phi[at[3]]};
      quad(l, f, length, acc);
    }
  }
  double z = im_total(acc[0], acc[1], acc[2], acc[3]);
  if (j < row_bits) z += row_bit(cross, lam, phi, row_bits, j, length);
  return z;
}

template <class T>
double weighted(const T* index, const double* table, const Amp* lam, const Amp* phi, Index count) {
  const auto d = [&](Index i) { return level(index, table, i); };
  __m256d s0 = _mm256_setzero_pd(), s1 = s0;
  Index i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m256d zero = _mm256_setzero_pd();
    s0 = _mm256_fmadd_pd(_mm256_setr_pd(d(i), d(i), d(i + 1), d(i + 1)),
                         im_fma(lam + i, phi + i, zero), s0);
    s1 = _mm256_fmadd_pd(_mm256_setr_pd(d(i + 2), d(i + 2), d(i + 3), d(i + 3)),
                         im_fma(lam + i + 2, phi + i + 2, zero), s1);
  }
  double rest = 0.0;
  for (; i < count; ++i) rest += d(i) * im_dot(lam[i], phi[i]);
  return im_total(s0, s1, _mm256_setzero_pd(), _mm256_setzero_pd()) + rest;
}

}  // namespace avx2
#pragma GCC pop_options

constexpr ProductKernels kPortable{&portable::range, &portable::rows,
                                   &portable::weighted<std::uint8_t>,
                                   &portable::weighted<std::uint16_t>, &portable::weighted<double>};
constexpr ProductKernels kAvx2{&avx2::range, &avx2::rows, &avx2::weighted<std::uint8_t>,
                               &avx2::weighted<std::uint16_t>, &avx2::weighted<double>};

}  // namespace

double rotate_pair(Amp* phi, Amp* lambda, unsigned n, unsigned a, unsigned b, double theta) {
  const Index quarter = Index{1} << (n - 2);
  const unsigned lo = std::min(a, b), hi = std::max(a, b);
  const Index bit_a = Index{1} << a, bit_b = Index{1} << b;
  const double c = std::cos(theta), s = std::sin(theta);
  const auto step = [c, s](Amp& u, Amp& v) {
    const Amp u0 = u, v0 = v;
    u = {c * u0.real() - s * v0.imag(), c * u0.imag() + s * v0.real()};
    v = {c * v0.real() - s * u0.imag(), c * v0.imag() + s * u0.real()};
  };
  double z = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : z) if (parallel_worthwhile(quarter))
  for (std::int64_t t = 0; t < static_cast<std::int64_t>(quarter); ++t) {
    const Index x = insert_zero(insert_zero(static_cast<Index>(t), lo), hi);
    if (lambda != nullptr) {
      z += im_dot(lambda[x | bit_a], phi[x | bit_b]) + im_dot(lambda[x | bit_b], phi[x | bit_a]);
      step(lambda[x | bit_a], lambda[x | bit_b]);
    }
    step(phi[x | bit_a], phi[x | bit_b]);
  }
  return z;
}

const ProductKernels& product_kernels(const KernelSet& k) {
  return avx2_kernel_set() != nullptr && k.name != scalar_kernel_set().name ? kAvx2 : kPortable;
}

DiagonalProducts::DiagonalProducts(const DiagonalOp& op, const ProductKernels& k) : op_(op), k_(k) {
  if (op.values != nullptr) {
    for (double level : op.values->levels()) levels_.push_back(op.scale * level);
  }
}

double DiagonalProducts::operator()(const Amp* lam, const Amp* phi, Index begin,
                                    Index count) const {
  const DiagonalValues* v = op_.values.get();
  lam += begin;
  phi += begin;
  if (v == nullptr) return 0.0;
  if (const std::uint8_t* i8 = v->index8())
    return k_.weighted8(i8 + begin, levels_.data(), lam, phi, count);
  if (const std::uint16_t* i16 = v->index16())
    return k_.weighted16(i16 + begin, levels_.data(), lam, phi, count);
  return op_.scale * k_.weighted_dense(v->dense() + begin, nullptr, lam, phi, count);
}

double DiagonalProducts::all(const Amp* lam, const Amp* phi, unsigned n) const {
  return chunked_sum(n, [&](Index begin, Index count) { return (*this)(lam, phi, begin, count); });
}

double LossWeights::operator()(const Amp* phi, Amp* lam, Index begin, Index count) const {
  return e->visit([&](const auto& energy) {
    const auto pass = [&](auto writes) {
      double sum = 0.0;
      for (Index x = begin; x < begin + count; ++x) {
        const double w = gibbs ? std::exp(shift - energy(x) / t) : energy(x);
        if constexpr (decltype(writes)::value) lam[x] = (gibbs ? -w : w) * phi[x];
        sum += std::norm(phi[x]) * w;
      }
      return sum;
    };
    return lam != nullptr ? pass(std::true_type{}) : pass(std::false_type{});
  });
}

double LossWeights::all(const Amp* phi, Amp* lam, unsigned n) const {
  return chunked_sum(n, [&](Index begin, Index count) { return (*this)(phi, lam, begin, count); });
}

std::optional<LossWeights> loss_weights(const EnergyTable& energies, const LossSettings& settings) {
  if (settings.kind == LossKind::kExpectation) return LossWeights{&energies, false, 0.0, 1.0};
  if (settings.kind == LossKind::kCvar) return std::nullopt;
  const double t = settings.temperature;
  if (!std::isfinite(t) || t == 0.0) {
    throw std::invalid_argument("temperature must be finite and nonzero");
  }
  return LossWeights{&energies, true, (t > 0 ? energies.min() : energies.max()) / t, t};
}

MixerProducts::MixerProducts(const DiagonalProducts* pending, const ProductKernels& k,
                             const LossWeights* weights)
    : d_(pending), k_(k), weights_(weights), sums_(num_threads() + 1) {}

void MixerProducts::before_range(Amp* lam, Amp* phi, Index begin, Index count) {
  if (weights_ != nullptr) mine().weights += (*weights_)(phi, lam, begin, count);
  if (d_ != nullptr) mine().diagonal += (*d_)(lam, phi, begin, count);
}

void MixerProducts::after_range(const Amp* lam, const Amp* phi, Index count,
                                std::span<const unsigned> qubits, double weight) {
  mine().mixer += weight * k_.range(lam, phi, count, qubits);
}

void MixerProducts::after_rows(const Amp* const* lam, const Amp* const* phi, unsigned row_bits,
                               Index length) {
  mine().mixer += k_.rows(lam, phi, row_bits, length);
}

// The team never outgrows the thread count taken before the pass; the last slot is a guard.
MixerProducts::Sums& MixerProducts::mine() {
  const auto t = static_cast<std::size_t>(omp_get_thread_num());
  return sums_[std::min(t, sums_.size() - 1)];
}

double MixerProducts::total(double Sums::*field) const {
  double z = 0.0;
  for (const Sums& s : sums_) z += s.*field;
  return z;
}

}  // namespace corvid
