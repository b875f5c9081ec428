#include "primitives/VrSplinePrimitive.h"

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;

// A description with a flat 4 x 4 patch and a spline primitive on face 5.
struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4)) {
    spline = std::make_unique<VrSplinePrimitive>(description);
    spline->context().setActivePatchFace(patch, 5);
  }

  VrSplinePrimitiveContext& context() { return spline->splineContext(); }
  const std::vector<Vec>& make(double u = 0.5, double v = 0.5) {
    spline->makeGeometry(u, v, nullptr);
    return context().cGeom();
  }

  std::unique_ptr<VrSplinePrimitive> spline;
};

std::string attr(const VrObject& object, const std::string& name) {
  std::string value;
  return object.getAttr(name, value) ? value : std::string("<none>");
}

}  // namespace

// Attributes

TEST(VrSplinePrimitive, RegisteredWithItsAttributes) {
  Scene scene;
  std::unique_ptr<VrObject> made(static_cast<VrObject*>(VrCreateObject("SplinePrimitive", scene.description)));
  ASSERT_NE(dynamic_cast<VrSplinePrimitive*>(made.get()), nullptr);
  EXPECT_EQ(made->typeName(), "SplinePrimitive");

  // The bends are made by the CV count, so they follow it.
  const std::vector<std::string> own = {"taper",        "taperStart",  "displayWidth", "faceCamera",
                                        "tubeShade",    "tubes",       "guideSpacing", "guideMask",
                                        "cutParam",     "texelsPerUnit", "CVFrequency", "widthRamp",
                                        "attrCVCount",  "bendParam[0]", "bendU[0]",    "bendV[0]",
                                        "fxCVCount",    "uniformCVs"};
  const std::vector<std::string>& names = scene.spline->attrNames();
  ASSERT_EQ(names.size(), 14u + own.size());
  for (size_t i = 0; i < own.size(); ++i) EXPECT_EQ(names[14 + i], own[i]);
  EXPECT_EQ(attr(*scene.spline, "width"), "$a=0.1;#0.005,0.5\\n$a");
  EXPECT_EQ(attr(*scene.spline, "bendParam[0]"), "$a=0.5;#0.0,1.0\\n$a");
  EXPECT_EQ(attr(*scene.spline, "bendU[0]"), "$a=0.0;#-2.0,2.0\\n$a");
  EXPECT_EQ(attr(*scene.spline, "widthRamp"), "rampUI(0,1,1:1,1,1)");
  EXPECT_EQ(scene.spline->finalCVCount(), 5u);
  EXPECT_EQ(scene.spline->attrCVCount(), 3u);
  EXPECT_TRUE(scene.spline->faceCamera());
  ASSERT_NE(scene.spline->attrExpression("taper"), nullptr);
  ASSERT_NE(scene.spline->attrExpression("bendV[0]"), nullptr);
  EXPECT_EQ(scene.spline->attrExpression("bendV[1]"), nullptr);
  EXPECT_NE(dynamic_cast<VrSplinePrimitiveContext*>(scene.spline->createContext().get()), nullptr);
}

TEST(VrSplinePrimitive, AttrCVCountRemakesBends) {
  vrtest::CaptureLogger log;
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("bendU[0]", "0.7");
  ASSERT_TRUE(s.setAttr("attrCVCount", "5"));
  EXPECT_EQ(s.attrCVCount(), 5u);
  EXPECT_EQ(attr(s, "bendU[0]"), "0.7");  // kept where the index still exists
  EXPECT_EQ(attr(s, "bendParam[2]"), "$a=0.75;#0.0,1.0\\n$a");
  EXPECT_EQ(attr(s, "bendV[2]"), "$a=0.0;#-2.0,2.0\\n$a");

  log.clear();
  EXPECT_FALSE(s.setAttr("attrCVCount", "2"));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Cant set cv count to a value less than three."});
  EXPECT_EQ(s.attrCVCount(), 5u);
  EXPECT_EQ(attr(s, "attrCVCount"), "5");
  EXPECT_EQ(attr(s, "bendU[2]"), "$a=0.0;#-2.0,2.0\\n$a");

  ASSERT_TRUE(s.setAttr("attrCVCount", "3"));
  EXPECT_EQ(attr(s, "bendU[1]"), "<none>");
  EXPECT_EQ(attr(s, "bendParam[2]"), "<none>");
  EXPECT_EQ(attr(s, "bendU[0]"), "0.7");
}

