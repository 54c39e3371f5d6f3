#include "sim.pybind.h"

namespace corvid_py {

SimClasses pybind_sim_classes(pybind11::module_&) { return {}; }

void pybind_sim_methods(pybind11::module_&, SimClasses&) {}

}  // namespace corvid_py
