#pragma once
#include <pybind11/pybind11.h>

#include <cstdint>
#include <vector>

#include "corvid/circuit/program.h"

namespace corvid_py {

/// The Python classes of this area, created before any method is bound so that every
/// signature can name every class.
struct CircuitClasses {
  pybind11::class_<corvid::Qubit> qubit;
  pybind11::class_<corvid::CBit> cbit;
  pybind11::class_<corvid::Gate> gate;
  pybind11::class_<corvid::Measurement> measurement;
  pybind11::class_<corvid::Circuit> circuit;
  pybind11::class_<corvid::Program> program;
};

CircuitClasses pybind_circuit_classes(pybind11::module_& m);
void pybind_circuit_methods(pybind11::module_& m, CircuitClasses& classes);

/// An integer argument (int or anything with __index__, not bool); ValueError naming `what`
/// otherwise, or when it does not fit in 64 bits.
std::int64_t to_integer(pybind11::handle value, const char* what);

/// A qubit argument: a Qubit handle or a plain non-negative index (IndexError when negative or
/// too large, TypeError for anything else).
corvid::Qubit to_qubit(pybind11::handle value);
std::vector<corvid::Qubit> to_qubits(pybind11::handle sequence);
corvid::CBit to_cbit(pybind11::handle value);
std::vector<corvid::CBit> to_cbits(pybind11::handle sequence);

}  // namespace corvid_py
