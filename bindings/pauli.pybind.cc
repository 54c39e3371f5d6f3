#include "pauli.pybind.h"

namespace corvid_py {

PauliClasses pybind_pauli_classes(pybind11::module_&) { return {}; }

void pybind_pauli_methods(pybind11::module_&, PauliClasses&) {}

}  // namespace corvid_py
