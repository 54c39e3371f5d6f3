#pragma once
#include <pybind11/pybind11.h>

namespace corvid_py {

/// The Python classes of this area (none: the problem builders return PauliOperator).
struct ProblemsClasses {};

ProblemsClasses pybind_problems_classes(pybind11::module_& m);
void pybind_problems_methods(pybind11::module_& m, ProblemsClasses& classes);

}  // namespace corvid_py
