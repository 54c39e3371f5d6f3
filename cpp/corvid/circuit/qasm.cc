#include "corvid/circuit/qasm.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <numbers>
#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace corvid {
namespace {

// ---- writing -----------------------------------------------------------------------------------

// Two-qubit rotations and swap are not in the original qelib1.inc, and stdgates.inc lacks the
// rotations; files define the ones they use (readers that know them accept the definition).
constexpr std::string_view kDefinitions[] = {
    "gate rxx(theta) a, b { h a; h b; cx a, b; rz(theta) b; cx a, b; h a; h b; }",
    "gate ryy(theta) a, b { rx(pi/2) a; rx(pi/2) b; cx a, b; rz(theta) b; cx a, b; "
    "rx(-pi/2) a; rx(-pi/2) b; }",
    "gate rzz(theta) a, b { cx a, b; rz(theta) b; cx a, b; }",
    "gate swap a, b { cx a, b; cx b, a; cx a, b; }",
};

std::string_view qasm_name(GateKind kind, int version) {
  switch (kind) {
    case GateKind::I: return "id";
    case GateKind::H: return "h";
    case GateKind::X: return "x";
    case GateKind::Y: return "y";
    case GateKind::Z: return "z";
    case GateKind::S: return "s";
    case GateKind::T: return "t";
    case GateKind::RX: return "rx";
    case GateKind::RY: return "ry";
    case GateKind::RZ: return "rz";
    case GateKind::P: return version == 2 ? "u1" : "p";
    case GateKind::CNOT: return "cx";
    case GateKind::CZ: return "cz";
    case GateKind::SWAP: return "swap";
    case GateKind::RXX: return "rxx";
    case GateKind::RYY: return "ryy";
    case GateKind::RZZ: return "rzz";
  }
  return "";
}

// "(angle)", written to round-trip exactly.
std::string angle_parameter(double angle) {
  std::array<char, 40> buffer{'('};
  char* end = std::to_chars(buffer.data() + 1, buffer.data() + buffer.size() - 1, angle).ptr;
  *end++ = ')';
  return std::string(buffer.data(), end);
}

bool is_rzz_triple(std::span<const Gate> gates, std::size_t i) {
  if (i + 2 >= gates.size()) return false;
  const Gate& a = gates[i];
  const Gate& rz = gates[i + 1];
  const Gate& b = gates[i + 2];
  return a.kind() == GateKind::CNOT && b.kind() == GateKind::CNOT && rz.kind() == GateKind::RZ &&
         a.qubit(0) == b.qubit(0) && a.qubit(1) == b.qubit(1) && rz.qubit(0) == a.qubit(1);
}

}  // namespace

