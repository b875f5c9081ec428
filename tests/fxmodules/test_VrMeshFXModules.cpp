// The collision and mesh cut modules against box meshes, where the answers are known by hand:
// straight splines of length 2 along +z stand on a flat 4 x 4 grid, the one at the middle of
// face 5 rooted at (1.5, 1.5, 0) with CV k at height 2k/7.

#include "fxmodules/VrAnimWiresFXModule.h"
#include "fxmodules/VrCollisionFXModule.h"
#include "fxmodules/VrMeshCutFXModule.h"

#include "geometry/SgCurve.h"
#include "primitives/VrSplinePrimitive.h"
#include "support/BoxMesh.h"
#include "support/CVRecorder.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/ShapeScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using Attrs = vrtest::ShapeScene::Attrs;

struct MeshScene : vrtest::ShapeScene {
  explicit MeshScene(const std::vector<vrtest::PolyMesh>& meshes) : ShapeScene(nullptr, {}) {
    palette->setFrame(1.0);
    meshPath = dir.file("mesh.abc");
    if (!meshes.empty()) {
      EXPECT_TRUE(vrtest::writeMeshFile(meshPath, meshes));
    }
  }
  // Appends a module of `type` reading the scene's mesh file, when it has one.
  VrFXModule* add(const char* type, Attrs attrs) {
    attrs.emplace_back("meshFile", meshPath.c_str());
    return ShapeScene::add(type, attrs);
  }
  // The spline at the middle of `face` as the whole stack leaves it.
  std::vector<Vec> build(int face) {
    VrPrimitiveContext& context = spline->context();
    context.setActivePatchFace(patch, face);
    spline->makeGeometry(0.5, 0.5, nullptr);
    return context.cGeom();
  }
  // Splines shaped by two guides, at faces 5 and 10, leaning towards -x and +x.
  void leaningGuides() {
    spline->setAttr("iMethod", "1");
    for (int face : {5, 10}) {
      VrGuide& g = spline->addGuide();
      g.setId(std::to_string(face));
      g.setPatch(patch);
      g.setFaceId(face);
      g.setU(0.5);
      g.setV(0.5);
      const double lean = face == 5 ? -0.8 : 0.8;
      g.setOrigIGeom({Vec(0, 0, 0), Vec(lean, 1, 0), Vec(2 * lean, 2, 0)});
    }
  }
  vrtest::TempDir dir;
  std::string meshPath;
};

// A box whose face x = 1.4 stands 0.1 beside the spline of face 5, from height 0.3 up: CV 1
// (height 2/7) is below it, CVs 2 to 7 inside.
vrtest::PolyMesh besideBox() { return vrtest::boxMesh(Vec(1.4, 0.5, 0.3), Vec(2.5, 2.5, 3.0)); }
bool insideBesideBox(const Vec& p) { return p.x > 1.4 && p.y > 0.5 && p.y < 2.5 && p.z > 0.3 && p.z < 3.0; }

// A slab across the whole patch between heights 1 and 1.5.
vrtest::PolyMesh slab() { return vrtest::boxMesh(Vec(-1, -1, 1.0), Vec(5, 5, 1.5)); }

std::string tag(const char* module) { return std::string("[") + module + ",hair,coll]"; }

}  // namespace

TEST(VrCollisionFXModule, PushesSplinesOutOfABoxOrWarnsWhenTheTriesRunOut) {
  const double d2 = 4.0 / 7.0;                // distance of CV 2 from the root
  const double needed = std::asin(0.1 / d2);  // the smallest stiff turn that clears CV 2
  struct Case {
    const char* resolveType;
    const char* iterations;
    bool converges;
  };
  const Case cases[] = {
      {"1", "50", true}, {"1", "1", false}, {"1", "0", false},  // below 1 counts as 1
      {"0", "50", true}, {"0", "2", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.resolveType) + " " + c.iterations);
    vrtest::CaptureLogger log;
    MeshScene scene({besideBox()});
    scene.add("CollisionFXModule", {{"resolveType", c.resolveType}, {"iterations", c.iterations}});
    scene.spline->initDescription();
    const std::vector<Vec> clear = scene.build(0);  // rooted at (0.5, 0.5): nowhere near the box
    EXPECT_NEAR(clear.back().z, 2.0, 1e-9);
    EXPECT_NEAR(clear.back().x, 0.5, 1e-9);
    const std::vector<Vec> P = scene.build(5);
    ASSERT_EQ(P.size(), 8u);
    vrtest::expectNear(P[0], Vec(1.5, 1.5, 0.0), 1e-9);
    const bool stiff = std::string(c.resolveType) == "1";
    if (!stiff) {
      EXPECT_NEAR(P[1].x, 1.5, 1e-12);  // flexible: CV 1 is never inside and stays
    }
    for (size_t i = 1; i < P.size(); ++i) {
      EXPECT_NEAR((P[i] - P[i - 1]).length(), 2.0 / 7.0, 1e-9) << i;  // turns keep the segments
      EXPECT_NEAR(P[i].y, 1.5, 1e-9) << i;                            // towards -x only
    }
    int inside = 0;
    for (const Vec& p : P) inside += insideBesideBox(p);
    const std::string warning = "Didn't find a single angle to resolve collision. [" +
                                std::to_string(scene.spline->context().id()) + ",hair,Collision]";
    EXPECT_EQ(log.warnings(), c.converges ? std::vector<std::string>{} : std::vector<std::string>{warning});
    if (!c.converges) {
      EXPECT_GT(inside, 0);
      continue;
    }
    EXPECT_EQ(inside, 0);
    if (stiff) {
      const double turn = std::atan2(1.5 - P[7].x, P[7].z);
      EXPECT_GE(turn, needed - 1e-6);
      EXPECT_LE(turn, needed + 0.002 + 1e-6);
    }
  }
}

