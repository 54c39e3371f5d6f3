// Builds Bell and GHZ circuits with the C++ API, runs them on the CPU machine and prints the
// probabilities. Exits non-zero when they are not the expected ones, so ctest checks it.
#include <cmath>
#include <cstdio>
#include <vector>

#include "corvid/circuit/circuit.h"
#include "corvid/sim/machine/basis_key.h"
#include "corvid/sim/machine/machine.h"

namespace {

// The probabilities of `circuit` on all qubits of a fresh machine, checked against `expected`.
bool run_and_check(const char* title, unsigned num_qubits,
                   corvid::Circuit (*build)(const std::vector<corvid::Qubit>&),
                   const std::vector<double>& expected) {
  corvid::Machine machine;
  const std::vector<corvid::Qubit> q = machine.allocate_qubits(num_qubits);
  const corvid::ProbabilityTable table = machine.probabilities(build(q), q);
  std::printf("%s\n", title);
  bool ok = table.values.size() == expected.size();
  for (std::size_t i = 0; i < table.values.size(); ++i) {
    std::printf("  %s : %.6f\n", corvid::basis_key(i, num_qubits).c_str(), table.values[i]);
    if (ok && std::abs(table.values[i] - expected[i]) > 1e-12) ok = false;
  }
  return ok;
}

corvid::Circuit bell(const std::vector<corvid::Qubit>& q) {
  using corvid::Gate, corvid::GateKind;
  corvid::Circuit c;
  c << Gate(GateKind::H, {q[0]}) << Gate(GateKind::CNOT, {q[0], q[1]});
  return c;
}

corvid::Circuit ghz(const std::vector<corvid::Qubit>& q) {
  using corvid::Gate, corvid::GateKind;
  corvid::Circuit c;
  c << Gate(GateKind::H, {q[0]});
  for (std::size_t i = 0; i + 1 < q.size(); ++i) c << Gate(GateKind::CNOT, {q[i], q[i + 1]});
  return c;
}

}  // namespace

int main() {
  std::vector<double> ghz_expected(8, 0.0);
  ghz_expected[0] = ghz_expected[7] = 0.5;
  const bool ok =
      run_and_check("Bell state (H q[0]; CNOT q[0], q[1]):", 2, bell, {0.5, 0.0, 0.0, 0.5}) &&
      run_and_check("GHZ state on 3 qubits:", 3, ghz, ghz_expected);
  std::printf(ok ? "probabilities as expected\n" : "UNEXPECTED PROBABILITIES\n");
  return ok ? 0 : 1;
}
