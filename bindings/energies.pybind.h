#pragma once
// The energies a C++ loss reads: a corvid.diagonal.EnergyTable, or any array of float64 values
// (converted only when its dtype or layout differs), borrowed for the call.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <span>

#include "corvid/qaoa/energy_table.h"

namespace corvid_py {

struct EnergiesArgument {
  pybind11::array_t<double, pybind11::array::c_style | pybind11::array::forcecast> array;
  corvid::EnergyTable table;
};

inline EnergiesArgument energies_argument(const pybind11::object& energies) {
  if (pybind11::isinstance<corvid::EnergyTable>(energies)) {
    return {{}, energies.cast<corvid::EnergyTable>()};
  }
  EnergiesArgument out{energies.cast<decltype(EnergiesArgument::array)>(), {}};
  out.table = corvid::EnergyTable(
      std::span<const double>(out.array.data(), static_cast<std::size_t>(out.array.size())));
  return out;
}

}  // namespace corvid_py
