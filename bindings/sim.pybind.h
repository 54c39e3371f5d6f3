#pragma once
#include <pybind11/pybind11.h>

#include "corvid/sim/machine/machine.h"
#include "corvid/sim/machine/probabilities.h"

namespace corvid_py {

/// The Python classes of this area, created before any method is bound so that every
/// signature can name every class.
struct SimClasses {
  pybind11::class_<corvid::ProbabilityTable> probability_map;
  pybind11::class_<corvid::Machine> machine;
};

SimClasses pybind_sim_classes(pybind11::module_& m);
void pybind_sim_methods(pybind11::module_& m, SimClasses& classes);

}  // namespace corvid_py
