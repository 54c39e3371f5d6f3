// The AVX2 + FMA kernel set. Only this file is compiled for AVX2 (by a target pragma around
// the kernels), and avx2_kernel_set() hands it out only when the running CPU supports it.
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <optional>
#include <type_traits>

#include "corvid/sim/kernels/kernel_set.h"

#pragma GCC push_options
#pragma GCC target("avx2,fma")

#include "corvid/sim/kernels/simd_sweeps.h"

namespace corvid {
namespace {

// One __m256d holds two amplitudes (re0, im0, re1, im1).
inline __m256d load(const Amplitude* p) {
  return _mm256_load_pd(reinterpret_cast<const double*>(p));
}
inline void store(Amplitude* p, __m256d v) { _mm256_store_pd(reinterpret_cast<double*>(p), v); }
inline __m256d swap_re_im(__m256d v) { return _mm256_permute_pd(v, 0x5); }

// Lane-wise complex product t·a.
inline __m256d cmul(__m256d t, __m256d a) {
  const __m256d re = _mm256_movedup_pd(t);
  const __m256d im = _mm256_permute_pd(t, 0xF);
  return _mm256_fmaddsub_pd(re, a, _mm256_mul_pd(im, swap_re_im(a)));
}

inline __m256d pair(const Amplitude& lo, const Amplitude& hi) {
  const __m128d l = _mm_loadu_pd(reinterpret_cast<const double*>(&lo));
  const __m128d h = _mm_loadu_pd(reinterpret_cast<const double*>(&hi));
  return _mm256_insertf128_pd(_mm256_castpd128_pd256(l), h, 1);
}

template <class T>
void phase_table(Amplitude* amps, const T* index, const Amplitude* table, Index count) {
  Index i = 0;
  for (; i + 2 <= count; i += 2) {
    store(amps + i, cmul(pair(table[index[i]], table[index[i + 1]]), load(amps + i)));
  }
  for (; i < count; ++i) {  // odd counts only occur for states of one amplitude
    const Amplitude a = amps[i], t = table[index[i]];
    amps[i] = {t.real() * a.real() - t.imag() * a.imag(),
               t.real() * a.imag() + t.imag() * a.real()};
  }
}

// Lane-wise arithmetic on vectors of amplitudes of either precision: one __m256d holds two
// double amplitudes (re0, im0, re1, im1), one __m256 four float amplitudes.
template <class Real>
struct Simd;

template <>
struct Simd<double> {
  using Real = double;
  using V = __m256d;
  static constexpr Index kAmps = 2;
  static V load(const double* p) { return _mm256_load_pd(p); }
  static void store(double* p, V v) { _mm256_store_pd(p, v); }
  static V set1(double x) { return _mm256_set1_pd(x); }
  static V alternate(double x) { return _mm256_setr_pd(-x, x, -x, x); }  // (−x, x) per amplitude
  static V swap_re_im(V v) { return _mm256_permute_pd(v, 0x5); }
  static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
  static V fmadd(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
  static V addsub(V a, V b) { return _mm256_addsub_pd(a, b); }
};

template <>
struct Simd<float> {
  using Real = float;
  using V = __m256;
  static constexpr Index kAmps = 4;
  static V load(const float* p) { return _mm256_load_ps(p); }
  static void store(float* p, V v) { _mm256_store_ps(p, v); }
  static V set1(double x) { return _mm256_set1_ps(float(x)); }
  static V alternate(double x) {
    const float y = float(x);
    return _mm256_setr_ps(-y, y, -y, y, -y, y, -y, y);
  }
  static V swap_re_im(V v) { return _mm256_permute_ps(v, 0xB1); }
  static V mul(V a, V b) { return _mm256_mul_ps(a, b); }
  static V fmadd(V a, V b, V c) { return _mm256_fmadd_ps(a, b, c); }
  static V addsub(V a, V b) { return _mm256_addsub_ps(a, b); }
};

// Qubits below a vector's width pair amplitudes inside one vector: double qubit 0, float qubits
// 0 and 1. Shuffle<Real, Q> brings each amplitude's partner under it (partner), or the partner
// with re and im swapped (partner_swapped), in one shuffle each.
template <class Real, unsigned Q>
struct Shuffle;

template <>
struct Shuffle<double, 0> {
  static __m256d partner(__m256d v) { return _mm256_permute4x64_pd(v, 0x4E); }
  static __m256d partner_swapped(__m256d v) { return _mm256_permute4x64_pd(v, 0x1B); }
};

template <>
struct Shuffle<float, 0> {
  static __m256 partner(__m256 v) { return _mm256_permute_ps(v, 0x4E); }
  static __m256 partner_swapped(__m256 v) { return _mm256_permute_ps(v, 0x1B); }
};

template <>
struct Shuffle<float, 1> {
  static __m256 partner(__m256 v) {
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(v), 0x4E));
  }
  static __m256 partner_swapped(__m256 v) {
    return _mm256_permutevar8x32_ps(v, _mm256_setr_epi32(5, 4, 7, 6, 1, 0, 3, 2));
  }
};

template <class Real>
void in_vector_gate(std::complex<Real>* tile, unsigned tile_bits, const QubitMatrix& g) {
  Real* p = reinterpret_cast<Real*>(tile);
  const Index reals = Index{2} << tile_bits;
  using S = Simd<Real>;
  if (g.qubit == 0) return in_vector<S, 0, Shuffle<Real, 0>>(p, reals, g.matrix);
  if constexpr (S::kAmps > 2) in_vector<S, 1, Shuffle<Real, 1>>(p, reals, g.matrix);
}

// Shorter than one vector: the scalar set.
template <class Real>
const BasicKernelSet<Real>& narrower() {
  if constexpr (std::is_same_v<Real, double>) {
    return scalar_kernel_set();
  } else {
    return scalar_kernel_set32();
  }
}

template <class Real>
using Gates = GateKernels<Simd<Real>, &in_vector_gate<Real>, &narrower<Real>>;

namespace f32 {

using Value = std::complex<float>;

inline __m256 load(const Value* p) { return _mm256_load_ps(reinterpret_cast<const float*>(p)); }
inline void store(Value* p, __m256 v) { _mm256_store_ps(reinterpret_cast<float*>(p), v); }
inline __m256 swap_re_im(__m256 v) { return _mm256_permute_ps(v, 0xB1); }

inline __m256 cmul(__m256 t, __m256 a) {
  return _mm256_fmaddsub_ps(_mm256_moveldup_ps(t), a,
                            _mm256_mul_ps(_mm256_movehdup_ps(t), swap_re_im(a)));
}

template <class T>
void phase_table(Value* amps, const T* index, const Value* table, Index count) {
  const auto* entries = reinterpret_cast<const long long*>(table);  // one amplitude = 8 bytes
  Index i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m256 t = _mm256_castsi256_ps(_mm256_setr_epi64x(
        entries[index[i]], entries[index[i + 1]], entries[index[i + 2]], entries[index[i + 3]]));
    store(amps + i, cmul(t, load(amps + i)));
  }
  for (; i < count; ++i) {  // states of fewer than four amplitudes
    const Value a = amps[i], t = table[index[i]];
    amps[i] = {t.real() * a.real() - t.imag() * a.imag(),
               t.real() * a.imag() + t.imag() * a.real()};
  }
}

}  // namespace f32

#pragma GCC pop_options

const KernelSet kAvx2{"avx2",
                      &phase_table<std::uint8_t>,
                      &phase_table<std::uint16_t>,
                      &Gates<double>::matrix_tile,
                      &Gates<double>::matrices_tile,
                      &Gates<double>::matrices_rows};

const KernelSet32 kAvx2Single{"avx2",
                              &f32::phase_table<std::uint8_t>,
                              &f32::phase_table<std::uint16_t>,
                              &Gates<float>::matrix_tile,
                              &Gates<float>::matrices_tile,
                              &Gates<float>::matrices_rows};

bool cpu_has_avx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

}  // namespace

const KernelSet32* avx2_kernel_set32() { return cpu_has_avx2() ? &kAvx2Single : nullptr; }

const KernelSet* avx2_kernel_set() { return cpu_has_avx2() ? &kAvx2 : nullptr; }

}  // namespace corvid
