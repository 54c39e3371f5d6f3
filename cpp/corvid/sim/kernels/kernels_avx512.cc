// The AVX-512 (F, DQ, VL) kernel set: the AVX2 set's gate sweeps on vectors twice as wide.
// This whole file is compiled for AVX-512 (its own flags in CMakeLists.txt); kernel_set.cc
// offers the set only where avx512_kernel_set() says the running CPU has it. Tiles and rows
// shorter than a vector go to the AVX2 set, which every AVX-512 CPU runs.
#include <immintrin.h>

#include <type_traits>

#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/kernels/simd_sweeps.h"

namespace corvid {
namespace {

// One __m512d holds four double amplitudes, one __m512 eight float amplitudes (re, im, ...).
template <class R>
struct Simd;

template <>
struct Simd<double> {
  using Real = double;
  using V = __m512d;
  static constexpr Index kAmps = 4;
  static V load(const double* p) { return _mm512_loadu_pd(p); }
  static void store(double* p, V v) { _mm512_storeu_pd(p, v); }
  static V set1(double x) { return _mm512_set1_pd(x); }
  static V alternate(double x) { return _mm512_setr_pd(-x, x, -x, x, -x, x, -x, x); }
  static V swap_re_im(V v) { return _mm512_permute_pd(v, 0x55); }
  static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
  static V fmadd(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
  static V addsub(V a, V b) { return _mm512_fmaddsub_pd(_mm512_set1_pd(1), a, b); }
  // Lane-wise complex product t·a.
  static V cmul(V t, V a) {
    return _mm512_fmaddsub_pd(_mm512_movedup_pd(t), a,
                              _mm512_mul_pd(_mm512_permute_pd(t, 0xFF), swap_re_im(a)));
  }
};

template <>
struct Simd<float> {
  using Real = float;
  using V = __m512;
  static constexpr Index kAmps = 8;
  static V load(const float* p) { return _mm512_loadu_ps(p); }
  static void store(float* p, V v) { _mm512_storeu_ps(p, v); }
  static V set1(double x) { return _mm512_set1_ps(float(x)); }
  static V alternate(double x) {
    // (-x, x) as one 64-bit pattern, repeated.
    const float pair[2] = {-float(x), float(x)};
    double bits;
    __builtin_memcpy(&bits, pair, sizeof bits);
    return _mm512_castpd_ps(_mm512_set1_pd(bits));
  }
  static V swap_re_im(V v) { return _mm512_permute_ps(v, 0xB1); }
  static V mul(V a, V b) { return _mm512_mul_ps(a, b); }
  static V fmadd(V a, V b, V c) { return _mm512_fmadd_ps(a, b, c); }
  static V addsub(V a, V b) { return _mm512_fmaddsub_ps(_mm512_set1_ps(1), a, b); }
  static V cmul(V t, V a) {
    return _mm512_fmaddsub_ps(_mm512_moveldup_ps(t), a,
                              _mm512_mul_ps(_mm512_movehdup_ps(t), swap_re_im(a)));
  }
};

template <class Real>
const BasicKernelSet<Real>& narrower() {
  if constexpr (std::is_same_v<Real, double>) {
    return *avx2_kernel_set();
  } else {
    return *avx2_kernel_set32();
  }
}

// amps[i] *= table[index[i]]: four double table entries per vector, inserted one by one.
template <class T>
void phase_table(Amplitude* amps, const T* index, const Amplitude* table, Index count) {
  using S = Simd<double>;
  auto* a = reinterpret_cast<double*>(amps);
  const auto* t = reinterpret_cast<const double*>(table);
  Index i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m256d lo = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(t + 2 * index[i])),
                                            _mm_loadu_pd(t + 2 * index[i + 1]), 1);
    const __m256d hi =
        _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(t + 2 * index[i + 2])),
                             _mm_loadu_pd(t + 2 * index[i + 3]), 1);
    const __m512d entries = _mm512_insertf64x4(_mm512_castpd256_pd512(lo), hi, 1);
    S::store(a + 2 * i, S::cmul(entries, S::load(a + 2 * i)));
  }
  if (i == count) return;
  if constexpr (sizeof(T) == 1) {
    narrower<double>().phase_table8(amps + i, index + i, table, count - i);
  } else {
    narrower<double>().phase_table16(amps + i, index + i, table, count - i);
  }
}

