#include "corvid/sim/machine/precision.h"

#include <atomic>
#include <stdexcept>
#include <string>

namespace corvid {
namespace {

std::atomic<Precision> process_default{Precision::kDouble};

}  // namespace

Precision default_precision() { return process_default; }
void set_default_precision(Precision precision) { process_default = precision; }

Precision parse_precision(std::string_view name) {
  if (name == "double") return Precision::kDouble;
  if (name == "single") return Precision::kSingle;
  throw std::invalid_argument("precision must be 'double' or 'single', got '" + std::string(name) +
                              "'");
}

std::string_view precision_name(Precision precision) {
  return precision == Precision::kSingle ? "single" : "double";
}

}  // namespace corvid
