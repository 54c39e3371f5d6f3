#include "corvid/testing/dense_reference.h"

#include <cmath>
#include <numbers>

namespace corvid::reference {
namespace {

const Complex i1(0, 1);

Matrix rotation(double angle, const Matrix& pauli) {
  const std::size_t dim = pauli.size() == 4 ? 2 : 4;
  Matrix m(pauli.size());
  for (std::size_t r = 0; r < dim; ++r) {
    for (std::size_t c = 0; c < dim; ++c) {
      m[r * dim + c] = (r == c ? std::cos(angle / 2) : 0.0) - i1 * std::sin(angle / 2) * pauli[r * dim + c];
    }
  }
  return m;
}

}  // namespace

Matrix gate_matrix(const Gate& gate) {
  const double r = 1 / std::sqrt(2.0);
  const double phi = gate.angle();
  const Matrix x{0, 1, 1, 0}, y{0, -i1, i1, 0}, z{1, 0, 0, -1};
  const Matrix xx{0, 0, 0, 1,  0, 0, 1, 0,  0, 1, 0, 0,  1, 0, 0, 0};
  const Matrix yy{0, 0, 0, -1,  0, 0, 1, 0,  0, 1, 0, 0,  -1, 0, 0, 0};
  const Matrix zz{1, 0, 0, 0,  0, -1, 0, 0,  0, 0, -1, 0,  0, 0, 0, 1};
  switch (gate.kind()) {
    case GateKind::I: return {1, 0, 0, 1};
    case GateKind::H: return {r, r, r, -r};
    case GateKind::X: return x;
    case GateKind::Y: return y;
    case GateKind::Z: return z;
    case GateKind::S: return {1, 0, 0, i1};
    case GateKind::T: return {1, 0, 0, std::exp(i1 * std::numbers::pi / 4.0)};
    case GateKind::RX: return rotation(phi, x);
    case GateKind::RY: return rotation(phi, y);
    case GateKind::RZ: return rotation(phi, z);
    case GateKind::P: return {1, 0, 0, std::exp(i1 * phi)};
    // Local index l = control + 2·target: the control-set states 1 (t=0) and 3 (t=1) swap.
    case GateKind::CNOT: return {1, 0, 0, 0,  0, 0, 0, 1,  0, 0, 1, 0,  0, 1, 0, 0};
    case GateKind::CZ: return {1, 0, 0, 0,  0, 1, 0, 0,  0, 0, 1, 0,  0, 0, 0, -1};
    case GateKind::SWAP: return {1, 0, 0, 0,  0, 0, 1, 0,  0, 1, 0, 0,  0, 0, 0, 1};
    case GateKind::RXX: return rotation(phi, xx);
    case GateKind::RYY: return rotation(phi, yy);
    case GateKind::RZZ: return rotation(phi, zz);
  }
  return {};
}

Matrix full_matrix(const Gate& gate, unsigned num_qubits) {
  const Matrix local = gate_matrix(gate);
  const std::size_t local_dim = gate.num_qubits() == 1 ? 2 : 4;
  const std::uint64_t dim = std::uint64_t{1} << num_qubits;
  std::uint64_t gate_mask = 0;
  for (std::uint32_t q : gate.qubits()) gate_mask |= std::uint64_t{1} << q;
  auto local_index = [&](std::uint64_t i) {
    std::size_t l = 0;
    for (unsigned k = 0; k < gate.num_qubits(); ++k) l |= ((i >> gate.qubit(k)) & 1) << k;
    return l;
  };
  Matrix full(dim * dim, 0.0);
  for (std::uint64_t row = 0; row < dim; ++row) {
    for (std::uint64_t col = 0; col < dim; ++col) {
      if ((row & ~gate_mask) != (col & ~gate_mask)) continue;  // the gate leaves other qubits be
      full[row * dim + col] = local[local_index(row) * local_dim + local_index(col)];
    }
  }
  return full;
}

Vector reference_state(const Circuit& circuit, unsigned num_qubits) {
  const std::uint64_t dim = std::uint64_t{1} << num_qubits;
  Vector state(dim, 0.0);
  state[0] = 1.0;
  for (const Gate& gate : circuit) {
    const Matrix m = full_matrix(gate, num_qubits);
    Vector next(dim, 0.0);
    for (std::uint64_t row = 0; row < dim; ++row) {
      for (std::uint64_t col = 0; col < dim; ++col) next[row] += m[row * dim + col] * state[col];
    }
    state = std::move(next);
  }
  return state;
}

std::vector<double> reference_probabilities(const Vector& state, std::span<const unsigned> qubits) {
  std::vector<double> probs(std::size_t{1} << qubits.size(), 0.0);
  for (std::uint64_t i = 0; i < state.size(); ++i) {
    std::size_t j = 0;
    for (std::size_t b = 0; b < qubits.size(); ++b) j |= ((i >> qubits[b]) & 1) << b;
    probs[j] += std::norm(state[i]);
  }
  return probs;
}

}  // namespace corvid::reference
