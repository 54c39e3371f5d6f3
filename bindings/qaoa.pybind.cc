// Python surface of the 2^n-state numerics: the submodule corvid.diagonal.
// Arrays come in as numpy (converted only when their dtype or layout differs)
// and results go out as numpy arrays that own the C++ buffer, so nothing is
// copied either way; the GIL is released while the work runs.
#include "qaoa.pybind.h"

#include "ansatz.pybind.h"

#include <pybind11/numpy.h>

#include "numpy_owned.h"

#include <span>
#include <utility>

#include "corvid/qaoa/diagonal.h"

namespace py = pybind11;

namespace corvid_py {
namespace {

template <class T>
using InArray = py::array_t<T, py::array::c_style | py::array::forcecast>;

template <class T>
std::span<const T> span_of(const InArray<T> &a) {
  return {a.data(), static_cast<std::size_t>(a.size())};
}

/// Runs `compute` without the GIL and hands the buffer it returns to numpy.
template <class F>
auto released(F &&compute) {
  auto buffer = [&] {
    py::gil_scoped_release release;
    return compute();
  }();
  return to_numpy(std::move(buffer));
}

using Masks = InArray<std::uint64_t>;
using Values = InArray<double>;

}  // namespace

QaoaClasses pybind_qaoa_classes(py::module_ &) { return {}; }

void pybind_qaoa_methods(py::module_ &m, QaoaClasses &) {
  auto d = m.def_submodule("diagonal",
                           "Numerics over all 2^n basis states: energies of a "
                           "diagonal Hamiltonian, losses of a "
                           "distribution, and its order by weight. Bit i of a "
                           "basis index is qubit i.");
  using py::arg;
  const auto no_gil = py::call_guard<py::gil_scoped_release>();

  d.def(
      "energies_from_z_terms",
      [](int n, const Masks &masks, const Values &coeffs) {
        return released(
            [&] { return corvid::energies_from_z_terms(n, span_of(masks), span_of(coeffs)); });
      },
      arg("num_qubits"), arg("masks"), arg("coeffs"),
      "E[x] = sum_t coeffs[t] * (-1)^popcount(x & masks[t]) for every x < "
      "2^num_qubits.");
  d.def(
      "energies_from_monomials",
      [](int n, const Masks &masks, const Values &coeffs) {
        return released(
            [&] { return corvid::energies_from_monomials(n, span_of(masks), span_of(coeffs)); });
      },
      arg("num_vars"), arg("masks"), arg("coeffs"),
      "E[x] = sum of coeffs[t] over the monomials whose mask is a subset of x, "
      "for every "
      "x < 2^num_vars.");
  d.def(
      "evaluate_z_terms",
      [](const Masks &masks, const Values &coeffs, const Masks &states) {
        return to_numpy(corvid::evaluate_z_terms(span_of(masks), span_of(coeffs), span_of(states)));
      },
      arg("masks"), arg("coeffs"), arg("states"), "The Z-term energies of the given states only.");
  d.def(
      "evaluate_monomials",
      [](const Masks &masks, const Values &coeffs, const Masks &states) {
        return to_numpy(
            corvid::evaluate_monomials(span_of(masks), span_of(coeffs), span_of(states)));
      },
      arg("masks"), arg("coeffs"), arg("states"),
      "The monomial energies of the given states only.");
  d.def(
      "expectation",
      [](const Values &p, const Values &e) { return corvid::expectation(span_of(p), span_of(e)); },
      arg("p"), arg("e"), no_gil, "sum_x p[x] * e[x].");
  d.def(
      "cvar",
      [](const Values &p, const Values &e, double alpha) {
        return corvid::cvar(span_of(p), span_of(e), alpha);
      },
      arg("p"), arg("e"), arg("alpha"), no_gil,
      "The energy of the heaviest alpha of probability mass (ties in index "
      "order), not divided "
      "by alpha.");
  d.def(
      "gibbs_sum",
      [](const Values &p, const Values &e, double temperature) {
        return corvid::gibbs_sum(span_of(p), span_of(e), temperature);
      },
      arg("p"), arg("e"), arg("temperature"), no_gil, "sum_x p[x] * exp(-e[x] / temperature).");
  d.def(
      "descending_order",
      [](const Values &p) {
        return released([&] { return corvid::descending_order(span_of(p)); });
      },
      arg("p"), "Indices of p by descending weight, ties in ascending index order.");
  pybind_ansatz(m);
}

}  // namespace corvid_py
