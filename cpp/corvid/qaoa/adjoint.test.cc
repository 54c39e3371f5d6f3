#include "corvid/qaoa/adjoint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/sim/kernels/kernel_set.h"

namespace corvid {
namespace {

std::vector<PhaseTerm> random_terms(unsigned n, std::mt19937_64& rng) {
  std::normal_distribution<double> normal;
  std::vector<PhaseTerm> terms;
  for (unsigned q = 0; q < n; ++q) {
    terms.push_back({std::uint64_t{1} << q, normal(rng)});
    terms.push_back({(std::uint64_t{1} << q) | (std::uint64_t{1} << ((q + 2) % n)), normal(rng)});
  }
  return terms;
}

struct Case {
  unsigned n;
  bool xy;
  bool custom_start;
  LossSettings loss;
  std::size_t p;
  std::vector<std::size_t> checked;  // partials compared with differences (all when empty)
};

class AdjointGradient : public ::testing::TestWithParam<Case> {};

// n = 17 stores D densely, n = 21 splits the high qubits into two passes.
TEST_P(AdjointGradient, MatchesCentralDifferencesOfTheLoss) {
  const Case& c = GetParam();
  std::mt19937_64 rng(c.n * 7 + c.p);
  QaoaAnsatz ansatz;
  ansatz.num_qubits = c.n;
  ansatz.phase_terms = random_terms(c.n, rng);
  if (c.xy) ansatz.xy_pairs = {{{0, 1}, {1, 2}, {2, 0}, {c.n - 1, 1}}};
  if (c.custom_start) {
    ansatz.initial = std::vector<Gate>{
        Gate(GateKind::RY, {Qubit(0)}, 0.7), Gate(GateKind::H, {Qubit(1)}),
        Gate(GateKind::CNOT, {Qubit(1), Qubit(2)}), Gate(GateKind::RX, {Qubit(c.n - 1)}, 1.1)};
  }
  std::vector<double> e(std::size_t{1} << c.n);  // the loss's energies, apart from the phases
  for (double& v : e) v = std::normal_distribution<double>()(rng);
  const QaoaObjective objective(ansatz, e);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  std::vector<double> angles(2 * c.p);
  for (double& a : angles) a = uniform(rng);
  std::vector<double> gradient(angles.size());
  const double loss = objective.loss_and_gradient(angles, c.loss, gradient);
  EXPECT_NEAR(loss, objective.loss(angles, c.loss), 1e-12 * std::max(1.0, std::abs(loss)));
  std::vector<std::size_t> checked = c.checked;
  for (std::size_t i = 0; checked.empty() && i < angles.size(); ++i) checked.push_back(i);
  const double h = 1e-6;
  for (std::size_t i : checked) {
    std::vector<double> up = angles, down = angles;
    up[i] += h;
    down[i] -= h;
    const double expected = (objective.loss(up, c.loss) - objective.loss(down, c.loss)) / (2 * h);
    EXPECT_NEAR(gradient[i], expected, 1e-6 * std::max(1.0, std::abs(expected))) << "angle " << i;
  }
  // Every kernel set gives the same gradient (the products have their own portable code).
  const std::string active(active_kernel_set().name);
  for (const KernelSet* k : available_kernel_sets()) {
    set_active_kernel_set(k->name);
    std::vector<double> again(angles.size());
    objective.loss_and_gradient(angles, c.loss, again);
    for (std::size_t i = 0; i < angles.size(); ++i)
      EXPECT_NEAR(again[i], gradient[i], 1e-10 * std::max(1.0, std::abs(gradient[i]))) << k->name;
  }
  set_active_kernel_set(active);
  const std::vector<double> rows = {angles[0], angles[c.p], -angles[0], 0.5};
  const std::vector<double> row = {angles[0], angles[c.p]};
  const auto batch = objective.losses(rows, 2, c.loss);
  EXPECT_DOUBLE_EQ(batch[0], objective.loss(row, c.loss));
}

INSTANTIATE_TEST_SUITE_P(Cases, AdjointGradient,
                         ::testing::Values(Case{3, false, true, {LossKind::kExpectation}, 2, {}},
                                           Case{4, true, false, {LossKind::kCvar, 0.35}, 3, {}},
                                           Case{5, true, true, {LossKind::kGibbs, 1.0, 0.4}, 2, {}},
                                           Case{17, false, false, {LossKind::kExpectation}, 1, {}},
                                           Case{21, false, true, {LossKind::kExpectation}, 1, {1}}),
                         [](const auto& info) {
                           const Case& c = info.param;
                           return "n" + std::to_string(c.n) + (c.xy ? "_xy" : "_x") + "_p" +
                                  std::to_string(c.p);
                         });

TEST(QaoaObjective, RefusesMalformedInput) {
  const std::vector<double> e(8, 0.0);
  QaoaAnsatz a;
  a.num_qubits = 3;
  a.phase_terms = {{0b011, 1.0}};
  EXPECT_THROW(QaoaObjective(a, std::span<const double>(e).first(4)), std::invalid_argument);
  const QaoaObjective ok(a, e);
  EXPECT_THROW(ok.loss(std::vector<double>{0.1, 0.2, 0.3}, {}), std::invalid_argument);
  EXPECT_THROW(ok.loss(std::vector<double>{0.1, NAN}, {}), std::invalid_argument);
  auto bad = a;
  bad.phase_terms = {{0b1000, 1.0}};
  EXPECT_THROW(QaoaObjective(bad, e), std::invalid_argument);
  bad = a;
  bad.xy_pairs = {{{1, 1}}};
  EXPECT_THROW(QaoaObjective(bad, e), std::invalid_argument);
  bad = a;
  bad.initial = std::vector<Gate>{Gate(GateKind::H, {Qubit(3)})};
  EXPECT_THROW(QaoaObjective(bad, e), std::invalid_argument);
}

}  // namespace
}  // namespace corvid
