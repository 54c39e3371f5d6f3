#pragma once
#include <pybind11/pybind11.h>

namespace corvid_py {

/// The submodule corvid._core.ansatz: QAOA losses in batches and their exact gradients.
void pybind_ansatz(pybind11::module_& m);

}  // namespace corvid_py
