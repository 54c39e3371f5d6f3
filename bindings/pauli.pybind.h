#pragma once
#include <pybind11/pybind11.h>

#include "corvid/pauli/pauli_operator.h"

namespace corvid_py {

/// The Python classes of this area, created before any method is bound so that every
/// signature can name every class.
struct PauliClasses {
  pybind11::class_<corvid::PauliOperator> pauli_operator;
};

PauliClasses pybind_pauli_classes(pybind11::module_& m);
void pybind_pauli_methods(pybind11::module_& m, PauliClasses& classes);

}  // namespace corvid_py