std::string to_qasm(const Program& program, const QasmOptions& options) {
  const int version = options.version;
  if (version != 2 && version != 3) {
    throw std::invalid_argument("OpenQASM version must be 2 or 3, got " + std::to_string(version));
  }
  const std::span<const Gate> gates = program.circuit().gates();
  std::uint32_t num_qubits = 1, num_cbits = 0;
  for (const Gate& g : gates) {
    for (std::uint32_t q : g.qubits()) num_qubits = std::max(num_qubits, q + 1);
  }
  for (const Measurement& m : program.measurements()) {
    num_qubits = std::max(num_qubits, m.qubit.addr + 1);
    num_cbits = std::max(num_cbits, m.cbit.addr + 1);
  }

  std::string body;
  std::array<bool, std::size(kDefinitions)> used{};
  auto line = [&](std::string_view name, const std::string& parameters,
                  std::initializer_list<std::uint32_t> qubits) {
    body += name;
    body += parameters;
    const char* separator = " ";
    for (std::uint32_t q : qubits) {
      body += separator;
      body += "q[" + std::to_string(q) + "]";
      separator = ", ";
    }
    body += ";\n";
  };
  for (std::size_t i = 0; i < gates.size(); ++i) {
    const Gate& g = gates[i];
    if (options.fuse_rzz && is_rzz_triple(gates, i)) {
      used[2] = true;
      line("rzz", angle_parameter(gates[i + 1].angle()), {g.qubit(0), g.qubit(1)});
      i += 2;
      continue;
    }
    if (g.kind() == GateKind::I && !options.keep_identities) continue;
    switch (g.kind()) {
      case GateKind::RXX: used[0] = true; break;
      case GateKind::RYY: used[1] = true; break;
      case GateKind::RZZ: used[2] = true; break;
      case GateKind::SWAP: used[3] = version == 2; break;
      default: break;
    }
    const std::string parameters = g.has_angle() ? angle_parameter(g.angle()) : "";
    if (g.num_qubits() == 1) {
      line(qasm_name(g.kind(), version), parameters, {g.qubit(0)});
    } else {
      line(qasm_name(g.kind(), version), parameters, {g.qubit(0), g.qubit(1)});
    }
  }
  for (const Measurement& m : program.measurements()) {
    const std::string q = "q[" + std::to_string(m.qubit.addr) + "]";
    const std::string c = "c[" + std::to_string(m.cbit.addr) + "]";
    body += version == 2 ? "measure " + q + " -> " + c + ";\n" : c + " = measure " + q + ";\n";
  }

  std::string text = version == 2 ? "OPENQASM 2.0;\ninclude \"qelib1.inc\";\n"
                                  : "OPENQASM 3.0;\ninclude \"stdgates.inc\";\n";
  for (std::size_t d = 0; d < used.size(); ++d) {
    if (used[d]) text += std::string(kDefinitions[d]) + "\n";
  }
  const std::string n = std::to_string(num_qubits), m = std::to_string(num_cbits);
  text += version == 2 ? "qreg q[" + n + "];\n" : "qubit[" + n + "] q;\n";
  if (num_cbits > 0) text += version == 2 ? "creg c[" + m + "];\n" : "bit[" + m + "] c;\n";
  return text + body;
}

// ---- reading -----------------------------------------------------------------------------------

namespace {

struct Token {
  enum Kind { kName, kNumber, kString, kSymbol, kEnd } kind;
  std::string_view text;
  int line;
};

class Lexer {
 public:
  explicit Lexer(std::string_view text) : text_(text) {}

  std::vector<Token> tokens() {
    std::vector<Token> out;
    while (true) {
      skip_space_and_comments();
      if (pos_ >= text_.size()) break;
      const char c = text_[pos_];
      const std::size_t start = pos_;
      if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
        while (pos_ < text_.size() &&
               (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_')) {
          ++pos_;
        }
        out.push_back({Token::kName, text_.substr(start, pos_ - start), line_});
      } else if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
        while (pos_ < text_.size() &&
               (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '.' ||
                ((text_[pos_] == '+' || text_[pos_] == '-') &&
                 (text_[pos_ - 1] == 'e' || text_[pos_ - 1] == 'E')))) {
          ++pos_;
        }
        out.push_back({Token::kNumber, text_.substr(start, pos_ - start), line_});
      } else if (c == '"') {
        const std::size_t close = text_.find('"', pos_ + 1);
        if (close == std::string_view::npos) fail(line_, "a string is not closed");
        pos_ = close + 1;
        out.push_back({Token::kString, text_.substr(start + 1, close - start - 1), line_});
      } else if (text_.substr(pos_, 2) == "->") {
        pos_ += 2;
        out.push_back({Token::kSymbol, text_.substr(start, 2), line_});
      } else if (text_.substr(pos_, 2) == "\xcf\x80") {  // π in UTF-8
        pos_ += 2;
        out.push_back({Token::kName, "pi", line_});
      } else if (std::string_view("()[]{};,=+-*/").find(c) != std::string_view::npos) {
        ++pos_;
        out.push_back({Token::kSymbol, text_.substr(start, 1), line_});
      } else {
        fail(line_, "unexpected character '" + std::string(1, c) + "'");
      }
    }
    out.push_back({Token::kEnd, "", line_});
    return out;
  }

