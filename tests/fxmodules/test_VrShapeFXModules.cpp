// The shaping modules noise, cut and coil: hand-checkable bounds and invariants of each, and
// renders through all three that do not depend on the number of threads.

#include "fxmodules/VrCoilFXModule.h"
#include "fxmodules/VrCutFXModule.h"
#include "fxmodules/VrNoiseFXModule.h"

#include "base/VrTaskManager.h"
#include "geometry/SgCurve.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrNullRenderer.h"
#include "support/CaptureLogger.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using Attrs = std::vector<std::pair<const char*, const char*>>;

// A flat 4 x 4 patch with straight 8-CV splines of length 2 along +z: each spline's frame is
// the surface's (x, y, z) all along it.
struct ShapeScene : vrtest::PatchScene {
  ShapeScene() : PatchScene(vrtest::gridSurface(4), nullptr, "hair") {
    palette->setAttr("name", "coll");
    description->setActive("SplinePrimitive");
    spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
    spline->setAttr("fxCVCount", "8", "int");
    spline->setAttr("length", "2.0", "expr");
  }
  VrFXModule* add(const char* type, const Attrs& attrs) {
    VrFXModule* module = spline->addFXModule(type);
    for (const auto& [name, value] : attrs) {
      std::string old, kind;
      module->getAttr(name, old, kind);
      module->setAttr(name, value, kind);
    }
    return module;
  }
  // The spline at (u, v) of `face` before and after the stack.
  std::pair<std::vector<Vec>, std::vector<Vec>> build(int face, double u, double v) {
    VrPrimitiveContext& context = spline->context();
    context.setActivePatchFace(patch, face);
    spline->makeGeometry(u, v, spline->modules().empty() ? nullptr : spline->modules()[0]);
    std::vector<Vec> before = context.cGeom();
    spline->makeGeometry(u, v, nullptr);
    return {before, context.cGeom()};
  }
  VrSplinePrimitive* spline = nullptr;
};

}  // namespace

TEST(VrShapeFXModules, RegisteredUnderTheirTypeWords) {
  ShapeScene scene;
  EXPECT_NE(dynamic_cast<VrNoiseFXModule*>(scene.add("NoiseFXModule", {})), nullptr);
  EXPECT_NE(dynamic_cast<VrCutFXModule*>(scene.add("CutFXModule", {})), nullptr);
  EXPECT_NE(dynamic_cast<VrCoilFXModule*>(scene.add("CoilFXModule", {})), nullptr);
  std::vector<std::string> names;
  for (const VrFXModule* module : scene.spline->modules()) names.push_back(module->name());
  EXPECT_EQ(names, (std::vector<std::string>{"Noise", "Cut", "Coil"}));
}

TEST(VrNoiseFXModule, DisplacementStaysWithinHalfTheWidthAndLengthIsKeptWhenAsked) {
  enum Expect { Unchanged, Bounded, LengthKept };
  struct Case {
    const char* name;
    Attrs attrs;
    double width;  // mask x magnitude x magnitudeScale
    Expect expect;
    bool widthGrowsWithT = false;  // magnitude "... * $t"
  };
  const Case cases[] = {
      {"magnitude 0", {{"magnitude", "0.0"}}, 0.0, Unchanged},
      {"mask 0", {{"mask", "0.0"}, {"magnitude", "1.0"}}, 0.0, Unchanged},
      {"magnitude 0.4, flat scale", {{"magnitude", "0.4"}, {"magnitudeScale", "rampUI(0,1,1)"}}, 0.4, Bounded},
      {"half mask", {{"mask", "0.5"}, {"magnitude", "0.8"}, {"magnitudeScale", "rampUI(0,1,1)"}}, 0.4, Bounded},
      {"magnitude per CV", {{"magnitude", "0.4 * $t"}, {"magnitudeScale", "rampUI(0,1,1)"}}, 0.4, Bounded, true},
      {"high frequency", {{"magnitude", "0.4"}, {"frequency", "7.0"}, {"magnitudeScale", "rampUI(0,1,1)"}}, 0.4,
       Bounded},
      {"preserveLength 100", {{"magnitude", "0.6"}, {"preserveLength", "100"}}, 0.0, LengthKept},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShapeScene scene;
    scene.add("NoiseFXModule", c.attrs);
    scene.spline->initDescription();
    double largest = 0.0;
    for (int face : {0, 6, 13})
      for (const auto& [u, v] : {std::pair{0.2, 0.7}, std::pair{0.6, 0.3}}) {
        const auto [before, after] = scene.build(face, u, v);
        ASSERT_EQ(after.size(), 8u);
        EXPECT_EQ(after[0], before[0]);
        const double step = 1.0 / (after.size() - 1);
        for (size_t i = 1; i < after.size(); ++i) {
          const Vec d = after[i] - before[i];
          switch (c.expect) {
            case Unchanged:
              EXPECT_EQ(d, Vec(0, 0, 0));
              break;
            case Bounded: {
              const double w = c.width * (c.widthGrowsWithT ? i * step : 1.0);
              for (int axis = 0; axis < 3; ++axis) EXPECT_LE(std::fabs(d[axis]), 0.5 * w + 1e-12) << i;
              largest = std::max(largest, d.length() / c.width);
              break;
            }
            case LengthKept:
              largest = std::max(largest, d.length());
              break;
          }
        }
        if (c.expect == LengthKept) {
          EXPECT_NEAR(SgCurve::length(after), SgCurve::length(before), 2e-4);
        }
      }
    if (c.expect != Unchanged) {
      EXPECT_GT(largest, 0.05);  // the noise did move the CVs
    }
  }
}

