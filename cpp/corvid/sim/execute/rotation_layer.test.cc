// Blocked layers and product states against gate-by-gate kernels, with tiles shrunk so that
// small states take every path: several tiles, L1 sub-tiles, several high-qubit groups.
#include "corvid/sim/execute/rotation_layer.h"

#include <gtest/gtest.h>

#include <random>

#include "corvid/sim/execute/diagonal_pass.h"
#include "corvid/sim/execute/executor.h"

namespace corvid {
namespace {

constexpr double kTol = 1e-12;

StateVector random_state(unsigned n, std::mt19937_64& rng) {
  std::normal_distribution<double> x;
  StateVector s(n);
  for (std::uint64_t i = 0; i < s.size(); ++i) s[i] = {x(rng), x(rng)};
  return s;
}

// The plain path: one full pass per matrix, with the scalar tile kernel over the whole state.
void apply_one_by_one(StateVector& s, std::span<const QubitMatrix> layer) {
  for (const QubitMatrix& g : layer) {
    scalar_kernel_set().matrix_tile(s.data(), s.num_qubits(), g.qubit, g.matrix);
  }
}

void apply_diagonal(StateVector& s, const DiagonalOp& op) {
  for (std::uint64_t x = 0; x < s.size(); ++x)
    s[x] *= std::polar(1.0, op.global_phase - op.scale * op.values->at(x));
}

std::vector<QubitMatrix> random_layer(unsigned n, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> angle(-3, 3);
  const GateKind kinds[] = {GateKind::RX, GateKind::RY, GateKind::H, GateKind::P};
  std::vector<QubitMatrix> layer;
  for (std::uint32_t q = 0; q < n; ++q) {
    if (rng() % 4 == 0) continue;  // leave some qubits out
    layer.push_back({q, matrix_of(Gate(kinds[rng() % 4], {q}, angle(rng)))});
  }
  std::shuffle(layer.begin(), layer.end(), rng);  // order is free: the gates commute
  return layer;
}

StateVector clone(const StateVector& s) {
  StateVector c = StateVector::uninitialized(s.num_qubits());
  std::copy(s.data(), s.data() + s.size(), c.data());
  return c;
}

void expect_near(const StateVector& got, const StateVector& want) {
  for (std::uint64_t i = 0; i < want.size(); ++i) {
    ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0, kTol) << "amplitude " << i;
  }
}

struct Case {
  unsigned n;
  LayerTiling tiling;
};

class Layers : public ::testing::TestWithParam<Case> {};
std::string label(const Case& c) {
  const LayerTiling& t = c.tiling;
  return "n" + std::to_string(c.n) + "_tiles_" + std::to_string(t.tile_bits) + "_" +
         std::to_string(t.inner_bits) + "_" + std::to_string(t.high_tile_bits) + "_" +
         std::to_string(t.min_row_bits);
}

// Sees every amplitude of the first state once per gate, and of the second in step.
struct CountingWatcher final : LayerWatcher {
  unsigned n = 0;
  std::uint64_t pairs_seen = 0;
  void before_diagonal(const Amplitude*, const Amplitude*, std::uint64_t, std::uint64_t) override {}
  void after_range(const Amplitude*, const Amplitude*, std::uint64_t count,
                   std::span<const unsigned> qubits, double) override {
#pragma omp atomic
    pairs_seen += count / 2 * qubits.size();
  }
  void after_rows(const Amplitude* const*, const Amplitude* const*, unsigned row_bits,
                  std::uint64_t length) override {
#pragma omp atomic
    pairs_seen += (length << row_bits) / 2 * row_bits;
  }
};

TEST_P(Layers, MatchOneByOneForEveryKernelSet) {
  const auto [n, tiling] = GetParam();
  std::mt19937_64 rng(n * 31 + tiling.tile_bits);
  for (int trial = 0; trial < 3; ++trial) {
    const auto layer = random_layer(n, rng);
    StateVector want = random_state(n, rng);
    const StateVector start = clone(want);
    apply_one_by_one(want, layer);
    for (const KernelSet* k : available_kernel_sets()) {
      StateVector got = clone(start);
      apply_rotation_layer(got.data(), n, layer, *k, nullptr, tiling);
      expect_near(got, want);
    }
    // Two states at once: both get the layer, and the watcher sees every gate's pairs once.
    StateVector first = clone(start), second = clone(start);
    CountingWatcher watch;
    apply_rotation_layer_pair(first.data(), second.data(), n, layer, active_kernel_set(), nullptr,
                              watch, tiling);
    expect_near(first, want);
    expect_near(second, want);
    EXPECT_EQ(watch.pairs_seen, layer.size() * (want.size() / 2));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Tilings, Layers,
    ::testing::Values(Case{1, {}}, Case{6, {}}, Case{15, {}}, Case{17, {}},  // production tiling
                      Case{11, {4, 2, 4, 1}},  // 7 high qubits: 3 groups of <= 3, rows of 2
                      Case{12, {5, 3, 5, 2}}, Case{9, {3, 3, 3, 1}},
                      Case{12, {4, 2, 7, 2}},    // high tiles larger than low ones: long rows
                      Case{10, {3, 1, 9, 4}},    // rows longer than the low tile
                      Case{14, {4, 3, 12, 1}}),  // high blocks of rows in L1, L2 and the tile
    [](const auto& info) { return label(info.param); });

// A diagonal before the layer (in the layer's pass, or in one of its own when the layer has no
// low qubits) and a first layer on |0...0> written inside the same pass, in every combination.
TEST(RotationLayer, DiagonalAndStartingProductStateRideInTheLayersPass) {
  std::mt19937_64 rng(10);
  const unsigned n = 9;
  const std::vector<PhaseTerm> terms = {{0b11, 1.0}, {0b110000000, 2.0}, {0b1010, 1.0}};
  const DiagonalOp op{std::make_shared<const DiagonalValues>(n, terms), 0.7, 0.2};
  const DiagonalPass pass(op);
  const LayerTiling tiling{5, 2, 7, 1};
  for (int mode = 0; mode < 8; ++mode) {
    const bool with_start = mode & 1, with_diagonal = mode & 2, high_only = mode & 4;
    const auto first = random_layer(n, rng);
    auto layer = random_layer(n, rng);
    if (high_only) std::erase_if(layer, [&](auto& g) { return g.qubit < tiling.tile_bits; });
    StateVector want = with_start ? StateVector(n) : random_state(n, rng);
    StateVector got = with_start ? random_state(n, rng) : clone(want);  // a start overwrites it
    if (with_start) apply_one_by_one(want, first);
    if (with_diagonal) apply_diagonal(want, op);
    apply_one_by_one(want, layer);
    apply_rotation_layer(
        got.data(), n, layer, active_kernel_set(), with_diagonal ? &pass : nullptr, tiling,
        with_start ? std::optional(std::span<const QubitMatrix>(first)) : std::nullopt);
    expect_near(got, want);
  }
}

}  // namespace
}  // namespace corvid
