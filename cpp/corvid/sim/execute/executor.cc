#include "corvid/sim/execute/executor.h"

#include <cassert>
#include <cmath>
#include <numbers>

#include "corvid/sim/kernels/kernels.h"

namespace corvid {

void apply_gate(StateVector& state, const Gate& gate) {
  using K = GateKind;
  Amplitude* a = state.data();
  const unsigned n = state.num_qubits();
  const unsigned q0 = gate.qubit(0);
  const unsigned q1 = gate.qubit(1);
  const double phi = gate.angle();
  const double r = std::numbers::sqrt2 / 2;
  const Amplitude one(1, 0);
#ifndef NDEBUG
  for (std::uint32_t q : gate.qubits()) assert(q < n);
#endif
  switch (gate.kind()) {
    case K::I: return;
    case K::H: return kernels::apply_h(a, n, q0);
    case K::X: return kernels::apply_x(a, n, q0);
    case K::Y: return kernels::apply_y(a, n, q0);
    case K::Z: return kernels::apply_diagonal1(a, n, q0, one, -one);
    case K::S: return kernels::apply_diagonal1(a, n, q0, one, Amplitude(0, 1));
    case K::T: return kernels::apply_diagonal1(a, n, q0, one, Amplitude(r, r));
    case K::RX: return kernels::apply_rx(a, n, q0, phi);
    case K::RY: return kernels::apply_ry(a, n, q0, phi);
    case K::RZ:
      return kernels::apply_diagonal1(a, n, q0, std::polar(1.0, -phi / 2), std::polar(1.0, phi / 2));
    case K::P: return kernels::apply_diagonal1(a, n, q0, one, std::polar(1.0, phi));
    case K::CNOT: return kernels::apply_cnot(a, n, q0, q1);
    case K::CZ: return kernels::apply_cz(a, n, q0, q1);
    case K::SWAP: return kernels::apply_swap(a, n, q0, q1);
    case K::RXX: return kernels::apply_rxx(a, n, q0, q1, phi);
    case K::RYY: return kernels::apply_ryy(a, n, q0, q1, phi);
    case K::RZZ: return kernels::apply_rzz(a, n, q0, q1, phi);
  }
}

void execute(StateVector& state, std::span<const Gate> gates) {
  for (const Gate& g : gates) apply_gate(state, g);
}

}  // namespace corvid
