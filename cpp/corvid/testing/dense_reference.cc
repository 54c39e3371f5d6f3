#include "corvid/testing/dense_reference.h"

#include "corvid/circuit/gate_definitions.h"

namespace corvid::reference {

Matrix gate_matrix(const Gate& gate) {
  const GateMatrix m = corvid::gate_matrix(gate);
  return Matrix(m.entries.begin(), m.entries.begin() + m.dim * m.dim);
}

Matrix full_matrix(const Gate& gate, unsigned num_qubits) {
  const Matrix local = reference::gate_matrix(gate);
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
