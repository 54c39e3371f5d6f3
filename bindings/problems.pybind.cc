// Python surface of the problem builders: the submodule corvid.problems. Matrices and pair
// lists come in as numpy arrays (converted only when their dtype or layout differs); the
// operator is built without the GIL.
#include "problems.pybind.h"

#include <pybind11/numpy.h>

#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvid/pauli/pauli_operator.h"
#include "corvid/problems/ising.h"
#include "corvid/problems/maxcut.h"
#include "corvid/problems/qubo.h"

namespace py = pybind11;

namespace corvid_py {
namespace {

using corvid::PauliOperator;
using corvid::SquareMatrixView;
using corvid::WeightedPair;
using Values = py::array_t<double, py::array::c_style | py::array::forcecast>;
using Indices = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>;

std::span<const double> span_of(const Values& a) {
  return {a.data(), static_cast<std::size_t>(a.size())};
}

std::vector<double> vector_of(const Values& a, const char* what) {
  if (a.ndim() != 1) {
    throw std::invalid_argument(std::string(what) + " must be one-dimensional, got " +
                                std::to_string(a.ndim()) + " dimensions");
  }
  return {a.data(), a.data() + a.size()};
}

SquareMatrixView matrix_of(const Values& a, const char* what) {
  if (a.ndim() != 2 || a.shape(0) != a.shape(1)) {
    throw std::invalid_argument(std::string(what) + " must be a square matrix, got shape " +
                                py::str(a.attr("shape")).cast<std::string>());
  }
  return {span_of(a), static_cast<std::size_t>(a.shape(0))};
}

// Column arrays (rows[k], cols[k], weights[k]) as pairs; indices must fit a qubit number.
std::vector<WeightedPair> pairs_of(const Indices& rows, const Indices& cols,
                                   const Values& weights) {
  if (rows.ndim() != 1 || cols.ndim() != 1 || weights.ndim() != 1 || rows.size() != cols.size() ||
      rows.size() != weights.size()) {
    throw std::invalid_argument(
        "rows, cols and weights must be one-dimensional and of equal length");
  }
  std::vector<WeightedPair> pairs(static_cast<std::size_t>(rows.size()));
  for (std::size_t k = 0; k < pairs.size(); ++k) {
    for (std::int64_t index : {rows.data()[k], cols.data()[k]}) {
      if (index < 0 || index > std::numeric_limits<std::uint32_t>::max()) {
        throw std::invalid_argument("variable index " + std::to_string(index) + " of pair " +
                                    std::to_string(k) + " is not in [0, 2^32)");
      }
    }
    pairs[k] = {static_cast<std::uint32_t>(rows.data()[k]),
                static_cast<std::uint32_t>(cols.data()[k]), weights.data()[k]};
  }
  return pairs;
}

template <class F>
PauliOperator released(F&& build) {
  py::gil_scoped_release release;
  return build();
}

}  // namespace

ProblemsClasses pybind_problems_classes(py::module_&) { return {}; }

void pybind_problems_methods(py::module_& m, ProblemsClasses&) {
  auto p = m.def_submodule(
      "problems",
      "Problem builders: QUBO, Ising and MaxCut problems as Z operators (qubit i carries "
      "variable i; x_i = 1 and spin s_i = -1 where bit i is 1).");
  using py::arg;

  p.def(
      "qubo_to_operator",
      [](const Values& q, double offset) {
        const SquareMatrixView view = matrix_of(q, "the QUBO matrix");
        return released([&] { return corvid::qubo_to_operator(view, offset); });
      },
      arg("q"), arg("offset") = 0.0, R"doc(
The operator of E(x) = x^T Q x + offset over binary x (x_i = 1 where bit i is 1): x_i becomes
(I - Z_i)/2. Q is any square matrix; Q_ii is the linear coefficient (x^2 = x) and Q_ij, Q_ji
both multiply x_i x_j, so an upper-triangular Q means what it shows.

>>> list(qubo_to_operator([[0, 2], [0, 3]], offset=-1))
[('', 1.0), ('Z0', -0.5), ('Z1', -2.0), ('Z0 Z1', 0.5)]
)doc");
  p.def(
      "qubo_terms_to_operator",
      [](const Values& linear, const Indices& rows, const Indices& cols, const Values& weights,
         double offset) {
        const std::vector<double> l = vector_of(linear, "linear");
        const std::vector<WeightedPair> pairs = pairs_of(rows, cols, weights);
        return released([&] { return corvid::qubo_to_operator(l, pairs, offset); });
      },
      arg("linear"), arg("rows"), arg("cols"), arg("weights"), arg("offset") = 0.0, R"doc(
The sparse QUBO E(x) = sum_i linear[i] x_i + sum_k weights[k] x_rows[k] x_cols[k] + offset.
A pair with rows[k] == cols[k] is linear (x^2 = x); repeated pairs add up.
)doc");
  p.def(
      "ising_to_operator",
      [](const Values& h, const Values& j, double offset) {
        const std::vector<double> fields = vector_of(h, "h");
        const SquareMatrixView view = matrix_of(j, "the coupling matrix J");
        return released([&] { return corvid::ising_to_operator(fields, view, offset); });
      },
      arg("h"), arg("j"), arg("offset") = 0.0, R"doc(
The operator of E(s) = sum_i h_i s_i + sum_{i<j} J_ij s_i s_j + offset over spins s_i = +1
(bit i is 0) or -1 (bit i is 1): h_i Z_i + J_ij Z_i Z_j. J is symmetric with a zero diagonal.

>>> list(ising_to_operator([1, 0], [[0, 0.5], [0.5, 0]]))
[('Z0', 1.0), ('Z0 Z1', 0.5)]
)doc");
  p.def(
      "ising_terms_to_operator",
      [](const Values& h, const Indices& rows, const Indices& cols, const Values& weights,
         double offset) {
        const std::vector<double> fields = vector_of(h, "h");
        const std::vector<WeightedPair> pairs = pairs_of(rows, cols, weights);
        return released([&] { return corvid::ising_to_operator(fields, pairs, offset); });
      },
      arg("h"), arg("rows"), arg("cols"), arg("weights"), arg("offset") = 0.0, R"doc(
The sparse Ising model E(s) = sum_i h_i s_i + sum_k weights[k] s_rows[k] s_cols[k] + offset;
repeated couplings add up, rows[k] == cols[k] is an error.
)doc");
  p.def(
      "maxcut_operator",
      [](const Indices& rows, const Indices& cols, const Values& weights) {
        const std::vector<WeightedPair> edges = pairs_of(rows, cols, weights);
        return released([&] { return corvid::maxcut_operator(edges); });
      },
      arg("rows"), arg("cols"), arg("weights"), R"doc(
MaxCut as a minimisation: sum over edges (rows[k], cols[k]) of weights[k]/2 (Z_i Z_j - I). Its
energy at a basis state is minus the weight of the edges it cuts (bit i is node i's side).
)doc");
  p.def(
      "maxcut_matrix_operator",
      [](const Values& weights) {
        const SquareMatrixView view = matrix_of(weights, "the weight matrix");
        return released([&] { return corvid::maxcut_operator(view); });
      },
      arg("weights"),
      "MaxCut of the graph with symmetric weight matrix `weights` (zero diagonal; 0 = no edge).");
}

}  // namespace corvid_py
