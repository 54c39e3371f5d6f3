#include "corvid/pauli/pauli_key.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

namespace corvid {
namespace {

TEST(PauliKey, ParsesToTheCanonicalKey) {
  for (const auto& [key, canonical] :
       {std::pair{"", ""}, std::pair{"Z0", "Z0"}, std::pair{"X12", "X12"},
        std::pair{"Z1 Z0", "Z0 Z1"}, std::pair{"Y3 X10 Z2", "Z2 Y3 X10"},
        std::pair{"Z4294967295", "Z4294967295"}, std::pair{"X0 Y1 Z2 X3", "X0 Y1 Z2 X3"}}) {
    EXPECT_EQ(format_pauli_key(parse_pauli_key(key)), canonical);
  }
}

TEST(PauliKey, RefusesNamingTheKey) {
  // clang-format off
  const char* const rejected[] = {"Q3", "Z", "Z-1", "Z+1", "Z0x", "Z 0", "Z0  Z1", " Z0", "Z0 ", " ",
      "z0", "I0", "Z01", "Z0 X0", "Z3 Z1 Z3", "Z4294967296", "Z99999999999999999999", "Z0,Z1",
      "ZZ0", "Z1.5", "0Z"};
  // clang-format on
  for (const std::string key : rejected) {
    EXPECT_THAT([&] { parse_pauli_key(key); }, ::testing::ThrowsMessage<std::invalid_argument>(
                                                   ::testing::HasSubstr("\"" + key + "\"")));
  }
}

}  // namespace
}  // namespace corvid
