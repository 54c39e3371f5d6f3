#include "corvid/sim/compile/phase_polynomial.h"

#include <algorithm>
#include <cassert>

#include "corvid/circuit/gate_definitions.h"

namespace corvid {
namespace {

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

  // Each gate by its phase rule. Its angle φ = coefficient·scale; diag(1, e^{iφ}) =
  // e^{iφ/2}·RZ(φ), and φ·y_a·y_b = φ/4·(1 − s_a − s_b + s_a·s_b) with s = (−1)^y.
  void add(const Gate& g) {
    const PhaseRule& rule = gate_definition(g.kind()).phase;
    const double c = g.has_angle() ? g.unscaled_angle() : rule.fixed_angle;
    const double scale = g.has_angle() ? g.angle_scale() : 1.0;
    const double phi = g.has_angle() ? g.angle() : rule.fixed_angle;
    const std::uint64_t a = mask[g.qubit(0)];
    const std::uint64_t b = g.num_qubits() == 2 ? mask[g.qubit(1)] : 0;
    switch (rule.shape) {
      case PhaseShape::kIdentity: return;
      case PhaseShape::kParity: return cnot(g.qubit(0), g.qubit(1));
      case PhaseShape::kPhase:
        global_phase += phi / 2;
        terms.push_back({a, c / 2, scale});
        return;
      case PhaseShape::kZRotation: terms.push_back({a ^ b, c / 2, scale}); return;
      case PhaseShape::kControlledPhase:
        global_phase += phi / 4;
        terms.push_back({a, c / 4, scale});
        terms.push_back({b, c / 4, scale});
        terms.push_back({a ^ b, -c / 4, scale});
        return;
      case PhaseShape::kNone: assert(false && "not a phase-polynomial gate");
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
  return gate_definition(kind).phase.shape != PhaseShape::kNone;
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
