// factor_scale: scale · unit reproduces the matrix, with exact ones where the kernels look for
// them.
#include "corvid/sim/kernels/matrix2.h"

#include <gtest/gtest.h>

namespace corvid {
namespace {

struct Case {
  GateKind kind;
  double angle;
  int ones;  // 0: neither shape, 1: ones on the diagonal, 2: ones off it
};

TEST(FactorScale, ReproducesTheMatrix) {
  const Case cases[] = {
      {GateKind::RX, 0.3, 1},     {GateKind::RX, -1.5, 1}, {GateKind::RX, 2.5, 2},
      {GateKind::RX, 3.14159, 2}, {GateKind::RX, 0.0, 1},  {GateKind::RY, 0.7, 1},
      {GateKind::H, 0.0, 0},      {GateKind::X, 0.0, 2},   {GateKind::RZ, 0.4, 0}};
  for (const auto [kind, angle, ones] : cases) {
    SCOPED_TRACE(::testing::Message() << "kind " << int(kind) << ", angle " << angle);
    const Matrix2 m = matrix_of(Gate(kind, {0}, angle));
    const auto [scale, unit] = factor_scale(m);
    const Amplitude want[] = {m.m00, m.m01, m.m10, m.m11};
    const Amplitude got[] = {unit.m00, unit.m01, unit.m10, unit.m11};
    for (int e = 0; e < 4; ++e) EXPECT_NEAR(std::abs(scale * got[e] - want[e]), 0.0, 1e-15) << e;
    if (ones == 1) EXPECT_TRUE(unit.m00 == 1.0 && unit.m11 == 1.0);
    if (ones == 2) EXPECT_TRUE(unit.m01 == 1.0 && unit.m10 == 1.0);
    if (ones == 0) EXPECT_EQ(scale, 1.0);
    for (const Amplitude& u : got) EXPECT_LE(std::abs(u), 1.0 + 1e-15);  // no growth to overflow
  }
}

}  // namespace
}  // namespace corvid
