#pragma once
/// Where the time of one run went, per kind of operation, in seconds.

namespace corvid {

struct RunTimings {
  double compile = 0.0;        ///< compiling, including new diagonals' transforms
  double init = 0.0;           ///< preparing the initial state
  double diagonal = 0.0;       ///< fused diagonal passes (phase separators)
  double layer = 0.0;          ///< one-qubit layers (mixers, Hadamard layers)
  double gates = 0.0;          ///< plain gates
  double probabilities = 0.0;  ///< the probability table
};

/// The timings of the latest run of any machine in the process (for profiling code that
/// creates its own machines); all zero before the first. Thread-safe.
RunTimings latest_run_timings();
void record_latest_run_timings(const RunTimings& timings);

}  // namespace corvid
