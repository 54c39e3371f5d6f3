// The AVX2 + FMA kernel set. Only this file is compiled for AVX2 (by a target pragma around
// the kernels), and avx2_kernel_set() hands it out only when the running CPU supports it.
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <optional>

#include "corvid/sim/kernel_set.h"

namespace corvid {
namespace {

using Index = std::uint64_t;

#pragma GCC push_options
#pragma GCC target("avx2,fma")

// One __m256d holds two amplitudes (re0, im0, re1, im1).
inline __m256d load(const Amplitude* p) { return _mm256_load_pd(reinterpret_cast<const double*>(p)); }
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
    amps[i] = {t.real() * a.real() - t.imag() * a.imag(), t.real() * a.imag() + t.imag() * a.real()};
  }
}

// Real and imaginary parts of a matrix entry (or, for qubit 0, of two entries, one per lane).
struct Split {
  __m256d re, im;
  Split(const Amplitude& lo, const Amplitude& hi)
      : re(_mm256_setr_pd(lo.real(), lo.real(), hi.real(), hi.real())),
        im(_mm256_setr_pd(lo.imag(), lo.imag(), hi.imag(), hi.imag())) {}
};

// x·a + y·b, lane-wise complex, with x and y split.
inline __m256d combine(const Split& x, __m256d a, const Split& y, __m256d b) {
  const __m256d real = _mm256_fmadd_pd(x.re, a, _mm256_mul_pd(y.re, b));
  const __m256d imag = _mm256_fmadd_pd(x.im, swap_re_im(a), _mm256_mul_pd(y.im, swap_re_im(b)));
  return _mm256_addsub_pd(real, imag);
}

// c·I − i·s·X-like matrices (RX and its products): real diagonal, imaginary off-diagonal.
bool is_real_imaginary(const Matrix2& m) {
  return m.m00.imag() == 0 && m.m11.imag() == 0 && m.m01.real() == 0 && m.m10.real() == 0;
}

bool is_real(const Matrix2& m) {
  return m.m00.imag() == 0 && m.m01.imag() == 0 && m.m10.imag() == 0 && m.m11.imag() == 0;
}

// A matrix applied to two vectors (a0, a1) of amplitudes at distance 2^q, q >= 1; one type per
// shape so that each shape does only the arithmetic it needs.
struct RealImaginaryOp {
  __m256d d0, d1, k01, k10;
  explicit RealImaginaryOp(const Matrix2& m)
      : d0(_mm256_set1_pd(m.m00.real())), d1(_mm256_set1_pd(m.m11.real())),
        k01(_mm256_setr_pd(-m.m01.imag(), m.m01.imag(), -m.m01.imag(), m.m01.imag())),
        k10(_mm256_setr_pd(-m.m10.imag(), m.m10.imag(), -m.m10.imag(), m.m10.imag())) {}
  // (i·b)·(x + iy) = (−b·y, b·x): a product with the swapped vector and alternating signs.
  void operator()(__m256d& a0, __m256d& a1) const {
    const __m256d s0 = swap_re_im(a0), s1 = swap_re_im(a1);
    a0 = _mm256_fmadd_pd(d0, a0, _mm256_mul_pd(k01, s1));
    a1 = _mm256_fmadd_pd(d1, a1, _mm256_mul_pd(k10, s0));
  }
};

// Unit parts of RX-like matrices (see factor_scale): ones on the diagonal, or ones off it, and
// imaginary entries elsewhere. One multiply-add per vector instead of a multiply and an add.
struct UnitDiagonalOp {
  __m256d k01, k10;
  explicit UnitDiagonalOp(const Matrix2& m) : k01(alternate(m.m01)), k10(alternate(m.m10)) {}
  static __m256d alternate(const Amplitude& z) {
    return _mm256_setr_pd(-z.imag(), z.imag(), -z.imag(), z.imag());
  }
  void operator()(__m256d& a0, __m256d& a1) const {
    const __m256d s0 = swap_re_im(a0);
    a0 = _mm256_fmadd_pd(k01, swap_re_im(a1), a0);
    a1 = _mm256_fmadd_pd(k10, s0, a1);
  }
};

