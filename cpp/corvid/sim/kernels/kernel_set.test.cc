// Every vector kernel set against the scalar reference of its precision on random tiles and
// matrices (the scalar sets meet the dense reference through the executor and compiler tests).
#include "corvid/sim/kernels/kernel_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <span>
#include <vector>

#include "corvid/util/aligned_buffer.h"

namespace corvid {
namespace {

constexpr unsigned kBits = 8;

// The shapes the vector sets specialise (real; real diagonal with imaginary off-diagonal, and
// the reverse, as RX beyond pi/2 is; the unit parts of RX-like matrices with ones on or off the
// diagonal) and the general case.
constexpr int kShapes = 6;
Matrix2 random_matrix(std::mt19937_64& rng, int shape) {
  std::normal_distribution<double> x;
  switch (shape) {
    case 0: return {x(rng), x(rng), x(rng), x(rng)};
    case 1: return {x(rng), {0, x(rng)}, {0, x(rng)}, x(rng)};
    case 2: return {1, {0, x(rng)}, {0, x(rng)}, 1};
    case 3: return {{0, x(rng)}, 1, 1, {0, x(rng)}};
    case 4: return {{0, x(rng)}, x(rng), x(rng), {0, x(rng)}};
    default: return {{x(rng), x(rng)}, {x(rng), x(rng)}, {x(rng), x(rng)}, {x(rng), x(rng)}};
  }
}

template <class Real>
void expect_close(std::span<const std::complex<Real>> got, std::span<const std::complex<Real>> want,
                  double tol) {
  for (std::size_t i = 0; i < want.size(); ++i) {
    ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0, tol * (1 + std::abs(want[i])))
        << "amplitude " << i;
  }
}

// Random subsets of qubits in random order with random shapes, so that every grouping (three
// unit gates to a sweep, pairs, leftovers, qubits inside one vector) meets every other; on a
// contiguous tile and on rows, the rows' qubit j being tile qubit j + log2(row length).
template <class Real>
void expect_gate_lists_match_one_sweep_per_gate(const BasicKernelSet<Real>& set,
                                                const BasicKernelSet<Real>& reference, double tol) {
  using V = std::complex<Real>;
  std::mt19937_64 rng(2);
  std::normal_distribution<Real> x;
  for (int trial = 0; trial < 60; ++trial) {
    const unsigned row_shift = 1 + trial % 4;  // rows of 2, 4, 8, 16 amplitudes
    std::vector<QubitMatrix> gates, row_gates;
    for (unsigned q = 0; q < kBits; ++q) {
      if (rng() % 3 == 0) continue;
      // Mostly unit shapes (the mixers' case), some of every other shape.
      const int shape =
          rng() % 2 ? 2 + static_cast<int>(rng() % 2) : static_cast<int>(rng() % kShapes);
      gates.push_back({q, random_matrix(rng, shape)});
      if (q >= row_shift) row_gates.push_back({q - row_shift, gates.back().matrix});
    }
    std::shuffle(gates.begin(), gates.end(), rng);
    AlignedBuffer<V> want(std::size_t{1} << kBits), got(want.size()), rows_got(want.size());
    for (std::size_t i = 0; i < want.size(); ++i) want[i] = got[i] = rows_got[i] = {x(rng), x(rng)};
    std::vector<V> rows_want(want.begin(), want.end());
    for (const QubitMatrix& g : gates) reference.matrix_tile(want.data(), kBits, g.qubit, g.matrix);
    set.matrices_tile(got.data(), kBits, gates);
    for (const QubitMatrix& g : row_gates) {
      reference.matrix_tile(rows_want.data(), kBits, g.qubit + row_shift, g.matrix);
    }
    std::vector<V*> rows;
    for (std::size_t r = 0; r < (want.size() >> row_shift); ++r)
      rows.push_back(rows_got.data() + (r << row_shift));
    set.matrices_rows(rows.data(), kBits - row_shift, std::uint64_t{1} << row_shift, row_gates);
    expect_close<Real>(got, want, tol);
    expect_close<Real>(rows_got, rows_want, tol);
  }
}

// One matrix per qubit and shape, and phase tables of both index widths on whole and partial
// ranges.
template <class Real>
void expect_single_kernels_match(const BasicKernelSet<Real>& set,
                                 const BasicKernelSet<Real>& reference, double tol) {
  using V = std::complex<Real>;
  std::mt19937_64 rng(1);
  std::normal_distribution<Real> x;
  const std::size_t size = std::size_t{1} << kBits;
  AlignedBuffer<V> want(size), got(size);
  auto fill = [&] {
    for (std::size_t i = 0; i < size; ++i) want[i] = got[i] = {x(rng), x(rng)};
  };
  for (int shape = 0; shape < kShapes; ++shape) {
    for (unsigned q = 0; q < kBits; ++q) {
      const Matrix2 m = random_matrix(rng, shape);
      fill();
      reference.matrix_tile(want.data(), kBits, q, m);
      set.matrix_tile(got.data(), kBits, q, m);
      expect_close<Real>(got, want, tol);
    }
  }
  std::vector<V> table(65536);  // every uint16 index is valid
  for (V& a : table) a = {x(rng), x(rng)};
  std::vector<std::uint8_t> i8(size);
  std::vector<std::uint16_t> i16(size);
  for (std::size_t i = 0; i < size; ++i) {
    i8[i] = static_cast<std::uint8_t>(rng());
    i16[i] = static_cast<std::uint16_t>(rng());
  }
  for (std::size_t count : {size, std::size_t{3}, std::size_t{2}, std::size_t{1}}) {
    fill();
    reference.phase_table8(want.data(), i8.data(), table.data(), count);
    set.phase_table8(got.data(), i8.data(), table.data(), count);
    reference.phase_table16(want.data(), i16.data(), table.data(), count);
    set.phase_table16(got.data(), i16.data(), table.data(), count);
    expect_close<Real>(got, want, tol);
  }
}

// Every set but the scalar one, which is the reference.
TEST(KernelSet, VectorSetsMatchTheScalarSetOfTheirPrecision) {
  for (const KernelSet* set : available_kernel_sets().subspan(1)) {
    SCOPED_TRACE(set->name);
    expect_single_kernels_match(*set, scalar_kernel_set(), 1e-12);
    expect_gate_lists_match_one_sweep_per_gate(*set, scalar_kernel_set(), 1e-12);
  }
  for (const KernelSet32* set : available_kernel_sets<float>().subspan(1)) {
    SCOPED_TRACE(set->name);
    expect_single_kernels_match(*set, scalar_kernel_set32(), 1e-5);
    expect_gate_lists_match_one_sweep_per_gate(*set, scalar_kernel_set32(), 1e-5);
  }
}

TEST(KernelSet, ChoosingByName) {
  const std::string_view best = active_kernel_set().name;
  set_active_kernel_set("scalar");
  EXPECT_EQ(active_kernel_set().name, "scalar");
  EXPECT_THROW(set_active_kernel_set("avx9000"), std::invalid_argument);
  set_active_kernel_set(best);
  EXPECT_EQ(active_kernel_set().name, available_kernel_sets().back()->name);
}

}  // namespace
}  // namespace corvid