TEST(VrCollisionFXModule, WireGuidedTypesNeedAServingAnimWiresModuleAndFollowTheWire) {
  struct Case {
    const char* name;
    const char* wires;  // "": none in the stack
    const char* affectCollision;
    std::vector<std::string> errors;
  };
  const std::string dependency = "Dependency check fails. Deactivating the module. " + tag("Collision");
  const std::string above =
      "The collision module is dependent on an AnimWires module above it for wire guided method. Either AnimWires "
      "module is inactive or deactivated from errors, or does not have the \"affectCollision\" option checked. " +
      tag("Collision");
  const Case cases[] = {
      {"no wires",
       "",
       "",
       {"The collision module is dependent on AnimWires module for wire guided method, but no AnimWires modules are "
        "found in the fx chain. " +
            tag("Collision"),
        dependency}},
      {"wires not affecting collision", "AnimWiresFXModule", "false", {above, dependency}},
      {"serving wires", "AnimWiresFXModule", "true", {}},
      {"inactive wires", "AnimWiresFXModule", "inactive", {above, dependency}},
      {"wires below", "AnimWiresFXModule", "below", {above, dependency}},
  };
  for (const char* type : {"2", "3"})
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + " " + type);
      vrtest::CaptureLogger log;
      MeshScene scene({besideBox()});
      const std::string how = c.affectCollision;
      VrFXModule* wires = *c.wires && how != "below" ? scene.add(c.wires, {}) : nullptr;
      if (wires && how == "inactive") wires->setAttr("active", "false", "bool");
      if (wires && how != "inactive") wires->setAttr("affectCollision", c.affectCollision, "bool");
      VrFXModule* collision = scene.add("CollisionFXModule", {{"resolveType", type}});
      if (how == "below") scene.add(c.wires, {});
      scene.spline->initDescription();
      EXPECT_EQ(log.errors(), c.errors);
      EXPECT_EQ(collision->isActive(), c.errors.empty());
      if (!collision->isActive()) continue;

      // Without a wire on the primitive nothing moves; with one leaning far to -x, the spline
      // goes just as far towards it as clears the box.
      VrPrimitiveContext& context = scene.spline->context();
      const std::vector<Vec> before = scene.build(5);
      EXPECT_EQ(log.warnings().size(), 1u);
      std::vector<Vec> wire = before;
      for (size_t i = 1; i < wire.size(); ++i) wire[i] = before[0] + Vec(-std::sin(1.0), 0, std::cos(1.0)) * (2.0 * i / 7.0);
      context.getGeom() = before;
      context.setPipeData(VrCollisionFXModule::wirePipeName(), wire);
      ASSERT_TRUE(collision->computeParallel(context));
      const std::vector<Vec>& after = context.cGeom();
      EXPECT_EQ(after[0], before[0]);
      for (const Vec& p : after) EXPECT_FALSE(insideBesideBox(p));
      EXPECT_GT(after[7].x, wire[7].x + 0.1);  // it stopped well short of the wire
    }
}

