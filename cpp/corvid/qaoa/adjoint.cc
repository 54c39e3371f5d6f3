// Adjoint differentiation of the QAOA loss. With U_j = exp(−i·θ_j·H_j) the 2p factors, ψ the
// final state and w[x] = ∂loss/∂p[x], the partial in θ_j is 2·Im⟨λ|H_j|φ⟩ at the point of the
// circuit where U_j acts, for φ the state and λ = U^†·(w∘ψ) carried back to that point. Both
// are carried back together, so one sweep gives every partial. The phase layer has H = D; the
// X mixer exp(+iβΣX) has H = −ΣX; each XY pair exp(+iβS) has H = −S.
#include "corvid/qaoa/adjoint.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <immintrin.h>
#include <omp.h>

#include "corvid/qaoa/losses.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/sim/execute/compiled_executor.h"
#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/execute/rotation_layer.h"
#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/kernels/matrix2.h"
#include "corvid/sim/machine/probabilities.h"
#include "corvid/util/interrupt.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

using Index = std::uint64_t;
using Amp = std::complex<double>;

constexpr unsigned kMaxAnsatzQubits = 40;
// Below this many amplitudes a batch runs one vector per thread: a kernel's thread team costs
// more than the work of one small vector.
constexpr Index kPerThreadSize = Index{1} << 15;
// Work unit of the read pass over both states: 2^12 amplitudes.
constexpr unsigned kChunkBits = 12;

// Im(conj(a)·b).
inline double im_dot(Amp a, Amp b) { return a.real() * b.imag() - a.imag() * b.real(); }

// Inserts a zero at bit `bit` of t.
inline Index insert_zero(Index t, unsigned bit) {
  const Index low = t & ((Index{1} << bit) - 1);
  return ((t >> bit) << (bit + 1)) | low;
}

// exp(+iβX) = RX(−2β) on every qubit.
std::vector<QubitMatrix> x_mixer(unsigned n, double beta) {
  const Amp c{std::cos(beta), 0.0};
  const Amp s{0.0, std::sin(beta)};
  std::vector<QubitMatrix> layer;
  for (unsigned q = 0; q < n; ++q) layer.push_back({q, {c, s, s, c}});
  return layer;
}

// exp(iθS) on the pair (a, b), S exchanging the amplitudes where exactly one of the two is 1.
// With `lambda`, the same is applied to it and Σ Im(conj(λ)·S·φ) before the step is returned.
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

struct ProductKernels {
  double (*range)(const Amp*, const Amp*, Index, std::span<const unsigned>);
  double (*rows)(const Amp* const*, const Amp* const*, unsigned, Index);
  double (*weighted8)(const std::uint8_t*, const double*, const Amp*, const Amp*, Index);
  double (*weighted16)(const std::uint16_t*, const double*, const Amp*, const Amp*, Index);
  double (*weighted_dense)(const double*, const double*, const Amp*, const Amp*, Index);
};

constexpr ProductKernels kPortable{&portable::range, &portable::rows,
                                   &portable::weighted<std::uint8_t>,
                                   &portable::weighted<std::uint16_t>, &portable::weighted<double>};
constexpr ProductKernels kAvx2{&avx2::range, &avx2::rows, &avx2::weighted<std::uint8_t>,
                               &avx2::weighted<std::uint16_t>, &avx2::weighted<double>};

// AVX2 wherever the active kernel set is not the portable one (every other set implies it).
const ProductKernels& product_kernels(const KernelSet& k) {
  return avx2_kernel_set() != nullptr && k.name != scalar_kernel_set().name ? kAvx2 : kPortable;
}

// D(x) = scale·v(x) over a range, whatever form the diagonal is stored in.
class DiagonalProducts {
 public:
  DiagonalProducts(const DiagonalOp& op, const ProductKernels& k) : op_(op), k_(k) {
    if (op.values != nullptr) {
      for (double level : op.values->levels()) levels_.push_back(op.scale * level);
    }
  }

  // Σ D(x)·Im(conj(λ_x)·φ_x) over x in [begin, begin + count).
  double operator()(const Amp* lam, const Amp* phi, Index begin, Index count) const {
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

  // The same over the whole state, in one parallel read pass.
  double all(const Amp* lam, const Amp* phi, unsigned n) const {
    const Index size = Index{1} << n;
    const Index chunk = std::min(size, Index{1} << kChunkBits);
    const auto chunks = static_cast<std::int64_t>(size / chunk);
    double z = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : z) if (parallel_worthwhile(size))
    for (std::int64_t c = 0; c < chunks; ++c)
      z += (*this)(lam, phi, static_cast<Index>(c) * chunk, chunk);
    return z;
  }