TEST(VrSplinePrimitive, RampOldNamesAndBadText) {
  vrtest::CaptureLogger log;
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  ASSERT_TRUE(s.setAttr("widthRamp", "rampUI(0,1,1:1,0,1)"));
  EXPECT_FLOAT_EQ(s.getRampUI().getValue(0.25f), 0.75f);
  EXPECT_FALSE(s.setAttr("widthRamp", "rampUI(0,1"));
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Syntax Error in parsing widthScale: rampUI(0,1"});
  EXPECT_FLOAT_EQ(s.getRampUI().getValue(0.25f), 0.75f);  // the old ramp stays
  EXPECT_EQ(attr(s, "widthRamp"), "rampUI(0,1,1:1,0,1)");

  s.setAttr("spacing", "2.5");
  EXPECT_EQ(attr(s, "spacing"), "<none>");
  EXPECT_EQ(attr(s, "guideSpacing"), "2.5");
  s.setAttr("oneLength", "1");
  EXPECT_EQ(attr(s, "oneLength"), "<none>");
}

// Shape from attributes

TEST(VrSplinePrimitive, DefaultsGrowStraightAlongTheNormal) {
  Scene scene;
  scene.spline->setAttr("length", "2.0");
  const std::vector<Vec>& geom = scene.make();
  VrSplinePrimitiveContext& c = scene.context();
  ASSERT_FALSE(c.cullPrim());
  ASSERT_EQ(geom.size(), 5u);
  const Vec root = c.cP(0.5, 0.5, false), N = c.cN(0.5, 0.5, false);
  expectNear(geom[0], root, 1e-12);
  expectNear(geom[0], Vec(1.5, 1.5, 0.0), 1e-9);
  for (size_t i = 0; i < geom.size(); ++i) expectNear(geom[i], root + N * (2.0 * i / 4.0), 1e-4);
  EXPECT_DOUBLE_EQ(c.cLength(), 2.0);
  EXPECT_NEAR(c.cWidth(), 0.1, 1e-12);
  // A straight spline keeps the surface's U direction as its ribbon direction.
  expectNear(c.widthVec, c.cU(0.5, 0.5, false), 1e-9);
}

TEST(VrSplinePrimitive, LeanIsClampedToTheTangentPlane) {
  Scene scene;
  scene.spline->setAttr("offU", "3.0");
  const std::vector<Vec> geom = scene.make();
  VrSplinePrimitiveContext& c = scene.context();
  const Vec N = c.cN(0.5, 0.5, false), U = c.cU(0.5, 0.5, false);
  for (const Vec& p : geom) EXPECT_NEAR((p - geom[0]).dot(N), 0.0, 1e-9);
  EXPECT_NEAR((geom.back() - geom[0]).dot(U), 1.0, 1e-4);

  scene.spline->setAttr("offU", "1.0");
  const std::vector<Vec> atOne = scene.make();
  ASSERT_EQ(atOne.size(), geom.size());
  for (size_t i = 0; i < geom.size(); ++i) EXPECT_EQ(atOne[i], geom[i]);
}

TEST(VrSplinePrimitive, BendPositionsAreLimited) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("attrCVCount", "5");
  s.setAttr("length", "4.0");
  s.setAttr("bendParam[0]", "0");
  s.setAttr("bendParam[1]", "0");
  s.setAttr("bendParam[2]", "1");
  VrSplinePrimitiveContext& c = scene.context();
  c.cP(0.5, 0.5, false);
  s.mkGeometryFromAttrs(c, 0.5, 0.5);
  const std::vector<Vec>& geom = c.cGeom();
  ASSERT_EQ(geom.size(), 5u);
  const Vec N = c.cN(0.5, 0.5, false);
  const double expected[] = {0.0, 0.01, 0.02, 0.99, 1.0};
  for (size_t i = 0; i < 5; ++i) EXPECT_NEAR((geom[i] - geom[0]).dot(N), 4.0 * expected[i], 4e-4) << i;
}