TEST(VrNoiseFXModule, CorrelationDecidesWhetherSplinesMoveAlike) {
  for (const char* correlation : {"100", "0"}) {
    SCOPED_TRACE(correlation);
    ShapeScene scene;
    scene.add("NoiseFXModule", {{"magnitude", "0.5"}, {"correlation", correlation}});
    scene.spline->initDescription();
    const auto [a0, a1] = scene.build(2, 0.3, 0.3);
    const auto [b0, b1] = scene.build(9, 0.8, 0.6);
    double apart = 0.0;
    for (size_t i = 1; i < a1.size(); ++i) apart += ((a1[i] - a0[i]) - (b1[i] - b0[i])).length();
    if (std::string(correlation) == "100") {
      EXPECT_NEAR(apart, 0.0, 1e-12);
    } else {
      EXPECT_GT(apart, 0.05);
    }
  }
}

TEST(VrNoiseFXModule, BakedModeIsRefusedWithAMessage) {
  vrtest::CaptureLogger log;
  ShapeScene scene;
  VrFXModule* noise = scene.add("NoiseFXModule", {{"mode", "1"}});
  scene.spline->initDescription();
  EXPECT_FALSE(noise->isActive());
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_EQ(log.errors()[0],
            "Baked noise is not available in this build. Deactivating the module. [Noise,hair,coll]");
}

TEST(VrCutFXModule, CutsFromTheTipCullsWhatIsCutAwayAndRoundsItsMask) {
  enum Expect { Unchanged, Shorter, Culled };
  struct Case {
    const char* name;
    const char* mask;
    const char* amount;
    const char* rebuildType;
    Expect expect;
  };
  const Case cases[] = {
      {"mask below 0.5 cuts nothing", "0.49", "0.5", "0", Unchanged},
      {"amount 0", "1.0", "0.0", "0", Unchanged},
      {"keep param", "1.0", "0.5", "0", Shorter},
      {"reparam", "1.0", "0.5", "1", Shorter},
      {"mask 0.5 cuts the full amount", "0.5", "0.5", "1", Shorter},
      {"the whole length", "1.0", "2.0", "0", Culled},
      {"more than the length", "0.7", "5.0", "1", Culled},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShapeScene scene;
    auto* cut = static_cast<VrCutFXModule*>(
        scene.add("CutFXModule", {{"mask", c.mask}, {"amount", c.amount}, {"rebuildType", c.rebuildType}}));
    scene.spline->addCVAttr("rest", "point");
    scene.spline->initDescription();
    // The CVs before the cut, also held by a "point" CV attribute, which is cut alike.
    VrPrimitiveContext& context = scene.spline->context();
    context.setActivePatchFace(scene.patch, 5);
    scene.spline->makeGeometry(0.4, 0.4, cut);
    const std::vector<Vec> before = context.cGeom();
    context.getCVAttrs()["rest"] = before;
    EXPECT_TRUE(cut->computeParallel(context));
    const std::vector<Vec>& after = context.cGeom();
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(context.cullPrim(), c.expect == Culled);
    if (c.expect == Unchanged) {
      EXPECT_EQ(after, before);
    }
    if (c.expect == Shorter) {
      EXPECT_EQ(after[0], before[0]);
      EXPECT_NEAR(SgCurve::length(after), 1.5, 0.02);
      EXPECT_EQ(*context.cvAttr("rest"), after);
      EXPECT_EQ(cut->reparameterizes(), std::string(c.rebuildType) == "1");
      // Reparam spreads the CVs evenly again; keep param leaves the last ones on the new tip.
      const double lastStep = (after[7] - after[6]).length();
      if (cut->reparameterizes()) {
        EXPECT_NEAR(lastStep, (after[1] - after[0]).length(), 0.02);
      } else {
        EXPECT_LT(lastStep, 0.5 * (after[1] - after[0]).length());
      }
    }
  }
}

