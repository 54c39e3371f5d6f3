#include "corvid/circuit/gate.h"

#include "corvid/circuit/gate_definitions.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace corvid {
namespace {

std::string gate_error(std::string_view name, const std::string& what) {
  return "gate " + std::string(name) + ": " + what;
}

}  // namespace

const GateInfo& gate_info(GateKind kind) { return gate_definition(kind).info; }

Gate::Gate(GateKind kind, std::span<const Qubit> qubits, double angle, double scale) : kind_(kind) {
  const GateInfo& info = gate_info(kind);
  if (qubits.size() != info.num_qubits) {
    throw std::invalid_argument(gate_error(info.name, "takes " + std::to_string(info.num_qubits) +
                                                          " qubit(s), got " +
                                                          std::to_string(qubits.size())));
  }
  for (std::size_t i = 0; i < qubits.size(); ++i) {
    if (qubits[i].addr >= kMaxQubits) {
      throw std::out_of_range(gate_error(
          info.name, "qubit index " + std::to_string(qubits[i].addr) + " is out of range [0, 64)"));
    }
    qubits_[i] = qubits[i].addr;
  }
  if (info.num_qubits == 2) {
    if (qubits[0].addr == qubits[1].addr) {
      throw std::invalid_argument(
          gate_error(info.name, "acts on qubit " + std::to_string(qubits[0].addr) + " twice"));
    }
    if (qubits[0].machine != qubits[1].machine) {
      throw std::invalid_argument(gate_error(info.name, "its qubits belong to different machines"));
    }
  }
  machine_ = qubits[0].machine;
  if (info.has_angle) {
    if (!std::isfinite(angle * scale) || !std::isfinite(scale)) {
      std::string got = std::to_string(angle * scale);
      if (scale != 1.0)
        got += " (" + std::to_string(angle) + " times scale " + std::to_string(scale) + ")";
      throw std::invalid_argument(gate_error(info.name, "angle must be finite, got " + got));
    }
    angle_ = angle * scale;
    unscaled_ = angle;
    scale_ = scale;
  }
}

std::string Gate::to_string() const {
  std::string out(name());
  for (unsigned i = 0; i < num_qubits(); ++i) {
    out += i == 0 ? " q[" : ", q[";
    out += std::to_string(qubits_[i]) + "]";
  }
  if (has_angle()) {
    char buf[64];
    std::snprintf(buf, sizeof buf, ", (%f)", angle_);
    out += buf;
  }
  return out;
}

}  // namespace corvid
