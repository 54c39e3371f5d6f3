#pragma once
/// Quantum gates: a kind, one or two qubits and at most one angle.
///
/// Conventions (qubit 0 is bit 0 of a basis index):
///   RX(φ) = exp(−iφX/2), RY(φ) = exp(−iφY/2), RZ(φ) = exp(−iφZ/2) = diag(e^{−iφ/2}, e^{iφ/2}),
///   P(φ) = diag(1, e^{iφ}), S = P(π/2), T = P(π/4),
///   RXX/RYY/RZZ(φ) = exp(−iφ P⊗P/2) for P = X, Y, Z.
///   CNOT(control, target) flips the target where the control is 1; CZ and SWAP are symmetric.
/// Angles are in radians.

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "corvid/circuit/qubit.h"

namespace corvid {

enum class GateKind : std::uint8_t {
  I,
  H,
  X,
  Y,
  Z,
  S,
  T,  // one qubit, no angle
  RX,
  RY,
  RZ,
  P,  // one qubit, one angle
  CNOT,
  CZ,
  SWAP,  // two qubits, no angle
  RXX,
  RYY,
  RZZ,  // two qubits, one angle
};

inline constexpr int kNumGateKinds = 17;

/// Static facts about a gate kind.
struct GateInfo {
  std::string_view name;  ///< upper-case name as printed, e.g. "CNOT"
  unsigned num_qubits;    ///< 1 or 2
  bool has_angle;
};

const GateInfo& gate_info(GateKind kind);

/// One gate. Construction validates, so every Gate value is well formed.
class Gate {
 public:
  /// Builds `kind` on `qubits` (in the gate's own order, e.g. control then target) with the
  /// angle `angle * scale` (both ignored for kinds without an angle). Gates that share one
  /// scale, such as the phase gates of one γ, form a phase layer whose diagonal is reused
  /// exactly for every other value of that scale (see sim/compile/diagonal_cache.h).
  /// Throws std::invalid_argument for a wrong number of qubits, a qubit given twice, qubits of
  /// two different machines or a non-finite angle, scale or product; std::out_of_range for a
  /// qubit >= kMaxQubits.
  Gate(GateKind kind, std::span<const Qubit> qubits, double angle = 0.0, double scale = 1.0);
  Gate(GateKind kind, std::initializer_list<Qubit> qubits, double angle = 0.0, double scale = 1.0)
      : Gate(kind, std::span<const Qubit>(qubits.begin(), qubits.size()), angle, scale) {}

  GateKind kind() const noexcept { return kind_; }
  std::string_view name() const noexcept { return gate_info(kind_).name; }
  unsigned num_qubits() const noexcept { return gate_info(kind_).num_qubits; }
  bool has_angle() const noexcept { return gate_info(kind_).has_angle; }
  /// The qubit indices in the gate's order.
  std::span<const std::uint32_t> qubits() const noexcept { return {qubits_.data(), num_qubits()}; }
  std::uint32_t qubit(unsigned i) const noexcept { return qubits_[i]; }
  /// The angle in radians: unscaled_angle() * angle_scale(), rounded once.
  double angle() const noexcept { return angle_; }
  double unscaled_angle() const noexcept { return unscaled_; }
  double angle_scale() const noexcept { return scale_; }
  /// Id of the machine whose qubits the gate acts on (kAnyMachine for plain indices).
  std::uint64_t machine() const noexcept { return machine_; }

  /// One line, e.g. "H q[0]", "CNOT q[0], q[1]", "RZ q[2], (-3.000000)" (angle printed %f).
  std::string to_string() const;

  /// Same kind, qubits and angle; the owning machine and how the angle was factored are
  /// provenance, not part of the value.
  friend bool operator==(const Gate& a, const Gate& b) noexcept {
    return a.kind_ == b.kind_ && a.qubits_ == b.qubits_ && a.angle_ == b.angle_;
  }

 private:
  GateKind kind_;
  std::array<std::uint32_t, 2> qubits_{0, 0};
  double angle_ = 0.0;
  double unscaled_ = 0.0;
  double scale_ = 1.0;
  std::uint64_t machine_ = kAnyMachine;
};

}  // namespace corvid