  [[noreturn]] static void fail(int line, const std::string& message) {
    throw std::invalid_argument("OpenQASM line " + std::to_string(line) + ": " + message);
  }

 private:
  void skip_space_and_comments() {
    while (pos_ < text_.size()) {
      const char c = text_[pos_];
      if (c == '\n') {
        ++line_;
        ++pos_;
      } else if (std::isspace(static_cast<unsigned char>(c))) {
        ++pos_;
      } else if (text_.substr(pos_, 2) == "//") {
        while (pos_ < text_.size() && text_[pos_] != '\n') ++pos_;
      } else if (text_.substr(pos_, 2) == "/*") {
        const std::size_t close = text_.find("*/", pos_ + 2);
        if (close == std::string_view::npos) fail(line_, "a comment is not closed");
        line_ += static_cast<int>(std::count(text_.begin() + pos_, text_.begin() + close, '\n'));
        pos_ = close + 2;
      } else {
        break;
      }
    }
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  int line_ = 1;
};

struct Register {
  std::uint32_t offset, size;
};

class Reader {
 public:
  explicit Reader(std::string_view text) : tokens_(Lexer(text).tokens()) {}

  Program read() {
    header();
    while (peek().kind != Token::kEnd) statement();
    for (const Measurement& m : measurements_) program_ << m;
    return std::move(program_);
  }

 private:
  static constexpr int kMaxDepth = 64;

  const Token& peek() const { return tokens_[pos_]; }
  const Token& next() { return tokens_[pos_ == tokens_.size() - 1 ? pos_ : pos_++]; }
  bool accept(std::string_view symbol) {
    if (peek().kind == Token::kSymbol && peek().text == symbol) {
      ++pos_;
      return true;
    }
    return false;
  }
  void expect(std::string_view symbol) {
    if (!accept(symbol)) fail("expected '" + std::string(symbol) + "'");
  }
  [[noreturn]] void fail(const std::string& message) const {
    Lexer::fail(peek().line, message + (peek().kind == Token::kEnd
                                            ? " at the end of the text"
                                            : ", found '" + std::string(peek().text) + "'"));
  }
  std::string_view name() {
    if (peek().kind != Token::kName) fail("expected a name");
    return next().text;
  }
  std::uint32_t size_number() {
    if (peek().kind != Token::kNumber) fail("expected a size or an index");
    const std::string_view text = next().text;
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
      Lexer::fail(tokens_[pos_ - 1].line, "'" + std::string(text) + "' is not an index");
    }
    return value;
  }

  void header() {
    if (peek().kind != Token::kName || peek().text != "OPENQASM") fail("expected 'OPENQASM 2.0;'");
    next();
    if (peek().kind != Token::kNumber) fail("expected a version");
    const std::string_view version = next().text;
    if (version != "2.0" && version != "3.0" && version != "3") {
      Lexer::fail(tokens_[pos_ - 1].line,
                  "OpenQASM version " + std::string(version) + " is not supported (2.0 or 3.0)");
    }
    expect(";");
  }

  void statement() {
    const std::string_view word = name();
    if (word == "include") {
      if (peek().kind != Token::kString) fail("expected a file name");
      const std::string_view file = next().text;
      if (file != "qelib1.inc" && file != "stdgates.inc") {
        Lexer::fail(tokens_[pos_ - 1].line, "only qelib1.inc and stdgates.inc can be included");
      }
      expect(";");
    } else if (word == "qreg" || word == "creg") {
      const std::string_view id = name();
      expect("[");
      const std::uint32_t size = size_number();
      expect("]");
      expect(";");
      declare(word == "qreg", id, size);
    } else if (word == "qubit" || word == "bit") {
      std::uint32_t size = 1;
      if (accept("[")) {
        size = size_number();
        expect("]");
      }
      declare(word == "qubit", name(), size);
      expect(";");
    } else if (word == "gate") {
      definition();
    } else if (word == "barrier") {
      while (!accept(";")) {
        if (peek().kind == Token::kEnd) fail("expected ';'");
        next();
      }
    } else if (word == "measure") {
      const std::vector<std::uint32_t> qubits = operand(qubits_, "qubit");
      expect("->");
      measure(qubits, operand(cbits_, "classical bit"));
      expect(";");
    } else if (cbits_.count(std::string(word)) != 0) {
      --pos_;
      const std::vector<std::uint32_t> cbits = operand(cbits_, "classical bit");
      expect("=");
      if (name() != "measure") fail("expected 'measure'");
      measure(operand(qubits_, "qubit"), cbits);
      expect(";");
    } else {
      apply(word);
    }
  }