TEST(VrSplinePrimitive, BendLeansAreClamped) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("bendU[0]", "2.0");
  const std::vector<Vec> atTwo = scene.make();
  s.setAttr("bendU[0]", "5.0");
  const std::vector<Vec> atFive = scene.make();
  ASSERT_EQ(atTwo.size(), atFive.size());
  for (size_t i = 0; i < atTwo.size(); ++i) EXPECT_EQ(atTwo[i], atFive[i]);
  // The bend turns the outer half back towards the surface.
  const Vec N = scene.context().cN(0.5, 0.5, false);
  EXPECT_LT((atTwo.back() - atTwo[0]).dot(N), (atTwo[2] - atTwo[0]).dot(N));
}

TEST(VrSplinePrimitive, TaperAndCulling) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("taperStart", "2");
  s.setAttr("taper", "0.5");
  scene.make();
  EXPECT_EQ(scene.context().taperStart, 1.0f);
  EXPECT_EQ(scene.context().taper, 0.5f);
  s.setAttr("taperStart", "-1");
  scene.make();
  EXPECT_EQ(scene.context().taperStart, 0.0f);

  s.setAttr("length", "0");
  scene.make();
  EXPECT_TRUE(scene.context().cullPrim());
  EXPECT_DOUBLE_EQ(scene.context().cLength(), 1e-6);

  s.setAttr("length", "1");
  s.setAttr("width", "0.00001");
  scene.make();
  EXPECT_TRUE(scene.context().cullPrim());

  s.setAttr("width", "0.2");
  s.setAttr("fxCVCount", "2");
  EXPECT_EQ(scene.make().size(), 3u);
  EXPECT_FALSE(scene.context().cullPrim());
}

TEST(VrSplinePrimitive, WidthsAlongTheCurve) {
  Scene scene;
  VrSplinePrimitiveContext& c = scene.context();
  c.overrideCWidth(2.0);
  c.taper = 0.5f;
  c.taperStart = 0.5f;
  std::vector<float> widths(5);
  scene.spline->calcCVWidths(c, widths);
  EXPECT_EQ(widths, (std::vector<float>{2.0f, 2.0f, 2.0f, 1.5f, 1.0f}));

  scene.spline->setAttr("widthRamp", "rampUI(0,1,1:1,0,1)");
  c.taper = 0.0f;
  widths.assign(3, 0.0f);
  scene.spline->calcCVWidths(c, widths);
  EXPECT_EQ(widths, (std::vector<float>{2.0f, 1.0f, 0.0f}));
}

TEST(VrSplinePrimitive, WidthVectorFromTheFirstSegments) {
  Vec out;
  // Straight up: the surface direction stays.
  VrSplinePrimitive::calcWidthVec(Vec(0, 0, 2), Vec(0, 0, 2), Vec(0, 0, 1), Vec(3, 0, 0), out);
  expectNear(out, Vec(1, 0, 0), 1e-12);
  // Lying along U: U turns with the segment, under the surface.
  VrSplinePrimitive::calcWidthVec(Vec(1, 0, 0), Vec(1, 0, 0), Vec(0, 0, 1), Vec(1, 0, 0), out);
  expectNear(out, Vec(0, 0, -1), 1e-12);
  // Bending: across the plane of the two segments, on the side of the turned direction.
  VrSplinePrimitive::calcWidthVec(Vec(0, 0, 1), Vec(1, 0, 1), Vec(0, 0, 1), Vec(0, -1, 0), out);
  expectNear(out, Vec(0, -1, 0), 1e-12);
  VrSplinePrimitive::calcWidthVec(Vec(0, 0, 1), Vec(1, 0, 1), Vec(0, 0, 1), Vec(0, 1, 0), out);
  expectNear(out, Vec(0, 1, 0), 1e-12);
}

