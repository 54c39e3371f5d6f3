#pragma once
#include <pybind11/pybind11.h>

namespace corvid_py {

/// The Python classes of this area, created before any method is bound so that every
/// signature can name every class.
struct SimClasses {};

SimClasses pybind_sim_classes(pybind11::module_& m);
void pybind_sim_methods(pybind11::module_& m, SimClasses& classes);

}  // namespace corvid_py
