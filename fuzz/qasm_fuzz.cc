// libFuzzer target for the OpenQASM reader and writer.
//
// Any text must be read or refused with std::invalid_argument (anything else, a crash or a
// hang is a bug). A program that was read must survive writing and reading again unchanged, in
// both versions (exact angles, identities kept, no fusion); a violated invariant aborts.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "corvid/circuit/qasm.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  corvid::Program program;
  try {
    program = corvid::from_qasm(text);
  } catch (const std::invalid_argument&) {
    return 0;
  }
  for (int version : {2, 3}) {
    const corvid::Program back =
        corvid::from_qasm(corvid::to_qasm(program, {version, true, false}));
    const auto gates = program.circuit().gates(), again = back.circuit().gates();
    bool same = gates.size() == again.size() && back.measurements() == program.measurements();
    for (std::size_t i = 0; same && i < gates.size(); ++i) same = gates[i] == again[i];
    if (!same) {
      std::fprintf(stderr, "OpenQASM %d round trip changed the program\n", version);
      std::abort();
    }
  }
  return 0;
}
