#pragma once
// The gate passes shared by the vector kernel sets (sweeps over pairs of vectors, and gates on
// the qubits inside one vector), written once over a vector type S:
//   S::Real, S::V, S::kAmps (amplitudes per vector), load, store, set1, alternate (-x, x per
//   amplitude), swap_re_im, mul, fmadd, addsub.
// Each set's translation unit includes this under its own instruction set; the anonymous
// namespace gives every unit its own copy, so that no function compiled for a wider set can be
// chosen by the linker for a narrower one.
#include <array>
#include <complex>
#include <cstdint>
#include <optional>
#include <span>

#include "corvid/sim/kernels/matrix2.h"

namespace corvid {
namespace {  // NOLINT(google-build-namespaces, misc-anonymous-namespace-in-header)

using Index = std::uint64_t;

// A matrix applied to two vectors (a0, a1) of amplitudes paired by its qubit; one type per
// shape so that each shape does only the arithmetic it needs. (i·b)·(x + iy) = (−b·y, b·x): a
// product with the re/im-swapped vector and alternating signs.

// Ones on the diagonal, imaginary entries off it: the unit part of an RX-like matrix (see
// factor_scale), one multiply-add per vector.
template <class S>
struct UnitDiagonalOp {
  typename S::V k01, k10;
  explicit UnitDiagonalOp(const Matrix2& m)
      : k01(S::alternate(m.m01.imag())), k10(S::alternate(m.m10.imag())) {}
  void operator()(typename S::V& a0, typename S::V& a1) const {
    const auto s0 = S::swap_re_im(a0);
    a0 = S::fmadd(k01, S::swap_re_im(a1), a0);
    a1 = S::fmadd(k10, s0, a1);
  }
};

// Real diagonal, imaginary entries off it (RX, scaled).
template <class S>
struct RealImaginaryOp {
  typename S::V d0, d1, k01, k10;
  explicit RealImaginaryOp(const Matrix2& m)
      : d0(S::set1(m.m00.real())),
        d1(S::set1(m.m11.real())),
        k01(S::alternate(m.m01.imag())),
        k10(S::alternate(m.m10.imag())) {}
  void operator()(typename S::V& a0, typename S::V& a1) const {
    const auto s0 = S::swap_re_im(a0), s1 = S::swap_re_im(a1);
    a0 = S::fmadd(d0, a0, S::mul(k01, s1));
    a1 = S::fmadd(d1, a1, S::mul(k10, s0));
  }
};

// Real entries (RY, H).
template <class S>
struct RealOp {
  typename S::V r00, r01, r10, r11;
  explicit RealOp(const Matrix2& m)
      : r00(S::set1(m.m00.real())),
        r01(S::set1(m.m01.real())),
        r10(S::set1(m.m10.real())),
        r11(S::set1(m.m11.real())) {}
  void operator()(typename S::V& a0, typename S::V& a1) const {
    const auto x = a0;
    a0 = S::fmadd(r00, x, S::mul(r01, a1));
    a1 = S::fmadd(r10, x, S::mul(r11, a1));
  }
};

template <class S>
struct GeneralOp {
  typename S::V r00, i00, r01, i01, r10, i10, r11, i11;
  explicit GeneralOp(const Matrix2& m)
      : r00(S::set1(m.m00.real())),
        i00(S::set1(m.m00.imag())),
        r01(S::set1(m.m01.real())),
        i01(S::set1(m.m01.imag())),
        r10(S::set1(m.m10.real())),
        i10(S::set1(m.m10.imag())),
        r11(S::set1(m.m11.real())),
        i11(S::set1(m.m11.imag())) {}
  void operator()(typename S::V& a0, typename S::V& a1) const {
    const auto s0 = S::swap_re_im(a0), s1 = S::swap_re_im(a1);
    const auto x0 = S::fmadd(r00, a0, S::mul(r01, a1)), y0 = S::fmadd(i00, s0, S::mul(i01, s1));
    const auto x1 = S::fmadd(r10, a0, S::mul(r11, a1)), y1 = S::fmadd(i10, s0, S::mul(i11, s1));
    a0 = S::addsub(x0, y0);
    a1 = S::addsub(x1, y1);
  }
};

bool is_real_imaginary(const Matrix2& m) {
  return m.m00.imag() == 0 && m.m11.imag() == 0 && m.m01.real() == 0 && m.m10.real() == 0;
}

bool is_real(const Matrix2& m) {
  return m.m00.imag() == 0 && m.m01.imag() == 0 && m.m10.imag() == 0 && m.m11.imag() == 0;
}

bool is_unit_diagonal(const Matrix2& m) {
  return m.m00 == 1.0 && m.m11 == 1.0 && is_real_imaginary(m);
}

// X·m: m with its rows swapped. Applying X·m and storing each result at its partner's place
// applies m, so a matrix whose X·m has a cheaper shape (the unit part of an RX beyond pi/2,
// with ones off the diagonal) costs no more than that shape: the flip only renames stores.
Matrix2 rows_swapped(const Matrix2& m) { return {m.m10, m.m11, m.m00, m.m01}; }

bool is_unit(const Matrix2& m) { return is_unit_diagonal(m) || is_unit_diagonal(rows_swapped(m)); }

// f(op, flip) with the cheapest op for m or for X·m (flip = true: results are stored swapped).
template <class S, class F>
void with_op(const Matrix2& m, F f) {
  const Matrix2 x = rows_swapped(m);
  if (is_unit_diagonal(m)) return f(UnitDiagonalOp<S>(m), false);
  if (is_unit_diagonal(x)) return f(UnitDiagonalOp<S>(x), true);
  if (is_real_imaginary(m)) return f(RealImaginaryOp<S>(m), false);
  if (is_real_imaginary(x)) return f(RealImaginaryOp<S>(x), true);
  if (is_real(m)) return f(RealOp<S>(m), false);
  f(GeneralOp<S>(m), false);
}

// Where the vectors a group of K gates acts on lie. for_each_run(qubits, body) calls
// body(ptr, count) for every run of positions: ptr[j] is where vector j of the group starts (bit
// g of j set: the g-th qubit is 1), and the run is `count` reals long.
template <std::size_t K>
struct GroupOffsets {
  Index mask = 0, offset[1 << K] = {};
  explicit GroupOffsets(const std::array<unsigned, K>& qubits) {
    for (std::size_t g = 0; g < K; ++g) mask |= Index{1} << qubits[g];
    for (unsigned j = 0; j < (1u << K); ++j) {
      for (std::size_t g = 0; g < K; ++g) offset[j] += Index{j >> g & 1} << qubits[g];
    }
  }
};

// A contiguous tile; qubits whose pairs lie in different vectors.
template <class Real>
struct TileLayout {
  Real* tile;
  Index size;  // amplitudes