 private:
  const DiagonalOp& op_;
  const ProductKernels& k_;
  std::vector<double> levels_;
};

// The products of one backward X-mixer layer, gathered while the layer's passes hold both
// states in cache: Im⟨λ|D|φ⟩ before the phase is undone, Im⟨λ|Σ_q X_q|φ⟩ once the mixer's
// qubits of a range are. One running sum per thread.
class MixerProducts final : public LayerWatcher {
 public:
  MixerProducts(const DiagonalProducts& d, const ProductKernels& k)
      : d_(d), k_(k), sums_(std::max(omp_get_max_threads(), omp_get_num_procs())) {}

  void before_diagonal(const Amplitude* lam, const Amplitude* phi, Index begin,
                       Index count) override {
    mine().diagonal += d_(lam, phi, begin, count);
  }

  void after_range(const Amplitude* lam, const Amplitude* phi, Index count,
                   std::span<const unsigned> qubits, double weight) override {
    mine().mixer += weight * k_.range(lam, phi, count, qubits);
  }

  void after_rows(const Amplitude* const* lam, const Amplitude* const* phi, unsigned row_bits,
                  Index length) override {
    mine().mixer += k_.rows(lam, phi, row_bits, length);
  }

  double diagonal() const {
    double z = 0.0;
    for (const Sums& s : sums_) z += s.diagonal;
    return z;
  }
  double mixer() const {
    double z = 0.0;
    for (const Sums& s : sums_) z += s.mixer;
    return z;
  }

 private:
  struct alignas(64) Sums {
    double diagonal = 0.0, mixer = 0.0;
  };
  Sums& mine() {
    const auto t = static_cast<std::size_t>(omp_get_thread_num());
    if (t >= sums_.size()) throw std::logic_error("more threads than the products expected");
    return sums_[t];
  }

  const DiagonalProducts& d_;
  const ProductKernels& k_;
  std::vector<Sums> sums_;
};

void check_angles(std::span<const double> angles) {
  if (angles.size() < 2 || angles.size() % 2 != 0) {
    throw std::invalid_argument(
        "angles must hold 2p values (p gammas, then p betas), p >= 1; got " +
        std::to_string(angles.size()));
  }
  for (double a : angles) {
    if (!std::isfinite(a)) throw std::invalid_argument("angles must be finite");
  }
}

}  // namespace

QaoaObjective::QaoaObjective(QaoaAnsatz ansatz, std::span<const double> energies)
    : ansatz_(std::move(ansatz)), energies_(energies) {
  const unsigned n = ansatz_.num_qubits;
  if (n < 1 || n > kMaxAnsatzQubits) {
    throw std::invalid_argument("num_qubits must be in [1, " + std::to_string(kMaxAnsatzQubits) +
                                "], got " + std::to_string(n));
  }
  if (energies.size() != (Index{1} << n)) {
    throw std::invalid_argument(
        "energies must hold 2^num_qubits = " + std::to_string(Index{1} << n) + " values, got " +
        std::to_string(energies.size()));
  }
  for (const PhaseTerm& t : ansatz_.phase_terms) {
    if (t.mask == 0 || (t.mask >> n) != 0) {
      throw std::invalid_argument("phase term mask " + std::to_string(t.mask) +
                                  " is zero or names a qubit >= " + std::to_string(n));
    }
    if (!std::isfinite(t.coefficient))
      throw std::invalid_argument("phase coefficients must be finite");
  }
  if (ansatz_.xy_pairs) {
    for (const auto& [a, b] : *ansatz_.xy_pairs) {
      if (a >= n || b >= n || a == b) {
        throw std::invalid_argument("XY pair (" + std::to_string(a) + ", " + std::to_string(b) +
                                    ") needs two distinct qubits < " + std::to_string(n));
      }
    }
  }
  if (ansatz_.initial) {
    for (const Gate& g : *ansatz_.initial) {
      for (unsigned i = 0; i < g.num_qubits(); ++i) {
        if (g.qubit(i) >= n) {
          throw std::invalid_argument("initial-state gate " + g.to_string() +
                                      " acts on a qubit >= " + std::to_string(n));
        }
      }
    }
    initial_ = compile(*ansatz_.initial, n);
  }
  const std::vector<PhaseTerm> terms = merge_terms(ansatz_.phase_terms);
  if (!terms.empty()) phase_ = {cached_diagonal(terms, n), 1.0, 0.0};
}

