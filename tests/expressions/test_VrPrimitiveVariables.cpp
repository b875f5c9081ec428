// The variables of the primitive being built ($P, $N, $id, $cLength, ...), read from the serial
// context of the description's active primitive or from the worker's context.

#include "expressions/VrExpression.h"

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

// A 4 x 4 grid of unit quads in the z = 0 plane, moved by `shift`.
std::unique_ptr<SgSubdSurface> grid(const Vec& shift) {
  return vrtest::gridSurface(4, static_cast<float>(shift.z), 0.0f, shift.x, shift.y);
}

// A description with a spline primitive working on face 5 of a patch whose reference surface is
// the plain grid and whose animated surface is the grid moved by `shift`.
struct Scene : vrtest::PatchScene {
  explicit Scene(const Vec& shift = Vec(), const std::string& name = "fur")
      : PatchScene(grid(shift), grid(Vec()), name) {
    description->setActive("SplinePrimitive");
    primitive = description->activePrimitive();
    context().setActivePatchFace(patch, 5);
  }

  VrPrimitiveContext& context() { return primitive->context(); }

  Vec eval(const std::string& text, double u, double v) const {
    VrExpression e("test", "Test", description, text, "vector");
    std::string error;
    EXPECT_TRUE(e.isValid(&error)) << error;
    return e.eval(u, v, 5, &patch->name());
  }

  VrPrimitive* primitive;
};

void expectNear(const Vec& a, const Vec& b, double tolerance = 1e-9) { vrtest::expectNear(a, b, tolerance); }

SgXform3T<double> translation(const Vec& t) {
  SgXform3T<double> x;
  x.setTranslation(t);
  return x;
}

// Restores the flag on every exit from a test.
struct Multithreading {
  explicit Multithreading(bool on) : was(VrTaskManager::seExprMultithreading()) {
    VrTaskManager::setSeExprMultithreading(on);
  }
  ~Multithreading() {
    VrTaskManager::setSeExprMultithreading(was);
    VrExpression::clearTLS();
  }
  bool was;
};

}  // namespace

TEST(VrPrimitiveVariables, FrameVariablesAreTheContextsAtTheLocation) {
  Scene scene(Vec(0.5, 0.0, 2.0));
  const double u = 0.3, v = 0.6;
  VrPrimitiveContext& c = scene.context();
  EXPECT_EQ(scene.eval("$P", u, v), c.cP(u, v, false));
  EXPECT_EQ(scene.eval("$N", u, v), c.cN(u, v, false));
  EXPECT_EQ(scene.eval("$dPdu", u, v), c.cdPdu(u, v, false));
  EXPECT_EQ(scene.eval("$dPdv", u, v), c.cdPdv(u, v, false));
  EXPECT_EQ(scene.eval("$U", u, v), c.cU(u, v, false));
  EXPECT_EQ(scene.eval("$Vref", u, v), c.cV(u, v, true));
  EXPECT_EQ(scene.eval("$dPdurefg", u, v), c.cdPdug(u, v, true));
  EXPECT_EQ(scene.eval("$Ng", u, v), c.cNg(u, v, false));

  // Face 5 is the quad from (1, 1) to (2, 2); the flat grid's limit surface is the plane itself.
  expectNear(scene.eval("$Pref", u, v), Vec(1.3, 1.6, 0.0));
  expectNear(scene.eval("$P", u, v), Vec(1.8, 1.6, 2.0));
  expectNear(scene.eval("$P - $Pref", 0.9, 0.1), Vec(0.5, 0.0, 2.0));
  expectNear(scene.eval("$Prefg", u, v), Vec(1.3, 1.6, 0.0));
  // A moved surface keeps its frame: unit tangents along x and y, the normal along z.
  expectNear(scene.eval("$U", u, v), Vec(1.0, 0.0, 0.0));
  expectNear(scene.eval("$Vg", u, v), Vec(0.0, 1.0, 0.0));
  expectNear(scene.eval("$N - $Nref", u, v), Vec());
  EXPECT_NEAR(std::abs(scene.eval("$N[2]", u, v).x), 1.0, 1e-9);
  // A plane has no curvature (to float precision); the values are the context's.
  const Vec k = scene.eval("[$ku, $kvref, $kv]", u, v);
  EXPECT_EQ(k, Vec(c.cKu(u, v, false), c.cKv(u, v, true), c.cKv(u, v, false)));
  expectNear(k, Vec(), 1e-6);
  EXPECT_EQ(scene.eval("$kuref", u, v).x, static_cast<double>(c.cKu(u, v, true)));
}

