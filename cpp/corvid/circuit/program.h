#pragma once
/// A quantum program: a circuit followed by terminal measurements of qubits into classical
/// bits. Measurements are terminal by construction: a gate appended after a measurement is
/// refused (mid-circuit measurement is not supported).

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "corvid/circuit/circuit.h"
#include "corvid/circuit/qubit.h"

namespace corvid {

/// Measures `qubit` into the classical bit `cbit`.
struct Measurement {
  Qubit qubit;
  CBit cbit;

  /// Throws std::invalid_argument when the qubit and the bit come from different machines, and
  /// std::out_of_range for an index >= kMaxQubits.
  Measurement(Qubit qubit, CBit cbit);

  /// The machine both handles belong to (kAnyMachine when both are plain indices).
  std::uint64_t machine() const noexcept {
    return qubit.machine != kAnyMachine ? qubit.machine : cbit.machine;
  }
  /// "MEASURE q[0], c[0]".
  std::string to_string() const;
  friend bool operator==(const Measurement&, const Measurement&) = default;
};

/// Measurement of qubits[i] into cbits[i] for every i; throws std::invalid_argument when the
/// lists differ in length.
std::vector<Measurement> measure_all(std::span<const Qubit> qubits, std::span<const CBit> cbits);

class Program {
 public:
  Program() = default;
  Program(const Circuit& circuit) : circuit_(circuit) {}  // NOLINT: a circuit is a program

  /// Appends gates; throws std::invalid_argument (nothing appended) if the program already
  /// holds a measurement and `circuit` is not empty.
  Program& append(const Gate& gate);
  Program& append(const Circuit& circuit);
  Program& append(const Measurement& measurement);
  Program& append(std::span<const Measurement> measurements);
  template <class T>
  Program& operator<<(const T& item) {
    return append(item);
  }

  const Circuit& circuit() const noexcept { return circuit_; }
  const std::vector<Measurement>& measurements() const noexcept { return measurements_; }
  /// Number of gates plus number of measurements.
  std::size_t size() const noexcept { return circuit_.size() + measurements_.size(); }

  /// The circuit's lines, then one line per measurement.
  std::string to_string() const;

 private:
  void refuse_gates_after_measurement(const Gate& first) const;

  Circuit circuit_;
  std::vector<Measurement> measurements_;
};

}  // namespace corvid