void QaoaObjective::forward(StateVector& state, std::span<const double> angles) const {
  const unsigned n = ansatz_.num_qubits;
  const std::size_t p = angles.size() / 2;
  const KernelSet& k = active_kernels<double>();
  if (initial_) {
    execute(state, *initial_, true, nullptr, k);
  } else {
    // The Hadamard start is the uniform state; a plain fill is several times faster here than
    // writing it as a general product state inside the first layer's pass.
    const Index size = state.size();
    const Amp uniform{1.0 / std::sqrt(static_cast<double>(size)), 0.0};
    Amp* amps = state.data();
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < static_cast<std::int64_t>(size); ++x) amps[x] = uniform;
  }
  for (std::size_t j = 0; j < p; ++j) {
    if (!omp_in_parallel()) throw_if_interrupted();  // only the thread that started the work
    const DiagonalOp op{phase_.values, phase_.scale * angles[j], 0.0};
    const DiagonalPass pass(op, k);
    if (!ansatz_.xy_pairs) {
      apply_rotation_layer<double>(state.data(), n, x_mixer(n, angles[p + j]), k, &pass);
    } else {
      pass.apply_all(state.data(), n);
      for (const auto& [a, b] : *ansatz_.xy_pairs) {
        rotate_pair(state.data(), nullptr, n, a, b, angles[p + j]);
      }
    }
  }
}

double QaoaObjective::loss_of(const StateVector& state, const LossSettings& settings) const {
  if (settings.kind == LossKind::kExpectation) {
    // Summed straight from the amplitudes: no probability table.
    const Index size = state.size();
    const Amp* f = state.data();
    const double* e = energies_.data();
    double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < static_cast<std::int64_t>(size); ++x)
      sum += std::norm(f[x]) * e[x];
    return sum;
  }
  std::vector<unsigned> all(ansatz_.num_qubits);
  for (unsigned q = 0; q < all.size(); ++q) all[q] = q;
  const ProbabilityTable table = marginal_probabilities(state, all);
  const std::span<const double> p(table.values.data(), table.values.size());
  if (settings.kind == LossKind::kCvar) return cvar(p, energies_, settings.alpha);
  return -std::log(gibbs_sum(p, energies_, settings.temperature));
}

double QaoaObjective::loss(std::span<const double> angles, const LossSettings& settings) const {
  check_angles(angles);
  const ConcurrentRun running;
  StateVector state = StateVector::uninitialized(ansatz_.num_qubits);
  forward(state, angles);
  return loss_of(state, settings);
}

AlignedBuffer<double> QaoaObjective::losses(std::span<const double> angles, std::size_t rows,
                                            const LossSettings& settings) const {
  if (rows == 0 || angles.size() % rows != 0) {
    throw std::invalid_argument("angles must hold rows x 2p values");
  }
  const std::size_t width = angles.size() / rows;
  check_angles(angles.subspan(0, width));
  check_angles(angles);
  AlignedBuffer<double> out(rows, "losses");
  const ConcurrentRun running;
  const unsigned n = ansatz_.num_qubits;
  const auto count = static_cast<std::int64_t>(rows);
  if ((Index{1} << n) < kPerThreadSize && rows > 1) {
    std::exception_ptr error;
    adopt_thread_count();
#pragma omp parallel
    {
      StateVector state;
#pragma omp for schedule(dynamic)
      for (std::int64_t r = 0; r < count; ++r) {
        try {
          if (state.size() == 0) state = StateVector::uninitialized(n);
          const auto row = angles.subspan(static_cast<std::size_t>(r) * width, width);
          forward(state, row);
          out[static_cast<std::size_t>(r)] = loss_of(state, settings);
        } catch (...) {
#pragma omp critical(corvid_qaoa_losses)
          if (!error) error = std::current_exception();
        }
      }
    }
    if (error) std::rethrow_exception(error);
    return out;
  }
  StateVector state = StateVector::uninitialized(n);
  for (std::size_t r = 0; r < rows; ++r) {
    forward(state, angles.subspan(r * width, width));
    out[r] = loss_of(state, settings);
  }
  return out;
}

