#pragma once
#include <pybind11/pybind11.h>

namespace corvid_py {

/// corvid.to_qasm and corvid.from_qasm.
void pybind_qasm(pybind11::module_& m);

}  // namespace corvid_py
