#pragma once
/// Memory accounting: how much the process may still allocate, a guard that refuses a request
/// before it is made, and the hooks through which caches give memory back when it runs short.

#include <cstddef>
#include <string>

namespace corvid {

/// Bytes the process can still allocate: the smaller of MemAvailable in /proc/meminfo and the
/// headroom under a cgroup memory limit. Returns SIZE_MAX when neither can be read.
std::size_t available_memory_bytes();

/// Throws OutOfMemory naming `what` and both sizes when `bytes` exceeds what is available.
void require_memory(std::size_t bytes, const std::string& what);

/// Registers `release`, run when memory runs short: a cache or pool whose contents can be
/// rebuilt frees what it holds that is not in use. Hooks run in registration order; a hook
/// registered twice runs once. Thread-safe; hooks must not register hooks.
void add_memory_pressure_hook(void (*release)());
/// Runs every registered hook: frees the memory caches hold for reuse.
void release_cached_memory();
/// require_memory, but when the request does not fit, release_cached_memory() first and then
/// check again.
void require_memory_releasing(std::size_t bytes, const std::string& what);

/// Human-readable size, e.g. "256.0 MiB".
std::string format_bytes(std::size_t bytes);

}  // namespace corvid