// Shape from guides

namespace {

// Two guides with hand-set CVs on the surface: A straight up from (0,0,0), B leaning along x
// from (5,0,0). Weights are set by hand on the context.
struct GuideScene : Scene {
  GuideScene() {
    spline->setAttr("iMethod", "1");
    VrGuide& a = spline->addGuide();
    a.cGuideGeom() = {Vec(0, 0, 0), Vec(0, 0, 1), Vec(0, 0, 2)};
    a.guideCVAttrs()["break"] = {1.0f, 0.0f, 0.0f};
    VrGuide& b = spline->addGuide();
    b.cGuideGeom() = {Vec(5, 0, 0), Vec(6, 0, 1), Vec(7, 0, 2)};
    b.guideCVAttrs()["break"] = {1.0f, 0.0f, 0.5f};
  }
  const std::vector<Vec>& blend(std::vector<int> guides, std::vector<double> weights, bool withBreak) {
    VrSplinePrimitiveContext& c = context();
    c.activeGuides = std::move(guides);
    c.weight = std::move(weights);
    c.weightN = 1.0 / (c.weight[0] + c.weight[1]);
    c.breakActive = withBreak;
    spline->mkGeometryFromGuides(c, 0.5, 0.5);
    return c.cGeom();
  }
};

}  // namespace

TEST(VrSplinePrimitive, GuideBlendFollowsTheWeights) {
  GuideScene scene;
  const std::vector<Vec>& geom = scene.blend({0, 1}, {0.25, 0.75}, false);
  ASSERT_EQ(geom.size(), 3u);
  const Vec root = scene.context().cP(0.5, 0.5, false);
  expectNear(geom[0], root, 0.0);
  expectNear(geom[1], root + Vec(0.75, 0, 1), 1e-12);
  expectNear(geom[2], root + Vec(1.5, 0, 2), 1e-12);
  EXPECT_TRUE(scene.context().isLengthDirty());
  EXPECT_EQ(scene.context().dominantGuide, -1);

  // Weights that do not sum to one are normalised.
  const std::vector<Vec>& scaled = scene.blend({0, 1}, {1.0, 3.0}, false);
  expectNear(scaled[1], root + Vec(0.75, 0, 1), 1e-12);

  // No active guides: culled.
  VrSplinePrimitiveContext& c = scene.context();
  c.activeGuides.clear();
  c.weight.clear();
  c.weightN = 0.0;
  scene.spline->mkGeometryFromGuides(c, 0.5, 0.5);
  EXPECT_TRUE(c.cullPrim());
}

TEST(VrSplinePrimitive, BreakLetsTheDominantGuideWin) {
  GuideScene scene;
  const Vec root = scene.context().cP(0.5, 0.5, false);
  // B dominates; its break of 0 removes A from CV 1 on, and 0.5 halves A's weight at CV 2.
  const std::vector<Vec>& geom = scene.blend({0, 1}, {0.25, 0.75}, true);
  EXPECT_EQ(scene.context().dominantGuide, 1);
  expectNear(geom[1], root + Vec(1, 0, 1), 1e-12);
  const double w = 0.25 * 0.5;
  expectNear(geom[2], root + (Vec(2, 0, 2) * 0.75 + Vec(0, 0, 2) * w) / (0.75 + w), 1e-12);

  // A tie goes to the guide listed first.
  scene.blend({1, 0}, {0.5, 0.5}, true);
  EXPECT_EQ(scene.context().dominantGuide, 1);
  const std::vector<Vec>& tieA = scene.blend({0, 1}, {0.5, 0.5}, true);
  EXPECT_EQ(scene.context().dominantGuide, 0);
  expectNear(tieA[1], root + Vec(0, 0, 1), 1e-12);
  expectNear(tieA[2], root + Vec(0, 0, 2), 1e-12);
}

