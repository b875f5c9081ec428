// The shaping modules noise, cut and coil: hand-checkable bounds and invariants of each, and
// renders through all three that do not depend on the number of threads.

#include "fxmodules/VrCoilFXModule.h"
#include "fxmodules/VrCutFXModule.h"
#include "fxmodules/VrNoiseFXModule.h"

#include "geometry/SgCurve.h"
#include "support/CVRecorder.h"
#include "support/CaptureLogger.h"
#include "support/ShapeScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

using Vec = SgVec3T<double>;
using vrtest::ShapeScene;
using Attrs = ShapeScene::Attrs;

TEST(VrNoiseFXModule, DisplacementStaysWithinHalfTheWidthAndLengthIsKeptWhenAsked) {
  struct Case {
    const char* name;
    Attrs attrs;
    double width;    // mask x magnitude x magnitudeScale at the tip; 0: nothing moves
    bool perCV;      // the width grows with t
    bool keepLength;
  };
  const Case cases[] = {
      {"magnitude 0", {{"magnitude", "0.0"}}, 0.0, false, false},
      {"half mask", {{"mask", "0.5"}, {"magnitude", "0.8"}, {"magnitudeScale", "rampUI(0,1,1)"}}, 0.4, false, false},
      {"magnitude per CV", {{"magnitude", "0.4 * $t"}, {"magnitudeScale", "rampUI(0,1,1)"}, {"frequency", "7"}}, 0.4,
       true, false},
      {"preserveLength 100", {{"magnitude", "0.6"}, {"preserveLength", "100"}}, 0.6, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShapeScene scene("NoiseFXModule", c.attrs);
    scene.spline->initDescription();
    double largest = 0.0;
    for (int face : {0, 6, 13}) {
      const auto [before, after] = scene.build(face, 0.2, 0.7);
      ASSERT_EQ(after.size(), 8u);
      EXPECT_EQ(after[0], before[0]);
      for (size_t i = 1; i < after.size(); ++i) {
        const Vec d = after[i] - before[i];
        const double w = c.width * (c.perCV ? i / 7.0 : 1.0);
        for (int axis = 0; axis < 3 && !c.keepLength; ++axis) {
          EXPECT_LE(std::fabs(d[axis]), 0.5 * w + 1e-12) << i;
        }
        largest = std::max(largest, d.length());
      }
      if (c.keepLength) {
        EXPECT_NEAR(SgCurve::length(after), SgCurve::length(before), 2e-4);
      }
    }
    EXPECT_EQ(largest > 0.02, c.width > 0.0) << largest;  // the noise did move the CVs
  }
}

TEST(VrNoiseFXModule, CorrelationDecidesWhetherSplinesMoveAlike) {
  for (const char* correlation : {"100", "0"}) {
    SCOPED_TRACE(correlation);
    ShapeScene scene("NoiseFXModule", {{"magnitude", "0.5"}, {"correlation", correlation}});
    scene.spline->initDescription();
    const auto [a0, a1] = scene.build(2, 0.3, 0.3);
    const auto [b0, b1] = scene.build(9, 0.8, 0.6);
    double apart = 0.0;
    for (size_t i = 1; i < a1.size(); ++i) apart += ((a1[i] - a0[i]) - (b1[i] - b0[i])).length();
    EXPECT_EQ(apart < 1e-12, std::string(correlation) == "100") << apart;
  }
}

// A bake written by live renders on any number of threads reads back, on any number of threads,
// as the live CVs to float rounding; a bake folder without files is reported.
TEST(VrNoiseFXModule, BakedNoiseRendersTheCVsOfLiveNoise) {
  vrtest::TempDir dir;
  ShapeScene scene(nullptr, {});
  scene.scatter();
  auto* noise = static_cast<VrNoiseFXModule*>(
      scene.add("NoiseFXModule", {{"magnitude", "0.3 + 0.2 * $t"}, {"preserveLength", "50"}}));
  noise->setAttr("bakeDir", "/" + dir.path() + "/noise/", "string");  // "//": an absolute folder
  vrtest::CVRecorder renderer(scene.description);
  scene.description->setActiveRenderer(&renderer);
  ASSERT_TRUE(noise->setBake(true));
  const auto live = renderer.renderThreeWays("body", 16);
  noise->setBake(false);
  noise->setAttr("mode", "1", "enum");
  const auto baked = renderer.renderThreeWays("body", 16);
  ASSERT_GT(live[0].size(), 50u);
  double moved = 0.0;
  size_t rounded = 0;  // CVs off the live ones by float rounding: the bake was read, not resampled
  for (const auto& run : baked) {
    ASSERT_EQ(run.size(), live[0].size());
    for (const auto& [key, cvs] : run) {
      const std::vector<Vec>& expected = live[0].at(key);
      ASSERT_EQ(cvs.size(), expected.size());
      for (size_t i = 0; i < cvs.size(); ++i) {
        EXPECT_NEAR((cvs[i] - expected[i]).length(), 0.0, 1e-5);
        rounded += cvs[i] != expected[i];
      }
      moved += (cvs.back() - cvs[0]).cross(cvs[1] - cvs[0]).length();
    }
  }
  EXPECT_GT(moved, 1e-3);  // the bake holds real noise, not straight splines
  EXPECT_GT(rounded, 0u);

  noise->setAttr("bakeDir", "/" + dir.path() + "/none/", "string");
  vrtest::CaptureLogger log;
  renderer.initDescription();
  renderer.finishDescription();
  scene.description->setActiveRenderer(nullptr);
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to open VPD file: /" + dir.path() + "/none/body.vpd"});
}

TEST(VrCutFXModule, CutsFromTheTipCullsWhatIsCutAwayAndRoundsItsMask) {
  enum Expect { Unchanged, Shorter, Culled };
  struct Case {
    const char* mask;
    const char* amount;
    const char* rebuildType;
    Expect expect;
  };
  const Case cases[] = {
      {"0.49", "0.5", "0", Unchanged},  // the mask rounds to 0
      {"1.0", "0.0", "0", Unchanged},   {"1.0", "0.5", "0", Shorter}, {"1.0", "0.5", "1", Shorter},
      {"0.5", "0.5", "1", Shorter},     // the mask rounds to 1: the full amount
      {"1.0", "2.0", "0", Culled},      {"0.7", "5.0", "1", Culled},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.mask) + " " + c.amount + " " + c.rebuildType);
    ShapeScene scene("CutFXModule", {{"mask", c.mask}, {"amount", c.amount}, {"rebuildType", c.rebuildType}});
    scene.spline->addCVAttr("rest", "point");
    scene.spline->initDescription();
    // A "point" CV attribute holding the CVs is cut alike.
    VrPrimitiveContext& context = scene.spline->context();
    context.setActivePatchFace(scene.patch, 5);
    scene.spline->makeGeometry(0.4, 0.4, scene.module);
    const std::vector<Vec> before = context.cGeom();
    context.getCVAttrs()["rest"] = before;
    EXPECT_TRUE(scene.module->computeParallel(context));
    const std::vector<Vec>& after = context.cGeom();
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(context.cullPrim(), c.expect == Culled);
    if (c.expect == Unchanged) {
      EXPECT_EQ(after, before);
    }
    if (c.expect != Shorter) continue;
    EXPECT_EQ(after[0], before[0]);
    EXPECT_NEAR(SgCurve::length(after), 1.5, 0.02);
    EXPECT_EQ(*context.cvAttr("rest"), after);
    // Reparam spreads the CVs evenly again; keep param leaves the last ones on the new tip.
    const double first = (after[1] - after[0]).length(), last = (after[7] - after[6]).length();
    if (std::string(c.rebuildType) == "1") {
      EXPECT_NEAR(last, first, 0.02);
    } else {
      EXPECT_LT(last, 0.5 * first);
    }
  }
}

