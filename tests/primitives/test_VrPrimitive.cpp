#include "primitives/VrPrimitive.h"

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrNullRenderer.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;

// Records what the pipeline did with it.
class ProbePrimitive : public VrPrimitive {
 public:
  explicit ProbePrimitive(VrDescription* description)
      : VrPrimitive(description, std::make_unique<VrPrimitiveContext>(description)) {}
  std::string typeName() const override { return "ProbePrimitive"; }
  void mkGeometryInParallel(VrPrimitiveContext& context, double, double) override {
    ++mkCalls;
    context.getGeom().assign({Vec(0, 0, 0), Vec(0, 0, 1)});
  }
  bool postApplyFxInParallel(VrPrimitiveContext&) override {
    ++postCalls;
    return true;
  }
  int mkCalls = 0;
  int postCalls = 0;
};

// A module that counts the calls it gets.
class ProbeFXModule : public VrFXModule {
 public:
  using VrFXModule::VrFXModule;
  std::string typeName() const override { return "TestProbeFXModule"; }
  bool initModule(VrPrimitive*) override {
    ++inits;
    return !refuse;
  }
  void finishModule(VrPrimitive*) override { ++finishes; }
  void beginPatchFace(VrPrimitiveContext&, const VrPatch*, int) override { ++begins; }
  void endPatchFace(VrPrimitiveContext&, const VrPatch*, int) override { ++ends; }
  bool isThreadSafe() const override { return true; }
  bool computeParallel(VrPrimitiveContext&) override {
    ++applied;
    return true;
  }
  std::atomic<int> applied{0};
  bool refuse = false;
  std::atomic<int> begins{0}, ends{0};
  int inits = 0, finishes = 0;
};

void* createProbe(VrDescription* description) { return static_cast<VrObject*>(new ProbeFXModule(description)); }
const bool probeRegistered = VrRegisterModule("TestProbeFXModule", &createProbe);

// One description with a 4 x 4 patch whose animated surface lies one unit above the reference.
struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4, 1.0f), vrtest::gridSurface(4, 0.0f)) {}
};

}  // namespace

// The context's frame cache

TEST(VrPrimitiveContext, ReferenceAndAnimatedSurfaces) {
  Scene scene;
  VrPrimitiveContext context(scene.description);
  context.setActivePatchFace(scene.patch, 0);
  EXPECT_NEAR(context.cPg(0.5, 0.5, true).z, 0.0, 1e-9);
  EXPECT_NEAR(context.cPg(0.5, 0.5, false).z, 1.0, 1e-9);
  EXPECT_NEAR(context.cP(0.5, 0.5, true).z, 0.0, 1e-9);
  EXPECT_NEAR(context.cP(0.5, 0.5, false).z, 1.0, 1e-9);
  // Unit tangents and a unit normal across them.
  const Vec U = context.cUg(0.5, 0.5, true), V = context.cVg(0.5, 0.5, true), N = context.cNg(0.5, 0.5, true);
  EXPECT_NEAR(U.length(), 1.0, 1e-9);
  EXPECT_NEAR(V.length(), 1.0, 1e-9);
  EXPECT_NEAR(std::fabs(N.z), 1.0, 1e-9);
  EXPECT_NEAR(U.dot(N), 0.0, 1e-9);
  EXPECT_FALSE(context.cullPrim());

  // Without a patch nothing is evaluated, and the guides are dropped.
  VrPrimitiveContext none;
  EXPECT_EQ(none.cP(0.5, 0.5, false), Vec());
  none.activeGuides = {1, 2};
  none.setActivePatchFace(nullptr, 3);
  EXPECT_TRUE(none.activeGuides.empty());
  EXPECT_EQ(none.cFaceId(), 3);
}