struct UnitOffDiagonalOp {
  __m256d k00, k11;
  explicit UnitOffDiagonalOp(const Matrix2& m)
      : k00(UnitDiagonalOp::alternate(m.m00)), k11(UnitDiagonalOp::alternate(m.m11)) {}
  void operator()(__m256d& a0, __m256d& a1) const {
    const __m256d x = a0;
    a0 = _mm256_fmadd_pd(k00, swap_re_im(x), a1);
    a1 = _mm256_fmadd_pd(k11, swap_re_im(a1), x);
  }
};

struct RealOp {
  __m256d r00, r01, r10, r11;
  explicit RealOp(const Matrix2& m)
      : r00(_mm256_set1_pd(m.m00.real())), r01(_mm256_set1_pd(m.m01.real())),
        r10(_mm256_set1_pd(m.m10.real())), r11(_mm256_set1_pd(m.m11.real())) {}
  void operator()(__m256d& a0, __m256d& a1) const {
    const __m256d x = a0;
    a0 = _mm256_fmadd_pd(r00, x, _mm256_mul_pd(r01, a1));
    a1 = _mm256_fmadd_pd(r10, x, _mm256_mul_pd(r11, a1));
  }
};

struct GeneralOp {
  Split m00, m01, m10, m11;
  explicit GeneralOp(const Matrix2& m)
      : m00(m.m00, m.m00), m01(m.m01, m.m01), m10(m.m10, m.m10), m11(m.m11, m.m11) {}
  void operator()(__m256d& a0, __m256d& a1) const {
    const __m256d x = a0;
    a0 = combine(m00, x, m01, a1);
    a1 = combine(m10, x, m11, a1);
  }
};

bool is_unit_diagonal(const Matrix2& m) {
  return m.m00 == 1.0 && m.m11 == 1.0 && m.m01.real() == 0 && m.m10.real() == 0;
}

bool is_unit_off_diagonal(const Matrix2& m) {
  return m.m01 == 1.0 && m.m10 == 1.0 && m.m00.real() == 0 && m.m11.real() == 0;
}

template <class F>
void with_op(const Matrix2& m, F f) {
  if (is_unit_diagonal(m)) return f(UnitDiagonalOp(m));
  if (is_unit_off_diagonal(m)) return f(UnitOffDiagonalOp(m));
  if (is_real_imaginary(m)) return f(RealImaginaryOp(m));
  if (is_real(m)) return f(RealOp(m));
  f(GeneralOp(m));
}

// Where the vectors a group of K gates acts on lie. for_each_run(qubits, body) calls
// body(ptr, count) for every run of positions: ptr[j] is where vector j of the group starts (bit
// g of j set: the g-th qubit is 1), and the run is `count` doubles long.
//
// A contiguous tile, for qubits >= 1.
struct TileLayout {
  double* tile;
  Index size;  // amplitudes

  template <std::size_t K, class Body>
  void for_each_run(const std::array<unsigned, K>& qubits, Body body) const {
    Index mask = 0, offset[1 << K] = {};
    for (std::size_t g = 0; g < K; ++g) mask |= Index{1} << qubits[g];
    for (unsigned j = 0; j < (1u << K); ++j) {
      for (std::size_t g = 0; g < K; ++g) offset[j] += (j >> g & 1) << qubits[g];
    }
    const Index run = mask & -mask;  // the lowest qubit's stride: indices below it are contiguous
    for (Index b = 0; b < size; b = ((b | mask | (run - 1)) + 1) & ~mask) {
      double* ptr[1 << K];
      for (unsigned j = 0; j < (1u << K); ++j) ptr[j] = tile + 2 * (b + offset[j]);
      body(ptr, 2 * run);
    }
  }
};

// 2^row_bits rows of `length` amplitudes anywhere in memory; qubit j is bit j of the row number.
struct RowLayout {
  Amplitude* const* rows;
  unsigned row_bits;
  Index length;