TEST(VrPrimitiveVariables, ScalarsOfThePrimitiveAfterItIsMade) {
  Scene scene;
  scene.primitive->setAttr("length", "0.7", "expr");
  scene.primitive->setAttr("width", "0.02", "expr");
  scene.primitive->makeGeometry(0.5, 0.5, nullptr);
  ASSERT_FALSE(scene.context().cullPrim());
  scene.context().setId(17);
  scene.patch->setIndex(3);
  const Vec value = scene.eval("[$cLength, $cWidth, $cDepth]", 0.5, 0.5);
  EXPECT_NEAR(value.x, 0.7, 1e-9);
  EXPECT_NEAR(value.y, 0.02, 1e-12);
  EXPECT_EQ(value.z, 1.0);
  EXPECT_EQ(scene.eval("[$id, $patchId, $objectId]", 0.5, 0.5), Vec(17.0, 3.0, 3.0));

  // A length that follows the CVs is worked out when it is read.
  scene.context().getGeom() = {Vec(0, 0, 0), Vec(0, 0, 1.5), Vec(0, 2, 1.5)};
  scene.context().dirtyCLength();
  EXPECT_NEAR(scene.eval("$cLength", 0.5, 0.5).x, scene.context().cLength(), 1e-12);
  EXPECT_GT(scene.context().cLength(), 3.0);
}

// Puts the process-wide camera back as a test found it.
struct CameraState {
  CameraState()
      : dir(VrRenderer::camDir()), ortho(VrRenderer::camIsOrtho()), inverse(VrRenderer::camInverseXform()) {}
  ~CameraState() {
    VrRenderer::setCamDir(dir);
    VrRenderer::setCamIsOrtho(ortho);
    VrRenderer::setCamInverseXform(inverse);
  }
  Vec dir;
  bool ortho;
  SgXform3T<double> inverse;
};

TEST(VrPrimitiveVariables, CameraPositionOfTheRender) {
  CameraState restore;
  Scene scene;
  VrRenderer::setCamIsOrtho(false);
  EXPECT_EQ(scene.eval("$cam", 0.5, 0.5), Vec());  // no renderer
  ASSERT_TRUE(scene.description->setActive("NullRenderer"));
  VrRenderer::setCamInverseXform(translation(Vec(-1.0, -2.0, -3.0)));
  expectNear(scene.eval("$cam", 0.5, 0.5), Vec(1.0, 2.0, 3.0));
  scene.palette->setWorld(translation(Vec(0.0, 0.0, 10.0)));
  expectNear(scene.eval("$cam", 0.5, 0.5), Vec(1.0, 2.0, 13.0));

  VrRenderer::setCamIsOrtho(true);
  VrRenderer::setCamDir(Vec(0.0, 0.0, -1.0));
  expectNear(scene.eval("$cam", 0.5, 0.5), Vec(0.0, 0.0, 100010.0));
}

TEST(VrPrimitiveVariables, SurfaceColourIsThePrimitivesColourExpression) {
  Scene scene;
  scene.primitive->setAttr("CsExpr", "[0.2, $u, $faceId]", "expr");
  expectNear(scene.eval("$Cs", 0.4, 0.6), Vec(0.2, 0.4, 5.0));
  // The colour reads the primitive too.
  scene.primitive->setAttr("CsExpr", "[$P[0], 0, 0]", "expr");
  expectNear(scene.eval("$Cs", 0.4, 0.6), Vec(1.4, 0.0, 0.0));
}

TEST(VrPrimitiveVariables, ZeroWithoutAPrimitiveOrAPatch) {
  VrPalette palette;
  auto* description = new VrDescription;
  palette.addDescription(description);
  VrExpression noPrimitive("test", "Test", description, "$P + [$id, $cLength, $ku] + $Cs + $Pw", "vector");
  EXPECT_EQ(noPrimitive.eval(0.5, 0.5, 0), Vec());
  VrExpression noDescription("test", "Test", nullptr, "$N + [$cWidth, $patchId, 0] + $cam", "vector");
  EXPECT_EQ(noDescription.eval(0.5, 0.5, 0), Vec());

  // A primitive that is not on a face has no frame yet; its scalars are already there.
  ASSERT_TRUE(description->setActive("SplinePrimitive"));
  description->activePrimitive()->context().setId(4);
  VrExpression noPatch("test", "Test", description, "$P + $Nref + $Cs + [$kv, $id, $patchId]", "vector");
  EXPECT_EQ(noPatch.eval(0.5, 0.5, 0), Vec(0.0, 4.0, 0.0));
}