// Threads

TEST(VrSplinePrimitive, WorkersBuildTheSameSplines) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("length", "$a=1.0;#0.05,5.0\n$a * (1 + rand() * 0.5)");
  s.setAttr("offU", "rand() - 0.5");
  s.setAttr("attrCVCount", "4");
  s.setAttr("bendV[1]", "0.8");
  constexpr int count = 64;
  auto location = [](int i, double& u, double& v) {
    u = (i % 8 + 0.5) / 8.0;
    v = (i / 8 + 0.5) / 8.0;
  };
  std::vector<std::vector<Vec>> serial(count);
  for (int i = 0; i < count; ++i) {
    double u, v;
    location(i, u, v);
    serial[i] = scene.make(u, v);
  }

  const bool was = VrTaskManager::seExprMultithreading();
  VrTaskManager::setSeExprMultithreading(true);
  for (int threads : {1, 3}) {
    std::vector<std::vector<Vec>> parallel(count);
    tbb::task_arena arena(threads);
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<int>(0, count, 4), [&](const tbb::blocked_range<int>& range) {
        VrExpression::initTLS();
        std::unique_ptr<VrPrimitiveContext> own = s.createContext();
        own->setActivePatchFace(scene.patch, 5);
        for (int i = range.begin(); i != range.end(); ++i) {
          double u, v;
          location(i, u, v);
          s.makeGeometryInParallel(*own, u, v, nullptr);
          parallel[i] = own->cGeom();
        }
        VrExpression::clearTLS();
      });
    });
    for (int i = 0; i < count; ++i) EXPECT_EQ(parallel[i], serial[i]) << "location " << i << ", " << threads;
  }
  VrTaskManager::setSeExprMultithreading(was);
}

TEST(VrSplinePrimitive, SplineAtAGuideRootTakesItsShape) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("iMethod", "1");
  // Four guides at face centres, each leaning its own way.
  const int faces[] = {5, 6, 9, 10};
  for (int i = 0; i < 4; ++i) {
    VrGuide& g = s.addGuide();
    g.setId(std::to_string(i + 1));
    g.setPatch(scene.patch);
    g.setFaceId(faces[i]);
    g.setU(0.5);
    g.setV(0.5);
    // Offsets in the exported frame (U, N, V): up one unit, leaning along U by i/4.
    g.setOrigIGeom({Vec(0, 0, 0), Vec(0.125 * i, 0.5, 0), Vec(0.25 * i, 1, 0)});
  }
  EXPECT_EQ(s.maximumCVCount(), 5u);
  s.initDescription();
  ASSERT_TRUE(s.hasCandidates());
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    scene.context().setActivePatchFace(scene.patch, faces[i]);
    const std::vector<Vec>& geom = scene.make(0.5, 0.5);
    ASSERT_FALSE(scene.context().cullPrim());
    const std::vector<Vec>& cvs = s.guide(static_cast<unsigned>(i)).cGuideGeom();
    ASSERT_EQ(geom.size(), cvs.size());
    for (size_t k = 0; k < cvs.size(); ++k) expectNear(geom[k] - geom[0], cvs[k] - cvs[0], 1e-3);
  }
  s.finishDescription();
}

