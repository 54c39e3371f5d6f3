#pragma once
/// The CPU backend: one aligned state vector in host memory, evolved by the CPU kernels, in
/// double or single precision (see precision.h).

#include <memory>

#include "corvid/sim/machine/backend.h"
#include "corvid/sim/machine/precision.h"

namespace corvid {

std::unique_ptr<Backend> make_cpu_backend(Precision precision = Precision::kDouble);

}  // namespace corvid