TEST(VrPrimitiveVariables, AnOffsetThatReadsPIsReportedAsALoop) {
  Scene scene;
  ASSERT_TRUE(scene.description->setActive("RandomGenerator"));
  scene.description->activeGenerator()->setAttr("offset", "$P[0]", "expr");
  vrtest::CaptureLogger log;
  const Vec p = scene.eval("$P", 0.5, 0.5);
  EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z));
  ASSERT_EQ(log.errors().size(), 1u);
  EXPECT_EQ(log.errors()[0], "Expression \"offset\" has an infinite loop. [$P[0]]");
}

TEST(VrPrimitiveVariables, WorkersReadTheirOwnContextAndItsSamples) {
  Scene main(Vec(), "fur");
  Scene sample(Vec(0.0, 0.0, 1.0), "furSample");
  Scene other(Vec(), "other");
  main.context().setId(900);  // the serial contexts must not be read by a worker
  sample.context().setId(901);
  other.context().setId(902);

  std::unique_ptr<VrPrimitiveContext> worker = main.primitive->cloneContext(main.context());
  std::unique_ptr<VrPrimitiveContext> workerSample = sample.primitive->cloneContext(sample.context());
  worker->clearSamples();
  worker->addSample(workerSample.get());
  worker->setId(1);
  workerSample->setId(2);

  Multithreading on(true);
  VrExpression::initTLS(worker.get());
  EXPECT_EQ(main.eval("$id", 0.5, 0.5).x, 1.0);
  EXPECT_EQ(sample.eval("$id", 0.5, 0.5).x, 2.0);
  expectNear(sample.eval("$P", 0.5, 0.5), Vec(1.5, 1.5, 1.0));
  EXPECT_EQ(other.eval("$id", 0.5, 0.5).x, 0.0);  // no context of its own on this thread

  VrExpression::clearTLS();  // back to the serial contexts
  EXPECT_EQ(main.eval("$id", 0.5, 0.5).x, 900.0);
  EXPECT_EQ(other.eval("$id", 0.5, 0.5).x, 902.0);
}

TEST(VrPrimitiveVariables, AlignmentDistanceAndGuideFunctions) {
  vrtest::CaptureLogger log;
  Scene scene;
  // Face 5 of the flat grid: U along x, V along y, N along z (either way up).
  const double f = 0.001;
  const double n = scene.eval("$N[2]", 0.5, 0.5).x;
  struct Case {
    const char* text;
    double expected;
  };
  const Case cases[] = {
      {"alignU()", 0.0},                      // (0, 1, 0): all along V
      {"alignV()", 0.01},                     // 1 / ((0 + 1) * 100)
      {"alignU([3, 1, 0])", 0.0075},          // 3 / ((3 + 1) * 100), the length does not matter
      {"alignV([-3, 1, 5])", 0.0025},         // 1 / ((3 + 1) * 100)
      {"alignN([0, 1, 0])", 90.0},            // perpendicular to the normal
      {"alignN([0, 0, 2])", n > 0 ? 0.0 : 180.0},
      {"bboxdist([2, 2, 0])", 0.0},           // inside the patch's box [0, 4] x [0, 4] x [0, 0]
      {"bboxdist([7, 0, 4])", 5.0},           // (3, 0, 4) away
      {"guidesAttr(\"clump\")", 2.5},         // weighted, see below
      {"guidesAttr(\"none\")", f},
  };
  // Two guides reach the location, weights 1 and 3 (weightN the reciprocal of their sum), with
  // clump values 1 and 3: 0.25 * (1 * 1 + 3 * 3) = 2.5.
  scene.primitive->setGuideCount(2);
  scene.primitive->guide(0u).guideCustomAttrs()["clump"] = Vec(1, 1, 1);
  scene.primitive->guide(1u).guideCustomAttrs()["clump"] = Vec(3, 3, 3);
  scene.context().activeGuides = {0, 1};
  scene.context().weight = {1.0, 3.0};
  scene.context().weightN = 0.25;
  const unsigned warningLevel = VRWarningLevel;
  VRWarningLevel = 3;
  for (const Case& c : cases) EXPECT_NEAR(scene.eval(c.text, 0.5, 0.5).x, c.expected, 1e-9) << c.text;
  VRWarningLevel = warningLevel;
  EXPECT_TRUE(log.has("Attribute doesn't exist! none"));
  // Both dots zero: nothing guards the division.
  EXPECT_TRUE(std::isnan(scene.eval("alignU([0, 0, 1])", 0.5, 0.5).x));
  // Without a primitive, or without its patch, the failure value.
  scene.context().setActivePatchFace(nullptr, 0);
  EXPECT_EQ(scene.eval("alignV()", 0.5, 0.5), Vec(f, f, f));
}
