#pragma once
/// Integer keys that order non-negative weights: for finite w1, w2 >= 0,
/// w1 < w2 exactly when weight_key(w1) < weight_key(w2), and equal weights (including -0.0
/// and +0.0) get equal keys. The IEEE-754 bit pattern of a non-negative double already orders
/// like its value; clearing the sign bit merges -0.0 into +0.0. Keys fit in 63 bits.

#include <bit>
#include <cstdint>

namespace corvid {

inline constexpr std::uint64_t kWeightKeyMax = 0x7FFF'FFFF'FFFF'FFFFull;

inline std::uint64_t weight_key(double w) {
  return std::bit_cast<std::uint64_t>(w) & kWeightKeyMax;
}

}  // namespace corvid
