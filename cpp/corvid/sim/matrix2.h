#pragma once
/// 2×2 complex matrices of one-qubit gates, row-major on (|0⟩, |1⟩).

#include "corvid/circuit/gate.h"
#include "corvid/sim/state_vector.h"

namespace corvid {

struct Matrix2 {
  Amplitude m00, m01, m10, m11;
};

/// a·b without the NaN-recovering library call std::complex multiplication makes by default.
inline Amplitude cmul(Amplitude a, Amplitude b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

/// `second` applied after `first`: second · first.
Matrix2 then(const Matrix2& first, const Matrix2& second);

/// The matrix of a one-qubit gate (gate.num_qubits() == 1; asserted).
Matrix2 matrix_of(const Gate& gate);

}  // namespace corvid
