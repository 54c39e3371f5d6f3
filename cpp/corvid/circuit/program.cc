#include "corvid/circuit/program.h"

#include <stdexcept>

namespace corvid {

Measurement::Measurement(Qubit q, CBit c) : qubit(q), cbit(c) {
  if (q.addr >= kMaxQubits) {
    throw std::out_of_range("measure: qubit index " + std::to_string(q.addr) +
                            " is out of range [0, 64)");
  }
  if (q.machine != kAnyMachine && c.machine != kAnyMachine && q.machine != c.machine) {
    throw std::invalid_argument("measure: qubit " + std::to_string(q.addr) + " and classical bit " +
                                std::to_string(c.addr) + " belong to different machines");
  }
}

std::string Measurement::to_string() const {
  return "MEASURE q[" + std::to_string(qubit.addr) + "], c[" + std::to_string(cbit.addr) + "]";
}

std::vector<Measurement> measure_all(std::span<const Qubit> qubits, std::span<const CBit> cbits) {
  if (qubits.size() != cbits.size()) {
    throw std::invalid_argument("measure_all: " + std::to_string(qubits.size()) + " qubits but " +
                                std::to_string(cbits.size()) + " classical bits");
  }
  std::vector<Measurement> out;
  out.reserve(qubits.size());
  for (std::size_t i = 0; i < qubits.size(); ++i) out.emplace_back(qubits[i], cbits[i]);
  return out;
}

void Program::refuse_gates_after_measurement(const Gate& first) const {
  if (!measurements_.empty()) {
    throw std::invalid_argument("mid-circuit measurement is not supported: gate '" +
                                first.to_string() + "' follows a measurement");
  }
}

Program& Program::append(const Gate& gate) {
  refuse_gates_after_measurement(gate);
  circuit_.append(gate);
  return *this;
}

Program& Program::append(const Circuit& circuit) {
  if (!circuit.empty()) refuse_gates_after_measurement(circuit[0]);
  circuit_.append(circuit);
  return *this;
}

Program& Program::append(const Measurement& measurement) {
  measurements_.push_back(measurement);
  return *this;
}

Program& Program::append(std::span<const Measurement> measurements) {
  measurements_.insert(measurements_.end(), measurements.begin(), measurements.end());
  return *this;
}

std::string Program::to_string() const {
  std::string out = circuit_.to_string();
  for (const Measurement& m : measurements_) {
    if (!out.empty()) out += '\n';
    out += m.to_string();
  }
  return out;
}

}  // namespace corvid
