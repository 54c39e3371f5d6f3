// Compiled execution (fused diagonals, blocked layers, every kernel set, 1 and 2 threads)
// against the plain gate-by-gate path.
#include "corvid/sim/compile/compiler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "corvid/circuit/circuit.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/sim/execute/compiled_executor.h"
#include "corvid/sim/execute/executor.h"
#include "corvid/sim/machine/probabilities.h"
#include "corvid/testing/dense_reference.h"
#include "corvid/util/parallel.h"

namespace corvid {
namespace {

constexpr double kTol = 1e-12;

// Circuits rich in what the compiler fuses: parity ladders (RZ on a CNOT-collected parity, the
// ladder undone), loose diagonal gates, CNOTs that never cancel, one-qubit runs, and gates the
// compiler must leave alone.
Circuit fusion_circuit(unsigned n, unsigned segments, std::mt19937_64& rng) {
  std::uniform_int_distribution<std::uint32_t> qubit(0, n - 1);
  std::uniform_real_distribution<double> angle(-2 * std::numbers::pi, 2 * std::numbers::pi);
  const GateKind diagonal[] = {GateKind::Z, GateKind::S,  GateKind::T,   GateKind::RZ,
                               GateKind::P, GateKind::CZ, GateKind::RZZ, GateKind::I};
  const GateKind one[] = {GateKind::H,  GateKind::X,  GateKind::Y, GateKind::RX,
                          GateKind::RY, GateKind::RZ, GateKind::S, GateKind::I};
  const GateKind other[] = {GateKind::SWAP, GateKind::RXX, GateKind::RYY, GateKind::CNOT};
  auto two = [&](GateKind k) {
    const std::uint32_t a = qubit(rng);
    std::uint32_t b = qubit(rng);
    while (b == a) b = qubit(rng);
    return Gate(k, {a, b}, angle(rng));
  };
  auto any = [&](GateKind k) {
    if (gate_info(k).num_qubits == 2 && n == 1) k = GateKind::RZ;
    return gate_info(k).num_qubits == 1 ? Gate(k, {qubit(rng)}, angle(rng)) : two(k);
  };
  Circuit c;
  for (unsigned s = 0; s < segments; ++s) {
    switch (rng() % 4) {
      case 0: {  // a parity ladder, sometimes with diagonal gates inside it
        std::vector<std::uint32_t> qs(n);
        for (std::uint32_t q = 0; q < n; ++q) qs[q] = q;
        std::shuffle(qs.begin(), qs.end(), rng);
        const std::size_t k = 1 + rng() % n;
        for (std::size_t j = 0; j + 1 < k; ++j) c << Gate(GateKind::CNOT, {qs[j], qs[j + 1]});
        c << Gate(GateKind::RZ, {qs[k - 1]}, angle(rng));
        if (rng() % 2) c << any(diagonal[rng() % 8]);
        for (std::size_t j = k - 1; j-- > 0;) c << Gate(GateKind::CNOT, {qs[j], qs[j + 1]});
        break;
      }
      case 1:
        for (int j = 0; j < 4; ++j) c << any(rng() % 3 ? diagonal[rng() % 8] : GateKind::CNOT);
        break;
      case 2:
        for (int j = 0; j < 5; ++j) c << any(one[rng() % 8]);
        break;
      default: c << any(other[rng() % 4]);
    }
  }
  return c;
}

template <class Want>
void expect_near(const StateVector& got, const Want& want, const std::string& what) {
  for (std::uint64_t i = 0; i < want.size(); ++i) {
    ASSERT_NEAR(std::abs(got[i] - want[i]), 0.0, kTol) << what << ", amplitude " << i;
  }
}

void expect_compiled_matches_plain(const Circuit& c, unsigned n, const std::string& what) {
  StateVector plain(n);
  execute(plain, c.gates());
  const CompiledProgram program = compile(c.gates(), n);
  for (const KernelSet* kernels : available_kernel_sets()) {
    for (int threads : {1, 2}) {
      set_num_threads(threads);
      StateVector fused = StateVector::uninitialized(n);
      execute(fused, program, /*from_zero=*/true, nullptr, *kernels);
      expect_near(
          fused, plain,
          what + ", " + std::string(kernels->name) + ", " + std::to_string(threads) + " threads");
    }
  }
}

// QAOA on a ring: a Hadamard layer, then per layer the ZZ ladders and a mixer.
Circuit qaoa_ring(unsigned n, std::span<const double> gammas, std::span<const double> betas) {
  Circuit c;
  for (std::uint32_t q = 0; q < n; ++q) c << Gate(GateKind::H, {q});
  for (std::size_t l = 0; l < gammas.size(); ++l) {
    for (std::uint32_t q = 0; q < n; ++q) {
      const std::uint32_t a = std::min(q, (q + 1) % n), b = std::max(q, (q + 1) % n);
      c << Gate(GateKind::CNOT, {a, b}) << Gate(GateKind::RZ, {b}, 2.0 * (q + 1), gammas[l])
        << Gate(GateKind::CNOT, {a, b});
    }
    for (std::uint32_t q = 0; q < n; ++q) c << Gate(GateKind::I, {q});
    for (std::uint32_t q = 0; q < n; ++q) c << Gate(GateKind::RX, {q}, -2 * betas[l]);
  }
  return c;
}

class CompiledRandom : public ::testing::TestWithParam<unsigned> {};

TEST_P(CompiledRandom, MatchesPlainPath) {
  const unsigned n = GetParam();
  std::mt19937_64 rng(500 + n);
  const int threads = num_threads();
  for (int trial = 0; trial < 4; ++trial) {
    expect_compiled_matches_plain(fusion_circuit(n, 24, rng), n, "trial " + std::to_string(trial));
  }
  set_num_threads(threads);
}

// 1 and 2 qubits reach the degenerate tile sizes; 16 and 17 cross the parallel threshold and
// the first tile boundary, so layers take their high-qubit pass.
INSTANTIATE_TEST_SUITE_P(Qubits, CompiledRandom, ::testing::Values(1u, 2u, 5u, 9u, 16u, 17u));

// Single precision follows the double-precision plain path to float rounding, including plain
// one- and two-qubit gates (which take the layer and 4×4 kernels there) and the in-place table.
TEST(Compiler, SinglePrecisionFollowsDoubleToFloatRounding) {
  std::mt19937_64 rng(77);
  for (unsigned n : {3u, 16u}) {
    const Circuit c = fusion_circuit(n, 30, rng);
    StateVector plain(n);
    execute(plain, c.gates());
    const CompiledProgram program = compile(c.gates(), n);
    for (const KernelSet32* kernels : available_kernel_sets<float>()) {
      StateVector32 single = StateVector32::uninitialized(n);
      execute<float>(single, program, true, nullptr, *kernels);
      for (std::uint64_t i = 0; i < plain.size(); ++i) {
        ASSERT_NEAR(std::abs(Amplitude(single[i]) - plain[i]), 0.0, 2e-5) << "n " << n << ", " << i;
      }
      std::vector<unsigned> all(n);
      for (unsigned q = 0; q < n; ++q) all[q] = q;
      const ProbabilityTable copied = marginal_probabilities(single, all);
      const ProbabilityTable in_place = probabilities_in_place(std::move(single));
      EXPECT_EQ(single.size(), 0u);
      for (std::uint64_t i = 0; i < plain.size(); ++i) {
        ASSERT_EQ(in_place.values[i], copied.values[i]);
        ASSERT_NEAR(in_place.values[i], std::norm(plain[i]), 2e-5);
      }
    }
  }
}

// The program's operations by kind: d(iagonal), l(ayer), g(ate).
std::string shape(const CompiledProgram& p) {
  std::string s;
  for (const CompiledOp& op : p.ops) s += "dlg"[op.index()];
  return s;
}

TEST(Compiler, QaoaCircuitBecomesOneOperationPerLayerOrStaysPlain) {
  const unsigned n = 15;
  const double gammas[] = {0.3, -0.7}, betas[] = {0.4, 1.1};
  const Circuit c = qaoa_ring(n, gammas, betas);
  const CompiledProgram p = compile(c.gates(), n);
  ASSERT_EQ(shape(p), "ldldl");
  // The ring's phases 2k·γ/2 have ratios 1..n: at most n(n+1)+1 levels, an 8- or 16-bit index.
  EXPECT_EQ(std::get<DiagonalOp>(p.ops[1]).values->dense(), nullptr);
  expect_compiled_matches_plain(c, n, "qaoa ring");
  set_fusion_enabled(false);
  EXPECT_EQ(shape(compile(c.gates(), n)), std::string(c.size() - 2 * n, 'g'));  // I gates go
  set_fusion_enabled(true);
}

// Phase layers at scales across the double range, and unscaled runs whose angles span it,
// against the dense reference: the cache key is exact, so no scale is ever divided out of the
// angles (a subnormal first angle once turned the state into NaN that way).
Gate rz(std::uint32_t q, double angle, double scale = 1.0) {
  return Gate(GateKind::RZ, {q}, angle, scale);
}

std::vector<Gate> ladder(double scale) {  // 1.5·Z0Z1 − 0.5·Z1Z2 + Z2 at one scale
  return {Gate(GateKind::CNOT, {0, 1}),
          rz(1, 3.0, scale),
          Gate(GateKind::CNOT, {0, 1}),
          Gate(GateKind::CNOT, {1, 2}),
          rz(2, -1.0, scale),
          Gate(GateKind::CNOT, {1, 2}),
          rz(2, 2.0, scale)};
}

TEST(Compiler, ExtremeAnglesMatchTheDenseReference) {
  std::vector<std::vector<Gate>> cases = {
      {Gate(GateKind::Z, {2}), rz(0, 2.225073858507e-311)},      // a subnormal first angle
      {rz(0, 0.0), rz(1, 0.0)},                                  // zeros
      {rz(1, 1e-300), rz(0, 3.0), Gate(GateKind::CZ, {0, 1})},   // tiny beside large
      {rz(0, 1.0, 0.5), rz(1, 1.0, 0.25), rz(0, 2.0, 1e-310)}};  // mixed scales
  // Scales 2^40 and 2^-1070 keep every product and sum exact, so phases agree to rounding.
  for (double scale : {0.7, -2.3, 0.0, -0.0, std::ldexp(1.0, -1070), std::ldexp(1.0, 40)}) {
    cases.push_back(ladder(scale));
  }
  for (std::size_t k = 0; k < cases.size(); ++k) {
    Circuit c;  // the case's diagonal applied to |+++>
    for (std::uint32_t q = 0; q < 3; ++q) c << Gate(GateKind::H, {q});
    for (const Gate& g : cases[k]) c << g;
    const reference::Vector want = reference::reference_state(c, 3);
    const CompiledProgram p = compile(c.gates(), 3);
    for (const KernelSet* kernels : available_kernel_sets()) {
      StateVector got = StateVector::uninitialized(3);
      execute(got, p, /*from_zero=*/true, nullptr, *kernels);
      expect_near(got, want, "case " + std::to_string(k) + ", " + std::string(kernels->name));
    }
  }
}

TEST(Compiler, EveryScaleOfALayerSharesOneExactEntry) {
  clear_diagonal_cache();
  const std::size_t misses = diagonal_cache_misses();
  for (double scale : {0.7, -2.3, std::ldexp(1.0, -1070), std::ldexp(1.0, 40), 1e-5}) {
    const std::vector<Gate> gates = ladder(scale);
    const CompiledProgram p = compile(gates, 3);
    ASSERT_EQ(p.ops.size(), 1u);
    EXPECT_EQ(std::get<DiagonalOp>(p.ops[0]).scale, scale);
  }
  EXPECT_EQ(diagonal_cache_misses(), misses + 1);
  // Unscaled angles are keys of their own: equal ratios alone share nothing.
  compile(std::vector<Gate>{rz(0, 1.0), rz(1, 2.0)}, 3);
  compile(std::vector<Gate>{rz(0, 2.0), rz(1, 4.0)}, 3);
  EXPECT_EQ(diagonal_cache_misses(), misses + 3);
}

TEST(Compiler, LeavesShortRunsAndNonCancellingCnotsToThePlainPath) {
  const Gate cnot(GateKind::CNOT, {0, 1}), rz(GateKind::RZ, {1}, 0.5), h(GateKind::H, {0});
  // CNOT·RZ·CNOT is diagonal; the CNOT after it stays, and so does the lone H.
  const std::vector<Gate> gates = {cnot, rz, cnot, cnot, h};
  const CompiledProgram p = compile(gates, 2);
  ASSERT_EQ(shape(p), "dgg");
  EXPECT_EQ(std::get<GateOp>(p.ops[1]).gate, cnot);
  EXPECT_EQ(std::get<GateOp>(p.ops[2]).gate, h);
  // Cancelling CNOTs alone are the identity: nothing is left.
  const std::vector<Gate> pair = {cnot, cnot, Gate(GateKind::I, {1})};
  EXPECT_EQ(shape(compile(pair, 2)), "");
}

}  // namespace
}  // namespace corvid
