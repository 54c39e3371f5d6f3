#include "corvid/pauli/pauli_string.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace corvid {
namespace {

bool is_pauli_letter(char c) { return c == 'X' || c == 'Y' || c == 'Z'; }

// X, Y, Z as 1, 2, 3: the product of two different letters is the third one (6 − a − b),
// with phase +i when b follows a in the cycle X → Y → Z → X and −i otherwise.
int letter_code(char c) { return c - 'W'; }
char code_letter(int code) { return static_cast<char>('W' + code); }

}  // namespace

PauliString::PauliString(std::span<const PauliFactor> factors) : factors_(factors) {
  std::sort(factors_.begin(), factors_.end(),
            [](const PauliFactor& a, const PauliFactor& b) { return a.qubit < b.qubit; });
  std::span<const PauliFactor> f = factors_.span();
  for (std::size_t i = 0; i < f.size(); ++i) {
    if (!is_pauli_letter(f[i].letter)) {
      throw std::invalid_argument("Pauli letter must be X, Y or Z, got '" +
                                  std::string(1, f[i].letter) + "'");
    }
    if (i > 0 && f[i].qubit == f[i - 1].qubit) {
      throw std::invalid_argument("qubit " + std::to_string(f[i].qubit) +
                                  " appears more than once");
    }
  }
}

PauliProduct multiply(const PauliString& a, const PauliString& b) {
  PauliProduct product{0, PauliString()};
  FactorList& out = product.string.factors_;
  out.reserve(a.size() + b.size());
  std::span<const PauliFactor> fa = a.factors(), fb = b.factors();
  auto ia = fa.begin(), ib = fb.begin();
  while (ia != fa.end() && ib != fb.end()) {
    if (ia->qubit < ib->qubit) {
      out.push_back(*ia++);
    } else if (ib->qubit < ia->qubit) {
      out.push_back(*ib++);
    } else {
      int x = letter_code(ia->letter), y = letter_code(ib->letter);
      if (x != y) {
        out.push_back({ia->qubit, code_letter(6 - x - y)});
        product.phase += (y - x + 3) % 3 == 1 ? 1 : 3;
      }
      ++ia, ++ib;
    }
  }
  for (; ia != fa.end(); ++ia) out.push_back(*ia);
  for (; ib != fb.end(); ++ib) out.push_back(*ib);
  product.phase %= 4;
  return product;
}

}  // namespace corvid
