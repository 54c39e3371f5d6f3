#include "corvid/pauli/pauli_operator.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "corvid/pauli/pauli_key.h"

namespace corvid {
namespace {

using C = std::complex<double>;

TEST(PauliOperator, HamiltonianListFormKeepsTermOrderAndRealParts) {
  PauliOperator op({{"Z0 Z1", 0.5}, {"", 1.0}, {"X4 Y2", C(2, 7)}});
  PauliOperator::Hamiltonian expected = {
      {{}, 1.0}, {{{0, 'Z'}, {1, 'Z'}}, 0.5}, {{{2, 'Y'}, {4, 'X'}}, 2.0}};
  EXPECT_EQ(op.to_hamiltonian(), expected);
  EXPECT_TRUE(PauliOperator().to_hamiltonian().empty());
}

TEST(PauliOperator, RemapClearsStaleEntries) {
  std::map<std::uint32_t, std::uint32_t> mapping = {{99, 99}};
  EXPECT_EQ(PauliOperator({{"Z7 Z3", 1.0}, {"Y12", 2.0}}).remap_qubit_index(mapping),
            PauliOperator({{"Z0 Z1", 1.0}, {"Y2", 2.0}}));
  EXPECT_EQ(mapping, (std::map<std::uint32_t, std::uint32_t>{{3, 0}, {7, 1}, {12, 2}}));
}

TEST(PauliOperator, ApproxEqualUsesAbsoluteTolerance) {
  PauliOperator a({{"Z0", 1.0}, {"Z1", 1e-9}});
  EXPECT_TRUE(a.approx_equal(PauliOperator("Z0", 1.0 + 1e-10), 1e-8));
  EXPECT_FALSE(a.approx_equal(PauliOperator("Z0", 1.0), 1e-10));
  EXPECT_FALSE(a.approx_equal(PauliOperator("Z0", NAN), 1.0));
}

TEST(PauliOperator, BadKeyThrows) {
  EXPECT_THROW(PauliOperator("Z0 Z0", 1.0), std::invalid_argument);
  EXPECT_THROW(PauliOperator({{"Z0", 1.0}, {"Q1", 1.0}}), std::invalid_argument);
}

}  // namespace
}  // namespace corvid
