// The walks a worker keeps along clump guides are the walks it would make afresh.

#include "fxmodules/VrClumpFrame.h"

#include "fxmodules/VrClumpGuides.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using Vec = SgVec3T<double>;

VrClumpGuide bentGuide(double bend) {
  VrClumpGuide guide;
  guide.T = Vec(0, 0, 1);
  guide.A = Vec(1, 0, 0);
  guide.B = Vec(0, 1, 0);
  for (int i = 0; i < 8; ++i) guide.cvs.emplace_back(bend * i * i * 0.01, 0.02 * i * std::sin(i * bend), 0.1 * i);
  return guide;
}

TEST(VrClumpFrameCache, KeptWalksAndTurnsAreTheFreshOnesBitForBit) {
  // Two guides bent at every CV share a slot (indices 64 apart) and are asked for in turn, with
  // twists changing and coming back, -0 included.
  const VrClumpGuide guides[] = {bentGuide(0.3), bentGuide(-0.7)};
  const size_t indices[] = {5, 5 + 64};
  const struct {
    int guide;
    double twist;
  } asks[] = {{0, 0.0}, {0, 0.0}, {1, 0.0}, {0, 0.0}, {0, 30.0}, {0, -0.0}, {1, 30.0}, {1, 30.0}, {0, 30.0}};
  VrClumpFrameCache cache;
  for (const auto& ask : asks) {
    const VrClumpGuide& guide = guides[ask.guide];
    VrClumpFrame& kept = cache.walk(indices[ask.guide], guide, ask.twist);
    VrClumpFrame fresh;
    fresh.walk(guide.cvs, guide.T, guide.A, guide.B, ask.twist);
    for (size_t i = 1; i < guide.cvs.size(); ++i) {
      ASSERT_TRUE(kept.T[i] == fresh.T[i] && kept.A[i] == fresh.A[i] && kept.B[i] == fresh.B[i] &&
                  kept.before[i] == fresh.before[i])
          << ask.guide << " " << ask.twist << " " << i;
      // The frame stays orthonormal along the bends.
      EXPECT_NEAR(kept.T[i].dot(kept.A[i]), 0.0, 1e-12);
      EXPECT_NEAR(kept.A[i].cross(kept.B[i]).dot(kept.T[i]), 1.0, 1e-12);
      for (double radians : {0.4, 0.4, -1.1, 0.4}) {
        const VrFXTurn turn = kept.turnAboutT(i, radians), direct(fresh.T[i], radians);
        ASSERT_TRUE(turn.c == direct.c && turn.s == direct.s && turn.axis == direct.axis) << radians;
      }
    }
  }
}

}  // namespace
