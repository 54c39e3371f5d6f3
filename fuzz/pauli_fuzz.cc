// libFuzzer target for Pauli keys and the operator algebra.
//
// The input is up to three keys separated by '\n'. Every key must either parse or be refused
// with std::invalid_argument (anything else, or a crash, is a bug). For the keys that parse,
// the invariants below are checked against a reference that multiplies the 2x2 Pauli matrices
// qubit by qubit, independent of the library's letter arithmetic. A violated invariant aborts.
#include <algorithm>
#include <array>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "corvid/pauli/pauli_key.h"
#include "corvid/pauli/pauli_operator.h"
#include "corvid/pauli/pauli_string.h"

namespace {

using corvid::PauliOperator;
using corvid::PauliString;
using C = std::complex<double>;
using Matrix = std::array<C, 4>;  // row-major 2x2

void require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "invariant violated: %s\n", what);
  std::abort();
}

Matrix pauli_matrix(char letter) {
  const C i(0, 1);
  switch (letter) {
    case 'X': return {0, 1, 1, 0};
    case 'Y': return {0, -i, i, 0};
    case 'Z': return {1, 0, 0, -1};
    default: return {1, 0, 0, 1};
  }
}

Matrix times(const Matrix& a, const Matrix& b) {
  return {a[0] * b[0] + a[1] * b[2], a[0] * b[1] + a[1] * b[3], a[2] * b[0] + a[3] * b[2],
          a[2] * b[1] + a[3] * b[3]};
}

// The letter L and phase k (power of i) with m = i^k L, found by trying all sixteen.
std::pair<char, int> decompose(const Matrix& m) {
  const C powers[4] = {C(1, 0), C(0, 1), C(-1, 0), C(0, -1)};
  for (char letter : {'I', 'X', 'Y', 'Z'}) {
    const Matrix p = pauli_matrix(letter);
    for (int k = 0; k < 4; ++k) {
      bool same = true;
      for (int e = 0; e < 4; ++e) same = same && std::abs(m[e] - powers[k] * p[e]) < 1e-12;
      if (same) return {letter, k};
    }
  }
  require(false, "a product of Pauli matrices is a phase times a Pauli matrix");
  return {'I', 0};
}

std::map<std::uint32_t, char> letters_of(const PauliString& s) {
  std::map<std::uint32_t, char> out;
  for (const auto& f : s.factors()) out[f.qubit] = f.letter;
  return out;
}

// Reference product: (phase, qubit -> letter) of a·b computed with matrices.
std::pair<int, std::map<std::uint32_t, char>> reference_product(const PauliString& a,
                                                                const PauliString& b) {
  std::map<std::uint32_t, char> la = letters_of(a), lb = letters_of(b), out;
  std::map<std::uint32_t, bool> qubits;
  for (auto& [q, _] : la) qubits[q] = true;
  for (auto& [q, _] : lb) qubits[q] = true;
  int phase = 0;
  for (auto& [q, _] : qubits) {
    const char x = la.count(q) ? la[q] : 'I';
    const char y = lb.count(q) ? lb[q] : 'I';
    auto [letter, k] = decompose(times(pauli_matrix(x), pauli_matrix(y)));
    phase = (phase + k) % 4;
    if (letter != 'I') out[q] = letter;
  }
  return {phase, out};
}

C i_power(int k) {
  const C powers[4] = {C(1, 0), C(0, 1), C(-1, 0), C(0, -1)};
  return powers[k & 3];
}

std::optional<PauliString> parse(std::string_view key) {
  try {
    return corvid::parse_pauli_key(key);
  } catch (const std::invalid_argument&) {
    return std::nullopt;  // refusing bad text is the contract; other exceptions escape and crash
  }
}

void check_key(std::string_view key, const PauliString& s) {
  const std::string printed = corvid::format_pauli_key(s);
  require(corvid::parse_pauli_key(printed) == s, "printing then parsing gives the same string");
  require(corvid::format_pauli_key(corvid::parse_pauli_key(printed)) == printed,
          "the printed form is canonical");
  require(printed.size() == key.size(), "a valid key and its canonical form have equal length");
  std::string sorted_key(key), sorted_printed(printed);
  std::sort(sorted_key.begin(), sorted_key.end());
  std::sort(sorted_printed.begin(), sorted_printed.end());
  require(sorted_key == sorted_printed, "the canonical form only reorders the factors");
}

void check_product(const PauliString& a, const PauliString& b) {
  const corvid::PauliProduct ab = corvid::multiply(a, b);
  const auto [phase, letters] = reference_product(a, b);
  require(ab.phase == phase, "product phase matches the matrix reference");
  require(letters_of(ab.string) == letters, "product letters match the matrix reference");

  const corvid::PauliProduct ba = corvid::multiply(b, a);
  require(ba.string == ab.string, "a·b and b·a are the same string");
  require((ab.phase - ba.phase + 4) % 2 == 0, "a·b and b·a differ by a sign at most");
  require(corvid::multiply(a, a).string.is_identity() && corvid::multiply(a, a).phase == 0,
          "every Pauli string squares to the identity");

  // The operator product agrees with the string product, and printing round-trips.
  const PauliOperator product = PauliOperator(a, 1.0) * PauliOperator(b, 1.0);
  require(product == PauliOperator(ab.string, i_power(ab.phase)), "operator product");
  for (const auto& term : product) {
    require(corvid::parse_pauli_key(corvid::format_pauli_key(term.string)) == term.string,
            "keys of a product parse back");
  }
}

void check_algebra(const PauliString& a, const PauliString& b, const PauliString& c) {
  // Small integer and half-integer coefficients keep every sum and product exact.
  const PauliOperator A = PauliOperator(a, C(1, 0)) + PauliOperator(b, C(0, 2));
  const PauliOperator B = PauliOperator(b, C(-0.5, 0)) + PauliOperator(c, C(3, 0)) + C(1, 1);
  const PauliOperator D = PauliOperator(c, C(0, -1)) - PauliOperator(a, C(2, 0));
  require((A + B) - B == A, "subtraction undoes addition");
  require(A - A == PauliOperator(), "a - a is the zero operator");
  require((A * B) * D == A * (B * D), "the product is associative");
  require(A * (B + D) == A * B + A * D, "the product distributes over the sum");
  require(0.0 * A == PauliOperator(), "0·a is the zero operator");
  for (const auto& term : A* B) {
    require(term.coefficient != C(0, 0), "no term has a zero coefficient");
  }
  const std::string text = (A * B).to_string();
  require(text.front() == '{' && text.back() == '}', "printed form is braced");
}

std::vector<std::string_view> split_keys(std::string_view text) {
  std::vector<std::string_view> keys;
  while (keys.size() < 2) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) break;
    keys.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  keys.push_back(text);
  return keys;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<PauliString> parsed;
  for (std::string_view key : split_keys(text)) {
    if (std::optional<PauliString> s = parse(key)) {
      check_key(key, *s);
      parsed.push_back(*s);
    }
  }
  for (const PauliString& a : parsed) {
    for (const PauliString& b : parsed) check_product(a, b);
  }
  if (parsed.size() == 3) check_algebra(parsed[0], parsed[1], parsed[2]);
  return 0;
}
