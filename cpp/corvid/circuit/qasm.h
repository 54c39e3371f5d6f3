#pragma once
/// OpenQASM 2 and 3 text for programs, with the standard gate names, so that a circuit built
/// here runs on other simulators and on hardware, and circuits written elsewhere in this gate
/// set run here.
///
/// Qubit i of a program is q[i] (the same order as basis index bits, which is also the order
/// of most other toolkits); classical bit j is c[j]. The gate conventions are those of the
/// standard libraries (qelib1.inc, stdgates.inc): rz(φ) = exp(−iφZ/2), rzz(φ) = exp(−iφZZ/2).

#include <string>
#include <string_view>

#include "corvid/circuit/program.h"

namespace corvid {

struct QasmOptions {
  int version = 2;               ///< 2 or 3
  bool keep_identities = false;  ///< write I gates as `id`
  bool fuse_rzz = true;          ///< write CNOT(a, b) RZ(b, φ) CNOT(a, b) as rzz(φ) a, b
};

/// The program as OpenQASM text; angles are written to round-trip exactly. Throws
/// std::invalid_argument for a version other than 2 or 3.
std::string to_qasm(const Program& program, const QasmOptions& options = {});

/// Reads OpenQASM 2 or 3 in this gate set (id x y z h s sdg t tdg rx ry rz p u1 phase cx CX cz
/// swap rxx ryy rzz, `measure`, `barrier`), with angle expressions of numbers, pi, + - * / and
/// parentheses. Registers are numbered one after another in the order declared; a gate on a
/// whole register of one-qubit gates applies it to each qubit. Gates are on plain indices, so
/// the program runs on any machine. Throws std::invalid_argument naming the line for anything
/// else (another gate, a gate definition other than the standard rxx/ryy/rzz, an index out of
/// range, malformed text); the text is never executed, only read, in time linear in its length.
Program from_qasm(std::string_view text);

}  // namespace corvid
