#include "corvid/pauli/pauli_operator.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

#include "corvid/pauli/pauli_key.h"

namespace corvid {
namespace {

using C = std::complex<double>;

PauliOperator p1(int n) { return PauliOperator(0.5) - PauliOperator("Z" + std::to_string(n), 0.5); }
PauliOperator p0(int n) { return PauliOperator(0.5) + PauliOperator("Z" + std::to_string(n), 0.5); }

TEST(PauliOperator, MergesLikeTermsAndDropsZeros) {
  PauliOperator a({{"Z0 Z1", 1.0}, {"Z1 Z0", 2.0}, {"", 0.5}, {"X3", 0.0}});
  EXPECT_EQ(a, PauliOperator({{"", 0.5}, {"Z0 Z1", 3.0}}));
  EXPECT_TRUE((a - a).empty());
  EXPECT_TRUE((0.0 * a).empty());
  EXPECT_TRUE((a * 0.0).empty());
  EXPECT_TRUE((p0(4) + p1(4) - 1.0).empty());
  EXPECT_EQ(p0(4) + p1(4), PauliOperator(1.0));
  EXPECT_TRUE(PauliOperator("Z1", 0.0).empty());
  EXPECT_TRUE((PauliOperator("X0", 1e-200) * 1e-200).empty());  // underflows to exactly 0
}

TEST(PauliOperator, ScalarsOnEitherSideAndInPlaceForms) {
  PauliOperator z("Z0", 1.0);
  EXPECT_EQ(2.0 - z, PauliOperator({{"", 2.0}, {"Z0", -1.0}}));
  EXPECT_EQ(z - 2.0, PauliOperator({{"", -2.0}, {"Z0", 1.0}}));
  EXPECT_EQ(3.0 + z, z + 3.0);
  EXPECT_EQ(-z, PauliOperator("Z0", -1.0));
  PauliOperator acc = z;
  acc += PauliOperator("Z1", 2.0);
  acc -= z;
  acc *= PauliOperator("Z1", 1.0);
  acc *= C(0, 1);
  EXPECT_EQ(acc, PauliOperator(C(0, 2)));
}

TEST(PauliOperator, PrintsExactly) {
  EXPECT_EQ(p1(0).to_string(), "{\n\"\" : 0.500000,\n\"Z0\" : -0.500000\n}");
  EXPECT_EQ(PauliOperator().to_string(), "{\n}");
  EXPECT_EQ(PauliOperator("Z12", 1.0).to_string(), "{\n\"Z12\" : 1.000000\n}");
  PauliOperator complex({{"X1 Y0", C(1, -2)}, {"Z3", C(0, 0.25)}, {"", -1.0 / 3}});
  EXPECT_EQ(complex.to_string(),
            "{\n\"\" : -0.333333,\n\"Z3\" : (0.000000+0.250000i),\n"
            "\"Y0 X1\" : (1.000000-2.000000i)\n}");
  std::ostringstream os;
  os << p0(2);
  EXPECT_EQ(os.str(), "{\n\"\" : 0.500000,\n\"Z2\" : 0.500000\n}");
}

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