// The same in single precision: one float amplitude is 64 bits, eight entries per vector.
template <class T>
void phase_table32(Amplitude32* amps, const T* index, const Amplitude32* table, Index count) {
  using S = Simd<float>;
  auto* a = reinterpret_cast<float*>(amps);
  const auto* t = reinterpret_cast<const long long*>(table);
  Index i = 0;
  for (; i + 8 <= count; i += 8) {
    const __m512i entries =
        _mm512_setr_epi64(t[index[i]], t[index[i + 1]], t[index[i + 2]], t[index[i + 3]],
                          t[index[i + 4]], t[index[i + 5]], t[index[i + 6]], t[index[i + 7]]);
    S::store(a + 2 * i, S::cmul(_mm512_castsi512_ps(entries), S::load(a + 2 * i)));
  }
  if (i == count) return;
  if constexpr (sizeof(T) == 1) {
    narrower<float>().phase_table8(amps + i, index + i, table, count - i);
  } else {
    narrower<float>().phase_table16(amps + i, index + i, table, count - i);
  }
}

// Qubit Q below the vector's width (double: 0 and 1, single: 0 to 2): each amplitude's
// partner, plain or with re and im swapped, brought under it by one permutation of the vector.
template <class Real, unsigned Q>
struct Shuffle {
  using S = Simd<Real>;
  static __m512i order(bool swapped) {
    alignas(64) std::int64_t wide[8];
    alignas(64) std::int32_t narrow[16];
    for (unsigned e = 0; e < 2 * S::kAmps; ++e) {
      const unsigned slot = 2 * (e / 2 ^ 1u << Q) + ((e & 1) ^ swapped);
      wide[e % 8] = slot;
      narrow[e] = static_cast<std::int32_t>(slot);
    }
    if constexpr (std::is_same_v<Real, double>) {
      return _mm512_load_si512(wide);
    } else {
      return _mm512_load_si512(narrow);
    }
  }
  static typename S::V permute(__m512i order, typename S::V v) {
    if constexpr (std::is_same_v<Real, double>) {
      return _mm512_permutexvar_pd(order, v);
    } else {
      return _mm512_permutexvar_ps(order, v);
    }
  }
  static typename S::V partner(typename S::V v) { return permute(order(false), v); }
  static typename S::V partner_swapped(typename S::V v) { return permute(order(true), v); }
};

template <class Real>
void in_vector_gate(std::complex<Real>* tile, unsigned tile_bits, const QubitMatrix& g) {
  using S = Simd<Real>;
  Real* p = reinterpret_cast<Real*>(tile);
  const Index reals = Index{2} << tile_bits;
  if (g.qubit == 0) return in_vector<S, 0, Shuffle<Real, 0>>(p, reals, g.matrix);
  if (g.qubit == 1) return in_vector<S, 1, Shuffle<Real, 1>>(p, reals, g.matrix);
  if constexpr (S::kAmps > 4) in_vector<S, 2, Shuffle<Real, 2>>(p, reals, g.matrix);
}

template <class Real>
using Gates = GateKernels<Simd<Real>, &in_vector_gate<Real>, &narrower<Real>>;

const KernelSet kAvx512{"avx512",
                        &phase_table<std::uint8_t>,
                        &phase_table<std::uint16_t>,
                        &Gates<double>::matrix_tile,
                        &Gates<double>::matrices_tile,
                        &Gates<double>::matrices_rows};

const KernelSet32 kAvx512Single{"avx512",
                                &phase_table32<std::uint8_t>,
                                &phase_table32<std::uint16_t>,
                                &Gates<float>::matrix_tile,
                                &Gates<float>::matrices_tile,
                                &Gates<float>::matrices_rows};

// Plain bit tests of the CPU model (no vector code), so they are safe to run on any CPU.
bool cpu_has_avx512() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512vl") && avx2_kernel_set() != nullptr;
}

}  // namespace

const KernelSet* avx512_kernel_set() { return cpu_has_avx512() ? &kAvx512 : nullptr; }

const KernelSet32* avx512_kernel_set32() { return cpu_has_avx512() ? &kAvx512Single : nullptr; }

}  // namespace corvid
