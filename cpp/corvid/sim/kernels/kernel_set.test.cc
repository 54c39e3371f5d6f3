// Every kernel set against the scalar reference on random tiles and matrices.
#include "corvid/sim/kernels/kernel_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "corvid/util/aligned_buffer.h"

namespace corvid {
namespace {

constexpr double kTol = 1e-12;
constexpr unsigned kBits = 8;

AlignedBuffer<Amplitude> random_tile(std::mt19937_64& rng, unsigned bits = kBits) {
  std::normal_distribution<double> normal;
  AlignedBuffer<Amplitude> t(std::size_t{1} << bits);
  for (Amplitude& a : t) a = {normal(rng), normal(rng)};
  return t;
}

AlignedBuffer<Amplitude> copy(const AlignedBuffer<Amplitude>& from) {
  AlignedBuffer<Amplitude> to(from.size());
  std::copy(from.begin(), from.end(), to.begin());
  return to;
}

void expect_equal(const AlignedBuffer<Amplitude>& got, const AlignedBuffer<Amplitude>& want) {
  for (std::size_t i = 0; i < want.size(); ++i) {
    ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0, kTol) << "amplitude " << i;
  }
}

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

class Variants : public ::testing::TestWithParam<const KernelSet*> {};

TEST_P(Variants, MatrixTileOnEveryQubitAndShape) {
  std::mt19937_64 rng(1);
  for (int shape = 0; shape < kShapes; ++shape) {
    for (unsigned q = 0; q < kBits; ++q) {
      const Matrix2 m = random_matrix(rng, shape);
      auto want = random_tile(rng);
      auto got = copy(want);
      scalar_kernel_set().matrix_tile(want.data(), kBits, q, m);
      GetParam()->matrix_tile(got.data(), kBits, q, m);
      expect_equal(got, want);
    }
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
      const int shape = rng() % 2 ? 2 + static_cast<int>(rng() % 2) : static_cast<int>(rng() % kShapes);
      gates.push_back({q, random_matrix(rng, shape)});
      if (q >= row_shift) row_gates.push_back({q - row_shift, gates.back().matrix});
    }
    std::shuffle(gates.begin(), gates.end(), rng);
    AlignedBuffer<V> want(std::size_t{1} << kBits), got(want.size()), rows_got(want.size());
    for (V& a : want) a = {x(rng), x(rng)};
    std::copy(want.begin(), want.end(), got.begin());
    std::copy(want.begin(), want.end(), rows_got.begin());
    std::vector<V> rows_want(want.begin(), want.end());
    for (const QubitMatrix& g : gates) reference.matrix_tile(want.data(), kBits, g.qubit, g.matrix);
    set.matrices_tile(got.data(), kBits, gates);
    for (const QubitMatrix& g : row_gates) {
      reference.matrix_tile(rows_want.data(), kBits, g.qubit + row_shift, g.matrix);
    }
    std::vector<V*> rows;
    for (std::size_t r = 0; r < (want.size() >> row_shift); ++r) rows.push_back(rows_got.data() + (r << row_shift));
    set.matrices_rows(rows.data(), kBits - row_shift, std::uint64_t{1} << row_shift, row_gates);
    for (std::size_t i = 0; i < want.size(); ++i) {
      ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0, tol * (1 + std::abs(want[i]))) << "tile " << i;
      ASSERT_NEAR(std::abs(rows_got[i] - rows_want[i]), 0.0, tol * (1 + std::abs(rows_want[i])))
          << "rows " << i;
    }
  }
}

TEST_P(Variants, GateListsEqualOneSweepPerGate) {
  expect_gate_lists_match_one_sweep_per_gate(*GetParam(), scalar_kernel_set(), kTol);
}

