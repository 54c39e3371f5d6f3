#include "corvid/qaoa/checks.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace corvid {

std::string format_double(double value) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  return std::string(buf, end);
}

void check_num_bits(int num_bits, const char* name) {
  if (num_bits < 0 || num_bits > 63) {
    throw std::invalid_argument(std::string(name) + " must be between 0 and 63, got " +
                                std::to_string(num_bits));
  }
}

void check_same_length(std::size_t size_a, const char* name_a, std::size_t size_b,
                       const char* name_b) {
  if (size_a != size_b) {
    throw std::invalid_argument(std::string(name_a) + " and " + name_b +
                                " must have the same length, got " + std::to_string(size_a) +
                                " and " + std::to_string(size_b));
  }
}

void check_terms(std::span<const std::uint64_t> masks, std::span<const double> coeffs, int num_bits,
                 const char* unit) {
  check_same_length(masks.size(), "masks", coeffs.size(), "coeffs");
  const std::uint64_t allowed = (std::uint64_t{1} << num_bits) - 1;  // num_bits <= 63
  for (std::size_t t = 0; t < masks.size(); ++t) {
    if ((masks[t] & ~allowed) == 0) continue;
    int top = 63 - std::countl_zero(masks[t]);
    throw std::invalid_argument("masks[" + std::to_string(t) + "] = " + std::to_string(masks[t]) +
                                " uses " + unit + " " + std::to_string(top) +
                                ", but the number of " + unit + "s is " + std::to_string(num_bits));
  }
}

void check_finite(std::span<const double> values, const char* name) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!std::isfinite(values[i])) {
      throw std::invalid_argument(std::string(name) + "[" + std::to_string(i) +
                                  "] = " + format_double(values[i]) + " is not finite");
    }
  }
}

void check_weights(std::span<const double> weights, const char* name) {
  for (std::size_t i = 0; i < weights.size(); ++i) {
    if (is_valid_weight(weights[i])) continue;
    throw std::invalid_argument(std::string(name) + "[" + std::to_string(i) +
                                "] = " + format_double(weights[i]) +
                                (std::isfinite(weights[i]) ? " is negative" : " is not finite"));
  }
}

}  // namespace corvid
