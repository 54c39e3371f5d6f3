#include "corvid/sim/kernels/matrix2.h"

#include <cassert>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace corvid {

Matrix2 then(const Matrix2& a, const Matrix2& b) {
  return {b.m00 * a.m00 + b.m01 * a.m10, b.m00 * a.m01 + b.m01 * a.m11,
          b.m10 * a.m00 + b.m11 * a.m10, b.m10 * a.m01 + b.m11 * a.m11};
}

ScaledMatrix2 factor_scale(const Matrix2& m) {
  const double diagonal = std::abs(m.m00), off = std::max(std::abs(m.m01), std::abs(m.m10));
  if (m.m00 == m.m11 && diagonal != 0 && diagonal >= off) {
    return {m.m00, {1, m.m01 / m.m00, m.m10 / m.m00, 1}};
  }
  if (m.m01 == m.m10 && off != 0 && off > diagonal) {
    return {m.m01, {m.m00 / m.m01, 1, 1, m.m11 / m.m01}};
  }
  return {1, m};
}

Matrix2 matrix_of(const Gate& gate) {
  assert(gate.num_qubits() == 1);
  const double h = std::sqrt(0.5);
  const double c = std::cos(gate.angle() / 2);
  const double s = std::sin(gate.angle() / 2);
  const Amplitude i(0, 1);
  switch (gate.kind()) {
    case GateKind::I: return {1, 0, 0, 1};
    case GateKind::H: return {h, h, h, -h};
    case GateKind::X: return {0, 1, 1, 0};
    case GateKind::Y: return {0, -i, i, 0};
    case GateKind::Z: return {1, 0, 0, -1};
    case GateKind::S: return {1, 0, 0, i};
    case GateKind::T: return {1, 0, 0, Amplitude(h, h)};
    case GateKind::RX: return {c, -i * s, -i * s, c};
    case GateKind::RY: return {c, -s, s, c};
    case GateKind::RZ: return {Amplitude(c, -s), 0, 0, Amplitude(c, s)};
    case GateKind::P: return {1, 0, 0, std::polar(1.0, gate.angle())};
    default: assert(false && "not a one-qubit gate"); return {};
  }
}

}  // namespace corvid