  template <std::size_t K, class Body>
  void for_each_run(const std::array<unsigned, K>& qubits, Body body) const {
    Index mask = 0, offset[1 << K] = {};
    for (std::size_t g = 0; g < K; ++g) mask |= Index{1} << qubits[g];
    for (unsigned j = 0; j < (1u << K); ++j) {
      for (std::size_t g = 0; g < K; ++g) offset[j] += (j >> g & 1) << qubits[g];
    }
    for (Index r = 0; r < (Index{1} << row_bits); r = ((r | mask) + 1) & ~mask) {
      double* ptr[1 << K];
      for (unsigned j = 0; j < (1u << K); ++j) {
        ptr[j] = reinterpret_cast<double*>(rows[r + offset[j]]);
      }
      body(ptr, 2 * length);
    }
  }
};

// A unit matrix as its unit-diagonal part and whether an X follows: [[u0, 1], [1, u1]] is
// X·[[1, u1], [u0, 1]], and an X only renames where each result is stored.
struct UnitPart {
  UnitDiagonalOp op;
  bool flip;
  explicit UnitPart(const Matrix2& m)
      : op(is_unit_diagonal(m) ? m : Matrix2{1, m.m11, m.m00, 1}), flip(!is_unit_diagonal(m)) {}
};

template <class Layout>
void sweep(const Layout& layout, const QubitMatrix& g) {
  with_op(g.matrix, [&](const auto& op) {
    layout.for_each_run(std::array{g.qubit}, [&](double* const* p, Index count) {
      for (Index i = 0; i < count; i += 4) {
        __m256d a0 = _mm256_load_pd(p[0] + i), a1 = _mm256_load_pd(p[1] + i);
        op(a0, a1);
        _mm256_store_pd(p[0] + i, a0);
        _mm256_store_pd(p[1] + i, a1);
      }
    });
  });
}

// Two gates per sweep: each group of four vectors is loaded and stored once for both.
template <class Layout>
void sweep_pair(const Layout& layout, const QubitMatrix& a, const QubitMatrix& b) {
  with_op(a.matrix, [&](const auto& opa) {
    with_op(b.matrix, [&](const auto& opb) {
      layout.for_each_run(std::array{a.qubit, b.qubit}, [&](double* const* p, Index count) {
        for (Index i = 0; i < count; i += 4) {
          __m256d v[4];
          for (unsigned j = 0; j < 4; ++j) v[j] = _mm256_load_pd(p[j] + i);
          opa(v[0], v[1]);
          opa(v[2], v[3]);
          opb(v[0], v[2]);
          opb(v[1], v[3]);
          for (unsigned j = 0; j < 4; ++j) _mm256_store_pd(p[j] + i, v[j]);
        }
      });
    });
  });
}

// Three unit gates per sweep, eight vectors per group.
template <class Layout>
void sweep_triple(const Layout& layout, const std::array<QubitMatrix, 3>& g) {
  const UnitPart a(g[0].matrix), b(g[1].matrix), c(g[2].matrix);
  const unsigned flip = a.flip | b.flip << 1 | c.flip << 2;
  layout.for_each_run(std::array{g[0].qubit, g[1].qubit, g[2].qubit},
                      [&](double* const* p, Index count) {
    for (Index i = 0; i < count; i += 4) {
      __m256d v[8];
      for (unsigned j = 0; j < 8; ++j) v[j] = _mm256_load_pd(p[j] + i);
      for (unsigned j = 0; j < 8; j += 2) a.op(v[j], v[j + 1]);
      for (unsigned j : {0u, 1u, 4u, 5u}) b.op(v[j], v[j + 2]);
      for (unsigned j = 0; j < 4; ++j) c.op(v[j], v[j + 4]);
      for (unsigned j = 0; j < 8; ++j) _mm256_store_pd(p[j ^ flip] + i, v[j]);
    }
  });
}

