#pragma once
/// The text form of a Pauli string (its key): factors written as a letter X, Y or Z followed by
/// the qubit index in plain decimal ("Z0", "X12"), separated by single blanks ("Z0 Z1"); the
/// identity is the empty key "".

#include <string>
#include <string_view>

#include "corvid/pauli/pauli_string.h"

namespace corvid {

/// Parses a key. Factors may come in any order ("Z1 Z0" is "Z0 Z1"). Rejected with
/// std::invalid_argument, whose message quotes the key: a letter other than upper-case X, Y, Z;
/// a missing, signed, non-decimal or zero-padded index ("Z", "Z-1", "Z0x", "Z01"); an index
/// above 4294967295; a blank anywhere but between two factors ("Z 0", "Z0  Z1", " Z0");
/// a qubit named twice ("Z0 X0"). O(length of the key).
PauliString parse_pauli_key(std::string_view key);

/// The key of `string`, factors in ascending qubit order; parse_pauli_key inverts it.
std::string format_pauli_key(const PauliString& string);

}  // namespace corvid
