// Python surface of circuits: qubit handles, gate functions, QCircuit, QProg and measurements.
#include "circuit.pybind.h"

#include <pybind11/operators.h>
#include <pybind11/stl.h>

#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "corvid/circuit/gate_definitions.h"

namespace py = pybind11;
using corvid::CBit;
using corvid::Circuit;
using corvid::Gate;
using corvid::GateKind;
using corvid::Measurement;
using corvid::Program;
using corvid::Qubit;

namespace corvid_py {
namespace {

// What each gate does, for its docstring.

std::uint32_t to_index(py::handle value, const char* what) {
  if (!PyIndex_Check(value.ptr()) || PyBool_Check(value.ptr())) {
    throw py::type_error(std::string("expected a ") + what + " handle or an int, got " +
                         std::string(py::str(py::type::of(value).attr("__name__"))));
  }
  const std::int64_t i = to_integer(value, what);
  if (i < 0 || i > std::numeric_limits<std::uint32_t>::max()) {
    throw std::out_of_range(std::string(what) + " index " + std::to_string(i) + " is out of range");
  }
  return static_cast<std::uint32_t>(i);
}

bool is_qubit_list(py::handle value) {
  return !py::isinstance<Qubit>(value) && py::isinstance<py::iterable>(value) &&
         !py::isinstance<py::str>(value);
}

// One-qubit gates take a qubit, or a list of qubits and return a circuit with the gate on each.
py::object one_qubit_gate(GateKind kind, py::handle qubits, double angle, double scale = 1.0) {
  if (!is_qubit_list(qubits)) return py::cast(Gate(kind, {to_qubit(qubits)}, angle, scale));
  Circuit circuit;
  for (const Qubit& q : to_qubits(qubits)) circuit << Gate(kind, {q}, angle, scale);
  return py::cast(std::move(circuit));
}

std::string gate_doc(GateKind kind) {
  const corvid::GateInfo& info = corvid::gate_info(kind);
  const std::string name(info.name);
  const std::string angle = info.has_angle ? ", angle" : "";
  std::string doc = info.num_qubits == 1 ? name + "(qubit" + angle + ")" : "";
  if (info.num_qubits == 2) {
    doc = kind == GateKind::CNOT ? "CNOT(control, target)" : name + "(qubit1, qubit2" + angle + ")";
  }
  doc += "\n\n" + std::string(corvid::gate_definition(kind).doc) + ".\n\n";
  doc += "Qubits are Qubit handles from CPUQVM.qAlloc_many or plain int indices";
  if (info.has_angle) {
    doc +=
        "; the angle is in radians and must be finite (else ValueError). With scale, the "
        "angle is angle*scale: phase gates that share one scale (a layer's gamma) reuse "
        "their fused diagonal for every value of it";
  }
  doc += ".";
  if (info.num_qubits == 1) {
    doc += " Given a list of qubits, returns a QCircuit with the gate on each qubit in list order.";
    doc += "\n\nExample:\n    >>> str(" + name + "(2" + (info.has_angle ? ", 0.5" : "") + "))\n";
  } else {
    doc += " The same qubit twice is a ValueError.";
    doc += "\n\nExample:\n    >>> str(" + name + "(0, 1" + (info.has_angle ? ", 0.5" : "") + "))\n";
  }
  Gate example = info.num_qubits == 1 ? Gate(kind, {2}, 0.5) : Gate(kind, {0, 1}, 0.5);
  doc += "    '" + example.to_string() + "'";
  return doc;
}

void bind_gate_functions(py::module_& m) {
  for (int k = 0; k < corvid::kNumGateKinds; ++k) {
    const auto kind = static_cast<GateKind>(k);
    const corvid::GateInfo& info = corvid::gate_info(kind);
    const std::string name(info.name);
    const std::string doc = gate_doc(kind);
    if (info.num_qubits == 1 && info.has_angle) {
      m.def(
          name.c_str(),
          [kind](py::handle q, double angle, double scale) {
            return one_qubit_gate(kind, q, angle, scale);
          },
          py::arg("qubit"), py::arg("angle"), py::kw_only(), py::arg("scale") = 1.0, doc.c_str());
    } else if (info.num_qubits == 1) {
      m.def(
          name.c_str(), [kind](py::handle q) { return one_qubit_gate(kind, q, 0.0); },
          py::arg("qubit"), doc.c_str());
    } else if (info.has_angle) {
      m.def(
          name.c_str(),
          [kind](py::handle a, py::handle b, double angle, double scale) {
            return Gate(kind, {to_qubit(a), to_qubit(b)}, angle, scale);
          },
          py::arg("qubit1"), py::arg("qubit2"), py::arg("angle"), py::kw_only(),
          py::arg("scale") = 1.0, doc.c_str());
    } else {
      const bool cnot = kind == GateKind::CNOT;
      m.def(
          name.c_str(),
          [kind](py::handle a, py::handle b) {
            return Gate(kind, {to_qubit(a), to_qubit(b)});
          },
          py::arg(cnot ? "control" : "qubit1"), py::arg(cnot ? "target" : "qubit2"), doc.c_str());
    }
  }
}

template <class Handle>
void bind_handle(py::class_<Handle>& cls, const char* name) {
  cls.def_property_readonly(
         "addr", [](const Handle& h) { return h.addr; },
         "Index of the bit in its machine's register.")
      .def("__repr__",
           [name](const Handle& h) {
             return std::string(name) + "(" + std::to_string(h.addr) + ")";
           })
      .def(py::self == py::self)
      .def("__hash__", [](const Handle& h) { return py::hash(py::make_tuple(h.addr, h.machine)); });
}

py::object append_to_circuit(py::object self, const Circuit& items) {
  self.cast<Circuit&>().append(items);
  return self;
}

template <class Item>
py::object append_to_program(py::object self, const Item& item) {
  self.cast<Program&>().append(item);
  return self;
}

// Pickled circuits and programs: fixed-size records packed in bytes (17 per gate, 8 per
// measurement), native byte order. Handles lose their machine (ids mean nothing in another
// process) and come back as plain indices; copy and deepcopy keep them.
struct GateRecord {
  std::uint8_t kind;
  std::uint32_t qubits[2];
  double angle;
};
constexpr std::size_t kGateRecord = 1 + 2 * 4 + 8;

py::bytes pack_gates(const Circuit& circuit) {
  std::string out(circuit.size() * kGateRecord, '\0');
  char* p = out.data();
  for (const Gate& g : circuit) {
    const auto kind = static_cast<std::uint8_t>(g.kind());
    const std::uint32_t qubits[2] = {g.qubit(0), g.num_qubits() > 1 ? g.qubit(1) : 0};
    const double angle = g.angle();
    std::memcpy(p, &kind, 1);
    std::memcpy(p + 1, qubits, 8);
    std::memcpy(p + 9, &angle, 8);
    p += kGateRecord;
  }
  return py::bytes(out);
}

Circuit unpack_gates(const std::string& bytes) {
  if (bytes.size() % kGateRecord != 0) throw std::invalid_argument("corrupt QCircuit state");
  Circuit circuit;
  circuit.reserve(bytes.size() / kGateRecord);
  for (const char* p = bytes.data(); p != bytes.data() + bytes.size(); p += kGateRecord) {
    GateRecord r;
    std::memcpy(&r.kind, p, 1);
    std::memcpy(r.qubits, p + 1, 8);
    std::memcpy(&r.angle, p + 9, 8);
    if (r.kind >= corvid::kNumGateKinds) throw std::invalid_argument("corrupt QCircuit state");
    const auto kind = static_cast<GateKind>(r.kind);
    const std::array<Qubit, 2> qubits{Qubit(r.qubits[0]), Qubit(r.qubits[1])};
    circuit << Gate(kind, std::span(qubits.data(), corvid::gate_info(kind).num_qubits), r.angle);
  }
  return circuit;
}

py::tuple program_state(const Program& program) {
  std::string measured(program.measurements().size() * 8, '\0');
  char* p = measured.data();
  for (const Measurement& m : program.measurements()) {
    std::memcpy(p, &m.qubit.addr, 4);
    std::memcpy(p + 4, &m.cbit.addr, 4);
    p += 8;
  }
  return py::make_tuple(pack_gates(program.circuit()), py::bytes(measured));
}

Program program_from_state(const py::tuple& state) {
  if (state.size() != 2) throw std::invalid_argument("corrupt QProg state");
  Program program(unpack_gates(state[0].cast<std::string>()));
  const auto measured = state[1].cast<std::string>();
  if (measured.size() % 8 != 0) throw std::invalid_argument("corrupt QProg state");
  for (const char* p = measured.data(); p != measured.data() + measured.size(); p += 8) {
    std::uint32_t qubit = 0, cbit = 0;
    std::memcpy(&qubit, p, 4);
    std::memcpy(&cbit, p + 4, 4);
    program << Measurement(Qubit(qubit), CBit(cbit));
  }
  return program;
}

template <class T>
void bind_copies(py::class_<T>& cls) {
  cls.def("__copy__", [](const T& x) { return T(x); })
      .def(
          "__deepcopy__", [](const T& x, py::dict) { return T(x); }, py::arg("memo"));
}

}  // namespace

std::int64_t to_integer(py::handle value, const char* what) {
  if (!PyIndex_Check(value.ptr()) || PyBool_Check(value.ptr())) {
    throw std::invalid_argument(std::string(what) + " must be an integer, got " +
                                std::string(py::repr(value)));
  }
  py::int_ i = py::reinterpret_steal<py::int_>(PyNumber_Index(value.ptr()));
  if (!i) {  // e.g. a numpy array of several integers
    PyErr_Clear();
    throw std::invalid_argument(std::string(what) + " must be an integer, got " +
                                std::string(py::repr(value)));
  }
  int overflow = 0;
  const long long v = PyLong_AsLongLongAndOverflow(i.ptr(), &overflow);
  if (overflow != 0) {  // the counts and indices behind every caller are 64-bit
    throw std::invalid_argument(std::string(what) +
                                (overflow > 0 ? " is too large: " : " is too small: ") +
                                std::string(py::repr(value)) +
                                (overflow > 0 ? " (at most 2**63 - 1)" : " (at least -2**63)"));
  }
  return v;
}

Qubit to_qubit(py::handle value) {
  if (py::isinstance<Qubit>(value)) return value.cast<Qubit>();
  return Qubit(to_index(value, "qubit"));
}

CBit to_cbit(py::handle value) {
  if (py::isinstance<CBit>(value)) return value.cast<CBit>();
  return CBit(to_index(value, "classical bit"));
}

std::vector<Qubit> to_qubits(py::handle sequence) {
  std::vector<Qubit> out;
  for (py::handle item : py::iter(sequence)) out.push_back(to_qubit(item));
  return out;
}

std::vector<CBit> to_cbits(py::handle sequence) {
  std::vector<CBit> out;
  for (py::handle item : py::iter(sequence)) out.push_back(to_cbit(item));
  return out;
}

CircuitClasses pybind_circuit_classes(py::module_& m) {
  return {
      py::class_<Qubit>(m, "Qubit", "A qubit of a machine's register (from CPUQVM.qAlloc_many)."),
      py::class_<CBit>(m, "CBit", "A classical bit of a machine (from CPUQVM.cAlloc_many)."),
      py::class_<Gate>(m, "Gate",
                       "One gate: .name, .qubits and .params. Made by the gate functions."),
      py::class_<Measurement>(m, "Measurement",
                              "Measurement of one qubit into one classical bit (see measure_all)."),
      py::class_<Circuit>(m, "QCircuit", R"doc(
An ordered list of gates.

``c << item`` appends a gate or inlines a whole circuit and returns ``c``, so appends chain.
``str(c)`` prints one gate per line: the name, the qubits as ``q[i]`` and the angle as
``(%f)``, e.g. ``RZ q[2], (-3.000000)``. Circuits are equal when their gates are (kind, qubits
and angles; not the machine the qubits came from). A pickled circuit keeps its gates and angles;
its qubits come back as plain indices (machine ids mean nothing in another process), while
copy.copy and copy.deepcopy keep them.

Example:
    >>> c = QCircuit()
    >>> c << H(0) << CNOT(0, 1) << RZ(1, -3.0)  # doctest: +ELLIPSIS
    <...>
    >>> print(c)
    H q[0]
    CNOT q[0], q[1]
    RZ q[1], (-3.000000)
)doc"),
      py::class_<Program>(m, "QProg", R"doc(
A quantum program: a circuit followed by terminal measurements.

``prog << item`` appends a gate, a QCircuit, a Measurement or a list of measurements (as
returned by measure_all) and returns ``prog``. A gate after a measurement is a ValueError:
mid-circuit measurement is not supported. A QCircuit is accepted wherever a QProg is. Pickles
and copies behave as QCircuit's.
)doc"),
  };
}

void pybind_circuit_methods(py::module_& m, CircuitClasses& c) {
  bind_handle(c.qubit, "Qubit");
  bind_handle(c.cbit, "CBit");

  c.gate
      .def_property_readonly(
          "name", [](const Gate& g) { return std::string(g.name()); },
          "Upper-case gate name, e.g. 'CNOT'.")
      .def_property_readonly(
          "qubits",
          [](const Gate& g) {
            py::tuple t(g.num_qubits());
            for (unsigned i = 0; i < g.num_qubits(); ++i) t[i] = py::int_(g.qubit(i));
            return t;
          },
          "Qubit indices in the gate's order (control first for CNOT).")
      .def_property_readonly(
          "params",
          [](const Gate& g) { return g.has_angle() ? py::make_tuple(g.angle()) : py::tuple(); },
          "The angle as a 1-tuple for rotation gates, () otherwise.")
      .def("__str__", &Gate::to_string)
      .def("__repr__", [](const Gate& g) { return "<Gate " + g.to_string() + ">"; })
      .def(py::self == py::self);

  c.measurement.def_property_readonly("qubit", [](const Measurement& x) { return x.qubit.addr; })
      .def_property_readonly("cbit", [](const Measurement& x) { return x.cbit.addr; })
      .def("__str__", &Measurement::to_string)
      .def("__repr__", [](const Measurement& x) { return "<" + x.to_string() + ">"; })
      .def(py::self == py::self);

  bind_copies(c.circuit);
  c.circuit.def(py::pickle([](const Circuit& x) { return py::make_tuple(pack_gates(x)); },
                           [](const py::tuple& state) {
                             if (state.size() != 1)
                               throw std::invalid_argument("corrupt QCircuit state");
                             return unpack_gates(state[0].cast<std::string>());
                           }));
  c.circuit.def(py::init<>())
      .def(
          "__lshift__",
          [](py::object self, const Gate& g) {
            self.cast<Circuit&>().append(g);
            return self;
          },
          py::is_operator())
      .def("__lshift__", &append_to_circuit, py::is_operator())
      .def("__len__", &Circuit::size)
      .def(
          "reserve",
          [](Circuit& x, py::handle count) {
            const std::int64_t n = to_integer(count, "number of gates");
            if (n < 0) throw std::invalid_argument("number of gates must be non-negative");
            x.reserve(static_cast<std::uint64_t>(n));
          },
          py::arg("count"), R"doc(
Makes room for `count` more gates before a long series of appends. MemoryError, naming the
number of gates, when the circuit could not also be copied and compiled for a run.
)doc")
      .def(
          "__iter__", [](const Circuit& x) { return py::make_iterator(x.begin(), x.end()); },
          py::keep_alive<0, 1>())
      .def("__getitem__",
           [](const Circuit& x, std::int64_t i) {
             const auto n = static_cast<std::int64_t>(x.size());
             if (i < -n || i >= n) throw py::index_error("circuit index out of range");
             return x[static_cast<std::size_t>(i < 0 ? i + n : i)];
           })
      .def("__str__", &Circuit::to_string)
      .def("__repr__",
           [](const Circuit& x) { return "<QCircuit of " + std::to_string(x.size()) + " gates>"; })
      .def(py::self == py::self);

  bind_copies(c.program);
  c.program.def(py::pickle(&program_state, &program_from_state));
  c.program.def(py::init<>())
      .def(py::init<const Circuit&>(), py::arg("circuit"))
      .def("__lshift__", &append_to_program<Gate>, py::is_operator())
      .def("__lshift__", &append_to_program<Circuit>, py::is_operator())
      .def("__lshift__", &append_to_program<Measurement>, py::is_operator())
      .def("__lshift__", &append_to_program<std::vector<Measurement>>, py::is_operator())
      .def("__len__", &Program::size, "Number of gates plus number of measurements.")
      .def_property_readonly(
          "circuit", [](const Program& p) { return p.circuit(); },
          "A copy of the program's gates as a QCircuit.")
      .def_property_readonly("measurements", [](const Program& p) { return p.measurements(); })
      .def("__str__", &Program::to_string)
      .def("__repr__", [](const Program& p) {
        return "<QProg of " + std::to_string(p.circuit().size()) + " gates, " +
               std::to_string(p.measurements().size()) + " measurements>";
      });
  py::implicitly_convertible<Circuit, Program>();

  bind_gate_functions(m);

  m.def(
      "hadamard_circuit",
      [](py::handle qlist) {
        Circuit circuit;
        for (const Qubit& q : to_qubits(qlist)) circuit << Gate(GateKind::H, {q});
        return circuit;
      },
      py::arg("qlist"), R"doc(
A QCircuit with one H gate on each qubit of `qlist`, in list order. Applied to |0...0> it gives
the equal superposition of all basis states.

Example:
    >>> print(hadamard_circuit([0, 1]))
    H q[0]
    H q[1]
)doc");
  m.def(
      "Measure", [](py::handle q, py::handle b) { return Measurement(to_qubit(q), to_cbit(b)); },
      py::arg("qubit"), py::arg("cbit"), "Measurement of `qubit` into the classical bit `cbit`.");
  m.def(
      "measure_all",
      [](py::handle qlist, py::handle clist) {
        return corvid::measure_all(to_qubits(qlist), to_cbits(clist));
      },
      py::arg("qlist"), py::arg("clist"), R"doc(
Measurements of qlist[i] into clist[i] for every i, as a list to append to a QProg.
The lists must have the same length (ValueError otherwise).

Example:
    >>> [str(x) for x in measure_all([0, 1], [0, 1])]
    ['MEASURE q[0], c[0]', 'MEASURE q[1], c[1]']
)doc");
}

}  // namespace corvid_py
