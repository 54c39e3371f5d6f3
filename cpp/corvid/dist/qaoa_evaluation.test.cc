// The evaluation over the ranks against the single-process objective: the same problem and
// angles on every rank, losses and gradients to 1e-12, and on one process alone (its own
// communicator) the same top solutions and seeded samples.
#include "corvid/dist/qaoa_evaluation.h"

#include <gmock/gmock.h>
#include <mpi.h>

#include <bit>
#include <random>

#include "corvid/dist/dist_testing.h"
#include "corvid/qaoa/energy_table.h"
#include "corvid/testing/random_circuit.h"

namespace corvid::dist {
namespace {

using ::testing::HasSubstr, ::testing::ThrowsMessage;

// Monomials of degree 0 to 3 over n variables with integer coefficients in [-5, 5].
TermList random_monomials(unsigned n, std::mt19937_64& rng) {
  std::uniform_int_distribution<int> coeff(-5, 5);
  TermList terms;
  for (unsigned t = 0; t < 2 * n + 1; ++t) {
    std::uint64_t mask = 0;
    for (unsigned d = t % 4; d > 0; --d) mask |= std::uint64_t{1} << rng() % n;
    terms.masks.push_back(mask);
    terms.coeffs.push_back(coeff(rng));
  }
  return terms;
}

struct Case {
  unsigned num_qubits;
  int layers;
  Mixer mixer;
  bool circuit_start;
  LossKind loss;
  // Energies as monomials under a phase of their own; otherwise one Z problem is both.
  bool monomials = false;
};

class Evaluation : public ::testing::TestWithParam<Case> {};

TEST_P(Evaluation, MatchesSingleProcessObjective) {
  if (!std::has_single_bit(static_cast<unsigned>(world_size()))) GTEST_SKIP();
  const Case& c = GetParam();
  const unsigned n = c.num_qubits;
  std::mt19937_64 rng(3000 + n);
  const TermList phase = random_problem(n, rng);
  const TermList energies = c.monomials ? random_monomials(n, rng) : phase;
  QaoaAnsatz single{n, {}, std::nullopt, std::nullopt};
  for (const PhaseTerm& t : phase_form(phase.masks, phase.coeffs).terms) {
    single.phase_terms.push_back(t);
  }
  if (c.mixer != Mixer::kX) single.xy_pairs = xy_pairs(c.mixer, n);
  if (c.circuit_start) single.initial = reference::random_circuit(n, 3 * n, rng).gates();
  const EnergyForm form = c.monomials ? EnergyForm::kMonomials : EnergyForm::kZTerms;
  QaoaEvaluation world(MPI_COMM_WORLD, n, phase, form, energies, single.xy_pairs, single.initial);
  QaoaEvaluation alone(MPI_COMM_SELF, n, phase, form, energies, single.xy_pairs, single.initial);
  const EnergyTable table =
      c.monomials
          ? energy_table_from_monomials(static_cast<int>(n), energies.masks, energies.coeffs)
          : energy_table_from_z_terms(static_cast<int>(n), energies.masks, energies.coeffs);
  const auto [low, high] = world.energy_range();
  EXPECT_NEAR(low, table.min(), 1e-12);
  EXPECT_NEAR(high, table.max(), 1e-12);

  std::uniform_real_distribution<double> angle(-1.5, 1.5);
  std::vector<double> angles(2 * c.layers);
  for (double& a : angles) a = angle(rng);
  const LossSettings settings{c.loss, 0.3, 0.8};
  const QaoaObjective objective(single, table);
  std::vector<double> want(angles.size()), got(angles.size());
  const double want_loss = objective.loss_and_gradient(angles, settings, want);
  const DistributedState& state = world.state();
  const std::uint64_t sent_before = state.bytes_exchanged();
  EXPECT_NEAR(world.loss(angles, settings), want_loss, 1e-12);
  // X layers stay transposed between layers: from the uniform start, one transposition each.
  if (c.mixer == Mixer::kX && !c.circuit_start && state.keeps_x_layout()) {
    const std::uint64_t slice = 16 * (std::uint64_t{1} << state.local_qubits());
    EXPECT_EQ(state.bytes_exchanged() - sent_before,
              c.layers * (slice - (slice >> (n - state.local_qubits()))));
  }
  EXPECT_NEAR(world.loss_and_gradient(angles, settings, got), want_loss, 1e-12);
  for (std::size_t i = 0; i < angles.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-12) << i;

  // The gradient's sweep spends the state: the top solutions re-run it.
  alone.loss(angles, settings);
  const std::vector<Solution> top = world.top_solutions(8), top_alone = alone.top_solutions(8);
  ASSERT_EQ(top.size(), top_alone.size());
  for (std::size_t i = 0; i < top.size(); ++i) {
    EXPECT_EQ(top[i].index, top_alone[i].index) << i;
    EXPECT_NEAR(top[i].probability, top_alone[i].probability, 1e-12) << i;
  }
  // Slices summed over the ranks: the whole state's mass and moments per energy bin.
  const double threshold = low + 0.25 * (high - low);
  const EnergyHistogram h = world.energy_histogram(low, high, 16, threshold);
  const EnergyHistogram h_alone = alone.energy_histogram(low, high, 16, threshold);
  EXPECT_NEAR(h.at_or_below, h_alone.at_or_below, 1e-12);
  EXPECT_THAT(h.mass, ::testing::Pointwise(::testing::DoubleNear(1e-12), h_alone.mass));
  EXPECT_THAT(h.moment, ::testing::Pointwise(::testing::DoubleNear(1e-12), h_alone.moment));
  // Rank 0's seed counts; the same on every rank count.
  const auto counts = world.sample(angles, 5000, 11 + static_cast<std::uint64_t>(world.rank()));
  const auto counts_alone = alone.sample(angles, 5000, 11);
  ASSERT_EQ(counts.size(), counts_alone.size());
  for (std::size_t i = 0; i < counts.size(); ++i) {
    EXPECT_EQ(counts[i].index, counts_alone[i].index) << i;
    EXPECT_EQ(counts[i].shots, counts_alone[i].shots) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Ansatzes, Evaluation,
    ::testing::Values(Case{5, 3, Mixer::kX, false, LossKind::kExpectation},
                      Case{12, 3, Mixer::kX, true, LossKind::kGibbs},
                      Case{8, 2, Mixer::kXyRing, true, LossKind::kExpectation},
                      Case{7, 2, Mixer::kXyComplete, true, LossKind::kGibbs},
                      Case{14, 2, Mixer::kXyRing, true, LossKind::kGibbs},
                      Case{10, 2, Mixer::kX, false, LossKind::kCvar},
                      Case{9, 3, Mixer::kXyRing, true, LossKind::kCvar},
                      Case{16, 6, Mixer::kX, false, LossKind::kExpectation, true},
                      Case{11, 6, Mixer::kXyRing, false, LossKind::kCvar, true},
                      Case{10, 4, Mixer::kX, true, LossKind::kGibbs, true}));

TEST(Evaluation, BadInputIsAnErrorOnEveryRank) {
  if (!std::has_single_bit(static_cast<unsigned>(world_size()))) GTEST_SKIP();
  const unsigned n = 6;
  std::mt19937_64 rng(5);
  const TermList problem = random_problem(n, rng);
  QaoaEvaluation evaluation(MPI_COMM_WORLD, n, problem, EnergyForm::kZTerms, problem);
  EXPECT_THROW(evaluation.top_solutions(3), std::logic_error);
  const std::vector<double> drifted{0.1, 0.2 + evaluation.rank()};
  if (evaluation.ranks() > 1) {
    EXPECT_THAT([&] { evaluation.loss(drifted, {}); },
                ThrowsMessage<std::invalid_argument>(HasSubstr("different angles")));
  }
  EXPECT_THROW(evaluation.loss(std::vector<double>{0.1, 0.2, 0.3}, {}), std::invalid_argument);
  // A pair out of range on rank 0 alone fails the construction on every rank.
  const unsigned far = evaluation.rank() == 0 ? n : 1;
  EXPECT_ANY_THROW(QaoaEvaluation(MPI_COMM_WORLD, n, problem, EnergyForm::kZTerms, problem,
                                  std::vector<std::pair<unsigned, unsigned>>{{0, far}}));
  // The ranks are still in step.
  EXPECT_NO_THROW(evaluation.loss(std::vector<double>{0.1, 0.2}, {}));
}

}  // namespace
}  // namespace corvid::dist