TEST(VrCoilFXModule, WindsEveryCVButTheRootAtTheRadiusAcrossTheSpline) {
  struct Case {
    const char* name;
    Attrs attrs;
    double radius;  // distance each CV moves; 0: none moves
  };
  const Case cases[] = {
      {"defaults ramp the radius in from the root", {}, -1.0},
      {"flat radius", {{"radius", "0.1"}, {"radiusScale", "rampUI(0,1,1)"}}, 0.1},
      {"half mask halves the radius", {{"mask", "0.5"}, {"radius", "0.2"}, {"radiusScale", "rampUI(0,1,1)"}}, 0.1},
      {"count 0", {{"count", "0.0"}}, 0.0},
      {"radius 0", {{"radius", "0.0"}}, 0.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ShapeScene scene;
    scene.add("CoilFXModule", c.attrs);
    scene.spline->initDescription();
    const auto [before, after] = scene.build(7, 0.5, 0.5);
    ASSERT_EQ(after.size(), 8u);
    EXPECT_EQ(after[0], before[0]);
    std::vector<double> moved;
    for (size_t i = 1; i < after.size(); ++i) {
      const Vec d = after[i] - before[i];
      EXPECT_NEAR(d.z, 0.0, 1e-12);  // across a spline that runs along z
      moved.push_back(d.length());
    }
    for (double m : moved) {
      if (c.radius > 0.0) {
        EXPECT_NEAR(m, c.radius, 1e-12);
      } else if (c.radius == 0.0) {
        EXPECT_EQ(m, 0.0);
      }
    }
    if (c.radius < 0.0) {
      // radiusScale "rampUI(0,0,3:0.3,1,3)": growing from the root to 1 from 0.3 on.
      EXPECT_LT(moved[0], moved[2]);
      EXPECT_NEAR(moved.back(), 1.0, 1e-12);
    }
  }
  // The offset turns from CV to CV by 0.025 count (countScale - 0.5) step 200 pi / length:
  // 0.025 x 0.5 x 200 pi / 7 for evenly spaced CVs.
  ShapeScene scene;
  scene.add("CoilFXModule", {{"radius", "0.1"}, {"radiusScale", "rampUI(0,1,1)"}, {"countScale", "rampUI(0,1,1)"}});
  scene.spline->initDescription();
  const auto [before, after] = scene.build(7, 0.5, 0.5);
  for (size_t i = 1; i + 1 < after.size(); ++i) {
    const Vec a = after[i] - before[i], b = after[i + 1] - before[i + 1];
    EXPECT_NEAR(std::acos(a.dot(b) / (a.length() * b.length())), 2.5 * M_PI / 7.0, 1e-9) << i;
  }
}

namespace {

// Records every primitive's CVs by (face, id).
class CVRecorder : public VrNullRenderer {
 public:
  using VrNullRenderer::VrNullRenderer;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override {
    VrNullRenderer::emitPrimitiveInParallel(context, sample, u, v, face, patches);
    std::lock_guard<std::mutex> hold(mutex);
    cvs[{face, context.id()}] = context.cGeom();
  }
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override {
    VrNullRenderer::emitPrimitive(sample, u, v, face, patches);
    const VrPrimitiveContext& context = description()->activePrimitive()->context();
    cvs[{face, context.id()}] = context.cGeom();
  }
  std::map<std::pair<int, unsigned>, std::vector<Vec>> cvs;
  std::mutex mutex;
};

}  // namespace

TEST(VrShapeFXModules, RendersOnOneAndTwoThreadsAreIdentical) {
  ShapeScene scene;
  scene.description->setActive("RandomGenerator");
  scene.description->activeGenerator()->setAttr("density", "40");
  scene.spline->setAttr("length", "1.0 + $u", "expr");
  scene.spline->setAttr("offU", "0.6 * $v", "expr");
  scene.add("NoiseFXModule", {{"magnitude", "0.3 + 0.2 * $t"}, {"preserveLength", "50"}});
  scene.add("CutFXModule", {{"amount", "rand(0.0, 1.6)"}, {"rebuildType", "1"}});
  scene.add("CoilFXModule", {{"radius", "0.05"}, {"count", "2"}});
  CVRecorder renderer(scene.description);
  scene.description->setActiveRenderer(&renderer);
  const size_t saved = VrTaskManager::threadCount();
  std::vector<std::map<std::pair<int, unsigned>, std::vector<Vec>>> runs;
  for (size_t threads : {1u, 2u}) {
    VrTaskManager::setThreadCount(threads);
    renderer.initDescription();
    EXPECT_TRUE(renderer.renderPatchInParallel("body"));
    renderer.finishDescription();
    runs.push_back(std::move(renderer.cvs));
    renderer.cvs.clear();
  }
  VrTaskManager::setThreadCount(saved);
  renderer.initDescription();  // and the serial walk
  for (int face = 0; face < 16; ++face) renderer.render(face, "body");
  renderer.finishDescription();
  runs.push_back(std::move(renderer.cvs));
  scene.description->setActiveRenderer(nullptr);
  ASSERT_GT(runs[0].size(), 50u);
  EXPECT_EQ(runs[0], runs[1]);
  EXPECT_EQ(runs[0], runs[2]);
  // Unstyled, every spline here is a straight line.
  size_t bent = 0;
  for (const auto& entry : runs[0]) {
    const std::vector<Vec>& p = entry.second;
    if ((p[2] - p[0]).cross(p.back() - p[0]).length() > 1e-6) ++bent;
  }
  EXPECT_EQ(bent, runs[0].size());
}
