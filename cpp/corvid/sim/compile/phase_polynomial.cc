#include "corvid/sim/compile/phase_polynomial.h"

#include <algorithm>
#include <cassert>
#include <numbers>

namespace corvid {
namespace {

constexpr double kPi = std::numbers::pi;

// A term as one gate gave it: the whole angle is coefficient·scale.
struct ScaledTerm {
  std::uint64_t mask;
  double coefficient;
  double scale;
};

// Collects terms in gate order; the merge at the end sums equal masks in that order.
struct Accumulator {
  std::vector<std::uint64_t> mask;  // per wire
  unsigned displaced = 0;           // wires whose mask is not their own bit
  std::vector<ScaledTerm> terms;
  double global_phase = 0.0;

  explicit Accumulator(unsigned n) : mask(n) {
    for (unsigned w = 0; w < n; ++w) mask[w] = std::uint64_t{1} << w;
  }

  void cnot(unsigned c, unsigned t) {
    const std::uint64_t own = std::uint64_t{1} << t;
    const bool was_own = mask[t] == own;
    mask[t] ^= mask[c];
    const bool is_own = mask[t] == own;
    if (was_own && !is_own) ++displaced;
    if (!was_own && is_own) --displaced;
  }

  // P(φ) = e^{iφ/2}·RZ(φ).
  void phase(unsigned q, double phi, double coefficient, double scale) {
    global_phase += phi / 2;
    terms.push_back({mask[q], coefficient / 2, scale});
  }
  void phase(unsigned q, double phi) { phase(q, phi, phi, 1.0); }

  void add(const Gate& g) {
    const unsigned a = g.qubit(0);
    const unsigned b = g.qubit(1);
    const double coefficient = g.unscaled_angle() / 2;
    switch (g.kind()) {
      case GateKind::I: return;
      case GateKind::CNOT: return cnot(a, b);
      case GateKind::Z: return phase(a, kPi);
      case GateKind::S: return phase(a, kPi / 2);
      case GateKind::T: return phase(a, kPi / 4);
      case GateKind::P: return phase(a, g.angle(), g.unscaled_angle(), g.angle_scale());
      case GateKind::RZ: terms.push_back({mask[a], coefficient, g.angle_scale()}); return;
      case GateKind::RZZ: terms.push_back({mask[a] ^ mask[b], coefficient, g.angle_scale()}); return;
      case GateKind::CZ:
        // π·y_a·y_b = π/4·(1 − s_a − s_b + s_a·s_b) with s = (−1)^y.
        global_phase += kPi / 4;
        terms.push_back({mask[a], kPi / 4, 1.0});
        terms.push_back({mask[b], kPi / 4, 1.0});
        terms.push_back({mask[a] ^ mask[b], -kPi / 4, 1.0});
        return;
      default: assert(false && "not a phase-polynomial gate");
    }
  }
};

// One common scale stays apart from the coefficients, several are multiplied in (their ratios
// are never taken).
PhasePolynomial merge(const std::vector<ScaledTerm>& terms, double global_phase) {
  PhasePolynomial out;
  out.global_phase = global_phase;
  const bool one_scale = std::all_of(terms.begin(), terms.end(), [&](const ScaledTerm& t) {
    return t.scale == terms.front().scale;
  });
  if (!terms.empty() && one_scale) out.scale = terms.front().scale;
  if (out.scale == 0.0) return out;
  std::vector<PhaseTerm> merged;
  for (const ScaledTerm& t : terms) {
    merged.push_back({t.mask, one_scale ? t.coefficient : t.coefficient * t.scale});
  }
  // Linearly independent wires never give mask 0, but a term that cancels to 0 is dropped.
  out.terms = merge_terms(std::move(merged));
  return out;
}

}  // namespace

std::vector<PhaseTerm> merge_terms(std::vector<PhaseTerm> terms) {
  std::stable_sort(terms.begin(), terms.end(),
                   [](const PhaseTerm& x, const PhaseTerm& y) { return x.mask < y.mask; });
  std::vector<PhaseTerm> out;
  for (const PhaseTerm& t : terms) {
    if (!out.empty() && out.back().mask == t.mask) {
      out.back().coefficient += t.coefficient;
    } else {
      out.push_back(t);
    }
  }
  std::erase_if(out, [](const PhaseTerm& t) { return t.coefficient == 0.0; });
  return out;
}

bool is_phase_polynomial_kind(GateKind kind) {
  switch (kind) {
    case GateKind::I: case GateKind::Z: case GateKind::S: case GateKind::T: case GateKind::RZ:
    case GateKind::P: case GateKind::CNOT: case GateKind::CZ: case GateKind::RZZ:
      return true;
    default:
      return false;
  }
}

DiagonalRun longest_diagonal_run(std::span<const Gate> gates, unsigned num_qubits,
                                 std::size_t max_gates) {
  assert(num_qubits <= 64);
  Accumulator acc(num_qubits);
  DiagonalRun run;
  std::size_t weight = 0;
  std::size_t kept_terms = 0;
  double kept_phase = 0.0;
  const std::size_t limit = std::min(max_gates, gates.size());
  for (std::size_t i = 0; i < limit && is_phase_polynomial_kind(gates[i].kind()); ++i) {
    acc.add(gates[i]);
    if (gates[i].kind() != GateKind::I) ++weight;
    if (acc.displaced == 0) {
      run.length = i + 1;
      run.weight = weight;
      kept_terms = acc.terms.size();
      kept_phase = acc.global_phase;
    }
  }
  acc.terms.resize(kept_terms);
  run.polynomial = merge(acc.terms, kept_phase);
  return run;
}

}  // namespace corvid
