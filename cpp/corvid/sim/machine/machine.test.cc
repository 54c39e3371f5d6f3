#include "corvid/sim/machine/machine.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "corvid/testing/dense_reference.h"
#include "corvid/testing/random_circuit.h"
#include "corvid/util/errors.h"

namespace corvid {
namespace {

std::vector<double> values(const ProbabilityTable& t) {
  return {t.values.data(), t.values.data() + t.values.size()};
}

}  // namespace

TEST(Machine, ExactProbabilitiesStateAndMarginalsMatchReference) {
  Machine m(1);
  const auto q = m.allocate_qubits(5);
  std::mt19937_64 rng(3);
  const Circuit c = reference::random_circuit(5, 50, rng);
  const std::vector<double> t = values(m.probabilities(c, q));
  const reference::Vector want = reference::reference_state(c, 5);
  std::vector<std::complex<double>> state(m.state_size()), short_buffer(3);
  m.copy_state(state);
  EXPECT_THROW(m.copy_state(short_buffer), std::invalid_argument);
  ASSERT_EQ(t.size(), 32u);
  for (std::size_t i = 0; i < 32; ++i) {
    EXPECT_NEAR(std::abs(state[i] - want[i]), 0.0, 1e-12);
    EXPECT_NEAR(t[i], std::norm(want[i]), 1e-12);
  }
  // select_max keeps the first entries; a marginal takes the qubits in the order given.
  EXPECT_EQ(values(m.probabilities(c, q, 3)), std::vector<double>(t.begin(), t.begin() + 3));
  EXPECT_EQ(m.probabilities(c, q, 100).values.size(), 32u);
  const std::vector<double> marginal = values(m.probabilities(c, std::vector<Qubit>{q[3], q[0]}));
  const std::vector<double> want_marginal =
      reference::reference_probabilities(want, std::vector<unsigned>{3, 0});
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(marginal[i], want_marginal[i], 1e-12);
  for (std::int64_t bad : {0, -2, -100}) {
    EXPECT_THROW(m.probabilities(c, q, bad), std::invalid_argument) << bad;
  }
}

TEST(Machine, AllocationAppendsAndEachRunStartsFromZero) {
  Machine m;
  const auto a = m.allocate_qubits(2);
  const auto b = m.allocate_qubits(1);
  ASSERT_EQ(b.size(), 1u);
  EXPECT_EQ(b[0].addr, 2u);
  EXPECT_EQ(b[0].machine, m.id());
  EXPECT_EQ(m.num_qubits(), 3u);
  Circuit c;
  c << Gate(GateKind::X, {b[0]});
  for (int run = 0; run < 2; ++run) {  // X twice would cancel if the state were carried over
    const auto p = values(m.probabilities(c, b));
    EXPECT_EQ(p, (std::vector<double>{0.0, 1.0}));
  }
  EXPECT_TRUE(m.allocate_qubits(0).empty());
  EXPECT_THROW(m.allocate_qubits(-1), std::invalid_argument);
}

TEST(Machine, SamplingMapsMeasurementsToBits) {
  Machine m(123);
  const auto q = m.allocate_qubits(3);
  const auto c = m.allocate_cbits(3);
  // The last measurement into a bit wins; unlisted bits merge.
  Program last;
  last << Gate(GateKind::X, {q[1]}) << Measurement(q[0], c[0]) << Measurement(q[1], c[0]);
  const std::vector<CBit> only0{c[0]};
  EXPECT_EQ(m.sample(last, only0, 10), (std::vector<OutcomeCount>{{1, 10}}));
  // A program without measurements reads all zeros.
  EXPECT_EQ(m.sample(Program(), c, 5), (std::vector<OutcomeCount>{{0, 5}}));
}

TEST(Machine, InitStartsOverWithANewIdentityFinalizeEndsForGood) {
  Machine m;
  const auto old = m.allocate_qubits(2);
  const std::uint64_t id = m.id();
  m.init();
  EXPECT_NE(m.id(), id);
  EXPECT_EQ(m.num_qubits(), 0u);
  const auto q = m.allocate_qubits(2);
  EXPECT_THROW(m.probabilities(Circuit(), old), std::invalid_argument);
  m.finalize();
  EXPECT_TRUE(m.finalized());
  EXPECT_THROW(m.allocate_qubits(1), std::invalid_argument);
  EXPECT_THROW(m.allocate_cbits(1), std::invalid_argument);
  EXPECT_THROW(m.probabilities(Circuit(), q), std::invalid_argument);
  EXPECT_THROW(m.sample(Program(), {}, 1), std::invalid_argument);
  EXPECT_THROW(m.init(), std::invalid_argument);
  m.finalize();  // harmless
}

TEST(Machine, HugeRegisterIsRefusedBeforeAllocating) {
  Machine m;
  for (std::int64_t n : {45, 63, 64, 1000}) {
    EXPECT_THAT([&] { m.allocate_qubits(n); },
                ::testing::ThrowsMessage<OutOfMemory>(
                    ::testing::HasSubstr("state vector of " + std::to_string(n) + " qubits")));
  }
  EXPECT_EQ(m.num_qubits(), 0u);  // a refused request allocates nothing
}

}  // namespace corvid
