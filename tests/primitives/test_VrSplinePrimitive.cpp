#include "primitives/VrSplinePrimitive.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;

// A description with a flat 4 x 4 patch and a spline primitive on face 5.
struct Scene : vrtest::PatchScene {
  explicit Scene(float warp = 0.0f) : PatchScene(vrtest::gridSurface(4, 0.0f, warp)) {
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

TEST(VrSplinePrimitive, AttributesInOrderAndWorkerContextsOfTheSplineKind) {
  Scene scene;
  // The bends are made by the CV count, so they follow it.
  const std::vector<std::string> own = {"taper",        "taperStart",  "displayWidth", "faceCamera",
                                        "tubeShade",    "tubes",       "guideSpacing", "guideMask",
                                        "cutParam",     "texelsPerUnit", "CVFrequency", "widthRamp",
                                        "attrCVCount",  "bendParam[0]", "bendU[0]",    "bendV[0]",
                                        "fxCVCount",    "uniformCVs"};
  const std::vector<std::string>& names = scene.spline->attrNames();
  ASSERT_EQ(names.size(), 14u + own.size());
  for (size_t i = 0; i < own.size(); ++i) EXPECT_EQ(names[14 + i], own[i]);
  EXPECT_EQ(attr(*scene.spline, "bendParam[0]"), "$a=0.5;#0.0,1.0\\n$a");
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
  expectNear(c.widthVec(), c.cU(0.5, 0.5, false), 1e-9);
}

// The ribbon direction is worked out when first read, from the frame kept at the root: the same
// bits as from the frame read at once, whether building the shape squared its tangents (a lean)
// or not. The curved surface's tangents are not square to begin with.
TEST(VrSplinePrimitive, RibbonDirectionComesFromTheRootFrame) {
  for (const char* lean : {"0.0", "0.7"}) {
    Scene scene(0.3f);
    scene.spline->setAttr("bendU[0]", lean);
    const std::vector<Vec> P = scene.make(0.3, 0.6);
    VrSplinePrimitiveContext& c = scene.context();
    ASSERT_GE(P.size(), 3u);
    Vec expected;
    VrSplinePrimitive::calcWidthVec(P[1] - P[0], P[2] - P[1], c.cN(0.3, 0.6, false), c.cU(0.3, 0.6, false),
                                    expected);
    EXPECT_EQ(c.widthVec(), expected) << "lean " << lean;
  }
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

// A blend leaves its length to be measured; it is culled when the spline is shorter than
// 0.0001, whatever the chord from root to tip says.
TEST(VrSplinePrimitive, BlendsShorterThanATenThousandthAreCulled) {
  struct Case {
    const char* name;
    std::vector<Vec> shape;  // of both guides, from their roots
    bool culled;
  };
  const Case cases[] = {
      {"tiny", {Vec(0, 0, 0), Vec(0, 0, 2e-5), Vec(0, 0, 4e-5)}, true},
      {"back at its root", {Vec(0, 0, 0), Vec(0, 0, 1), Vec(0, 0, 0)}, false},
      {"long", {Vec(0, 0, 0), Vec(0, 0, 1), Vec(0, 0, 2)}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    GuideScene scene;
    for (unsigned g = 0; g < 2; ++g) {
      std::vector<Vec>& cvs = scene.spline->guide(g).cGuideGeom();
      for (size_t i = 0; i < cvs.size(); ++i) cvs[i] = cvs[0] + c.shape[i];
    }
    VrSplinePrimitiveContext& context = scene.context();
    context.activeGuides = {0, 1};
    context.weight = {0.5, 0.5};
    context.weightN = 1.0;
    context.breakActive = false;
    scene.spline->mkGeometryInParallel(context, 0.5, 0.5);
    EXPECT_EQ(context.cullPrim(), c.culled);
  }
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

// Width direction

namespace {
Vec turnedBy(const Vec& v, const Vec& axis, double radians) {
  return v * std::cos(radians) + axis.cross(v) * std::sin(radians) + axis * (axis.dot(v) * (1.0 - std::cos(radians)));
}

// The width direction as told by turning W through the angle from N to T0 (by acos) and taking
// the side of T1 x T0 it falls on: the reference calcWidthVec must meet bit for bit.
Vec widthVecByAngle(const Vec& T0, const Vec& T1, const Vec& N, const Vec& W) {
  Vec t0 = T0, out = W;
  t0.normalize();
  Vec axis = N.cross(t0);
  if (axis.normalize() > 0.0) out = turnedBy(W, axis, std::acos(std::clamp(N.dot(t0), -1.0, 1.0)));
  Vec c = T1.cross(T0);
  if (c.normalize() > 0.0) out = c.dot(out) < 0.0 ? -c : c;
  out.normalize();
  return out;
}
}  // namespace

TEST(VrSplinePrimitive, WidthVecSideMatchesTheTurnedSurfaceDirection) {
  struct Case {
    Vec T0, T1, N, W;
  };
  std::vector<Case> cases = {
      {Vec(0, 0, 1), Vec(1, 0, 1), Vec(0, 0, 1), Vec(1, 0, 0)},        // straight up: no turn
      {Vec(0, 0, -1), Vec(0, 1, -1), Vec(0, 0, 1), Vec(1, 0, 0)},      // against the normal
      {Vec(1, 0, 1), Vec(2, 0, 2), Vec(0, 0, 1), Vec(0, 1, 0)},        // straight: W turned
      {Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 0, 1), Vec(1, 0, 0)},        // no first segment
      {Vec(1, 2, 3), Vec(-2, 1, 0.5), Vec(0, 0, 5), Vec(0.3, -1, 0)},  // normal not unit
  };
  // Near ties: W chosen so that, turned, it lies across T1 x T0 up to `off` along it.
  const Vec T0(0.3, -0.2, 1), T1(0.1, 0.4, 0.8), N = Vec(0.2, 0.1, 1) * (1.0 / Vec(0.2, 0.1, 1).length());
  Vec t0 = T0, axis = N.cross(T0), c = T1.cross(T0);
  t0.normalize();
  axis.normalize();
  c.normalize();
  const double angle = std::acos(N.dot(t0));
  for (double off : {0.0, 1e-17, 1e-15, 1e-12, 1e-10, 5e-10, 1e-9, 2e-9, 1e-8, 1e-6})
    for (double sign : {1.0, -1.0})
      for (double scale : {1.0, 1e-3, 40.0})
        cases.push_back({T0, T1, N, turnedBy((c.cross(t0) + c * (sign * off)) * scale, axis, -angle)});
  std::mt19937 random(7);
  std::uniform_real_distribution<double> any(-1.0, 1.0);
  const auto pick = [&] { return Vec(any(random), any(random), any(random)); };
  for (int k = 0; k < 2000; ++k) {
    Vec n = pick();
    n.normalize();
    cases.push_back({pick(), pick(), n, pick()});
  }
  for (size_t k = 0; k < cases.size(); ++k) {
    const Case& e = cases[k];
    Vec out;
    VrSplinePrimitive::calcWidthVec(e.T0, e.T1, e.N, e.W, out);
    EXPECT_EQ(out, widthVecByAngle(e.T0, e.T1, e.N, e.W)) << "case " << k;
  }
}

// Guides

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
