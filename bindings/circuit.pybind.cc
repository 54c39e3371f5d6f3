#include "circuit.pybind.h"

namespace corvid_py {

CircuitClasses pybind_circuit_classes(pybind11::module_&) { return {}; }

void pybind_circuit_methods(pybind11::module_&, CircuitClasses&) {}

}  // namespace corvid_py
