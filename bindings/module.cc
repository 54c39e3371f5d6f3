// The extension module corvid._core: every class of every area is registered first, their
// methods second, so signatures and docstrings can refer to any class.
#include <pybind11/pybind11.h>

#include "circuit.pybind.h"
#include "corvid/util/errors.h"
#include "corvid/util/interrupt.h"
#include "corvid/util/parallel.h"
#include "error_translation.h"
#include "pauli.pybind.h"
#include "problems.pybind.h"
#include "qaoa.pybind.h"
#include "qasm.pybind.h"
#include "sim.pybind.h"

namespace py = pybind11;

PYBIND11_MODULE(_core, m) {
  m.doc() = "corvid core: Pauli algebra, circuits and the state-vector machine (C++).";

  corvid_py::register_error_translation();

  // Long C++ loops poll this hook (corvid/util/interrupt.h), so Ctrl-C stops a simulation that
  // runs without the GIL. A signal handler that raised is reported as KeyboardInterrupt.
  corvid::set_interrupt_check([] {
    py::gil_scoped_acquire gil;
    if (PyErr_CheckSignals() == 0) return false;
    PyErr_Clear();
    return true;
  });
  // The hook needs a live interpreter; drop it before the interpreter goes away.
  py::module_::import("atexit").attr("register")(
      py::cpp_function([] { corvid::set_interrupt_check({}); }));

  auto pauli = corvid_py::pybind_pauli_classes(m);
  auto circuit = corvid_py::pybind_circuit_classes(m);
  auto sim = corvid_py::pybind_sim_classes(m);
  auto qaoa = corvid_py::pybind_qaoa_classes(m);
  auto problems = corvid_py::pybind_problems_classes(m);

  corvid_py::pybind_pauli_methods(m, pauli);
  corvid_py::pybind_circuit_methods(m, circuit);
  corvid_py::pybind_sim_methods(m, sim);
  corvid_py::pybind_qaoa_methods(m, qaoa);
  corvid_py::pybind_problems_methods(m, problems);
  corvid_py::pybind_qasm(m);

  m.def("set_num_threads", &corvid::set_num_threads, py::arg("n"),
        "Set the number of threads the simulation kernels use (default: OMP_NUM_THREADS, else "
        "one per core).");
  m.def("get_num_threads", &corvid::num_threads,
        "The number of threads the simulation kernels use.");
}