  template <std::size_t K, class Body>
  void for_each_run(const std::array<unsigned, K>& qubits, Body body) const {
    const GroupOffsets<K> g(qubits);
    const Index run =
        g.mask & -g.mask;  // the lowest qubit's stride: indices below it are contiguous
    for (Index b = 0; b < size; b = ((b | g.mask | (run - 1)) + 1) & ~g.mask) {
      Real* ptr[1 << K];
      for (unsigned j = 0; j < (1u << K); ++j) ptr[j] = tile + 2 * (b + g.offset[j]);
      body(ptr, 2 * run);
    }
  }
};

// 2^row_bits rows of `length` amplitudes anywhere in memory; qubit j is bit j of the row number.
template <class Real>
struct RowLayout {
  std::complex<Real>* const* rows;
  unsigned row_bits;
  Index length;

  template <std::size_t K, class Body>
  void for_each_run(const std::array<unsigned, K>& qubits, Body body) const {
    const GroupOffsets<K> g(qubits);
    for (Index r = 0; r < (Index{1} << row_bits); r = ((r | g.mask) + 1) & ~g.mask) {
      Real* ptr[1 << K];
      for (unsigned j = 0; j < (1u << K); ++j)
        ptr[j] = reinterpret_cast<Real*>(rows[r + g.offset[j]]);
      body(ptr, 2 * length);
    }
  }
};

template <class S, class Layout>
void sweep(const Layout& layout, const QubitMatrix& g) {
  using Real = typename S::Real;
  with_op<S>(g.matrix, [&](const auto& op, bool flip) {
    layout.for_each_run(std::array{g.qubit}, [&](Real* const* p, Index count) {
      for (Index i = 0; i < count; i += 2 * S::kAmps) {
        auto a0 = S::load(p[0] + i), a1 = S::load(p[1] + i);
        op(a0, a1);
        S::store(p[flip] + i, a0);
        S::store(p[!flip] + i, a1);
      }
    });
  });
}

// Two gates per sweep: each group of four vectors is loaded and stored once for both. A flip
// of the first gate renames vectors within the pairs of the second, which it leaves as pairs.
template <class S, class Layout>
void sweep_pair(const Layout& layout, const QubitMatrix& a, const QubitMatrix& b) {
  using Real = typename S::Real;
  with_op<S>(a.matrix, [&](const auto& opa, bool flip_a) {
    with_op<S>(b.matrix, [&](const auto& opb, bool flip_b) {
      const unsigned flip = flip_a | flip_b << 1;
      layout.for_each_run(std::array{a.qubit, b.qubit}, [&](Real* const* p, Index count) {
        for (Index i = 0; i < count; i += 2 * S::kAmps) {
          typename S::V v[4];
          for (unsigned j = 0; j < 4; ++j) v[j] = S::load(p[j] + i);
          opa(v[0], v[1]);
          opa(v[2], v[3]);
          opb(v[0], v[2]);
          opb(v[1], v[3]);
          for (unsigned j = 0; j < 4; ++j) S::store(p[j ^ flip] + i, v[j]);
        }
      });
    });
  });
}

// A unit matrix as its unit-diagonal part and whether an X follows (see rows_swapped).
template <class S>
struct UnitPart {
  UnitDiagonalOp<S> op;
  bool flip;
  explicit UnitPart(const Matrix2& m)
      : op(is_unit_diagonal(m) ? m : rows_swapped(m)), flip(!is_unit_diagonal(m)) {}
};

// Three unit gates per sweep, eight vectors per group.
template <class S, class Layout>
void sweep_triple(const Layout& layout, const std::array<QubitMatrix, 3>& g) {
  using Real = typename S::Real;
  const UnitPart<S> a(g[0].matrix), b(g[1].matrix), c(g[2].matrix);
  const unsigned flip = a.flip | b.flip << 1 | c.flip << 2;
  layout.for_each_run(std::array{g[0].qubit, g[1].qubit, g[2].qubit},
                      [&](Real* const* p, Index count) {
                        for (Index i = 0; i < count; i += 2 * S::kAmps) {
                          typename S::V v[8];
                          for (unsigned j = 0; j < 8; ++j) v[j] = S::load(p[j] + i);
                          for (unsigned j = 0; j < 8; j += 2) a.op(v[j], v[j + 1]);
                          for (unsigned j : {0u, 1u, 4u, 5u}) b.op(v[j], v[j + 2]);
                          for (unsigned j = 0; j < 4; ++j) c.op(v[j], v[j + 4]);
                          for (unsigned j = 0; j < 8; ++j) S::store(p[j ^ flip] + i, v[j]);
                        }
                      });
}

// Unit gates three to a sweep, the rest two to a sweep or alone.
template <class S, class Layout>
void sweep_all(const Layout& layout, std::span<const QubitMatrix> gates) {
  std::array<QubitMatrix, 3> triple;
  std::size_t in_triple = 0;
  std::optional<QubitMatrix> waiting;  // a gate without a partner yet
  auto pair_or_wait = [&](const QubitMatrix& g) {
    if (waiting) {
      sweep_pair<S>(layout, *waiting, g);
      waiting.reset();
    } else {
      waiting = g;
    }
  };
  for (const QubitMatrix& g : gates) {
    if (!is_unit(g.matrix)) {
      pair_or_wait(g);
    } else if (triple[in_triple++] = g; in_triple == 3) {
      sweep_triple<S>(layout, triple);
      in_triple = 0;
    }
  }
  for (std::size_t j = 0; j < in_triple; ++j) pair_or_wait(triple[j]);
  if (waiting) sweep<S>(layout, *waiting);
}

// A vector whose real (im = false) and imaginary slots hold value(bit, im), where bit is the
// slot's amplitude's bit Q.
template <class S, unsigned Q, class F>
typename S::V per_slot(F value) {
  using Real = typename S::Real;
  alignas(64) Real slots[2 * S::kAmps];
  for (unsigned k = 0; k < 2 * S::kAmps; ++k) slots[k] = Real(value(k / 2 >> Q & 1, k & 1));
  return S::load(slots);
}

// A gate on qubit Q below the vector's width, on `reals` contiguous reals at p. X::partner(v)
// brings each amplitude's partner under it, X::partner_swapped(v) the same with re and im
// swapped.
template <class S, unsigned Q, class X>
void in_vector(typename S::Real* p, Index reals, const Matrix2& m) {
  if (is_unit_diagonal(m)) {
    // v + (i·m01·a1, i·m10·a0): one shuffle and one multiply-add per vector.
    const auto k = per_slot<S, Q>([&](unsigned bit, bool im) {
      const double x = bit ? m.m10.imag() : m.m01.imag();
      return im ? x : -x;
    });
    for (Index i = 0; i < reals; i += 2 * S::kAmps) {
      const auto v = S::load(p + i);
      S::store(p + i, S::fmadd(k, X::partner_swapped(v), v));
    }
    return;
  }
  if (is_unit_diagonal(rows_swapped(m))) {
    // Ones off the diagonal: partner(v) + (i·m00·a0, i·m11·a1).
    const auto k = per_slot<S, Q>([&](unsigned bit, bool im) {
      const double x = bit ? m.m11.imag() : m.m00.imag();
      return im ? x : -x;
    });
    for (Index i = 0; i < reals; i += 2 * S::kAmps) {
      const auto v = S::load(p + i);
      S::store(p + i, S::fmadd(k, S::swap_re_im(v), X::partner(v)));
    }
    return;
  }
  // out = (m00 | m11)·v + (m01 | m10)·partner(v), each entry split into re and im.
  auto entry = [&](const Amplitude& on_zero, const Amplitude& on_one, bool imag) {
    return per_slot<S, Q>([&](unsigned bit, bool) {
      const Amplitude& e = bit ? on_one : on_zero;
      return imag ? e.imag() : e.real();
    });
  };
  const auto dr = entry(m.m00, m.m11, false), di = entry(m.m00, m.m11, true);
  const auto orr = entry(m.m01, m.m10, false), oi = entry(m.m01, m.m10, true);
  for (Index i = 0; i < reals; i += 2 * S::kAmps) {
    const auto v = S::load(p + i), w = X::partner(v);
    const auto re = S::fmadd(dr, v, S::mul(orr, w));
    const auto im = S::fmadd(di, S::swap_re_im(v), S::mul(oi, S::swap_re_im(w)));
    S::store(p + i, S::addsub(re, im));
  }
}

// A vector set's gate kernels (its matrix_tile, matrices_tile and matrices_rows): gates on
// the qubits inside one vector by the set's shuffles (InVector), the others swept together;
// tiles and rows shorter than one vector go to the set that Narrower() returns.
template <class S, auto InVector, auto Narrower>
struct GateKernels {
  using Real = typename S::Real;

