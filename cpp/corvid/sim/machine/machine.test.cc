#include "corvid/sim/machine/machine.h"

#include <gmock/gmock.h>

#include "corvid/util/errors.h"

namespace corvid {
namespace {

std::vector<double> values(const ProbabilityTable& t) {
  return {t.values.data(), t.values.data() + t.values.size()};
}

}  // namespace

// State, marginals and select_max are checked against numpy through the bindings
// (test_properties, test_machine); these are the requests Python cannot make.
TEST(Machine, EachRunStartsFromZeroAndBadRequestsAreRefused) {
  Machine m;
  const auto q = m.allocate_qubits(2);
  EXPECT_TRUE(m.allocate_qubits(0).empty());
  EXPECT_THROW(m.allocate_qubits(-1), std::invalid_argument);
  const Circuit c = Circuit() << Gate(GateKind::X, {q[1]});
  for (int run = 0; run < 2; ++run) {  // X twice would cancel if the state were carried over
    EXPECT_EQ(values(m.probabilities(c, std::vector<Qubit>{q[1]})), (std::vector<double>{0, 1}));
  }
  std::vector<std::complex<double>> short_buffer(3);
  EXPECT_THROW(m.copy_state(short_buffer), std::invalid_argument);
  for (std::int64_t bad : {0, -2, -100}) {
    EXPECT_THROW(m.probabilities(c, q, bad), std::invalid_argument) << bad;
  }
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

// What a finalized machine refuses and that old handles are foreign after init_qvm are
// test_hardening's and test_machine's.
TEST(Machine, InitStartsOverWithANewIdentityFinalizeTwiceIsHarmless) {
  Machine m;
  m.allocate_qubits(2);
  const std::uint64_t id = m.id();
  m.init();
  EXPECT_NE(m.id(), id);
  EXPECT_EQ(m.num_qubits(), 0u);
  m.finalize();
  EXPECT_TRUE(m.finalized());
  m.finalize();
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
