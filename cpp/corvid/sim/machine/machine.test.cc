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

TEST(Machine, ExactProbabilitiesAndStateMatchReference) {
  Machine m(1);
  const auto q = m.allocate_qubits(5);
  std::mt19937_64 rng(3);
  const Circuit c = reference::random_circuit(5, 50, rng);
  const ProbabilityTable t = m.probabilities(c, q);
  const reference::Vector want = reference::reference_state(c, 5);
  std::vector<std::complex<double>> state(m.state_size());
  m.copy_state(state);
  std::vector<std::complex<double>> short_buffer(3);
  EXPECT_THROW(m.copy_state(short_buffer), std::invalid_argument);
  ASSERT_EQ(t.values.size(), 32u);
  for (std::size_t i = 0; i < 32; ++i) {
    EXPECT_NEAR(std::abs(state[i] - want[i]), 0.0, 1e-12);
    EXPECT_NEAR(t.values[i], std::norm(want[i]), 1e-12);
  }
}

TEST(Machine, SelectMaxKeepsTheFirstEntries) {
  Machine m;
  const auto q = m.allocate_qubits(3);
  Circuit c;
  c << Gate(GateKind::H, {q[0]}) << Gate(GateKind::H, {q[2]});
  const std::vector<double> head = values(m.probabilities(c, q, 3));
  ASSERT_EQ(head.size(), 3u);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(head[i], i < 2 ? 0.25 : 0.0, 1e-15) << i;
  EXPECT_EQ(m.probabilities(c, q, 100).values.size(), 8u);
  // Marginal over (q2, q0): both uniform.
  const std::vector<Qubit> sub{q[2], q[0]};
  for (double p : values(m.probabilities(c, sub))) EXPECT_NEAR(p, 0.25, 1e-15);
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
  Program p;
  // q0 = 1 always, q1 = 0 always, q2 uniform. q0 -> c1, q2 -> c0; c2 is never written.
  p << Gate(GateKind::X, {q[0]}) << Gate(GateKind::H, {q[2]}) << Measurement(q[0], c[1])
    << Measurement(q[2], c[0]);
  const auto counts = m.sample(p, c, 1000);
  ASSERT_EQ(counts.size(), 2u);
  EXPECT_EQ(counts[0].outcome, 0b010u);
  EXPECT_EQ(counts[1].outcome, 0b011u);
  EXPECT_EQ(counts[0].hits + counts[1].hits, 1000u);
  EXPECT_NEAR(double(counts[0].hits), 500, 5 * std::sqrt(250.0));

  // The last measurement into a bit wins; unlisted bits merge.
  Program last;
  last << Gate(GateKind::X, {q[1]}) << Measurement(q[0], c[0]) << Measurement(q[1], c[0]);
  const std::vector<CBit> only0{c[0]};
  EXPECT_EQ(m.sample(last, only0, 10), (std::vector<OutcomeCount>{{1, 10}}));
  // A program without measurements reads all zeros.
  EXPECT_EQ(m.sample(Program(), c, 5), (std::vector<OutcomeCount>{{0, 5}}));
}

TEST(Machine, RejectsBadRequests) {
  Machine m, other;
  const auto q = m.allocate_qubits(2);
  const auto c = m.allocate_cbits(2);
  const auto foreign = other.allocate_qubits(2);
  const Circuit ok = Circuit() << Gate(GateKind::H, {q[0]});
  const Circuit uses_foreign = Circuit() << Gate(GateKind::H, {foreign[0]});
  const Circuit too_high = Circuit() << Gate(GateKind::H, {5});
  EXPECT_THROW(m.probabilities(uses_foreign, q), std::invalid_argument);
  EXPECT_THROW(m.probabilities(ok, foreign), std::invalid_argument);
  EXPECT_THROW(m.probabilities(too_high, q), std::out_of_range);
  EXPECT_THROW(m.probabilities(ok, std::vector<Qubit>{q[0], q[0]}), std::invalid_argument);
  EXPECT_THROW(m.probabilities(ok, std::vector<Qubit>{Qubit(2)}), std::out_of_range);
  for (std::int64_t shots : {0, -1}) EXPECT_THROW(m.sample(ok, c, shots), std::invalid_argument);
  EXPECT_THROW(m.sample(ok, std::vector<CBit>{c[1], c[1]}, 1), std::invalid_argument);
  EXPECT_THROW(m.sample(ok, std::vector<CBit>{CBit(9)}, 1), std::out_of_range);
  EXPECT_THROW(m.sample(Program(ok) << Measurement(q[0], CBit(4)), c, 1), std::out_of_range);
  std::vector<std::complex<double>> sink(4);
  EXPECT_THROW(m.copy_state(sink), std::invalid_argument);  // nothing has run yet
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
