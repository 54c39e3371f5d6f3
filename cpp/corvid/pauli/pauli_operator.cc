#include "corvid/pauli/pauli_operator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>
#include <string>

#include "corvid/pauli/pauli_key.h"
#include "corvid/pauli/term_accumulator.h"
#include "corvid/util/errors.h"

namespace corvid {
namespace {

using Term = PauliOperator::Term;
using Coefficient = PauliOperator::Coefficient;

bool string_less(const Term& t, const PauliString& s) { return t.string < s; }

// Merges two sorted, duplicate-free term lists into a + sign·b, dropping exact zeros.
std::vector<Term> merge(std::vector<Term> a, const std::vector<Term>& b, double sign) {
  std::vector<Term> out;
  out.reserve(a.size() + b.size());
  auto ia = a.begin();
  auto ib = b.begin();
  while (ia != a.end() || ib != b.end()) {
    if (ib == b.end() || (ia != a.end() && ia->string < ib->string)) {
      out.push_back(std::move(*ia++));
    } else if (ia == a.end() || ib->string < ia->string) {
      out.push_back({ib->string, sign * ib->coefficient});
      ++ib;
    } else {
      ia->coefficient += sign * ib->coefficient;
      if (ia->coefficient != 0.0) out.push_back(std::move(*ia));
      ++ia, ++ib;
    }
  }
  return out;
}

// Adds c·s to a sorted term list, keeping it sorted and free of zeros. O(log n + moves).
void insert_or_add(std::vector<Term>& terms, const PauliString& s, Coefficient c) {
  auto it = std::lower_bound(terms.begin(), terms.end(), s, string_less);
  if (it != terms.end() && it->string == s) {
    it->coefficient += c;
    if (it->coefficient == 0.0) terms.erase(it);
  } else if (c != 0.0) {
    terms.insert(it, Term{s, c});
  }
}

const Coefficient kPhase[4] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};  // i^0 .. i^3

std::string format_coefficient(Coefficient c) {
  char text[96];
  if (c.imag() == 0.0) {
    std::snprintf(text, sizeof text, "%.6f", c.real());
  } else {
    std::snprintf(text, sizeof text, "(%.6f%c%.6fi)", c.real(), std::signbit(c.imag()) ? '-' : '+',
                  std::fabs(c.imag()));
  }
  return text;
}

}  // namespace

PauliOperator::PauliOperator(Coefficient scalar) : PauliOperator(PauliString(), scalar) {}

PauliOperator::PauliOperator(std::string_view key, Coefficient scalar)
    : PauliOperator(parse_pauli_key(key), scalar) {}

PauliOperator::PauliOperator(PauliString string, Coefficient scalar) {
  if (scalar != 0.0) terms_.push_back({std::move(string), scalar});
}

PauliOperator::PauliOperator(const std::vector<std::pair<std::string, Coefficient>>& terms) {
  std::vector<Term> parsed;
  parsed.reserve(terms.size());
  for (const auto& [key, coefficient] : terms)
    parsed.push_back({parse_pauli_key(key), coefficient});
  *this = from_terms(std::move(parsed));
}

PauliOperator PauliOperator::from_terms(std::vector<Term> terms) {
  TermAccumulator sum(terms.size());
  for (Term& t : terms) sum.add(std::move(t.string), t.coefficient);
  return sum.finish();
}

PauliOperator& PauliOperator::add(const PauliOperator& b, double sign) {
  if (&b == this) return add(PauliOperator(b), sign);
  if (b.size() * 16 < size()) {
    for (const Term& t : b.terms_) insert_or_add(terms_, t.string, sign * t.coefficient);
  } else {
    terms_ = merge(std::move(terms_), b.terms_, sign);
  }
  return *this;
}

PauliOperator operator*(const PauliOperator& a, const PauliOperator& b) {
  // The number of distinct products is unknown until they are made, so there is no guard.
  const std::string what = "multiplying Pauli operators of " + std::to_string(a.size()) + " and " +
                           std::to_string(b.size()) + " terms";
  return naming_allocation(what, [&] {
    TermAccumulator sum(a.size() * b.size());
    for (const Term& x : a.terms_) {
      for (const Term& y : b.terms_) {
        PauliProduct p = multiply(x.string, y.string);
        sum.add(std::move(p.string), kPhase[p.phase] * x.coefficient * y.coefficient);
      }
    }
    return sum.finish();
  });
}

PauliOperator& PauliOperator::operator*=(Coefficient s) {
  for (Term& t : terms_) t.coefficient *= s;
  std::erase_if(terms_, [](const Term& t) { return t.coefficient == 0.0; });
  return *this;
}

bool PauliOperator::approx_equal(const PauliOperator& other, double tol) const {
  for (const Term& t : merge(terms_, other.terms_, -1.0)) {
    if (!(std::abs(t.coefficient) <= tol)) return false;
  }
  return true;
}

PauliOperator::Hamiltonian PauliOperator::to_hamiltonian() const {
  Hamiltonian list;
  list.reserve(terms_.size());
  for (const Term& t : terms_) {
    std::map<std::uint32_t, char> letters;
    for (const PauliFactor& f : t.string.factors())
      letters.emplace_hint(letters.end(), f.qubit, f.letter);
    list.emplace_back(std::move(letters), t.coefficient.real());
  }
  return list;
}

PauliOperator PauliOperator::remap_qubit_index(
    std::map<std::uint32_t, std::uint32_t>& mapping) const {
  std::set<std::uint32_t> used;
  for (const Term& t : terms_) {
    for (const PauliFactor& f : t.string.factors()) used.insert(f.qubit);
  }
  mapping.clear();
  for (std::uint32_t q : used)
    mapping.emplace_hint(mapping.end(), q, static_cast<std::uint32_t>(mapping.size()));
  // An increasing renumbering keeps each string's factor order and the term order.
  PauliOperator result = *this;
  std::vector<PauliFactor> factors;
  for (Term& t : result.terms_) {
    factors.assign(t.string.factors().begin(), t.string.factors().end());
    for (PauliFactor& f : factors) f.qubit = mapping.at(f.qubit);
    t.string = PauliString(factors);
  }
  return result;
}

std::int64_t PauliOperator::max_index() const {
  std::int64_t max = -1;
  for (const Term& t : terms_) {
    if (!t.string.is_identity()) max = std::max<std::int64_t>(max, t.string.factors().back().qubit);
  }
  return max;
}

std::string PauliOperator::to_string() const {
  std::string text = "{\n";
  for (std::size_t i = 0; i < terms_.size(); ++i) {
    if (i > 0) text += ",\n";
    text += '"' + format_pauli_key(terms_[i].string) +
            "\" : " + format_coefficient(terms_[i].coefficient);
  }
  if (!terms_.empty()) text += '\n';
  return text + "}";
}

std::ostream& operator<<(std::ostream& os, const PauliOperator& op) { return os << op.to_string(); }

}  // namespace corvid
