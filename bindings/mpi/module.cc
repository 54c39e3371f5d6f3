// The extension module corvid._mpi: the QAOA evaluation over the ranks of MPI_COMM_WORLD. It is
// its own module, built only where MPI is found, so that a single process never loads MPI;
// MPI is initialised on first use and finalised at interpreter exit, after every evaluation
// still alive has let go of its communicators.
#include <mpi.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "../error_translation.h"
#include "../loss_settings.h"
#include "corvid/circuit/circuit.h"
#include "corvid/dist/qaoa_evaluation.h"

namespace py = pybind11;
using corvid::dist::QaoaEvaluation;
using Pairs = std::vector<std::pair<unsigned, unsigned>>;

namespace {

template <class T>
using InArray = py::array_t<T, py::array::c_style | py::array::forcecast>;

template <class T>
std::vector<T> vector_of(const InArray<T>& a) {
  return {a.data(), a.data() + a.size()};
}

template <class T>
std::span<const T> span_of(const InArray<T>& a) {
  return {a.data(), static_cast<std::size_t>(a.size())};
}

template <class T>
py::array_t<T> array_of(const std::vector<T>& values) {
  py::array_t<T> out(static_cast<py::ssize_t>(values.size()));
  std::copy(values.begin(), values.end(), out.mutable_data());
  return out;
}

corvid::TermList terms_of(const InArray<std::uint64_t>& masks, const InArray<double>& coeffs) {
  return {vector_of(masks), vector_of(coeffs)};
}

// An evaluation Python holds; finalize() empties it before MPI goes away.
struct Evaluation {
  std::unique_ptr<QaoaEvaluation> impl;

  QaoaEvaluation& get() const {
    if (!impl) throw std::runtime_error("MPI has been finalised: this evaluation is closed");
    return *impl;
  }
};

bool initialised_here = false;
std::vector<std::weak_ptr<Evaluation>> live;

void finalize() {
  for (auto& weak : live) {
    if (auto evaluation = weak.lock()) evaluation->impl.reset();
  }
  live.clear();
  int finalized = 0;
  MPI_Finalized(&finalized);
  if (initialised_here && !finalized) MPI_Finalize();
}

void ensure_mpi() {
  int finalized = 0;
  MPI_Finalized(&finalized);
  if (finalized) throw std::runtime_error("MPI has been finalised in this process");
  int initialized = 0;
  MPI_Initialized(&initialized);
  if (initialized) return;  // by the caller (mpi4py, for example), who also finalises it
  int provided = 0;
  if (MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided) != MPI_SUCCESS) {
    throw std::runtime_error("MPI_Init_thread failed");
  }
  initialised_here = true;
  py::module_::import("atexit").attr("register")(py::cpp_function(&finalize));
}

int world(int (*query)(MPI_Comm, int*)) {
  ensure_mpi();
  int value = 0;
  query(MPI_COMM_WORLD, &value);
  return value;
}

corvid::dist::EnergyForm form_of(const std::string& form) {
  if (form == "z") return corvid::dist::EnergyForm::kZTerms;
  if (form == "monomials") return corvid::dist::EnergyForm::kMonomials;
  throw std::invalid_argument("energy_form must be 'z' or 'monomials', got '" + form + "'");
}

}  // namespace