// The AnimWires module hands the collision module the CVs of the guide weighing most at the
// location, resampled to the spline's CV count; the spline itself is left to the collision.
TEST(VrAnimWiresFXModule, HandsTheDominantGuideToWireGuidedCollision) {
  struct Case {
    const char* resolveType;
    size_t guideCVs;  // the dominant guide's CV count; 0: no guide reaches the spline
  };
  const Case cases[] = {{"2", 8}, {"3", 8}, {"2", 5}, {"3", 5}, {"2", 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.resolveType) + " " + std::to_string(c.guideCVs));
    vrtest::CaptureLogger log;
    MeshScene scene({besideBox()});
    VrFXModule* wires = scene.add("AnimWiresFXModule", {});
    VrFXModule* collision = scene.add("CollisionFXModule", {{"resolveType", c.resolveType}});
    // Guide 1 leans 1 radian towards -x, out of the box; guide 0 leans into it but weighs less.
    const Vec lean(-std::sin(1.0), 0, std::cos(1.0)), into(std::sin(1.0), 0, std::cos(1.0));
    for (const Vec& dir : {into, lean}) {
      std::vector<Vec>& cvs = scene.spline->addGuide().cGuideGeom();
      for (size_t i = 0; i < c.guideCVs; ++i) cvs.push_back(Vec(3, 3, 0) + dir * (2.0 * i / (c.guideCVs - 1)));
    }
    scene.spline->initDescription();
    ASSERT_TRUE(collision->isActive());
    const std::vector<Vec> before = scene.build(5);  // no guide weights yet: "No wire is found"
    log.clear();
    VrPrimitiveContext& context = scene.spline->context();
    context.setPipeData(VrCollisionFXModule::wirePipeName(), before);  // a stale wire goes
    context.activeGuides = {0, 1};
    context.weight = c.guideCVs ? std::vector<double>{0.4, 0.6} : std::vector<double>{};
    context.getGeom() = before;
    ASSERT_TRUE(wires->computeParallel(context));
    EXPECT_EQ(context.cGeom(), before);
    const std::vector<Vec>* wire = context.getPipeData(VrCollisionFXModule::wirePipeName());
    if (!c.guideCVs) {
      EXPECT_EQ(wire, nullptr);
      continue;
    }
    ASSERT_NE(wire, nullptr);
    ASSERT_EQ(wire->size(), 8u);
    for (size_t i = 0; i < 8; ++i) {  // a straight guide resamples onto itself
      EXPECT_NEAR(((*wire)[i] - Vec(3, 3, 0)).cross(lean).length(), 0.0, 1e-9) << i;
    }
    EXPECT_NEAR(((*wire)[7] - (*wire)[0]).length(), 2.0, 1e-9);
    ASSERT_TRUE(collision->computeParallel(context));
    const std::vector<Vec>& after = context.cGeom();
    EXPECT_EQ(after[0], before[0]);
    for (const Vec& p : after) EXPECT_FALSE(insideBesideBox(p));
    EXPECT_TRUE(log.warnings().empty());
  }
}

TEST(VrAnimWiresFXModule, ClumpGuideSourceNeedsAClumpingModuleInFront) {
  vrtest::CaptureLogger log;
  MeshScene scene({});
  VrFXModule* wires = scene.add("AnimWiresFXModule", {{"wireSource", "1"}});
  scene.spline->initDescription();
  EXPECT_FALSE(wires->isActive());
  EXPECT_EQ(log.errors(), std::vector<std::string>{"Dependency check fails. Deactivating the module. " + tag("AnimWires")});
}

TEST(VrMeshCutFXModule, CutsWhereTheSplineFirstMeetsTheMesh) {
  struct Case {
    const char* cutType;
    const char* offset;
    const char* testsPerPrim;
    double tipHeight;  // negative: culled
  };
  const Case cases[] = {
      {"0", "0.25", "10", 0.75},  // meets the slab at height 1, kept 0.25 short of it
      {"1", "0.0", "3", 1.0},     {"0", "-0.2", "1", 1.2},
      {"2", "0.0", "10", -1.0},  // Cull
      {"0", "1.5", "10", -1.0},  // nothing left
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.cutType) + " " + c.offset + " " + c.testsPerPrim);
    MeshScene scene({slab()});
    scene.add("MeshCutFXModule", {{"cutType", c.cutType}, {"offset", c.offset}, {"testsPerPrim", c.testsPerPrim}});
    scene.spline->initDescription();
    const std::vector<Vec> P = scene.build(5);
    EXPECT_EQ(scene.spline->context().cullPrim(), c.tipHeight < 0.0);
    if (c.tipHeight < 0.0) continue;
    ASSERT_EQ(P.size(), 8u);
    vrtest::expectNear(P[0], Vec(1.5, 1.5, 0.0), 1e-9);
    EXPECT_NEAR(P[7].z, c.tipHeight, 1e-9);
    EXPECT_NEAR(P[7].x, 1.5, 1e-9);
    // Reparam spreads the CVs over the kept part; Keep Param gathers the last ones at the tip.
    const double last = (P[7] - P[6]).length();
    if (std::string(c.cutType) == "1")
      EXPECT_NEAR(last, c.tipHeight / 7.0, 1e-6);
    else
      EXPECT_LT(last, 0.5 * c.tipHeight / 7.0);
  }
  // A spline the mesh does not reach is left alone.
  MeshScene scene({vrtest::boxMesh(Vec(3, 3, 1), Vec(4, 4, 2))});
  scene.add("MeshCutFXModule", {});
  scene.spline->initDescription();
  EXPECT_NEAR(scene.build(5)[7].z, 2.0, 1e-12);
  EXPECT_FALSE(scene.spline->context().cullPrim());
}

