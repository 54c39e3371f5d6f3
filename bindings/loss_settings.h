#pragma once
// A loss as Python names it ("default", "CVaR", "Gibbs"), for the extensions that take one.
#include <stdexcept>
#include <string>

#include "corvid/qaoa/adjoint.h"

namespace corvid_py {

inline corvid::LossSettings settings_of(const std::string& loss, double alpha, double temperature) {
  corvid::LossSettings s{corvid::LossKind::kExpectation, alpha, temperature};
  if (loss == "CVaR") {
    s.kind = corvid::LossKind::kCvar;
  } else if (loss == "Gibbs") {
    s.kind = corvid::LossKind::kGibbs;
  } else if (loss != "default") {
    throw std::invalid_argument("loss must be 'default', 'CVaR' or 'Gibbs', got '" + loss + "'");
  }
  return s;
}

}  // namespace corvid_py
