// Python surface of the 2^n-state numerics: the submodule corvid.diagonal.
// Arrays come in as numpy (converted only when their dtype or layout differs)
// and results go out as numpy arrays that own the C++ buffer, so nothing is
// copied either way; the GIL is released while the work runs.
#include "qaoa.pybind.h"

#include "ansatz.pybind.h"

#include <pybind11/numpy.h>

#include "energies.pybind.h"
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

  py::class_<corvid::EnergyTable>(
      d, "EnergyTable",
      "The energy of every basis state, read through the level index of the cost function's "
      "diagonal (one or two bytes per state where its values are few) instead of an array "
      "of 2^n doubles. The losses and corvid.ansatz take it in place of an energy array; "
      "numpy.asarray(table) or to_array() makes that array.")
      .def("__len__", &corvid::EnergyTable::size)
      .def(
          "__getitem__",
          [](const corvid::EnergyTable &t, std::int64_t x) {
            if (x < 0) x += static_cast<std::int64_t>(t.size());
            if (x < 0 || static_cast<std::uint64_t>(x) >= t.size()) {
              throw py::index_error("basis state out of range");
            }
            return t[static_cast<std::uint64_t>(x)];
          },
          arg("x"))
      .def("min", &corvid::EnergyTable::min, no_gil, "The least energy.")
      .def("max", &corvid::EnergyTable::max, no_gil, "The greatest energy.")
      .def(
          "to_array",
          [](const corvid::EnergyTable &t) { return released([&] { return t.to_array(); }); },
          "All 2^n energies as a new float64 array.")
      .def(
          "__array__",
          [](const corvid::EnergyTable &t, py::object, py::object) {
            return released([&] { return t.to_array(); });
          },
          arg("dtype") = py::none(), arg("copy") = py::none())
      .def_property_readonly("nbytes", &corvid::EnergyTable::bytes,
                             "Bytes of the per-state storage (shared with the phase layer).");
  d.def(
      "energy_table_from_z_terms",
      [](int n, const Masks &masks, const Values &coeffs) {
        py::gil_scoped_release release;
        return corvid::energy_table_from_z_terms(n, span_of(masks), span_of(coeffs));
      },
      arg("num_qubits"), arg("masks"), arg("coeffs"),
      "energies_from_z_terms as an EnergyTable: the diagonal the phase layer of the same terms "
      "uses (from the diagonal cache, or computed into it).");
  d.def(
      "energy_table_from_monomials",
      [](int n, const Masks &masks, const Values &coeffs) {
        py::gil_scoped_release release;
        return corvid::energy_table_from_monomials(n, span_of(masks), span_of(coeffs));
      },
      arg("num_vars"), arg("masks"), arg("coeffs"),
      "energies_from_monomials as an EnergyTable, through the polynomial's Z terms: exact for "
      "integer coefficients while the sum of abs(c) * 2^degree stays below 2^53.");

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
      [](const Values &p, const py::object &e) {
        const EnergiesArgument energies = energies_argument(e);
        py::gil_scoped_release release;
        return corvid::expectation(span_of(p), energies.table);
      },
      arg("p"), arg("e"), "sum_x p[x] * e[x]; e an array or an EnergyTable.");
  d.def(
      "cvar",
      [](const Values &p, const py::object &e, double alpha) {
        const EnergiesArgument energies = energies_argument(e);
        py::gil_scoped_release release;
        return corvid::cvar(span_of(p), energies.table, alpha);
      },
      arg("p"), arg("e"), arg("alpha"),
      "The energy of the heaviest alpha of probability mass (ties in index "
      "order), not divided "
      "by alpha.");
  d.def(
      "gibbs_sum",
      [](const Values &p, const py::object &e, double temperature) {
        const EnergiesArgument energies = energies_argument(e);
        py::gil_scoped_release release;
        return corvid::gibbs_sum(span_of(p), energies.table, temperature);
      },
      arg("p"), arg("e"), arg("temperature"), "sum_x p[x] * exp(-e[x] / temperature).");
  d.def(
      "energy_histogram",
      [](const Values &p, const py::object &e, double low, double high, int bins,
         double threshold) {
        const EnergiesArgument energies = energies_argument(e);
        const corvid::EnergyHistogram h = [&] {
          py::gil_scoped_release release;
          return corvid::energy_histogram(span_of(p), energies.table, low, high, bins, threshold);
        }();
        return py::make_tuple(h.at_or_below, py::array_t<double>(h.mass.size(), h.mass.data()),
                              py::array_t<double>(h.moment.size(), h.moment.data()));
      },
      arg("p"), arg("e"), arg("low"), arg("high"), arg("bins"), arg("threshold"),
      "(mass at or below threshold, mass per bin, sum of p * e per bin) over `bins` equal bins "
      "of [low, high] (the last bin closed), in one pass; e an array or an EnergyTable.");
  d.def(
      "descending_order",
      [](const Values &p) {
        return released([&] { return corvid::descending_order(span_of(p)); });
      },
      arg("p"), "Indices of p by descending weight, ties in ascending index order.");
  d.def(
      "descending_order_after",
      [](const Values &p, std::int64_t after, std::size_t count) {
        return released([&] {
          return corvid::descending_order_after(
              span_of(p),
              after < 0 ? std::nullopt
                        : std::optional<std::uint64_t>(static_cast<std::uint64_t>(after)),
              count);
        });
      },
      arg("p"), arg("after"), arg("count"),
      "The next count indices of descending_order(p) after index `after` (-1: from the start), "
      "by a selection: O(len(p) + count log count), no 2^n order.");
  pybind_ansatz(m);
}

}  // namespace corvid_py
