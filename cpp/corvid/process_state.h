#pragma once
/// Every piece of process-wide state of the core, in one place. Each lives beside the code it
/// serves (the file named), is safe to touch from several threads, and is reached only through
/// the functions listed here; the Python module exposes the settings under the same names.
///
/// Settings (a value the user may choose):
///   1. Fusion switch, on by default: compile() fuses diagonal runs and one-qubit layers.
///      set_fusion_enabled / fusion_enabled (sim/compile/compiler.h).
///   2. Active kernel set of each precision, the best the CPU runs by default ("avx2" or
///      "scalar"). set_active_kernel_set / active_kernels (sim/kernels/kernel_set.h).
///   3. Default precision of new machines, double by default. set_default_precision /
///      default_precision (sim/machine/precision.h).
///   4. Thread count of the kernels' OpenMP teams, from the environment and the cores the
///      process may use until set. set_num_threads / num_threads (util/parallel.h).
///   5. Diagonal cache limit, 2 GiB by default. set_diagonal_cache_limit /
///      diagonal_cache_limit (sim/compile/diagonal_cache.h).
///   6. Interrupt check, installed by the host (the bindings check Ctrl-C).
///      set_interrupt_check (util/interrupt.h).
/// Stores (memory kept for reuse, rebuilt on demand, given back under memory pressure):
///   7. Diagonal cache: phase-polynomial values by exact key. clear_diagonal_cache,
///      diagonal_cache_bytes / _hits / _misses (sim/compile/diagonal_cache.h).
///   8. Buffer pool: free state-vector and probability blocks, freed at exit.
///      release_pooled_blocks, pooled_bytes (sim/machine/buffer_pool.h).
///   9. Memory-pressure hooks: who frees what when memory runs short (7 and 8 register
///      themselves). add_memory_pressure_hook, release_cached_memory (util/memory.h).
/// Bookkeeping:
///  10. Runs in progress, which share the thread count (ConcurrentRun, util/parallel.h), and the
///      id counter of machines (sim/machine/machine.cc).

#include "corvid/sim/compile/compiler.h"
#include "corvid/sim/compile/diagonal_cache.h"
#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/sim/machine/buffer_pool.h"
#include "corvid/sim/machine/precision.h"
#include "corvid/util/interrupt.h"
#include "corvid/util/memory.h"
#include "corvid/util/parallel.h"