TEST(VrMeshCutFXModule, BakedCutsRepeatTheLiveCuts) {
  for (const char* cutType : {"0", "1", "2"}) {
    SCOPED_TRACE(cutType);
    MeshScene scene({vrtest::boxMesh(Vec(-1, -1, 0.8), Vec(2, 5, 1.2))});
    scene.scatter();
    scene.palette->setAttr("vrDataPath", scene.dir.path() + "/", "string");  // where the bake goes
    VrFXModule* cut = scene.add("MeshCutFXModule", {{"cutType", cutType}, {"bakeDir", "bake/"}});
    ASSERT_TRUE(cut->setBake(true));
    vrtest::CVRecorder renderer(scene.description);
    scene.description->setActiveRenderer(&renderer);
    std::vector<vrtest::CVRecorder::CVs> runs;
    for (const char* mode : {"0", "1"}) {
      cut->setAttr("mode", mode, "enum");  // the bake stays on: a baked pass must not write
      renderer.initDescription();
      renderer.renderPatchInParallel("body");
      renderer.finishDescription();
      runs.push_back(std::move(renderer.cvs));
      renderer.cvs.clear();
    }
    cut->setActive(false);
    renderer.initDescription();
    renderer.renderPatchInParallel("body");
    renderer.finishDescription();
    scene.description->setActiveRenderer(nullptr);
    ASSERT_GT(renderer.cvs.size(), 50u);
    EXPECT_NE(runs[0], renderer.cvs);  // the live cut did cut
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_TRUE(std::filesystem::is_regular_file(scene.dir.file("bake/body.vpd")));
  }
}

TEST(VrMeshFXModules, AMissingOrBrokenMeshFileDeactivatesTheModuleAndTheRenderGoesOn) {
  for (const char* type : {"CollisionFXModule", "MeshCutFXModule"})
    for (bool broken : {false, true}) {
      SCOPED_TRACE(std::string(type) + (broken ? " broken" : " missing"));
      vrtest::CaptureLogger log;
      MeshScene scene({});
      if (broken) scene.dir.write("mesh.abc", "not an archive at all");
      scene.scatter();
      VrFXModule* module = scene.add(type, {});
      vrtest::CVRecorder renderer(scene.description);
      scene.description->setActiveRenderer(&renderer);
      renderer.initDescription();
      renderer.renderPatchInParallel("body");
      renderer.finishDescription();
      scene.description->setActiveRenderer(nullptr);
      EXPECT_FALSE(module->isActive());
      EXPECT_TRUE(log.has("Errors in reading geometry from file " + scene.meshPath +
                          ". Deactivating the module. " + tag(module->name().c_str())));
      EXPECT_GT(renderer.cvs.size(), 50u);
    }
}

TEST(VrMeshFXModules, RendersOnOneAndTwoThreadsAreIdentical) {
  for (const char* resolveType : {"0", "1", "2", "3"}) {
    SCOPED_TRACE(resolveType);
    vrtest::CaptureLogger quiet;
    MeshScene scene({vrtest::boxMesh(Vec(1.9, -1, 0.3), Vec(4.5, 5, 3)), vrtest::boxMesh(Vec(-1, -1, 1.6), Vec(1.5, 5, 2))});
    scene.scatter();
    scene.leaningGuides();
    scene.add("AnimWiresFXModule", {});
    scene.add("CollisionFXModule", {{"resolveType", resolveType}});
    scene.add("MeshCutFXModule", {{"cutType", "1"}, {"offset", "0.05"}});
    vrtest::sameThreeWays(scene.description, "body", 16);
    for (const std::string& warning : quiet.warnings())  // every spline had its guide's wire
      EXPECT_EQ(warning.find("No wire is found"), std::string::npos) << warning;
  }
}