  static void matrices_tile(std::complex<Real>* tile, unsigned tile_bits,
                            std::span<const QubitMatrix> gates) {
    if ((Index{1} << tile_bits) < S::kAmps) {
      return Narrower().matrices_tile(tile, tile_bits, gates);
    }
    std::array<QubitMatrix, 64> rest;
    std::size_t count = 0;
    for (const QubitMatrix& g : gates) {
      if ((Index{1} << g.qubit) < S::kAmps) {
        InVector(tile, tile_bits, g);
      } else {
        rest[count++] = g;
      }
    }
    sweep_all<S>(TileLayout<Real>{reinterpret_cast<Real*>(tile), Index{1} << tile_bits},
                 {rest.data(), count});
  }

  static void matrix_tile(std::complex<Real>* tile, unsigned tile_bits, unsigned q,
                          const Matrix2& m) {
    const QubitMatrix one[] = {{q, m}};
    matrices_tile(tile, tile_bits, std::span(one));
  }

  static void matrices_rows(std::complex<Real>* const* rows, unsigned row_bits, Index length,
                            std::span<const QubitMatrix> gates) {
    if (length < S::kAmps) return Narrower().matrices_rows(rows, row_bits, length, gates);
    sweep_all<S>(RowLayout<Real>{rows, row_bits, length}, gates);
  }
};

}  // namespace
}  // namespace corvid
