#pragma once
/// Printed form of basis states: a string of '0'/'1' with bit 0 right-most, e.g. index 1 of a
/// 3-bit register is "001".

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// The `width`-character key of `index` (width <= 64; bits above width are ignored).
std::string basis_key(std::uint64_t index, unsigned width);

/// The index of `key` when it has exactly `width` characters, all '0' or '1'; nullopt otherwise.
std::optional<std::uint64_t> parse_basis_key(std::string_view key, unsigned width);

}  // namespace corvid
