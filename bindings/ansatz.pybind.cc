// Python surface of the QAOA objective: the ansatz comes as arrays (phase terms, energies), an
// optional pair list and an optional initial circuit, and is set up afresh per call (its
// diagonal comes from the process-wide cache), so the Python object keeps no C++ state.
#include "ansatz.pybind.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "corvid/circuit/circuit.h"
#include "corvid/qaoa/adjoint.h"
#include "loss_settings.h"

namespace py = pybind11;

namespace corvid_py {
namespace {

template <class T>
using InArray = py::array_t<T, py::array::c_style | py::array::forcecast>;
using Pairs = std::vector<std::pair<unsigned, unsigned>>;

template <class T>
std::span<const T> span_of(const InArray<T>& a) {
  return {a.data(), static_cast<std::size_t>(a.size())};
}

corvid::QaoaAnsatz ansatz_of(unsigned n, const InArray<std::uint64_t>& masks,
                             const InArray<double>& coeffs, std::optional<Pairs> xy_pairs,
                             const std::optional<corvid::Circuit>& initial) {
  if (masks.size() != coeffs.size()) {
    throw std::invalid_argument("masks and coeffs must have the same length");
  }
  corvid::QaoaAnsatz a;
  a.num_qubits = n;
  for (py::ssize_t t = 0; t < masks.size(); ++t) {
    a.phase_terms.push_back({masks.data()[t], coeffs.data()[t]});
  }
  a.xy_pairs = std::move(xy_pairs);
  if (initial) a.initial = initial->gates();
  return a;
}

}  // namespace

void pybind_ansatz(py::module_& m) {
  auto a = m.def_submodule(
      "ansatz",
      "The QAOA ansatz run from its description: layer i applies exp(-i*gamma_i*D), D(x) = "
      "sum_t coeffs[t]*(-1)^popcount(x & masks[t]), then exp(+i*beta_i*sum_q X_q) or, given "
      "xy_pairs, exp(+i*beta_i*(X_a X_b + Y_a Y_b)/2) pair by pair; the initial state is a "
      "Hadamard on every qubit or the given circuit. Double precision.");
  using py::arg;
  a.def(
      "loss_and_gradient",
      [](unsigned n, const InArray<std::uint64_t>& masks, const InArray<double>& coeffs,
         const InArray<double>& energies, const InArray<double>& angles,
         std::optional<Pairs> xy_pairs, std::optional<corvid::Circuit> initial,
         const std::string& loss, double alpha, double temperature) {
        const corvid::LossSettings s = settings_of(loss, alpha, temperature);
        py::array_t<double> gradient(angles.size());
        double value = 0.0;
        {
          py::gil_scoped_release release;
          const corvid::QaoaObjective objective(
              ansatz_of(n, masks, coeffs, std::move(xy_pairs), initial), span_of(energies));
          value = objective.loss_and_gradient(
              span_of(angles), s,
              {gradient.mutable_data(), static_cast<std::size_t>(angles.size())});
        }
        return py::make_tuple(value, gradient);
      },
      arg("num_qubits"), arg("masks"), arg("coeffs"), arg("energies"), arg("angles"),
      arg("xy_pairs") = py::none(), arg("initial") = py::none(), arg("loss") = "default",
      arg("alpha") = 1.0, arg("temperature") = 1.0,
      "(loss, gradient) at angles (p gammas, then p betas) by adjoint differentiation; "
      "energies[x] scores basis state x in the loss.");
  a.def(
      "losses",
      [](unsigned n, const InArray<std::uint64_t>& masks, const InArray<double>& coeffs,
         const InArray<double>& energies, const InArray<double>& angles,
         std::optional<Pairs> xy_pairs, std::optional<corvid::Circuit> initial,
         const std::string& loss, double alpha, double temperature) {
        if (angles.ndim() != 2) throw std::invalid_argument("angles must be a k x 2p matrix");
        const corvid::LossSettings s = settings_of(loss, alpha, temperature);
        const auto rows = static_cast<std::size_t>(angles.shape(0));
        py::array_t<double> out(static_cast<py::ssize_t>(rows));
        if (rows == 0) return out;
        {
          py::gil_scoped_release release;
          const corvid::QaoaObjective objective(
              ansatz_of(n, masks, coeffs, std::move(xy_pairs), initial), span_of(energies));
          const auto values = objective.losses(span_of(angles), rows, s);
          std::copy(values.data(), values.data() + rows, out.mutable_data());
        }
        return out;
      },
      arg("num_qubits"), arg("masks"), arg("coeffs"), arg("energies"), arg("angles"),
      arg("xy_pairs") = py::none(), arg("initial") = py::none(), arg("loss") = "default",
      arg("alpha") = 1.0, arg("temperature") = 1.0,
      "The loss of every row of the k x 2p matrix angles, in one call.");
}

}  // namespace corvid_py
