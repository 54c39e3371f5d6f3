// Python surface of the machine: CPUQVM and the ProbabilityMap it returns.
#include "sim.pybind.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <cstring>
#include <optional>
#include <string>

#include "circuit.pybind.h"
#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/machine/bandwidth.h"
#include "corvid/sim/machine/basis_key.h"
#include "corvid/sim/machine/precision.h"
#include "numpy_owned.h"

namespace py = pybind11;
using corvid::Machine;
using corvid::ProbabilityTable;

namespace corvid_py {
namespace {

// Yields the keys of a table in ascending basis order, one string at a time.
struct KeyIterator {
  std::uint64_t index;
  unsigned width;
  std::string operator*() const { return corvid::basis_key(index, width); }
  KeyIterator& operator++() {
    ++index;
    return *this;
  }
  bool operator==(const KeyIterator& other) const { return index == other.index; }
};

std::optional<std::uint64_t> find_key(const ProbabilityTable& t, py::handle key) {
  if (!py::isinstance<py::str>(key)) return std::nullopt;
  auto index = corvid::parse_basis_key(key.cast<std::string>(), t.num_qubits);
  if (!index || *index >= t.values.size()) return std::nullopt;
  return index;
}

double get_item(const ProbabilityTable& t, py::handle key) {
  if (auto index = find_key(t, key)) return t.values[*index];
  PyErr_SetObject(PyExc_KeyError, key.ptr());
  throw py::error_already_set();
}

py::object equals(const ProbabilityTable& t, py::handle other) {
  if (py::isinstance<ProbabilityTable>(other)) {
    const auto& o = other.cast<const ProbabilityTable&>();
    if (o.num_qubits != t.num_qubits || o.values.size() != t.values.size()) return py::bool_(false);
    return py::bool_(std::equal(t.values.begin(), t.values.end(), o.values.begin()));
  }
  const py::object mapping = py::module_::import("collections.abc").attr("Mapping");
  if (!py::isinstance(other, mapping)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
  if (py::len(other) != t.values.size()) return py::bool_(false);
  for (py::handle item : other.attr("items")()) {
    const auto pair = py::reinterpret_borrow<py::tuple>(item);
    const auto index = find_key(t, pair[0]);
    if (!index) return py::bool_(false);
    const py::object value = pair[1];
    if (!value.equal(py::float_(t.values[*index]))) return py::bool_(false);
  }
  return py::bool_(true);
}

std::string repr(const ProbabilityTable& t) {
  constexpr std::size_t kShown = 16;
  std::string out = "ProbabilityMap({";
  for (std::size_t i = 0; i < t.values.size() && i < kShown; ++i) {
    if (i > 0) out += ", ";
    out += "'" + corvid::basis_key(i, t.num_qubits) + "': ";
    out += std::string(py::repr(py::float_(t.values[i])));
  }
  if (t.values.size() > kShown) out += ", ... (" + std::to_string(t.values.size()) + " entries)";
  return out + "})";
}

py::object mapping_view(const char* kind, py::handle self) {
  return py::module_::import("collections.abc").attr(kind)(self);
}

void bind_probability_map(py::class_<ProbabilityTable>& cls) {
  cls.def_property_readonly(
         "probabilities",
         [](py::object self) {
           auto& t = self.cast<ProbabilityTable&>();
           py::array_t<double> view({t.values.size()}, {sizeof(double)}, t.values.data(), self);
           view.attr("flags").attr("writeable") = false;
           return view;
         },
         "Read-only float64 numpy view of the table without copying; index = basis index "
         "(bit b = the b-th listed qubit). Keeps the map alive.")
      .def_property_readonly(
          "num_qubits", [](const ProbabilityTable& t) { return t.num_qubits; },
          "Number of listed qubits = length of every key.")
      .def("__len__", [](const ProbabilityTable& t) { return t.values.size(); })
      .def("__getitem__", &get_item, py::arg("key"))
      .def("__contains__",
           [](const ProbabilityTable& t, py::handle key) { return find_key(t, key).has_value(); })
      .def(
          "__iter__",
          [](const ProbabilityTable& t) {
            return py::make_iterator<py::return_value_policy::move>(
                KeyIterator{0, t.num_qubits}, KeyIterator{t.values.size(), t.num_qubits});
          },
          py::keep_alive<0, 1>())
      .def(
          "get",
          [](const ProbabilityTable& t, py::handle key, py::object fallback) -> py::object {
            if (auto index = find_key(t, key)) return py::float_(t.values[*index]);
            return fallback;
          },
          py::arg("key"), py::arg("default") = py::none())
      .def("keys", [](py::object self) { return mapping_view("KeysView", self); })
      .def("values", [](py::object self) { return mapping_view("ValuesView", self); })
      .def("items", [](py::object self) { return mapping_view("ItemsView", self); })
      .def(py::pickle(
          [](const ProbabilityTable& t) {  // the key length and the raw float64 table
            return py::make_tuple(t.num_qubits,
                                  py::bytes(reinterpret_cast<const char*>(t.values.data()),
                                            t.values.size() * sizeof(double)));
          },
          [](const py::tuple& state) {
            if (state.size() != 2) throw std::invalid_argument("corrupt ProbabilityMap state");
            const auto num_qubits = state[0].cast<unsigned>();
            const auto bytes = state[1].cast<std::string_view>();
            if (num_qubits > 63 || bytes.size() % sizeof(double) != 0 ||
                bytes.size() / sizeof(double) > (std::uint64_t{1} << num_qubits)) {
              throw std::invalid_argument("corrupt ProbabilityMap state");
            }
            ProbabilityTable t{num_qubits, corvid::PooledBuffer<double>(
                                               bytes.size() / sizeof(double), "probability table")};
            std::memcpy(t.values.data(), bytes.data(), bytes.size());
            return t;
          }))
      .def("__eq__", &equals, py::is_operator())
      .def("__repr__", &repr);
  py::module_::import("collections.abc").attr("Mapping").attr("register")(cls);
}

py::dict counts_dict(const std::vector<corvid::OutcomeCount>& counts, unsigned width) {
  py::dict out;
  for (const auto& c : counts) out[py::str(corvid::basis_key(c.outcome, width))] = c.hits;
  return out;
}

py::dict timings_dict(const corvid::RunTimings& t) {
  py::dict out;
  out["compile"] = t.compile;
  out["init"] = t.init;
  out["diagonal"] = t.diagonal;
  out["layer"] = t.layer;
  out["gates"] = t.gates;
  out["probabilities"] = t.probabilities;
  return out;
}

// A thread that waits for a machine's lock must not hold the GIL: the thread running on the
// machine takes the GIL to poll for Ctrl-C while it holds the machine's lock.
void bind_machine(py::class_<Machine>& cls) {
  const auto no_gil = py::call_guard<py::gil_scoped_release>();
  cls.def(py::init([](std::optional<std::uint64_t> seed, std::optional<std::string> precision) {
            std::optional<corvid::Precision> p;
            if (precision) p = corvid::parse_precision(*precision);
            return std::make_unique<Machine>(seed, p);
          }),
          py::arg("seed") = py::none(), py::arg("precision") = py::none(), R"doc(
A CPU state-vector machine. `seed` (a non-negative int) makes its sampling reproducible.
`precision` is "double" (complex128 amplitudes) or "single" (complex64: half the memory and
about half the time, probabilities good to about 1e-6 relative); None takes the process default
(see set_default_precision). A single-precision machine writes the full probability table over
its state, so after prob_run_dict over all qubits in order its state_vector() is a ValueError.
)doc")
      .def_property_readonly(
          "precision",
          [](const Machine& m) { return std::string(corvid::precision_name(m.precision())); },
          "'double' or 'single'.")
      .def("init_qvm", &Machine::init, no_gil, R"doc(
Prepares the machine. Calling it is optional on a new machine; on one that has allocated, it
starts over: all qubits and classical bits are dropped and earlier handles become foreign.
)doc")
      .def(
          "qAlloc_many",
          [](Machine& m, py::handle n) {
            const std::int64_t count = to_integer(n, "number of qubits");
            py::gil_scoped_release release;
            return m.allocate_qubits(count);
          },
          py::arg("n"), R"doc(
Allocates `n` more qubits, all |0>, and returns their handles as a list (entry i has addr
i + the number allocated before, so a second call continues the numbering). Refuses a register
whose state vector (16 * 2^n bytes) does not fit in memory with MemoryError; n < 0 is a
ValueError. The state itself is allocated when a program runs.
)doc")
      .def(
          "cAlloc_many",
          [](Machine& m, py::handle n) {
            const std::int64_t count = to_integer(n, "number of classical bits");
            py::gil_scoped_release release;
            return m.allocate_cbits(count);
          },
          py::arg("n"), "Allocates `n` more classical bits and returns their handles as a list.")
      .def(
          "prob_run_dict",
          [](Machine& m, const corvid::Program& prog, py::handle qlist, py::handle select_max) {
            const std::vector<corvid::Qubit> qubits = to_qubits(qlist);
            const std::int64_t limit = to_integer(select_max, "select_max");
            const corvid::Program program = prog;  // Python may change `prog` while we run
            py::gil_scoped_release release;
            return m.probabilities(program, qubits, limit);
          },
          py::arg("prog"), py::arg("qlist"), py::arg("select_max") = -1, R"doc(
Runs `prog` from |0...0> and returns the exact probabilities of the basis states of the qubits
in `qlist` (a marginal when it is a subset) as a ProbabilityMap: keys are bit strings with the
character of qlist[0] right-most, in ascending basis order. select_max=-1 returns every state;
a positive value returns only that many first entries in basis order; anything else is a
ValueError. Measurements in `prog` are ignored (they are terminal). The GIL is released while
the program runs.

Example:
    >>> qvm = CPUQVM(); q = qvm.qAlloc_many(2)
    >>> dict(qvm.prob_run_dict(QProg() << H(q[0]) << CNOT(q[0], q[1]), q))
    {'00': 0.5000000000000001, '01': 0.0, '10': 0.0, '11': 0.5000000000000001}
)doc")
      .def(
          "run_with_configuration",
          [](Machine& m, const corvid::Program& prog, py::handle clist, py::handle shots) {
            const std::vector<corvid::CBit> cbits = to_cbits(clist);
            const std::int64_t count = to_integer(shots, "shots");
            const corvid::Program program = prog;
            std::vector<corvid::OutcomeCount> counts;
            {
              py::gil_scoped_release release;
              counts = m.sample(program, cbits, count);
            }
            return counts_dict(counts, static_cast<unsigned>(cbits.size()));
          },
          py::arg("prog"), py::arg("clist"), py::arg("shots"), R"doc(
Runs `prog` and measures it `shots` times (a positive int up to 2**63 - 1, else ValueError). Returns a dict
{outcome: hits} of the outcomes observed, keys in ascending order, each a bit string over
`clist` with clist[0] right-most; a bit no measurement writes reads 0. Measurements must come
after every gate. Sampling takes O(2^n + min(shots, 2^n)) time (one binomial draw per outcome
beyond that); the GIL is released meanwhile and Ctrl-C stops it.

Example:
    >>> qvm = CPUQVM(seed=1); q = qvm.qAlloc_many(2); c = qvm.cAlloc_many(2)
    >>> qvm.run_with_configuration(QProg() << X(q[1]) << measure_all(q, c), c, 10)
    {'10': 10}
)doc")
      .def(
          "state_vector",
          [](const Machine& m) {
            std::vector<std::complex<double>> state;
            {
              py::gil_scoped_release release;
              state = m.state();
            }
            return to_numpy(std::move(state));
          },
          R"doc(
A copy (complex128 numpy array) of the final state of the last run, before any measurement;
index bit i is qubit i. ValueError when nothing has run yet.
)doc")
      .def(
          "last_run_timings",
          [](const Machine& m) {
            corvid::RunTimings t;
            {
              py::gil_scoped_release release;
              t = m.last_run_timings();
            }
            return timings_dict(t);
          },
          R"doc(
Seconds the last run spent per kind of operation, as a dict: 'compile' (fusing the program,
including the one-off transform of a new cost diagonal), 'init' (initial state), 'diagonal'
(fused phase passes), 'layer' (one-qubit layers such as mixers), 'gates' (gates run one by one)
and 'probabilities' (the probability table). All zero before the first run. A phase pass that
shares the following layer's first sweep over memory counts as 'layer' time.
)doc")
      .def("finalize", &Machine::finalize, no_gil,
           "Releases the machine's memory; any later use other than finalize() is a ValueError.");
}

void bind_performance_controls(py::module_& m) {
  m.def(
      "set_default_precision",
      [](const std::string& name) { corvid::set_default_precision(corvid::parse_precision(name)); },
      py::arg("precision"), R"doc(
Sets the precision ("double" or "single") of machines created afterwards without one, such as
those the QAOA module creates per evaluation. ValueError for any other value.
)doc");
  m.def(
      "default_precision",
      [] { return std::string(corvid::precision_name(corvid::default_precision())); },
      "The precision new machines get: 'double' (the initial default) or 'single'.");
  m.def(
      "last_run_timings", [] { return timings_dict(corvid::latest_run_timings()); }, R"doc(
CPUQVM.last_run_timings() of the latest run of any machine in the process: for profiling code
that creates its own machines, such as the QAOA module.
)doc");
  m.def("set_fusion_enabled", &corvid::set_fusion_enabled, py::arg("enabled"), R"doc(
Turns program fusion on (the default) or off for every machine of the process. Off, every gate
is one pass over the state: the plain reference path, for comparisons and benchmarks.
)doc");
  m.def("fusion_enabled", &corvid::fusion_enabled, "Whether program fusion is on.");
  m.def(
      "kernel_sets",
      [] {
        std::vector<std::string> names;
        for (const corvid::KernelSet* k : corvid::available_kernel_sets())
          names.emplace_back(k->name);
        return names;
      },
      "Names of the kernel sets this CPU can run, the portable 'scalar' one first.");
  m.def(
      "kernel_set", [] { return std::string(corvid::active_kernel_set().name); },
      "Name of the kernel set in use (the best one this CPU supports unless set).");
  m.def(
      "set_kernel_set", [](const std::string& name) { corvid::set_active_kernel_set(name); },
      py::arg("name"), "Chooses the kernel set by name; ValueError if this CPU cannot run it.");
  m.def(
      "diagonal_cache_info",
      [] {
        py::dict out;
        out["bytes"] = corvid::diagonal_cache_bytes();
        out["limit"] = corvid::diagonal_cache_limit();
        out["hits"] = corvid::diagonal_cache_hits();
        out["misses"] = corvid::diagonal_cache_misses();
        return out;
      },
      R"doc(
The process-wide store of cost diagonals (reused while only the angles' common scale, such as
gamma, changes): {'bytes', 'limit', 'hits', 'misses'}.
)doc");
  m.def("set_diagonal_cache_limit", &corvid::set_diagonal_cache_limit, py::arg("bytes"),
        "Bounds the diagonal store to `bytes` (0: store nothing), evicting least recently used.");
  m.def("clear_diagonal_cache", &corvid::clear_diagonal_cache, "Empties the diagonal store.");
}

}  // namespace

SimClasses pybind_sim_classes(py::module_& m) {
  return {
      py::class_<ProbabilityTable>(m, "ProbabilityMap", R"doc(
Exact probabilities returned by CPUQVM.prob_run_dict: a read-only Mapping from bit-string key
(first listed qubit right-most) to probability, in ascending basis order, backed by one C++
buffer. `.probabilities` is a zero-copy read-only numpy view of that buffer (index = basis
index) and `.num_qubits` the key length. Equal to a plain dict with the same items;
dict(m) is one (and json.dumps(dict(m)) its JSON). Pickles, copies and deep copies hold the raw
table.
)doc"),
      py::class_<Machine>(m, "CPUQVM", "The CPU state-vector machine."),
  };
}

void pybind_sim_methods(py::module_& m, SimClasses& c) {
  bind_probability_map(c.probability_map);
  bind_machine(c.machine);
  bind_performance_controls(m);
  m.def(
      "measure_bandwidth",
      [](std::size_t bytes_per_array, int repetitions) {
        corvid::Bandwidth b;
        {
          py::gil_scoped_release release;
          b = corvid::measure_bandwidth(bytes_per_array, repetitions);
        }
        py::dict out;
        out["copy"] = b.copy_bytes_per_second;
        out["triad"] = b.triad_bytes_per_second;
        return out;
      },
      py::arg("bytes_per_array") = std::size_t{256} << 20, py::arg("repetitions") = 5, R"doc(
Measures the memory bandwidth (bytes read plus written per second) with STREAM-style copy and
triad loops over arrays of `bytes_per_array` bytes, on the kernels' threads. Returns
{'copy': ..., 'triad': ...}. A pass that reads and writes a state of 2^n amplitudes once cannot
take less than 2 * 16 * 2^n / copy seconds.
)doc");
}

}  // namespace corvid_py