// λ = w∘ψ with w[x] = ∂loss/∂p[x]; returns the loss. The expectation and the Gibbs loss are
// summed in the same pass that writes λ (no probability table); CVaR needs the table to find
// the entry that crosses alpha.
double QaoaObjective::cotangent(const StateVector& phi, StateVector& lambda,
                                const LossSettings& settings) const {
  const Index size = phi.size();
  const auto count = static_cast<std::int64_t>(size);
  const double* e = energies_.data();
  const Amp* f = phi.data();
  Amp* l = lambda.data();
  if (settings.kind == LossKind::kExpectation) {
    double sum = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : sum) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) {
      l[x] = e[x] * f[x];
      sum += std::norm(f[x]) * e[x];
    }
    return sum;
  }
  if (settings.kind == LossKind::kGibbs) {
    const double t = settings.temperature;
    if (!std::isfinite(t) || t == 0.0) {
      throw std::invalid_argument("temperature must be finite and nonzero");
    }
    // w = −exp(−e/t)/Z; both scaled by exp(shift) so that nothing overflows. exp(shift − e/t)
    // waits in λ's real part between the two passes.
    double shift = INFINITY;
#pragma omp parallel for schedule(static) reduction(min : shift) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) shift = std::min(shift, e[x] / t);
    double z = 0.0;
#pragma omp parallel for schedule(static) reduction(+ : z) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) {
      const double w = std::exp(shift - e[x] / t);
      l[x] = {w, 0.0};
      z += std::norm(f[x]) * w;
    }
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
    for (std::int64_t x = 0; x < count; ++x) l[x] = (-l[x].real() / z) * f[x];
    return shift - std::log(z);
  }
  std::vector<unsigned> all(ansatz_.num_qubits);
  for (unsigned q = 0; q < all.size(); ++q) all[q] = q;
  const ProbabilityTable table = marginal_probabilities(phi, all);
  const std::span<const double> prob(table.values.data(), table.values.size());
  const double* pr = prob.data();
  const CvarSplit split = cvar_split(prob, energies_, settings.alpha);
  // Entries ahead of the boundary count whole: w = e − e[boundary]; the rest 0. Without a
  // boundary every entry counts whole (w = e), unless alpha = 0 (nothing counts).
  const bool none = settings.alpha == 0.0;
  const bool all_in = !none && !split.boundary;
  const Index b = split.boundary.value_or(0);
  const double pb = split.boundary ? pr[b] : 0.0;
  const double eb = split.boundary ? e[b] : 0.0;
#pragma omp parallel for schedule(static) if (parallel_worthwhile(size))
  for (std::int64_t x = 0; x < count; ++x) {
    const bool ahead = pr[x] > pb || (pr[x] == pb && static_cast<Index>(x) < b);
    const double w = all_in ? e[x] : (!none && ahead ? e[x] - eb : 0.0);
    l[x] = w * f[x];
  }
  return split.loss;
}

double QaoaObjective::loss_and_gradient(std::span<const double> angles,
                                        const LossSettings& settings,
                                        std::span<double> gradient) const {
  check_angles(angles);
  if (gradient.size() != angles.size()) {
    throw std::invalid_argument("gradient must have as many entries as angles");
  }
  const ConcurrentRun running;
  const unsigned n = ansatz_.num_qubits;
  const std::size_t p = angles.size() / 2;
  StateVector phi = StateVector::uninitialized(n);
  forward(phi, angles);
  StateVector lambda = StateVector::uninitialized(n);
  const double loss = cotangent(phi, lambda, settings);

  const KernelSet& k = active_kernels<double>();
  const DiagonalProducts diagonal(phase_, product_kernels(k));
  for (std::size_t j = p; j-- > 0;) {
    throw_if_interrupted();
    const double beta = angles[p + j];
    const DiagonalOp undo_phase{phase_.values, -phase_.scale * (j + 1 < p ? angles[j + 1] : 0.0),
                                0.0};
    const DiagonalPass pass(undo_phase, k);
    const bool phase_pending = j + 1 < p;
    if (!ansatz_.xy_pairs) {
      // One sweep of both states undoes phase j + 1 and mixer j and gathers the products of
      // both layers on the way.
      MixerProducts watch(diagonal, product_kernels(k));
      apply_rotation_layer_pair(lambda.data(), phi.data(), n, x_mixer(n, -beta), k,
                                phase_pending ? &pass : nullptr, watch);
      if (phase_pending) gradient[j + 1] = 2.0 * watch.diagonal();
      gradient[p + j] = -2.0 * watch.mixer();
    } else {
      if (phase_pending) {
        pass.apply_all(phi.data(), n);
        pass.apply_all(lambda.data(), n);
      }
      double z = 0.0;
      const auto& pairs = *ansatz_.xy_pairs;
      for (auto it = pairs.rbegin(); it != pairs.rend(); ++it) {
        z += rotate_pair(phi.data(), lambda.data(), n, it->first, it->second, -beta);
      }
      gradient[p + j] = -2.0 * z;
      gradient[j] = 2.0 * diagonal.all(lambda.data(), phi.data(), n);
    }
  }
  if (!ansatz_.xy_pairs) gradient[0] = 2.0 * diagonal.all(lambda.data(), phi.data(), n);
  return loss;
}

}  // namespace corvid
