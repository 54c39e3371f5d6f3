#include "corvid/sim/machine/basis_key.h"

namespace corvid {

std::string basis_key(std::uint64_t index, unsigned width) {
  std::string key(width, '0');
  for (unsigned b = 0; b < width; ++b) {
    if ((index >> b) & 1) key[width - 1 - b] = '1';
  }
  return key;
}

std::optional<std::uint64_t> parse_basis_key(std::string_view key, unsigned width) {
  if (key.size() != width || width > 64) return std::nullopt;
  std::uint64_t index = 0;
  for (char c : key) {
    if (c != '0' && c != '1') return std::nullopt;
    index = (index << 1) | static_cast<std::uint64_t>(c == '1');
  }
  return index;
}

}  // namespace corvid
