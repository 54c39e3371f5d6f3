#pragma once
// corvid's C++ errors as Python exceptions, for each extension module (each has its own copy
// of the error types, so each registers the translation).
#include <pybind11/pybind11.h>

#include <exception>
#include <new>

#include "corvid/util/errors.h"

namespace corvid_py {

inline void register_error_translation() {
  pybind11::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const corvid::OutOfMemory& e) {
      PyErr_SetString(PyExc_MemoryError, e.what());
    } catch (const corvid::Interrupted&) {
      PyErr_SetNone(PyExc_KeyboardInterrupt);
    } catch (const std::bad_alloc&) {
      // Allocations with a known purpose say so through corvid::naming_allocation.
      PyErr_SetString(PyExc_MemoryError, "out of memory: a C++ allocation failed");
    }
  });
}

}  // namespace corvid_py
