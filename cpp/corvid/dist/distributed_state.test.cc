// Run under mpirun with 1, 2 or 4 ranks (and 3, to see it refused): every rank builds the same
// random problem, simulates its slice, and checks it against the whole state that the
// single-process machine computes from the same QAOA circuit.
#include "corvid/dist/distributed_state.h"

#include <gmock/gmock.h>
#include <mpi.h>

#include <bit>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <optional>
#include <random>

#include "corvid/circuit/circuit.h"
#include "corvid/dist/dist_testing.h"
#include "corvid/dist/mpi_check.h"
#include "corvid/qaoa/diagonal.h"
#include "corvid/sim/machine/machine.h"
#include "corvid/testing/random_circuit.h"
#include "corvid/util/errors.h"

namespace corvid::dist {
namespace {

using ::testing::HasSubstr, ::testing::ThrowsMessage;

// exp(-i·angle/2·Z…Z) on the qubits of `mask`: RZ on the last between CNOT ladders onto it.
void append_phase(Circuit& c, std::uint64_t mask, double angle) {
  std::vector<std::uint32_t> q;
  for (std::uint32_t b = 0; b < 64; ++b) {
    if ((mask >> b) & 1) q.push_back(b);
  }
  if (q.empty()) return;
  for (std::size_t k = 0; k + 1 < q.size(); ++k) c << Gate(GateKind::CNOT, {q[k], q.back()});
  c << Gate(GateKind::RZ, {q.back()}, angle);
  for (std::size_t k = 0; k + 1 < q.size(); ++k) c << Gate(GateKind::CNOT, {q[k], q.back()});
}

enum class Start { kZero, kUniform, kCircuit };

struct Case {
  unsigned num_qubits;
  int layers;
  Start start;
  std::size_t max_chunk;
  Mixer mixer = Mixer::kX;
  bool compact_diagonal = false;  // phase and expectation from local_diagonal
};

class DistributedQaoa : public ::testing::TestWithParam<Case> {};

TEST_P(DistributedQaoa, MatchesSingleProcessMachine) {
  if (!std::has_single_bit(static_cast<unsigned>(world_size()))) GTEST_SKIP();
  const Case& c = GetParam();
  const unsigned n = c.num_qubits;
  std::mt19937_64 rng(1000 + n);  // the same on every rank
  const Problem problem = random_problem(n, rng);
  std::uniform_real_distribution<double> angle(-1.5, 1.5);

  DistributedState state(MPI_COMM_WORLD, n, c.max_chunk);
  Machine machine(1);
  const auto qubits = machine.allocate_qubits(n);
  Circuit circuit;
  if (c.start == Start::kUniform) {
    state.set_uniform();
    for (const Qubit& q : qubits) circuit << Gate(GateKind::H, {q});
  } else if (c.start == Start::kCircuit) {
    const Circuit start = reference::random_circuit(n, 4 * n, rng);
    state.apply_gates(start.gates());
    for (const Gate& g : start.gates()) {
      std::vector<Qubit> on;
      for (std::uint32_t q : g.qubits()) on.push_back(qubits[q]);
      circuit << Gate(g.kind(), on, g.angle());
    }
  }
  const AlignedBuffer<double> energies = local_z_energies(state, problem.masks, problem.coeffs);
  const DiagonalValues diagonal = local_diagonal(state, problem.masks, problem.coeffs);
  const auto pairs = xy_pairs(c.mixer, n);
  const std::uint64_t sent_before = state.bytes_exchanged();
  for (int layer = 0; layer < c.layers; ++layer) {
    const double gamma = angle(rng);
    const double beta = angle(rng);
    if (c.compact_diagonal) {
      state.apply_phase(diagonal, gamma);
    } else {
      state.apply_phase(energies, gamma);
    }
    for (std::size_t t = 0; t < problem.masks.size(); ++t) {
      append_phase(circuit, problem.masks[t], 2.0 * gamma * problem.coeffs[t]);
    }
    if (c.mixer == Mixer::kX) {
      state.apply_x_mixer(beta);
      for (const Qubit& q : qubits) circuit << Gate(GateKind::RX, {q}, -2.0 * beta);
    } else {
      state.apply_xy_mixer(pairs, beta);
      for (const auto& [a, b] : pairs) {
        circuit << Gate(GateKind::RXX, {qubits[a], qubits[b]}, -beta)
                << Gate(GateKind::RYY, {qubits[a], qubits[b]}, -beta);
      }
    }
  }
  // An X layer sends each global qubit's slice once, or with k >= 2 two transpositions of
  // (1 - 1/2^k) of it; an XY ring layer at most twice the slice per global qubit (swapped in
  // and out, once more where the ring's closing pair needs an evicted qubit back).
  const unsigned k = n - state.local_qubits();
  const std::uint64_t slice_bytes = 16 * (std::uint64_t{1} << state.local_qubits());
  const std::uint64_t pairwise = k * slice_bytes * c.layers;
  const std::uint64_t transposed = 2 * (slice_bytes - (slice_bytes >> k)) * c.layers;
  const std::uint64_t sent = state.bytes_exchanged() - sent_before;
  if (c.mixer == Mixer::kX) EXPECT_EQ(sent, k >= 2 && n >= 2 * k ? transposed : pairwise);
  if (c.mixer == Mixer::kXyRing) EXPECT_LE(sent, 2 * pairwise);
  const ProbabilityTable table = machine.probabilities(circuit, qubits);
  const auto& want = table.values;
  const AlignedBuffer<double> all_e =
      energies_from_z_terms(static_cast<int>(n), problem.masks, problem.coeffs);
  const auto p = state.local_probabilities();
  ASSERT_EQ(p.size(), want.size() >> (n - state.local_qubits()));
  for (std::size_t i = 0; i < p.size(); ++i) {
    ASSERT_NEAR(p[i], want[state.first_index() + i], 1e-12) << i;
    ASSERT_NEAR(energies[i], all_e[state.first_index() + i], 1e-12) << i;
  }

  EXPECT_NEAR(state.expectation(p, energies), expectation(want, all_e), 1e-12);
  EXPECT_NEAR(state.expectation(diagonal), expectation(want, all_e), 1e-12);
  for (double temperature : {0.7, 3.0}) {
    EXPECT_NEAR(state.gibbs_loss(p, energies, temperature),
                -std::log(gibbs_sum(want, all_e, temperature)), 1e-12);
  }

  // CVaR jumps where the entries it selects change, and a distribution with near-ties (the
  // zero start's) changes them with the last bit of rounding: compare it with the single-process
  // CVaR of the very probabilities the ranks hold.
  std::vector<double> held(want.size());
  MPI_Allgather(p.data(), static_cast<int>(p.size()), MPI_DOUBLE, held.data(),
                static_cast<int>(p.size()), MPI_DOUBLE, MPI_COMM_WORLD);
  for (double alpha : {0.0, 0.05, 0.3, 0.55, 0.9, 1.0}) {
    EXPECT_NEAR(state.cvar(p, energies, alpha), cvar(held, all_e, alpha), 1e-12) << alpha;
  }

  const AlignedBuffer<std::uint32_t> order = descending_order(want);
  const std::vector<Solution> top = state.top_solutions(p, 20);
  ASSERT_EQ(top.size(), std::min<std::size_t>(20, want.size()));
  for (std::size_t i = 0; i < top.size(); ++i) {
    EXPECT_NEAR(top[i].probability, want[order[i]], 1e-12) << i;
    EXPECT_NEAR(top[i].probability, want[top[i].index], 1e-12) << i;
    if (i > 0) EXPECT_GE(top[i - 1].probability, top[i].probability);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Problems, DistributedQaoa,
    // No layers: 32 equal weights, ties across the ranks.
    ::testing::Values(Case{5, 0, Start::kUniform, 1}, Case{3, 2, Start::kUniform, 1},
                      Case{6, 1, Start::kZero, 1}, Case{12, 1, Start::kUniform, kMaxExchangeChunk},
                      Case{13, 4, Start::kUniform, 64, Mixer::kX, true},
                      Case{14, 3, Start::kZero, 1000}, Case{14, 4, Start::kUniform, 100},
                      Case{6, 2, Start::kCircuit, 3, Mixer::kXyRing, true},
                      Case{7, 2, Start::kCircuit, 1, Mixer::kXyComplete},
                      Case{12, 3, Start::kCircuit, 256, Mixer::kXyRing},
                      Case{16, 1, Start::kCircuit, kMaxExchangeChunk, Mixer::kXyComplete, true}));

// X layers kept transposed between layers against the same ansatz layer by layer: the same
// state, loss and gradient, and the sweep leaves the start in the canonical layout. Each kept
// layer saves one transposition; p odd needs one back, except from the uniform start, which is
// the same in both layouts.
TEST(DistributedState, KeepsXLayersTransposed) {
  if (!std::has_single_bit(static_cast<unsigned>(world_size()))) GTEST_SKIP();
  const unsigned n = 9;
  std::mt19937_64 rng(9);
  const Problem problem = random_problem(n, rng);
  const std::vector<Gate> gates = reference::random_circuit(n, 3 * n, rng).gates();
  const std::vector<double> angles{0.3, -0.7, 1.1, 0.4, 0.9, -0.2};
  const std::uint64_t p = angles.size() / 2;
  for (const bool circuit : {false, true}) {
    DistributedState kept(MPI_COMM_WORLD, n, 64), plain(MPI_COMM_WORLD, n, 64);
    const DiagonalValues diagonal = local_diagonal(kept, problem.masks, problem.coeffs);
    const DiagonalValues transposed =
        local_diagonal(kept, problem.masks, problem.coeffs, Layout::kTransposed);
    DistributedAnsatz by_layer{&diagonal, &diagonal, std::nullopt, std::nullopt};
    if (circuit) by_layer.initial = gates;
    DistributedAnsatz ansatz = by_layer;
    ansatz.phase_transposed = &transposed;
    const std::uint64_t slice = 16 * (std::uint64_t{1} << kept.local_qubits());
    const std::uint64_t transposition = slice - (slice >> (n - kept.local_qubits()));
    const std::uint64_t back = circuit ? p % 2 : 0;

    plain.run_ansatz(by_layer, angles);
    kept.run_ansatz(ansatz, angles);
    EXPECT_EQ(plain.bytes_exchanged() - kept.bytes_exchanged(), (p - back) * transposition);
    const auto same_amplitudes = [&] {
      for (std::size_t i = 0; i < kept.local_amplitudes().size(); ++i) {
        ASSERT_NEAR(std::abs(kept.local_amplitudes()[i] - plain.local_amplitudes()[i]), 0.0, 1e-12)
            << i;
      }
    };
    same_amplitudes();

    const LossSettings settings{LossKind::kCvar, 0.3, 1.0};
    std::vector<double> want(angles.size()), got(angles.size());
    const std::uint64_t sent_before = plain.bytes_exchanged() - kept.bytes_exchanged();
    EXPECT_NEAR(kept.loss_and_gradient(ansatz, angles, settings, got),
                plain.loss_and_gradient(by_layer, angles, settings, want), 1e-12);
    for (std::size_t i = 0; i < angles.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-12) << i;
    EXPECT_EQ(plain.bytes_exchanged() - kept.bytes_exchanged() - sent_before,
              (2 * p - back) * transposition);
  }
}

TEST(DistributedState, RefusesRankCountsThatDoNotSplitTheQubits) {
  const int ranks = world_size();
  if (!std::has_single_bit(static_cast<unsigned>(ranks))) {
    EXPECT_THAT(
        [] { DistributedState(MPI_COMM_WORLD, 10); },
        ThrowsMessage<std::invalid_argument>(HasSubstr("power-of-two number of ranks, got 3")));
    return;
  }
  // Each rank keeps at least one local qubit.
  const unsigned most_global =
      static_cast<unsigned>(std::countr_zero(static_cast<unsigned>(ranks)));
  EXPECT_THROW(DistributedState(MPI_COMM_WORLD, most_global), std::invalid_argument);
  EXPECT_NO_THROW(DistributedState(MPI_COMM_WORLD, most_global + 1));
  EXPECT_THROW(DistributedState(MPI_COMM_WORLD, 63), std::invalid_argument);
  EXPECT_THROW(DistributedState(MPI_COMM_WORLD, 5, 0), std::invalid_argument);
  if (most_global >= 2) {  // one local qubit cannot trade places with two global ones
    const DistributedState state(MPI_COMM_WORLD, most_global + 1);
    EXPECT_THROW(local_diagonal(state, {}, {}, Layout::kTransposed), std::invalid_argument);
  }
  // 2^50 amplitudes (16 PiB) fit on no node: refused on every rank before any allocates.
  EXPECT_THAT([] { DistributedState(MPI_COMM_WORLD, 50); },
              ThrowsMessage<OutOfMemory>(HasSubstr(std::to_string(ranks) + " ranks on this node")));
}

TEST(DistributedState, BadInputOnOneRankIsAnErrorOnEveryRank) {
  if (!std::has_single_bit(static_cast<unsigned>(world_size()))) GTEST_SKIP();
  DistributedState state(MPI_COMM_WORLD, 4);
  state.set_uniform();
  const auto p = state.local_probabilities();
  std::vector<double> e(p.size(), 1.0);
  // Rank 0 passes one entry too few (or a NaN weight); the others pass good input.
  const std::size_t size = state.rank() == 0 ? p.size() - 1 : p.size();
  EXPECT_THROW(state.expectation({p.data(), size}, {e.data(), size}), std::invalid_argument);
  std::vector<double> bad(p.data(), p.data() + p.size());
  if (state.rank() == 0) bad[0] = std::nan("");
  EXPECT_THROW(state.top_solutions(bad, 3), std::invalid_argument);
  // Good input afterwards still works: no rank was left behind in a collective.
  EXPECT_NEAR(state.expectation(p, e), 1.0, 1e-15);
  EXPECT_THROW(state.apply_one_qubit(4, Matrix2{}), std::invalid_argument);
  EXPECT_THROW(state.cvar(p, e, state.rank() == 0 ? 1.5 : 0.5), std::invalid_argument);
}

// Amplitudes written from one formula on any rank count are the same bits, so the counts of one
// seed must be the same as one process's; they must also follow the probabilities.
TEST(DistributedState, SamplesTheSameCountsOnAnyRankCount) {
  if (!std::has_single_bit(static_cast<unsigned>(world_size()))) GTEST_SKIP();
  const unsigned n = 9;
  const auto amplitude = [](std::uint64_t x) {
    return std::complex<double>(1.0 + (x * 37) % 11, 0.5);
  };
  double norm = 0.0;
  for (std::uint64_t x = 0; x < (1u << n); ++x) norm += std::norm(amplitude(x));
  DistributedState world(MPI_COMM_WORLD, n), alone(MPI_COMM_SELF, n);
  for (DistributedState* s : {&world, &alone}) {
    auto amps = s->local_amplitudes();
    for (std::size_t i = 0; i < amps.size(); ++i) {
      amps[i] = amplitude(s->first_index() + i) / std::sqrt(norm);
    }
  }
  const std::uint64_t shots = 200000;
  std::vector<std::uint64_t> gathered(1u << n, 0), single(1u << n, 0);
  for (const Count& c : world.sample_all(shots, 42)) gathered[c.index] = c.shots;
  for (const Count& c : alone.sample(shots, 42)) single[c.index] = c.shots;
  EXPECT_EQ(gathered, single);
  std::uint64_t total = 0;
  for (std::uint64_t x = 0; x < (1u << n); ++x) {
    const double p = std::norm(amplitude(x)) / norm;
    total += gathered[x];
    EXPECT_NEAR(double(gathered[x]), shots * p, 6.0 * std::sqrt(shots * p) + 1.0) << x;
  }
  EXPECT_EQ(total, shots);
  std::vector<std::uint64_t> other(1u << n, 0);
  for (const Count& c : alone.sample(shots, 43)) other[c.index] = c.shots;
  EXPECT_NE(other, single);
}

// Run only by the ctest that expects its message (disabled otherwise): rank 1's failed call
// must end rank 0 too, which waits in a barrier that rank 1 never reaches.
TEST(DistributedState, DISABLED_FailedCallEndsEveryRank) {
  MPI_Comm comm;
  MPI_Comm_dup(MPI_COMM_WORLD, &comm);
  MPI_Comm_set_errhandler(comm, MPI_ERRORS_RETURN);
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  if (rank == 1) {
    const double value = 1.0;
    check_mpi(MPI_Send(&value, 1, MPI_DOUBLE, 1 << 20, 0, comm), "MPI_Send", comm);
  }
  MPI_Barrier(comm);
  ADD_FAILURE() << "rank " << rank << " was not ended";
}

// Run only by the ctest that times it: rank 1 dies by SIGKILL after one exchange while rank 0
// goes on exchanging with it; the job must end, not hang.
TEST(DistributedState, DISABLED_KilledRankEndsTheJob) {
  DistributedState state(MPI_COMM_WORLD, 12, 64);
  state.set_uniform();
  state.apply_x_mixer(0.3);
  if (state.rank() == 1) std::raise(SIGKILL);
  for (int i = 0; i < 1000000; ++i) state.apply_x_mixer(0.3);
  ADD_FAILURE() << "rank " << state.rank() << " was not ended";
}

// Rank 0 prints the usual report; the other ranks print only their failures, prefixed.
class FailurePrinter : public ::testing::EmptyTestEventListener {
 public:
  explicit FailurePrinter(int rank) : rank_(rank) {}
  void OnTestPartResult(const ::testing::TestPartResult& r) override {
    if (r.failed()) {
      std::fprintf(stderr, "rank %d: %s:%d: %s\n", rank_, r.file_name() ? r.file_name() : "?",
                   r.line_number(), r.summary());
    }
  }

 private:
  int rank_;
};

}  // namespace
}  // namespace corvid::dist

int main(int argc, char** argv) {
  if (MPI_Init(&argc, &argv) != MPI_SUCCESS) return 1;
  ::testing::InitGoogleTest(&argc, argv);
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  if (rank != 0) {
    auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new corvid::dist::FailurePrinter(rank));
  }
  int failed = RUN_ALL_TESTS() != 0 ? 1 : 0;
  int any_failed = 0;
  MPI_Allreduce(&failed, &any_failed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  MPI_Finalize();
  return any_failed;
}
