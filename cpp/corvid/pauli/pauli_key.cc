#include "corvid/pauli/pauli_key.h"

#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace corvid {
namespace {

// The key as Python would write it inside quotes, so tabs and other invisible bytes show.
std::string escaped(std::string_view key) {
  std::string out;
  for (char c : key) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (byte < 0x20 || byte == 0x7f) {
      static constexpr char kHex[] = "0123456789abcdef";
      out += "\\x";
      out += kHex[byte >> 4];
      out += kHex[byte & 15];
    } else {
      out += c;  // printable ASCII and UTF-8 sequences stay as they are
    }
  }
  return out;
}

[[noreturn]] void reject(std::string_view key, const std::string& why) {
  throw std::invalid_argument("invalid Pauli key \"" + escaped(key) + "\": " + why +
                              " (expected factors such as \"Z0\" or \"X12\" separated by "
                              "single blanks)");
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// One factor "<letter><decimal>", the whole of `token`.
PauliFactor parse_factor(std::string_view key, std::string_view token) {
  if (token.empty()) reject(key, "misplaced blank");
  char letter = token[0];
  if (letter != 'X' && letter != 'Y' && letter != 'Z') {
    reject(key, "factor \"" + std::string(token) + "\" does not start with X, Y or Z");
  }
  std::string_view digits = token.substr(1);
  if (digits.empty()) reject(key, "factor \"" + std::string(token) + "\" has no qubit index");
  if (digits.size() > 1 && digits[0] == '0') {
    reject(key, "qubit index \"" + std::string(digits) + "\" has a leading zero");
  }
  std::uint64_t qubit = 0;
  for (char c : digits) {
    if (!is_digit(c)) {
      reject(key, "qubit index \"" + std::string(digits) + "\" is not a decimal number");
    }
    qubit = qubit * 10 + static_cast<std::uint64_t>(c - '0');
    if (qubit > UINT32_MAX) reject(key, "qubit index \"" + std::string(digits) + "\" is too large");
  }
  return {static_cast<std::uint32_t>(qubit), letter};
}

}  // namespace

PauliString parse_pauli_key(std::string_view key) {
  for (char c : key) {
    if (c == '\t') reject(key, "it contains a tab character (\\t)");
    if (c == '\n' || c == '\r' || c == '\v' || c == '\f') {
      reject(key, "it contains a line break or other white space that is not a blank");
    }
  }
  std::vector<PauliFactor> factors;
  std::size_t start = 0;
  while (start <= key.size() && !key.empty()) {
    std::size_t blank = key.find(' ', start);
    if (blank == std::string_view::npos) blank = key.size();
    factors.push_back(parse_factor(key, key.substr(start, blank - start)));
    start = blank + 1;
  }
  try {
    return PauliString(std::move(factors));
  } catch (const std::invalid_argument& e) {
    reject(key, e.what());
  }
}

std::string format_pauli_key(const PauliString& string) {
  std::string key;
  for (const PauliFactor& f : string.factors()) {
    if (!key.empty()) key += ' ';
    key += f.letter;
    key += std::to_string(f.qubit);
  }
  return key;
}

}  // namespace corvid
