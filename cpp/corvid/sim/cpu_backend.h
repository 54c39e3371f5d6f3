#pragma once
/// The CPU backend: one aligned state vector in host memory, evolved by the CPU kernels.

#include <memory>

#include "corvid/sim/backend.h"

namespace corvid {

std::unique_ptr<Backend> make_cpu_backend();

}  // namespace corvid
