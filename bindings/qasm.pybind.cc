#include "qasm.pybind.h"

#include <pybind11/stl.h>

#include <string>

#include "corvid/circuit/qasm.h"

namespace py = pybind11;

namespace corvid_py {

void pybind_qasm(py::module_& m) {
  const char* to_doc = R"doc(The circuit or program as OpenQASM text (version 2 or 3).

Standard gate names (qelib1.inc / stdgates.inc); qubit i is q[i], classical bit j is c[j].
A CNOT-RZ-CNOT triple is written as rzz unless fuse_rzz=False; identity gates only with
keep_identities=True. Angles round-trip exactly through from_qasm.)doc";
  auto to_qasm = [](const corvid::Program& program, int version, bool keep_identities,
                    bool fuse_rzz) {
    return corvid::to_qasm(program, {version, keep_identities, fuse_rzz});
  };
  m.def("to_qasm", to_qasm, py::arg("program"), py::arg("version") = 2,
        py::arg("keep_identities") = false, py::arg("fuse_rzz") = true, to_doc);
  m.def(
      "to_qasm",
      [to_qasm](const corvid::Circuit& circuit, int version, bool keep_identities, bool fuse_rzz) {
        return to_qasm(corvid::Program(circuit), version, keep_identities, fuse_rzz);
      },
      py::arg("circuit"), py::arg("version") = 2, py::arg("keep_identities") = false,
      py::arg("fuse_rzz") = true);
  m.def(
      "from_qasm", [](const std::string& text) { return corvid::from_qasm(text); }, py::arg("text"),
      R"doc(A QProg read from OpenQASM 2 or 3 text in corvid's gate set.

Gates act on plain qubit indices (registers numbered one after another as declared), so the
program runs on any machine. ValueError naming the line for anything outside the gate set or
malformed; the text is only read, never executed.)doc");
}

}  // namespace corvid_py