  void declare(bool quantum, std::string_view id, std::uint32_t size) {
    auto& registers = quantum ? qubits_ : cbits_;
    std::uint32_t& total = quantum ? num_qubits_ : num_cbits_;
    if (qubits_.count(std::string(id)) != 0 || cbits_.count(std::string(id)) != 0) {
      Lexer::fail(tokens_[pos_ - 1].line, "'" + std::string(id) + "' is declared twice");
    }
    if (size == 0 || size > kMaxQubits - total) {
      Lexer::fail(tokens_[pos_ - 1].line,
                  "registers may hold " + std::to_string(kMaxQubits) + " " +
                      (quantum ? "qubits" : "bits") + " in all, register '" + std::string(id) +
                      "' asks for " + std::to_string(size) + " more than " + std::to_string(total));
    }
    registers[std::string(id)] = {total, size};
    total += size;
  }

  // `gate name(params) args { body }`: the standard two-qubit rotations and swap are known; their
  // definition is read over. Other definitions are refused.
  void definition() {
    const std::string_view id = name();
    if (id != "rxx" && id != "ryy" && id != "rzz" && id != "swap") {
      Lexer::fail(tokens_[pos_ - 1].line,
                  "gate definitions other than rxx, ryy, rzz and swap "
                  "are not supported, found '" +
                      std::string(id) + "'");
    }
    while (!accept("{")) {
      if (peek().kind == Token::kEnd) fail("expected '{'");
      next();
    }
    while (!accept("}")) {
      if (peek().kind == Token::kEnd) fail("expected '}'");
      next();
    }
  }

  // q[i] or a whole register q.
  std::vector<std::uint32_t> operand(const std::unordered_map<std::string, Register>& registers,
                                     std::string_view what) {
    const std::string id(name());
    const auto found = registers.find(id);
    if (found == registers.end()) {
      Lexer::fail(tokens_[pos_ - 1].line,
                  "'" + id + "' is not a declared " + std::string(what) + " register");
    }
    const Register r = found->second;
    if (!accept("[")) {
      std::vector<std::uint32_t> all(r.size);
      for (std::uint32_t k = 0; k < r.size; ++k) all[k] = r.offset + k;
      return all;
    }
    const std::uint32_t index = size_number();
    if (index >= r.size) {
      Lexer::fail(tokens_[pos_ - 1].line, "index " + std::to_string(index) + " is outside " + id +
                                              "[" + std::to_string(r.size) + "]");
    }
    expect("]");
    return {r.offset + index};
  }

  void measure(const std::vector<std::uint32_t>& qubits, const std::vector<std::uint32_t>& cbits) {
    if (qubits.size() != cbits.size()) fail("measure needs as many bits as qubits");
    for (std::size_t k = 0; k < qubits.size(); ++k) {
      measurements_.emplace_back(Qubit(qubits[k]), CBit(cbits[k]));
    }
  }

