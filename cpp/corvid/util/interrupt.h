#pragma once
/// Cooperative interruption of long computations. The host (for example the Python bindings,
/// which check for Ctrl-C) installs one process-wide check; long loops call
/// throw_if_interrupted() between units of work, and it consults the check at most every
/// kInterruptPollInterval, so polling costs one clock read per call.
///
/// Call throw_if_interrupted() only from the thread that started the work, never inside an
/// OpenMP parallel region: the exception must unwind on the caller's stack.

#include <chrono>
#include <functional>

namespace corvid {

/// How often throw_if_interrupted() actually runs the installed check, at most.
inline constexpr std::chrono::milliseconds kInterruptPollInterval{50};

/// Installs `check`, which returns true when the current computation should stop. An empty
/// function removes the check. The check may be called from any thread that runs work, so it
/// must be thread-safe; a check being run when it is replaced finishes normally.
void set_interrupt_check(std::function<bool()> check);

/// Throws corvid::Interrupted when the installed check says so. Runs the check only when at
/// least kInterruptPollInterval has passed since this thread last ran it; with no check
/// installed it costs one atomic load.
void throw_if_interrupted();

}  // namespace corvid