TEST(VrPrimitiveContext, PackedCVAttributesRoundTrip) {
  VrPrimitiveContext context;
  context.getCVAttrs()["colour"] = {Vec(0.5, 0.25, 1), Vec(2, 3, 4)};
  context.getCVAttrs()["radius"] = {Vec(1, 0, 0), Vec(2, 0, 0), Vec(3, 0, 0)};
  std::vector<float> floats{99.0f};
  VrDict<VrPrimitiveContext::Location> map;
  context.packCVAttrs(floats, map);
  ASSERT_EQ(floats.size(), 15u);
  ASSERT_EQ(map.size(), 2u);
  EXPECT_EQ(map.find("colour")->size, 6u);
  EXPECT_EQ(map.find("radius")->size, 9u);
  EXPECT_EQ(floats[map.find("radius")->offset + 6], 3.0f);

  VrPrimitiveContext other;
  ASSERT_TRUE(other.unpackCVAttrs(floats, map));
  ASSERT_NE(other.cvAttr("colour"), nullptr);
  EXPECT_EQ(*other.cvAttr("colour"), *context.cvAttr("colour"));
  EXPECT_EQ(*other.cvAttr("radius"), *context.cvAttr("radius"));
  EXPECT_EQ(other.cvAttrsLoc().size(), 2u);

  vrtest::CaptureLogger log;
  floats.resize(10);
  VrPrimitiveContext third;
  EXPECT_FALSE(third.unpackCVAttrs(floats, map));
  EXPECT_EQ(log.warnings().size(), 1u);
  EXPECT_TRUE(third.cvAttrs().empty());
}

TEST(VrPrimitiveContext, PipeDataModuleRecordsAndClones) {
  VrPrimitiveContext context;
  EXPECT_EQ(context.getPipeData("clump"), nullptr);
  context.setPipeData("clump", {Vec(1, 2, 3)});
  ASSERT_NE(context.getPipeData("clump"), nullptr);
  EXPECT_EQ((*context.getPipeData("clump"))[0], Vec(1, 2, 3));
  EXPECT_TRUE(context.removePipeData("clump"));
  EXPECT_FALSE(context.removePipeData("clump"));

  const VrFXModule* key = reinterpret_cast<const VrFXModule*>(&context);
  context.addModuleContext(key, std::make_unique<VrFXModuleContext>());
  VrFXModuleContext* record = context.fxModuleContext(key);
  ASSERT_NE(record, nullptr);
  std::unique_ptr<VrPrimitiveContext> clone = context.cloneContext();
  ASSERT_NE(clone->fxModuleContext(key), nullptr);
  EXPECT_NE(clone->fxModuleContext(key), record);  // the clone owns a copy
  context.removeAllModuleContext();
  EXPECT_EQ(context.fxModuleContext(key), nullptr);
  EXPECT_NE(clone->fxModuleContext(key), nullptr);

  // A clone keeps the context's kind and fields.
  VrSplinePrimitiveContext splineContext;
  splineContext.taper = 0.5f;
  splineContext.dominantGuide = 3;
  splineContext.getGeom().assign(4, Vec(1, 1, 1));
  splineContext.setId(42);
  clone = static_cast<const VrPrimitiveContext&>(splineContext).cloneContext();
  auto* spline = dynamic_cast<VrSplinePrimitiveContext*>(clone.get());
  ASSERT_NE(spline, nullptr);
  EXPECT_EQ(std::make_tuple(spline->taper, spline->dominantGuide, spline->cGeom().size(), spline->id()),
            std::make_tuple(0.5f, 3, size_t(4), 42u));
}

// Attributes

TEST(VrPrimitive, CopiedAttributesAndAnInvalidInterpolationMethod) {
  Scene scene;
  ProbePrimitive primitive(scene.description);
  primitive.setAttr("length", "3.5");
  ProbePrimitive copy(scene.description);
  copy.copyAttrs(&primitive);
  EXPECT_EQ(copy.lengthExpr().eval(0.5, 0.5, 0).x, 3.5);

  vrtest::CaptureLogger log;
  primitive.setAttr("iMethod", "2");
  primitive.setupInterpolation(true);
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Invalid interpolation method."});
}

// The pipeline

TEST(VrPrimitive, CulledPrimitiveMakesNoGeometry) {
  vrtest::CaptureLogger log;
  Scene scene;
  ProbePrimitive primitive(scene.description);
  auto* module = static_cast<ProbeFXModule*>(primitive.addFXModule("TestProbeFXModule"));
  ASSERT_NE(module, nullptr);
  // CV interpolation with a guide but no candidate table: the guide step refuses the location.
  primitive.setAttr("iMethod", "1");
  VrGuide& g = primitive.addGuide();
  g.setPatch(scene.patch);
  primitive.context().setActivePatchFace(scene.patch, 0);
  primitive.makeGeometry(0.5, 0.5, nullptr);
  EXPECT_TRUE(primitive.context().cullPrim());
  EXPECT_EQ(primitive.mkCalls, 0);
  EXPECT_EQ(module->applied.load(), 0);
  EXPECT_EQ(primitive.postCalls, 0);
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_EQ(log.errors()[0].rfind("Candidate guides have not been associated! ", 0), 0u);
}

