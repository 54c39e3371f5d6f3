#pragma once
/// The floating-point precision of a machine's state.
///
/// Double (complex128 amplitudes) is the default. Single (complex64) halves the state's memory
/// and the time of every memory-bound pass; amplitudes carry about 7 significant digits, so
/// probabilities and energies agree with double precision to about 1e-6 relative. A
/// single-precision machine writes the table of all qubits (in order) over its own state
/// buffer, so a 30-qubit run needs 8 GiB in all; its state can then no longer be read.

#include <string_view>

namespace corvid {

enum class Precision { kDouble, kSingle };

/// The precision of machines created without one (process-wide; thread-safe).
Precision default_precision();
void set_default_precision(Precision precision);

/// "double" or "single"; std::invalid_argument otherwise.
Precision parse_precision(std::string_view name);
std::string_view precision_name(Precision precision);

}  // namespace corvid