TEST(VrCoilFXModule, WindsEveryCVButTheRootAtTheRadiusAcrossTheSpline) {
  // From CV to CV the offset turns by 0.025 m count (countScale - 0.5) step 200 pi / length, m
  // being the mask: 0.025 x 0.5 x 200 pi / 7 = 2.5 pi / 7 for evenly spaced CVs at mask 1.
  const double turn = 2.5 * M_PI / 7.0;
  struct Case {
    Attrs attrs;
    double radius;  // distance each CV moves
    double turn;    // angle between the offsets of neighbouring CVs
  };
  const Case cases[] = {
      {{{"radius", "0.1"}, {"radiusScale", "rampUI(0,1,1)"}, {"countScale", "rampUI(0,1,1)"}}, 0.1, turn},
      {{{"mask", "0.5"}, {"radius", "0.2"}, {"radiusScale", "rampUI(0,1,1)"}, {"countScale", "rampUI(0,1,1)"}},
       0.1, 0.5 * turn},
      {{{"count", "0.0"}}, 0.0, 0.0},
      {{{"radius", "0.0"}}, 0.0, 0.0},
  };
  for (const Case& c : cases) {
    ShapeScene scene("CoilFXModule", c.attrs);
    scene.spline->initDescription();
    const auto [before, after] = scene.build(7, 0.5, 0.5);
    ASSERT_EQ(after.size(), 8u);
    EXPECT_EQ(after[0], before[0]);
    for (size_t i = 1; i < after.size(); ++i) {
      const Vec d = after[i] - before[i];
      EXPECT_NEAR(d.length(), c.radius, 1e-12);
      EXPECT_NEAR(d.z, 0.0, 1e-12);  // across a spline that runs along z
      if (c.radius == 0.0 || i + 1 == after.size()) continue;
      const Vec e = after[i + 1] - before[i + 1];
      EXPECT_NEAR(std::acos(d.dot(e) / (d.length() * e.length())), c.turn, 1e-9) << i;
    }
  }
}

TEST(VrShapeFXModules, RendersOnOneAndTwoThreadsAreIdentical) {
  ShapeScene scene(nullptr, {});
  scene.scatter();
  scene.add("NoiseFXModule", {{"magnitude", "0.3 + 0.2 * $t"}, {"preserveLength", "50"}});
  scene.add("CutFXModule", {{"amount", "rand(0.0, 1.6)"}, {"rebuildType", "1"}});
  scene.add("CoilFXModule", {{"radius", "0.05"}, {"count", "2"}});
  const auto cvs = vrtest::sameThreeWays(scene.description, "body", 16);
  // Unstyled, every spline here is a straight line.
  for (const auto& entry : cvs) {
    const std::vector<Vec>& p = entry.second;
    EXPECT_GT((p[2] - p[0]).cross(p.back() - p[0]).length(), 1e-6);
  }
}
