#pragma once
/// Memory accounting: how much the process may still allocate, and a guard that refuses a
/// request before it is made.

#include <cstddef>
#include <string>

namespace corvid {

/// Bytes the process can still allocate: the smaller of MemAvailable in /proc/meminfo and the
/// headroom under a cgroup memory limit. Returns SIZE_MAX when neither can be read.
std::size_t available_memory_bytes();

/// Throws OutOfMemory naming `what` and both sizes when `bytes` exceeds what is available.
void require_memory(std::size_t bytes, const std::string& what);

/// Human-readable size, e.g. "256.0 MiB".
std::string format_bytes(std::size_t bytes);

}  // namespace corvid