PYBIND11_MODULE(_mpi, m) {
  m.doc() = "corvid over MPI: the QAOA evaluation spread over the ranks of MPI_COMM_WORLD.";
  corvid_py::register_error_translation();
  using py::arg;
  m.def("init", &ensure_mpi, "Initialise MPI unless it is already (finalised at exit).");
  m.def(
      "rank", [] { return world(&MPI_Comm_rank); }, "This process's rank in MPI_COMM_WORLD.");
  m.def(
      "size", [] { return world(&MPI_Comm_size); }, "The number of ranks in MPI_COMM_WORLD.");
  m.def(
      "abort", [](int code) { MPI_Abort(MPI_COMM_WORLD, code); }, arg("code"),
      "End every rank of the job (MPI_Abort).");
  m.def(
      "broadcast",
      [](const py::bytes& data) {
        ensure_mpi();
        std::string buffer = data;
        long long size = static_cast<long long>(buffer.size());
        MPI_Bcast(&size, 1, MPI_LONG_LONG, 0, MPI_COMM_WORLD);
        buffer.resize(static_cast<std::size_t>(size));
        MPI_Bcast(buffer.data(), static_cast<int>(size), MPI_BYTE, 0, MPI_COMM_WORLD);
        return py::bytes(buffer);
      },
      arg("data"), "Rank 0's bytes, on every rank. Collective.");

  py::class_<Evaluation, std::shared_ptr<Evaluation>>(
      m, "QaoaEvaluation",
      "The QAOA ansatz (initial state, per layer exp(-i*gamma*D) then the X or XY mixer) over "
      "the ranks: each keeps a slice of the state, of D and of the loss's energies. Every "
      "method is collective.")
      .def(py::init([](unsigned n, const InArray<std::uint64_t>& phase_masks,
                       const InArray<double>& phase_coeffs, const std::string& energy_form,
                       const InArray<std::uint64_t>& energy_masks,
                       const InArray<double>& energy_coeffs, std::optional<Pairs> xy_pairs,
                       const std::optional<corvid::Circuit>& initial) {
             ensure_mpi();
             const auto form = form_of(energy_form);
             std::optional<std::vector<corvid::Gate>> gates;
             if (initial) gates = initial->gates();
             auto evaluation = std::make_shared<Evaluation>();
             {
               py::gil_scoped_release release;
               evaluation->impl = std::make_unique<QaoaEvaluation>(
                   MPI_COMM_WORLD, n, terms_of(phase_masks, phase_coeffs), form,
                   terms_of(energy_masks, energy_coeffs), std::move(xy_pairs), std::move(gates));
             }
             live.push_back(evaluation);
             return evaluation;
           }),
           arg("num_qubits"), arg("phase_masks"), arg("phase_coeffs"), arg("energy_form"),
           arg("energy_masks"), arg("energy_coeffs"), arg("xy_pairs") = py::none(),
           arg("initial") = py::none(),
           "D(x) = sum coeffs*(-1)^popcount(x & masks); the energies as Z terms (energy_form "
           "'z') or as monomials of binary variables ('monomials'). xy_pairs, a list of qubit "
           "pairs (a, b), selects the XY mixer exp(+i*beta*(X_a X_b + Y_a Y_b)/2) pair by pair; "
           "initial, a QCircuit, prepares the initial state from |0...0> (default: a Hadamard "
           "on every qubit).")
      .def(
          "loss",
          [](Evaluation& e, const InArray<double>& angles, const std::string& loss, double alpha,
             double temperature) {
            const auto settings = corvid_py::settings_of(loss, alpha, temperature);
            py::gil_scoped_release release;
            return e.get().loss(span_of(angles), settings);
          },
          arg("angles"), arg("loss") = "default", arg("alpha") = 1.0, arg("temperature") = 1.0,
          "The loss at angles (p gammas, then p betas), rank 0's value on every rank.")
      .def(
          "loss_and_gradient",
          [](Evaluation& e, const InArray<double>& angles, const std::string& loss, double alpha,
             double temperature) {
            const auto settings = corvid_py::settings_of(loss, alpha, temperature);
            py::array_t<double> gradient(angles.size());
            const std::span<double> out(gradient.mutable_data(),
                                        static_cast<std::size_t>(gradient.size()));
            double value = 0.0;
            {
              py::gil_scoped_release release;
              value = e.get().loss_and_gradient(span_of(angles), settings, out);
            }
            return py::make_tuple(value, gradient);
          },
          arg("angles"), arg("loss") = "default", arg("alpha") = 1.0, arg("temperature") = 1.0,
          "(loss, gradient): the loss at angles and its 2p partial derivatives, rank 0's values "
          "on every rank.")
      .def(
          "sample",
          [](Evaluation& e, const InArray<double>& angles, std::uint64_t shots,
             std::uint64_t seed) {
            std::vector<corvid::dist::Count> counts;
            {
              py::gil_scoped_release release;
              counts = e.get().sample(span_of(angles), shots, seed);
            }
            std::vector<std::uint64_t> indices, hits;
            for (const auto& c : counts) {
              indices.push_back(c.index);
              hits.push_back(c.shots);
            }
            return py::make_tuple(array_of(indices), array_of(hits));
          },
          arg("angles"), arg("shots"), arg("seed"),
          "(indices, counts) of shots samples of the state at angles, ascending index, the same "
          "on every rank (rank 0's shots and seed); one seed gives the same counts on any "
          "number of ranks.")
      .def(
          "top_solutions",
          [](Evaluation& e, std::size_t count) {
            std::vector<corvid::dist::Solution> top;
            {
              py::gil_scoped_release release;
              top = e.get().top_solutions(count);
            }
            std::vector<std::uint64_t> indices;
            std::vector<double> probabilities;
            for (const auto& s : top) {
              indices.push_back(s.index);
              probabilities.push_back(s.probability);
            }
            return py::make_tuple(array_of(indices), array_of(probabilities));
          },
          arg("count"),
          "(indices, probabilities) of the count most probable basis states of the state at the "
          "last loss, loss_and_gradient or sample call's angles, most probable first, ties by "
          "ascending index.")
      .def(
          "energy_range",
          [](const Evaluation& e) {
            py::gil_scoped_release release;
            return e.get().energy_range();
          },
          "(least, greatest) energy over all basis states.")
      .def_property_readonly("rank", [](const Evaluation& e) { return e.get().rank(); })
      .def_property_readonly("ranks", [](const Evaluation& e) { return e.get().ranks(); });
}