TEST(VrSplinePrimitive, AttributeBlockRoundTrips) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.setAttr("attrCVCount", "5");
  s.setAttr("bendU[1]", "0.3");
  s.setAttr("bendParam[2]", "0.9");
  s.setAttr("widthRamp", "rampUI(0,1,1:0.5,0.2,2:1,0,1)");
  s.setAttr("fxCVCount", "9");
  std::ostringstream out;
  ASSERT_TRUE(s.exportObj(out));

  // The block read back: skip the leading line break and the type word, as a file reader does.
  VrSplinePrimitive back(scene.description);
  std::istringstream in(out.str());
  std::string word;
  in >> word;
  EXPECT_EQ(word, "SplinePrimitive");
  ASSERT_TRUE(back.importObj(in, ""));
  EXPECT_EQ(back.attrNames(), s.attrNames());
  for (const std::string& name : s.attrNames()) EXPECT_EQ(attr(back, name), attr(s, name)) << name;
  EXPECT_EQ(back.attrCVCount(), 5u);
  EXPECT_EQ(back.finalCVCount(), 9u);

  back.context().setActivePatchFace(scene.patch, 5);
  s.makeGeometry(0.3, 0.6, nullptr);
  back.makeGeometry(0.3, 0.6, nullptr);
  EXPECT_EQ(back.context().cGeom(), s.context().cGeom());
}

TEST(VrSplinePrimitive, DefaultGuidesAndTheirBoxes) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  VrGuide& g = s.addGuide();
  g.setExportedNormal(Vec(0, 3, 0));
  s.defaultGuideGeom(g);
  ASSERT_EQ(g.iOrigGuideGeom().size(), 4u);
  expectNear(g.iOrigGuideGeom()[2], Vec(0, 2, 0), 1e-12);
  EXPECT_TRUE(s.verifyGuideGeom(g.iOrigGuideGeom()));
  EXPECT_FALSE(s.verifyGuideGeom({Vec(), Vec(0, 1, 0)}));
  EXPECT_EQ(s.minGuideCVCount(), 3u);

  EXPECT_FALSE(s.guideBoundingBox(0).valid);  // not on the surface yet
  g.cGuideGeom() = {Vec(1, 2, 3), Vec(0, 5, 4), Vec(2, 1, 3)};
  const SgBox3T<double> box = s.guideBoundingBox(0);
  ASSERT_TRUE(box.valid);
  expectNear(box.min, Vec(0, 1, 3), 0.0);
  expectNear(box.maxCorner(), Vec(2, 5, 4), 0.0);
  EXPECT_FALSE(s.guideBoundingBox(7).valid);
}

TEST(VrSplinePrimitive, GuideBlockSkipsUnknownTokensAndRefusesMissingCVs) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  vrtest::CaptureLogger log;
  // An unknown token loses its own line only: the guide after it still reads whole.
  std::istringstream good("1\n\tid 4\n\tbogus 1 2 3\n\tloc 0.25 0.75 5\n\tCVs\t3\n\t0 0 1\n\t0 0 2\n");
  ASSERT_TRUE(s.importGuides(good, scene.patch, 18));
  EXPECT_EQ(log.errors(),
            (std::vector<std::string>{"Unrecognized token: bogus in Guide import. Trying to read and continue."}));
  ASSERT_EQ(s.numGuides(), 1u);
  EXPECT_EQ(s.guide(0).faceId(), 5);
  EXPECT_DOUBLE_EQ(s.guide(0).patchV(), 0.75);
  ASSERT_EQ(s.guide(0).iOrigGuideGeom().size(), 3u);
  expectNear(s.guide(0).iOrigGuideGeom()[2], Vec(0, 0, 2), 0.0);

  // A CV list cut short, and a guide with no CVs at all, are refused.
  log.clear();
  std::istringstream shortList("1\n\tCVs\t4\n\t0 0 1\n");
  EXPECT_FALSE(s.importGuides(shortList, scene.patch, 18));
  std::istringstream none("1\n\tid 2\n");
  EXPECT_FALSE(s.importGuides(none, scene.patch, 18));
  EXPECT_EQ(log.errors(), (std::vector<std::string>{"No CVs found for guide during import.",
                                                    "No CVs found for guide during import."}));
}