// Lean and direction

TEST(VrPrimitive, OrientLeansAgainstHandValues) {
  const Vec root(1, 2, 3);
  struct Case {
    double a, b;
    Vec dir;
  } cases[] = {
      {0.0, 0.0, Vec(0, 0, 1)},
      {1.0, 0.0, Vec(1, 0, 0)},
      {0.0, -1.0, Vec(0, -1, 0)},
      {0.5, 0.0, Vec(std::sqrt(0.5), 0, std::sqrt(0.5))},
      {1.5, 0.0, Vec(std::sqrt(0.5), 0, -std::sqrt(0.5))},
      {2.0, 0.0, Vec(0.05 * 1.5691819, 0, -0.99691733)},
      {0.0, 1.97, Vec(0, 0.05 * 1.5691819, -0.99691733)},
  };
  for (const Case& c : cases) {
    Vec N(0, 0, 1), U(1, 0, 0), V(0, 1, 0);
    std::vector<Vec> cvs;
    VrPrimitive::orient(root, N, U, V, c.a, c.b, 0.0, 0.0, 2.0, cvs, false);
    ASSERT_EQ(cvs.size(), 1u);
    SCOPED_TRACE(c.a);
    expectNear(cvs[0], root + c.dir * 2.0, 1e-6);
    // The new frame: N along the segment, right-handed and unit.
    expectNear(N, c.dir, 1e-6);
    EXPECT_NEAR(U.dot(N), 0.0, 1e-9);
    expectNear(U.cross(V), N, 1e-9);
  }
  // A lean of 1 along U tips U under the surface.
  Vec N(0, 0, 1), U(1, 0, 0), V(0, 1, 0);
  std::vector<Vec> cvs;
  VrPrimitive::orient(Vec(), N, U, V, 1.0, 0.0, 0.0, 0.0, 1.0, cvs, false);
  expectNear(U, Vec(0, 0, -1), 1e-9);
  expectNear(V, Vec(0, 1, 0), 1e-9);
}

TEST(VrPrimitive, OrientDiscMappingAndRotations) {
  auto tip = [](double a, double b, double tiltN, double aboutN, bool isFirst) {
    Vec N(0, 0, 1), U(1, 0, 0), V(0, 1, 0);
    std::vector<Vec> cvs;
    VrPrimitive::orient(Vec(), N, U, V, a, b, tiltN, aboutN, 1.0, cvs, isFirst);
    return cvs.at(0);
  };
  // The corner (1, 1) maps onto the unit circle: the segment lies in the tangent plane.
  expectNear(tip(1.0, 1.0, 0.0, 0.0, true), Vec(std::sqrt(0.5), std::sqrt(0.5), 0), 1e-9);
  // aboutN turns the lean about the normal.
  expectNear(tip(1.0, 0.0, 0.0, 90.0, false), Vec(0, 1, 0), 1e-9);
  // tiltN turns an upright segment towards -U by the angle.
  const Vec tilted = tip(0.0, 0.0, 30.0, 0.0, false);
  EXPECT_NEAR(tilted.z, std::cos(M_PI / 6.0), 1e-9);
  EXPECT_NEAR(std::fabs(tilted.x), 0.5, 1e-9);
  EXPECT_NEAR(tilted.y, 0.0, 1e-9);
}

TEST(VrPrimitive, OrientWithoutLeanMatchesTheGeneralPath) {
  // A lean of 1e-300 takes the general path yet moves nothing a double can hold beside a
  // normal with no zero component: frames and tips must agree bit for bit with a lean of 0.
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(0.1, 1.0);
  for (int i = 0; i < 200; ++i) {
    Vec N(unit(random), -unit(random), unit(random));
    N *= i % 2 ? 1.0 : 1.0 / N.length();  // unit and not quite unit normals
    Vec U = N.cross(Vec(unit(random), unit(random), -unit(random)));
    U.normalize();
    const Vec V = N.cross(U);
    for (bool isFirst : {false, true}) {
      Vec n0 = N, u0 = U, v0 = V, n1 = N, u1 = U, v1 = V;
      std::vector<Vec> plain, general;
      VrPrimitive::orient(Vec(), n0, u0, v0, 0.0, -0.0, 0.0, 0.0, 0.3, plain, isFirst);
      VrPrimitive::orient(Vec(), n1, u1, v1, 1e-300, 0.0, 0.0, 0.0, 0.3, general, isFirst);
      ASSERT_EQ(plain, general) << i;
      ASSERT_TRUE(n0 == n1 && u0 == u1 && v0 == v1) << i;
    }
  }
}

