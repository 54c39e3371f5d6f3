#include "qaoa.pybind.h"

namespace corvid_py {

QaoaClasses pybind_qaoa_classes(pybind11::module_&) { return {}; }

void pybind_qaoa_methods(pybind11::module_&, QaoaClasses&) {}

}  // namespace corvid_py
