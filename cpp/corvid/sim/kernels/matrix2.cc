#include "corvid/sim/kernels/matrix2.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "corvid/circuit/gate_definitions.h"

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
  const GateMatrix m = gate_matrix(gate);
  return {m(0, 0), m(0, 1), m(1, 0), m(1, 1)};
}

}  // namespace corvid