bool is_unit(const Matrix2& m) { return is_unit_diagonal(m) || is_unit_off_diagonal(m); }

// Unit gates three to a sweep, the rest two to a sweep or alone.
template <class Layout>
void sweep_all(const Layout& layout, std::span<const QubitMatrix> gates) {
  std::array<QubitMatrix, 3> triple;
  std::size_t in_triple = 0;
  std::optional<QubitMatrix> waiting;  // a gate without a partner yet
  auto pair_or_wait = [&](const QubitMatrix& g) {
    if (waiting) {
      sweep_pair(layout, *waiting, g);
      waiting.reset();
    } else {
      waiting = g;
    }
  };
  for (const QubitMatrix& g : gates) {
    if (!is_unit(g.matrix)) {
      pair_or_wait(g);
    } else if (triple[in_triple++] = g; in_triple == 3) {
      sweep_triple(layout, triple);
      in_triple = 0;
    }
  }
  for (std::size_t j = 0; j < in_triple; ++j) pair_or_wait(triple[j]);
  if (waiting) sweep(layout, *waiting);
}

// Qubit 0 pairs the two amplitudes inside one vector.
void qubit0_tile(Amplitude* tile, Index size, const Matrix2& m) {
  if (is_unit_diagonal(m)) {
    // (a0, a1) + (i·m01·a1, i·m10·a0): reversing the four doubles swaps both the halves and
    // re/im, so one permute and one multiply-add per pair.
    const __m256d k = _mm256_setr_pd(-m.m01.imag(), m.m01.imag(), -m.m10.imag(), m.m10.imag());
    for (Index i = 0; i < size; i += 2) {
      const __m256d v = load(tile + i);
      store(tile + i, _mm256_fmadd_pd(k, _mm256_permute4x64_pd(v, 0x1B), v));
    }
    return;
  }
  // out = (m00, m11)·v + (m01, m10)·swap_halves(v).
  const Split diag(m.m00, m.m11), off(m.m01, m.m10);
  for (Index i = 0; i < size; i += 2) {
    const __m256d v = load(tile + i);
    store(tile + i, combine(diag, v, off, _mm256_permute2f128_pd(v, v, 1)));
  }
}

void matrix_tile(Amplitude* tile, unsigned tile_bits, unsigned q, const Matrix2& m) {
  const Index size = Index{1} << tile_bits;
  if (q == 0) return qubit0_tile(tile, size, m);
  sweep(TileLayout{reinterpret_cast<double*>(tile), size}, QubitMatrix{q, m});
}

void matrices_tile(Amplitude* tile, unsigned tile_bits, std::span<const QubitMatrix> gates) {
  const Index size = Index{1} << tile_bits;
  std::array<QubitMatrix, 64> rest;
  std::size_t count = 0;
  for (const QubitMatrix& g : gates) {
    if (g.qubit == 0) {
      qubit0_tile(tile, size, g.matrix);
    } else {
      rest[count++] = g;
    }
  }
  sweep_all(TileLayout{reinterpret_cast<double*>(tile), size}, {rest.data(), count});
}

void matrices_rows(Amplitude* const* rows, unsigned row_bits, Index length,
                   std::span<const QubitMatrix> gates) {
  sweep_all(RowLayout{rows, row_bits, length}, gates);
}

// Single precision: one __m256 holds four amplitudes (re0, im0, ..., re3, im3).
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
    amps[i] = {t.real() * a.real() - t.imag() * a.imag(), t.real() * a.imag() + t.imag() * a.real()};
  }
}

struct RealImaginaryOp {
  __m256 d0, d1, k01, k10;
  explicit RealImaginaryOp(const Matrix2& m)
      : d0(_mm256_set1_ps(float(m.m00.real()))), d1(_mm256_set1_ps(float(m.m11.real()))),
        k01(alternate(float(m.m01.imag()))), k10(alternate(float(m.m10.imag()))) {}
  static __m256 alternate(float b) { return _mm256_setr_ps(-b, b, -b, b, -b, b, -b, b); }
  void operator()(__m256& a0, __m256& a1) const {
    const __m256 s0 = swap_re_im(a0), s1 = swap_re_im(a1);
    a0 = _mm256_fmadd_ps(d0, a0, _mm256_mul_ps(k01, s1));
    a1 = _mm256_fmadd_ps(d1, a1, _mm256_mul_ps(k10, s0));
  }
};