TEST(VrPrimitive, FindOrientInvertsOrient) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  for (int i = 0; i < 500; ++i) {
    // A random right-handed frame.
    Vec N(unit(random), unit(random), unit(random));
    if (N.normalize() == 0.0) continue;
    Vec U = N.cross(Vec(unit(random), unit(random), unit(random)));
    if (U.normalize() == 0.0) continue;
    const Vec V = N.cross(U);
    const Vec root(unit(random), unit(random), unit(random));

    for (bool isFirst : {false, true}) {
      double a = unit(random), b = unit(random);
      if (!isFirst) {
        // Any lean within the invertible disc of radius 1.95.
        a *= 1.9;
        b *= 1.9;
        if (std::hypot(a, b) > 1.94) continue;
      }
      Vec n = N, u = U, v = V;
      std::vector<Vec> cvs{root};
      VrPrimitive::orient(root, n, u, v, a, b, 0.0, 0.0, 0.7, cvs, isFirst);
      double ra = 0.0, rb = 0.0;
      ASSERT_TRUE(VrPrimitive::findOrient(cvs, N, U, V, ra, rb, isFirst));
      EXPECT_NEAR(ra, a, 1e-7) << "lean " << a << ", " << b << (isFirst ? " first" : "");
      EXPECT_NEAR(rb, b, 1e-7) << "lean " << a << ", " << b << (isFirst ? " first" : "");
    }
  }
  double a = 0.0, b = 0.0;
  EXPECT_FALSE(VrPrimitive::findOrient({Vec()}, Vec(0, 0, 1), Vec(1, 0, 0), Vec(0, 1, 0), a, b, false));
}

// A render pass drives the primitive and its modules

TEST(VrPrimitive, RenderPassPreparesGuidesAndModules) {
  vrtest::CaptureLogger log;
  Scene scene;
  VrDescription* desc = scene.description;
  desc->setActive("SplinePrimitive");
  desc->setActive("RandomGenerator");
  desc->activeGenerator()->setAttr("density", "20");
  auto* spline = static_cast<VrSplinePrimitive*>(desc->activePrimitive());
  ASSERT_NE(spline, nullptr);
  spline->setAttr("iMethod", "1");
  for (int face : {0, 3, 12, 15}) {
    VrGuide& g = spline->addGuide();
    g.setId(std::to_string(face + 1));
    g.setPatch(scene.patch);
    g.setFaceId(face);
    g.setU(0.5);
    g.setV(0.5);
    spline->defaultGuideGeom(g);
  }
  auto* module = static_cast<ProbeFXModule*>(spline->addFXModule("TestProbeFXModule"));
  auto* refusing = static_cast<ProbeFXModule*>(spline->addFXModule("TestProbeFXModule"));
  refusing->refuse = true;
  VrNullRenderer renderer(desc);
  desc->setActiveRenderer(&renderer);

  renderer.initDescription();
  EXPECT_TRUE(spline->hasCandidates());  // the reach maps were built for the pass
  EXPECT_EQ(module->inits, 1);
  EXPECT_FALSE(refusing->isActive());  // a module that refuses is switched off
  const int faces = static_cast<int>(scene.patch->numFaces());
  for (int face = 0; face < faces; ++face) renderer.render(face, "body");
  const unsigned serial = renderer.totalEmitCount();
  renderer.finishDescription();
  EXPECT_GT(serial, 0u);
  EXPECT_EQ(module->begins.load(), faces);
  EXPECT_EQ(module->ends.load(), faces);
  EXPECT_EQ(refusing->begins.load(), 0);
  EXPECT_EQ(module->finishes, 1);
  EXPECT_TRUE(log.errors().empty()) << log.errors()[0];

  // Workers clone the spline's own context and build the same primitives.
  const size_t saved = VrTaskManager::threadCount();
  VrTaskManager::setThreadCount(2);
  renderer.initDescription();
  renderer.renderPatchInParallel("body");
  renderer.finishDescription();
  VrTaskManager::setThreadCount(saved);
  EXPECT_EQ(renderer.totalEmitCount(), serial);
  EXPECT_EQ(module->begins.load(), 2 * faces);
  desc->setActiveRenderer(nullptr);
}