TEST_P(Variants, PhaseTablesOfBothIndexWidths) {
  std::mt19937_64 rng(3);
  const std::size_t size = std::size_t{1} << kBits;
  const auto table = random_tile(rng, 16);  // 65536 entries: every uint16 index is valid
  AlignedBuffer<std::uint8_t> i8(size);
  AlignedBuffer<std::uint16_t> i16(size);
  for (std::size_t i = 0; i < size; ++i) {
    i8[i] = static_cast<std::uint8_t>(rng());
    i16[i] = static_cast<std::uint16_t>(rng());
  }
  for (std::size_t count : {size, std::size_t{2}, std::size_t{1}}) {
    auto want = random_tile(rng);
    auto got = copy(want);
    scalar_kernel_set().phase_table8(want.data(), i8.data(), table.data(), count);
    GetParam()->phase_table8(got.data(), i8.data(), table.data(), count);
    scalar_kernel_set().phase_table16(want.data(), i16.data(), table.data(), count);
    GetParam()->phase_table16(got.data(), i16.data(), table.data(), count);
    expect_equal(got, want);
  }
}

INSTANTIATE_TEST_SUITE_P(Available, Variants, ::testing::ValuesIn(available_kernel_sets().begin(),
                                                                   available_kernel_sets().end()),
                         [](const auto& info) { return std::string(info.param->name); });

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

namespace corvid {
namespace {

// Single precision: every set against the scalar float set, to float rounding.
class Variants32 : public ::testing::TestWithParam<const KernelSet32*> {};

TEST_P(Variants32, MatrixTilesAndPhaseTables) {
  std::mt19937_64 rng(4);
  std::normal_distribution<float> x;
  const std::size_t size = std::size_t{1} << kBits;
  auto random32 = [&](std::size_t n) {
    AlignedBuffer<Amplitude32> t(n);
    for (Amplitude32& a : t) a = {x(rng), x(rng)};
    return t;
  };
  auto expect_close = [](const AlignedBuffer<Amplitude32>& got, const AlignedBuffer<Amplitude32>& want) {
    for (std::size_t i = 0; i < want.size(); ++i) {
      ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0f, 1e-5f * (1 + std::abs(want[i]))) << i;
    }
  };
  for (int shape = 0; shape < kShapes; ++shape) {
    for (unsigned q = 0; q < kBits; ++q) {
      const Matrix2 m = random_matrix(rng, shape);
      auto want = random32(size);
      AlignedBuffer<Amplitude32> got(size);
      std::copy(want.begin(), want.end(), got.begin());
      scalar_kernel_set32().matrix_tile(want.data(), kBits, q, m);
      const std::array<QubitMatrix, 2> pair = {{{q, m}, {(q + 3) % kBits, m}}};
      GetParam()->matrices_tile(got.data(), kBits, pair);
      scalar_kernel_set32().matrix_tile(want.data(), kBits, (q + 3) % kBits, m);
      expect_close(got, want);
    }
  }
  const auto table = random32(256);
  AlignedBuffer<std::uint8_t> index(size);
  for (auto& i : index) i = static_cast<std::uint8_t>(rng());
  for (std::size_t count : {size, std::size_t{3}}) {
    auto want = random32(size);
    AlignedBuffer<Amplitude32> got(size);
    std::copy(want.begin(), want.end(), got.begin());
    scalar_kernel_set32().phase_table8(want.data(), index.data(), table.data(), count);
    GetParam()->phase_table8(got.data(), index.data(), table.data(), count);
    expect_close(got, want);
  }
}

TEST_P(Variants32, GateListsEqualOneSweepPerGate) {
  expect_gate_lists_match_one_sweep_per_gate(*GetParam(), scalar_kernel_set32(), 1e-5);
}

INSTANTIATE_TEST_SUITE_P(Available, Variants32,
                         ::testing::ValuesIn(available_kernel_sets<float>().begin(),
                                             available_kernel_sets<float>().end()),
                         [](const auto& info) { return std::string(info.param->name); });

}  // namespace
}  // namespace corvid
