// corvid.PauliOperator and corvid.binary_polynomial_to_z_operator.
//
// The operator methods keep the GIL: operators are mutable Python objects, and releasing the
// lock would let another thread resize one while it is being read. The polynomial expansion
// works on its own converted copy of the input, so it runs without the GIL.
#include "pauli.pybind.h"

#include <pybind11/complex.h>
#include <pybind11/operators.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "corvid/pauli/pauli_key.h"
#include "corvid/qaoa/binary_polynomial.h"

namespace py = pybind11;

namespace corvid_py {
namespace {

using corvid::PauliOperator;
using Coefficient = PauliOperator::Coefficient;

// Real coefficients cross as float, others as complex.
py::object coefficient_to_python(Coefficient c) {
  if (c.imag() == 0.0) return py::float_(c.real());
  return py::cast(c);
}

PauliOperator from_dict(const std::map<std::string, Coefficient>& terms) {
  return PauliOperator(
      std::vector<std::pair<std::string, Coefficient>>(terms.begin(), terms.end()));
}

py::list to_hamiltonian(const PauliOperator& op, bool is_real) {
  py::list list;
  for (const PauliOperator::Term& t : op) {
    py::dict letters;
    for (const corvid::PauliFactor& f : t.string.factors()) {
      letters[py::int_(f.qubit)] = py::str(std::string(1, f.letter));
    }
    py::object c =
        is_real ? py::float_(t.coefficient.real()) : coefficient_to_python(t.coefficient);
    list.append(py::make_tuple(std::move(letters), std::move(c)));
  }
  return list;
}

std::uint32_t variable_index(py::handle item) {
  long long v = 0;
  try {
    v = item.cast<long long>();
  } catch (const py::cast_error&) {
    throw py::type_error("variable indices must be integers, got " +
                         py::repr(item).cast<std::string>());
  }
  if (v < 0 || v > static_cast<long long>(UINT32_MAX)) {
    throw std::invalid_argument("variable index " + std::to_string(v) +
                                " is out of range [0, 4294967295]");
  }
  return static_cast<std::uint32_t>(v);
}

std::vector<corvid::Monomial> to_monomials(const py::iterable& monomials) {
  std::vector<corvid::Monomial> out;
  for (py::handle item : monomials) {
    py::tuple pair(py::reinterpret_borrow<py::object>(item));
    if (pair.size() != 2) {
      throw std::invalid_argument("each monomial must be a (variables, coefficient) pair, got " +
                                  py::repr(item).cast<std::string>());
    }
    corvid::Monomial m{{}, py::float_(pair[1]).cast<double>()};
    for (py::handle v : py::iterable(pair[0])) m.variables.push_back(variable_index(v));
    out.push_back(std::move(m));
  }
  return out;
}

}  // namespace

PauliClasses pybind_pauli_classes(py::module_& m) {
  return {py::class_<PauliOperator>(m, "PauliOperator", R"doc(
A weighted sum of Pauli strings with complex coefficients.

A Pauli string is written as a key: factors made of a letter X, Y or Z and a decimal qubit
index ("Z0", "X12"), separated by single blanks ("Z0 Z1"); "" is the identity. Factors are
listed in ascending qubit order. Like terms are merged and terms whose coefficient becomes
exactly 0 are dropped. Terms are kept in a fixed order: fewer factors first, then by qubit
indices, then by letters (X < Y < Z), e.g. "", "Z0", "Z1", "Z2", "Z0 Z1".

>>> from corvid import PauliOperator
>>> x0 = PauliOperator(0.5) - PauliOperator("Z0", 0.5)   # binary x0 = (I - Z0)/2
>>> print(x0)
{
"" : 0.500000,
"Z0" : -0.500000
}
>>> PauliOperator("X0", 1) * PauliOperator("Y0", 1) == PauliOperator("Z0", 1j)
True
)doc")};
}

void pybind_pauli_methods(py::module_& m, PauliClasses& classes) {
  auto& cls = classes.pauli_operator;
  cls.def(py::init<>(), "The zero operator (no terms).\n\n>>> len(PauliOperator())\n0")
      .def(py::init<Coefficient>(), py::arg("scalar"),
           "scalar times the identity.\n\n>>> list(PauliOperator(2))\n[('', 2.0)]")
      .def(py::init<std::string_view, Coefficient>(), py::arg("key"), py::arg("scalar"),
           "scalar times the Pauli string written by key; a malformed key raises ValueError.\n\n"
           ">>> list(PauliOperator(\"Z1 X0\", -1.5))\n[('X0 Z1', -1.5)]")
      .def(py::init(&from_dict), py::arg("terms"),
           "The sum of {key: coefficient} entries.\n\n"
           ">>> len(PauliOperator({\"\": 1, \"Z0 Z1\": 0.5}))\n2");

  const Coefficient s;  // stands for a number on either side
  cls.def(py::self + py::self)
      .def(py::self + s)
      .def(s + py::self)
      .def(py::self - py::self)
      .def(py::self - s)
      .def(s - py::self)
      .def(py::self * py::self)
      .def(py::self * s)
      .def(s * py::self)
      .def(py::self += py::self)
      .def(py::self += s)
      .def(py::self -= py::self)
      .def(py::self -= s)
      .def(py::self *= py::self)
      .def(py::self *= s)
      .def(-py::self)
      .def(py::self == py::self)
      .def(py::self != py::self);

  // numpy scalars on the left (np.float64(2) * op) defer to __rmul__ instead of broadcasting.
  cls.attr("__array_ufunc__") = py::none();

  cls.def("__len__", &PauliOperator::size, "The number of terms.")
      .def(
          "__iter__",
          [](const PauliOperator& op) {
            py::list terms;
            for (const PauliOperator::Term& t : op) {
              terms.append(py::make_tuple(corvid::format_pauli_key(t.string),
                                          coefficient_to_python(t.coefficient)));
            }
            return py::iter(terms);
          },
          "Iterates over the terms in order as (key, coefficient) pairs; a coefficient is a float\n"
          "when its imaginary part is 0, else a complex.\n\n"
          ">>> list(PauliOperator(\"Z0\", 2) - 1)\n[('', -1.0), ('Z0', 2.0)]")
      .def("__str__", &PauliOperator::to_string)
      .def("__repr__", &PauliOperator::to_string)
      .def(py::pickle(
          [](const PauliOperator& op) {  // the terms as (key, coefficient) pairs
            py::list terms;
            for (const PauliOperator::Term& t : op) {
              terms.append(
                  py::make_tuple(corvid::format_pauli_key(t.string), py::cast(t.coefficient)));
            }
            return py::make_tuple(py::tuple(terms));
          },
          [](const py::tuple& state) {
            if (state.size() != 1) throw std::invalid_argument("corrupt PauliOperator state");
            return PauliOperator(state[0].cast<std::vector<std::pair<std::string, Coefficient>>>());
          }))
      .def("__copy__", [](const PauliOperator& a) { return a; })
      .def(
          "__deepcopy__", [](const PauliOperator& a, py::dict) { return a; }, py::arg("memo"))
      .def("approx_equal", &PauliOperator::approx_equal, py::arg("other"), py::arg("tol") = 1e-12,
           "True when every coefficient differs from other's by at most tol (absolute).\n\n"
           ">>> PauliOperator(\"Z0\", 1.0).approx_equal(PauliOperator(\"Z0\", 1.0 + 1e-15))\nTrue")
      .def("toHamiltonian", &to_hamiltonian, py::arg("is_real") = true,
           "The terms in order as a list of ({qubit: letter}, coefficient) tuples; the identity\n"
           "has an empty dict. With is_real true the coefficients are the real parts (floats),\n"
           "otherwise floats or complex numbers as in iteration.\n\n"
           ">>> PauliOperator({\"\": 1, \"Z0 Z1\": 0.5}).toHamiltonian(True)\n"
           "[({}, 1.0), ({0: 'Z', 1: 'Z'}, 0.5)]")
      .def(
          "remapQubitIndex",
          [](const PauliOperator& op, py::dict mapping) {
            std::map<std::uint32_t, std::uint32_t> renumbering;
            PauliOperator result = op.remap_qubit_index(renumbering);
            mapping.clear();
            for (auto [old_index, new_index] : renumbering)
              mapping[py::int_(old_index)] = new_index;
            return result;
          },
          py::arg("mapping"),
          "The operator with its qubits renumbered 0, 1, 2, ... in ascending order of the qubits\n"
          "it uses; mapping (a dict) is cleared and filled with {old: new}.\n\n"
          ">>> m = {}\n>>> PauliOperator(\"Z3 Z7\", 1).remapQubitIndex(m), m\n"
          "({\n\"Z0 Z1\" : 1.000000\n}, {3: 0, 7: 1})")
      .def(
          "getMaxIndex", &PauliOperator::max_index,
          "The largest qubit index used, or -1 when the operator acts on no qubit, so that\n"
          "getMaxIndex() + 1 is the number of qubits it needs.\n\n"
          ">>> PauliOperator(\"Z0 X5\", 1).getMaxIndex(), PauliOperator(3).getMaxIndex()\n(5, -1)");

  m.def(
      "binary_polynomial_to_z_operator",
      [](const py::iterable& monomials) {
        std::vector<corvid::Monomial> converted = to_monomials(monomials);
        py::gil_scoped_release release;
        return corvid::binary_polynomial_to_z_operator(converted);
      },
      py::arg("monomials"),
      R"doc(
The Z operator of a polynomial in binary variables, each x_v replaced by (I - Z_v)/2.

monomials: an iterable of (variables, coefficient) pairs, each meaning coefficient times the
product of x_v over the variable indices v (non-negative integers; a repeated index counts once,
since x*x = x for binary x; no variables means a constant). Variable v is carried by qubit v,
and x_v = 1 on basis states whose bit v is 1. Like terms are merged and exact zeros dropped.

>>> from corvid import binary_polynomial_to_z_operator
>>> list(binary_polynomial_to_z_operator([([0, 1], 2), ([2], 3), ([], -1)]))
[('', 1.0), ('Z0', -0.5), ('Z1', -0.5), ('Z2', -1.5), ('Z0 Z1', 0.5)]
)doc");
}

}  // namespace corvid_py
