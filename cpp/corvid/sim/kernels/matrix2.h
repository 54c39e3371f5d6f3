#pragma once
/// 2×2 complex matrices of one-qubit gates, row-major on (|0⟩, |1⟩).

#include "corvid/circuit/gate.h"
#include "corvid/sim/machine/state_vector.h"

namespace corvid {

struct Matrix2 {
  Amplitude m00, m01, m10, m11;
};

/// A one-qubit matrix and the qubit it acts on.
struct QubitMatrix {
  unsigned qubit;
  Matrix2 matrix;
};

/// a·b without the NaN-recovering library call std::complex multiplication makes by default.
inline Amplitude cmul(Amplitude a, Amplitude b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

/// `second` applied after `first`: second · first.
Matrix2 then(const Matrix2& first, const Matrix2& second);

/// m = scale · unit, where unit has ones on its diagonal (m00 == m11, the larger entries) or
/// ones off it (m01 == m10, the larger entries), so that a kernel can apply unit with one
/// multiply-add per amplitude; scale 1 and unit m when m has neither shape. An RX gate is
/// cos(θ/2)·(I − i·tan(θ/2)·X): the cosines of a whole layer multiply into one scalar.
struct ScaledMatrix2 {
  Amplitude scale;
  Matrix2 unit;
};
ScaledMatrix2 factor_scale(const Matrix2& m);

/// The matrix of a one-qubit gate (gate.num_qubits() == 1; asserted).
Matrix2 matrix_of(const Gate& gate);

}  // namespace corvid
