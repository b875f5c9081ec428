#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/vrutilCodec.h"
#include "expressions/VrSeExprMath.h"
#include "geometry/vrutilMath.h"

using Vec = SgVec3T<double>;

TEST(VrutilMath, NoiseWiringAndRanges) {
  // noise is the unsigned form of the same 3D noise that snoise gives.
  for (double x : {0.3, 1.7, -4.2}) {
    EXPECT_NEAR(vrutil::noise(x, 0.7, 1.1), 0.5 * vrutil::snoise(x, 0.7, 1.1) + 0.5, 1e-12);
    EXPECT_DOUBLE_EQ(vrutil::noise(x), vrutil::noise(x, x, x));
  }
  EXPECT_NE(vrutil::noise(0.3, 0.7), vrutil::noise(0.3, 1.9));
  for (int i = 0; i < 200; ++i) {
    const double n2 = vrutil::noise(i * 0.37 - 30.0, i * 0.11);
    ASSERT_TRUE(n2 >= 0.0 && n2 <= 1.0) << i;
  }
  // Periodic noise is signed like snoise and repeats with the (integer) period.
  EXPECT_NEAR(vrutil::pnoise(0.3, 0.7, 1.1, 3.0), vrutil::snoise(0.3, 0.7, 1.1), 1e-12);
  EXPECT_NEAR(vrutil::pnoise(0.3 + 3.0, 0.7, 1.1 - 6.0, 3.0), vrutil::pnoise(0.3, 0.7, 1.1, 3.0), 1e-9);
}

TEST(VrutilMath, DirectNoiseIsTheLibraryNoiseBitForBit) {
  // The unpacked entry against the library's own `noise` of one point and of three scalars,
  // across lattice points, negative and large coordinates.
  const double coords[] = {0.0, -0.0, 0.5, 1.0, -1.0, 0.419276, -7.25, 12.999999, 1e-9, 123456.789, -98765.4321};
  for (double x : coords)
    for (double y : coords)
      for (double z : coords) {
        const double one[3] = {x, y, z};
        const double three[9] = {x, x, x, y, y, y, z, z, z};
        const double direct = vrSeNoise3(x, y, z);
        ASSERT_EQ(direct, vrSeNoise(1, one)) << x << " " << y << " " << z;
        ASSERT_EQ(direct, vrSeNoise(3, three)) << x << " " << y << " " << z;
      }
}

TEST(VrutilMath, LoopingNoisePeriodic) {
  const double p = 2.5;
  for (double x : {0.1, 1.3, 2.2}) {
    const double base = vrutil::loopingNoise(x, 0.4, 1.9, p);
    EXPECT_NEAR(vrutil::loopingNoise(x + p, 0.4, 1.9, p), base, 1e-9);
    EXPECT_NEAR(vrutil::loopingNoise(x, 0.4 - 2 * p, 1.9, p), base, 1e-9);
    EXPECT_NEAR(vrutil::loopingNoise(x, 0.4, 1.9 + 3 * p, p), base, 1e-9);
  }
  // At the origin of a cell only the unshifted corner weighs; half way the two corners share.
  EXPECT_NEAR(vrutil::loopingNoise(0, 0, 0, p), vrutil::snoise(0, 0, 0), 1e-12);
  EXPECT_NEAR(vrutil::loopingNoise(p / 2, 0, 0, p),
              0.5 * (vrutil::snoise(p / 2, 0, 0) + vrutil::snoise(-p / 2, 0, 0)), 1e-12);
  // Closing up: just below the period it meets the start.
  EXPECT_NEAR(vrutil::loopingNoise(p - 1e-9, 0.3, 0.6, p), vrutil::loopingNoise(0, 0.3, 0.6, p), 1e-6);
  EXPECT_EQ(vrutil::loopingNoise(1, 2, 3, 0.0), 0.0);
}

TEST(VrutilMath, StepCurves) {
  EXPECT_EQ(vrutil::boxstep(0.4, 0.5), 0.0);
  EXPECT_EQ(vrutil::boxstep(0.5, 0.5), 1.0);
  EXPECT_DOUBLE_EQ(vrutil::linearstep(0.25, 0, 1), 0.25);
  EXPECT_DOUBLE_EQ(vrutil::smoothstep(0.25, 0, 1), 0.15625);
  // The library's curve is 2^(−8(1 − x)²) on [a, b]; the tail (1 − g^50) pulls its top to 0.
  const double g = std::pow(2.0, -0.08);
  EXPECT_NEAR(vrutil::gaussstep(0.9, 0, 1), (1.0 - 0.0625) * g, 1e-12);
  EXPECT_NEAR(vrutil::gaussstep(0.5, 0, 1), (1.0 - std::pow(0.25, 50)) * 0.25, 1e-15);
  EXPECT_EQ(vrutil::gaussstep(1.0, 0, 1), 0.0);
  EXPECT_EQ(vrutil::gaussstep(-1.0, 0, 1), 0.0);
}

TEST(VrutilMath, Distances) {
  EXPECT_DOUBLE_EQ(vrutil::pointToLineDistance(Vec(7, 3, 4), Vec(), Vec(2, 0, 0)), 5.0);

  Vec closest;
  EXPECT_DOUBLE_EQ(vrutil::pointToSegmentDistance(Vec(1, 1, 0), Vec(), Vec(2, 0, 0), 1e-6, closest), 1.0);
  EXPECT_EQ(closest, Vec(1, 0, 0));
  EXPECT_DOUBLE_EQ(vrutil::pointToSegmentDistance(Vec(5, 0, 4), Vec(), Vec(2, 0, 0), 1e-6, closest), 5.0);
  EXPECT_EQ(closest, Vec(2, 0, 0));
  EXPECT_DOUBLE_EQ(vrutil::pointToSegmentDistance(Vec(1, 0, 0), Vec(), Vec(1e-8, 0, 0), 1e-6, closest), 1.0);
  EXPECT_EQ(closest, Vec());
}

TEST(VrutilMath, CramersConversion) {
  double s = 0, t = 0;
  vrutil::cramersConversion(Vec(1, 0, 0), Vec(1, 1, 0), Vec(2, 3, 7), s, t);  // z is left over
  EXPECT_NEAR(s, -1.0, 1e-12);
  EXPECT_NEAR(t, 3.0, 1e-12);

  // Parallel and nearly parallel axes: the determinant floor 1e-7 keeps the answer finite.
  vrutil::cramersConversion(Vec(1, 0, 0), Vec(1, 0, 0), Vec(0, 1, 0), s, t);
  EXPECT_EQ(s, 0.0);
  EXPECT_EQ(t, 0.0);
  vrutil::cramersConversion(Vec(1, 0, 0), Vec(1, 1e-5, 0), Vec(0, 1, 0), s, t);
  EXPECT_NEAR(s, -100.0, 1e-6);  // the exact solution would be −1e5
  EXPECT_NEAR(t, 100.0, 1e-6);
}

TEST(VrutilMath, TriangulateShape) {
  std::vector<int> tris = {42};
  vrutil::triangulate({0, 1, 2, 3, 4, 5, 6, 7}, tris);
  EXPECT_EQ(tris, (std::vector<int>{0, 1, 2, 3, 0, 2, 4, 5, 6, 7, 4, 6}));
  vrutil::triangulate({0, 1, 2}, tris);
  EXPECT_TRUE(tris.empty());
  vrutil::triangulate({9, 8, 7, 6, 5}, tris);
  EXPECT_EQ(tris, (std::vector<int>{9, 8, 7, 6, 9, 7}));
}