struct GeneralOp {
  __m256 r00, i00, r01, i01, r10, i10, r11, i11;
  explicit GeneralOp(const Matrix2& m)
      : r00(re(m.m00)), i00(im(m.m00)), r01(re(m.m01)), i01(im(m.m01)), r10(re(m.m10)),
        i10(im(m.m10)), r11(re(m.m11)), i11(im(m.m11)) {}
  static __m256 re(Amplitude z) { return _mm256_set1_ps(float(z.real())); }
  static __m256 im(Amplitude z) { return _mm256_set1_ps(float(z.imag())); }
  void operator()(__m256& a0, __m256& a1) const {
    const __m256 s0 = swap_re_im(a0), s1 = swap_re_im(a1);
    const __m256 x0 = _mm256_fmadd_ps(r00, a0, _mm256_mul_ps(r01, a1));
    const __m256 y0 = _mm256_fmadd_ps(i00, s0, _mm256_mul_ps(i01, s1));
    const __m256 x1 = _mm256_fmadd_ps(r10, a0, _mm256_mul_ps(r11, a1));
    const __m256 y1 = _mm256_fmadd_ps(i10, s0, _mm256_mul_ps(i11, s1));
    a0 = _mm256_addsub_ps(x0, y0);
    a1 = _mm256_addsub_ps(x1, y1);
  }
};

template <class F>
void with_op(const Matrix2& m, F f) {
  if (is_real_imaginary(m)) return f(RealImaginaryOp(m));
  f(GeneralOp(m));
}

template <class Op>
void sweep(float* __restrict tile, const Index size, const Index stride, const Op op) {
  for (Index base = 0; base < size; base += 2 * stride) {
    float* __restrict p = tile + 2 * base;
    for (Index i = 0; i < 2 * stride; i += 8) {
      __m256 a0 = _mm256_load_ps(p + i);
      __m256 a1 = _mm256_load_ps(p + i + 2 * stride);
      op(a0, a1);
      _mm256_store_ps(p + i, a0);
      _mm256_store_ps(p + i + 2 * stride, a1);
    }
  }
}

// Qubits 0 and 1 pair amplitudes inside one vector: those take the portable kernel.
void matrix_tile(Value* tile, unsigned tile_bits, unsigned q, const Matrix2& m) {
  if (q < 2) return scalar_kernel_set32().matrix_tile(tile, tile_bits, q, m);
  float* t = reinterpret_cast<float*>(tile);
  const Index size = Index{1} << tile_bits;
  with_op(m, [=](const auto& op) { sweep(t, size, Index{1} << q, op); });
}

void matrices_tile(Value* tile, unsigned tile_bits, std::span<const QubitMatrix> gates) {
  for (const QubitMatrix& g : gates) matrix_tile(tile, tile_bits, g.qubit, g.matrix);
}

}  // namespace f32

#pragma GCC pop_options

const KernelSet kAvx2{"avx2", &phase_table<std::uint8_t>, &phase_table<std::uint16_t>,
                      &matrix_tile, &matrices_tile, &matrices_rows};

const KernelSet32 kAvx2Single{"avx2", &f32::phase_table<std::uint8_t>,
                              &f32::phase_table<std::uint16_t>, &f32::matrix_tile,
                              &f32::matrices_tile, &scalar_matrices_rows<float>};

bool cpu_has_avx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

}  // namespace

const KernelSet32* avx2_kernel_set32() { return cpu_has_avx2() ? &kAvx2Single : nullptr; }

const KernelSet* avx2_kernel_set() { return cpu_has_avx2() ? &kAvx2 : nullptr; }

}  // namespace corvid
