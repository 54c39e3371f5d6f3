#include "corvid/pauli/pauli_operator.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <stdexcept>

#include "corvid/pauli/pauli_key.h"

namespace corvid {
namespace {

using C = std::complex<double>;
using Matrix = std::vector<std::vector<C>>;

// Dense 2^n x 2^n matrix of an operator on qubits 0..n-1, built entry by entry from the
// single-qubit matrices (bit q of a basis index is qubit q): an oracle independent of the
// sparse product rule.
Matrix dense(const PauliOperator& op, int n) {
  const std::size_t dim = std::size_t{1} << n;
  Matrix m(dim, std::vector<C>(dim));
  for (const auto& term : op) {
    for (std::size_t row = 0; row < dim; ++row) {
      for (std::size_t col = 0; col < dim; ++col) {
        C entry = term.coefficient;
        std::size_t support = 0;
        for (const PauliFactor& f : term.string.factors()) {
          int r = row >> f.qubit & 1, c = col >> f.qubit & 1;
          if (f.letter == 'X') entry *= r != c ? 1.0 : 0.0;
          if (f.letter == 'Y') entry *= r != c ? (r == 0 ? C(0, -1) : C(0, 1)) : 0.0;
          if (f.letter == 'Z') entry *= r == c ? (r == 0 ? 1.0 : -1.0) : 0.0;
          support |= std::size_t{1} << f.qubit;
        }
        if (((row ^ col) & ~support) == 0) m[row][col] += entry;  // identity elsewhere
      }
    }
  }
  return m;
}

PauliOperator random_operator(std::mt19937& gen, int qubits, int terms) {
  std::uniform_int_distribution<int> letter(0, 3);
  std::normal_distribution<double> value;
  PauliOperator op;
  for (int t = 0; t < terms; ++t) {
    std::vector<PauliFactor> factors;
    for (int q = 0; q < qubits; ++q) {
      if (int l = letter(gen); l > 0) factors.push_back({std::uint32_t(q), "XYZ"[l - 1]});
    }
    op += PauliOperator(PauliString(factors), C(value(gen), value(gen)));
  }
  return op;
}

PauliOperator p1(int n) { return PauliOperator(0.5) - PauliOperator("Z" + std::to_string(n), 0.5); }
PauliOperator p0(int n) { return PauliOperator(0.5) + PauliOperator("Z" + std::to_string(n), 0.5); }

TEST(PauliOperator, ProductsSumsAndScalarsMatchDenseMatrices) {
  std::mt19937 gen(7);
  const C z(0.5, -2);
  for (int round = 0; round < 20; ++round) {
    const PauliOperator a = random_operator(gen, 3, 5), b = random_operator(gen, 3, 4);
    const Matrix ma = dense(a, 3), mb = dense(b, 3), product = dense(a * b, 3);
    const Matrix sum = dense(a + b, 3), difference = dense(a - b, 3), scaled = dense(z * a, 3);
    for (std::size_t i = 0; i < 8; ++i) {
      for (std::size_t j = 0; j < 8; ++j) {
        C want = 0;
        for (std::size_t k = 0; k < 8; ++k) want += ma[i][k] * mb[k][j];
        ASSERT_NEAR(std::abs(product[i][j] - want), 0.0, 1e-12) << i << "," << j;
        ASSERT_NEAR(std::abs(sum[i][j] - ma[i][j] - mb[i][j]), 0.0, 1e-12) << i << "," << j;
        ASSERT_NEAR(std::abs(difference[i][j] - ma[i][j] + mb[i][j]), 0.0, 1e-12);
        ASSERT_NEAR(std::abs(scaled[i][j] - z * ma[i][j]), 0.0, 1e-12) << i << "," << j;
      }
    }
  }
}

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

TEST(PauliOperator, RemapAndMaxIndex) {
  PauliOperator op({{"Z7 Z3", 1.0}, {"X12", 2.0}, {"", 0.5}, {"Y3", -1.0}});
  std::map<std::uint32_t, std::uint32_t> mapping = {{99, 99}};  // stale entries are cleared
  PauliOperator remapped = op.remap_qubit_index(mapping);
  EXPECT_EQ(mapping, (std::map<std::uint32_t, std::uint32_t>{{3, 0}, {7, 1}, {12, 2}}));
  EXPECT_EQ(remapped, PauliOperator({{"Z0 Z1", 1.0}, {"X2", 2.0}, {"", 0.5}, {"Y0", -1.0}}));
  EXPECT_EQ(remapped.max_index(), 2);
  EXPECT_EQ(op.max_index(), 12);
  PauliOperator constant(3.0);
  EXPECT_EQ(constant.remap_qubit_index(mapping), constant);
  EXPECT_TRUE(mapping.empty());
  EXPECT_EQ(PauliOperator().max_index(), -1);
  EXPECT_EQ(constant.max_index(), -1);
  EXPECT_EQ(PauliOperator("Z4294967295", 1.0).max_index(), 4294967295LL);
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