  void apply(std::string_view word) {
    static const std::unordered_map<std::string_view, GateKind> kinds = {
        {"id", GateKind::I},      {"h", GateKind::H},     {"x", GateKind::X},
        {"y", GateKind::Y},       {"z", GateKind::Z},     {"s", GateKind::S},
        {"t", GateKind::T},       {"sdg", GateKind::P},   {"tdg", GateKind::P},
        {"rx", GateKind::RX},     {"ry", GateKind::RY},   {"rz", GateKind::RZ},
        {"p", GateKind::P},       {"u1", GateKind::P},    {"phase", GateKind::P},
        {"cx", GateKind::CNOT},   {"CX", GateKind::CNOT}, {"cz", GateKind::CZ},
        {"swap", GateKind::SWAP}, {"rxx", GateKind::RXX}, {"ryy", GateKind::RYY},
        {"rzz", GateKind::RZZ},
    };
    const auto found = kinds.find(word);
    if (found == kinds.end()) {
      Lexer::fail(tokens_[pos_ - 1].line,
                  "gate '" + std::string(word) + "' is not in corvid's gate set");
    }
    if (!measurements_.empty()) fail("measurements are terminal: no gate may follow one");
    const GateKind kind = found->second;
    const GateInfo& info = gate_info(kind);
    double angle = word == "sdg"   ? -std::numbers::pi / 2
                   : word == "tdg" ? -std::numbers::pi / 4
                                   : 0;
    const bool takes_angle = info.has_angle && word != "sdg" && word != "tdg";
    if (accept("(")) {
      if (!takes_angle) fail("gate '" + std::string(word) + "' takes no angle");
      angle = expression(0);
      expect(")");
    } else if (takes_angle) {
      fail("gate '" + std::string(word) + "' needs an angle");
    }
    std::vector<std::vector<std::uint32_t>> args{operand(qubits_, "qubit")};
    while (accept(",")) args.push_back(operand(qubits_, "qubit"));
    expect(";");
    if (args.size() != info.num_qubits) {
      fail("gate '" + std::string(word) + "' acts on " + std::to_string(info.num_qubits) +
           " qubits, given " + std::to_string(args.size()));
    }
    // Whole registers broadcast: one gate per index, registers of equal size.
    std::size_t count = 1;
    for (const auto& a : args) {
      if (a.size() != 1 && count != 1 && a.size() != count) fail("registers of different sizes");
      count = std::max(count, a.size());
    }
    try {
      for (std::size_t k = 0; k < count; ++k) {
        std::vector<Qubit> qubits;
        for (const auto& a : args) qubits.emplace_back(a[a.size() == 1 ? 0 : k]);
        program_ << Gate(kind, qubits, angle);
      }
    } catch (const std::invalid_argument& error) {
      Lexer::fail(tokens_[pos_ - 1].line, error.what());
    }
  }

  // expression := term (('+' | '-') term)*; term := factor (('*' | '/') factor)*;
  // factor := ('-' | '+') factor | number | pi | '(' expression ')'.
  double expression(int depth) {
    double value = term(depth);
    while (true) {
      if (accept("+")) {
        value += term(depth);
      } else if (accept("-")) {
        value -= term(depth);
      } else {
        return value;
      }
    }
  }
  double term(int depth) {
    double value = factor(depth);
    while (true) {
      if (accept("*")) {
        value *= factor(depth);
      } else if (accept("/")) {
        value /= factor(depth);
      } else {
        return value;
      }
    }
  }
  double factor(int depth) {
    if (depth > kMaxDepth) fail("the angle expression is nested too deeply");
    if (accept("-")) return -factor(depth + 1);
    if (accept("+")) return factor(depth + 1);
    if (accept("(")) {
      const double value = expression(depth + 1);
      expect(")");
      return value;
    }
    if (peek().kind == Token::kName && peek().text == "pi") {
      next();
      return std::numbers::pi;
    }
    if (peek().kind != Token::kNumber) fail("expected a number, pi or '('");
    const std::string text(next().text);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
      Lexer::fail(tokens_[pos_ - 1].line, "'" + text + "' is not a number");
    }
    return value;
  }

  std::vector<Token> tokens_;
  std::size_t pos_ = 0;
  std::unordered_map<std::string, Register> qubits_, cbits_;
  std::uint32_t num_qubits_ = 0, num_cbits_ = 0;
  Program program_;
  std::vector<Measurement> measurements_;
};

}  // namespace

Program from_qasm(std::string_view text) { return Reader(text).read(); }

}  // namespace corvid
