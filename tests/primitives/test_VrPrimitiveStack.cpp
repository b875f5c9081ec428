// The FX module stack of a primitive beyond the pipeline: lookup by type, naming, saving and
// restoring module states, presets; and the primitive's per-primitive packing, wires and guide
// colour cache.

#include "primitives/VrPrimitive.h"

#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrSplinePrimitive.h"
#include "support/CaptureLogger.h"
#include "support/ExpectNear.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;
using vrtest::expectNear;

// A module that stays out of presets.
class PrivateFXModule : public VrFXModule {
 public:
  using VrFXModule::VrFXModule;
  std::string typeName() const override { return "TestPrivateFXModule"; }
  bool includedInPreset() const override { return false; }
};
void* createPrivate(VrDescription* description) {
  return static_cast<VrObject*>(new PrivateFXModule(description));
}
const bool privateRegistered = VrRegisterModule("TestPrivateFXModule", &createPrivate);

class PlainPrimitive : public VrPrimitive {
 public:
  explicit PlainPrimitive(VrDescription* description)
      : VrPrimitive(description, std::make_unique<VrPrimitiveContext>(description)) {}
  std::string typeName() const override { return "TestPlainPrimitive"; }
};

// A description with a bound 4 x 4 patch and a spline primitive.
struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4)) { spline = std::make_unique<VrSplinePrimitive>(description); }

  // Adds a module of `type` named `name`.
  VrFXModule* add(const std::string& type, const std::string& name) {
    VrFXModule* module = spline->addFXModule(type);
    if (module) module->setAttr("name", name);
    return module;
  }
  std::vector<bool> states() const {
    std::vector<bool> out;
    for (const VrFXModule* module : spline->modules()) out.push_back(module->isActive());
    return out;
  }

  std::unique_ptr<VrSplinePrimitive> spline;
};

}  // namespace

// Finding and naming modules

TEST(VrPrimitiveStack, FindsModulesByTypeInStackOrder) {
  Scene scene;
  VrFXModule* a = scene.add("NoiseFXModule", "Noise");
  scene.add("ClumpingFXModule", "Clumping");
  VrFXModule* b = scene.add("NoiseFXModule", "Noise1");
  scene.add("CutFXModule", "Cut");

  std::vector<int> indices = {42};
  EXPECT_EQ(scene.spline->findFXModules("NoiseFXModule", &indices), (std::vector<VrFXModule*>{a, b}));
  EXPECT_EQ(indices, (std::vector<int>{0, 2}));
  EXPECT_TRUE(scene.spline->findFXModules("WindFXModule", &indices).empty());
  EXPECT_TRUE(indices.empty());
  // A module's name is not its type.
  EXPECT_TRUE(scene.spline->findFXModules("Noise").empty());

  // Moving a module changes the indices reported.
  ASSERT_TRUE(scene.spline->moveFXModule("Noise", 3));
  scene.spline->findFXModules("NoiseFXModule", &indices);
  EXPECT_EQ(indices, (std::vector<int>{1, 3}));
}

TEST(VrPrimitiveStack, UniqueNamesTakeTheSmallestFreeNumber) {
  Scene scene;
  EXPECT_EQ(scene.spline->uniqueFXName("Noise"), "Noise");  // an empty stack takes any name
  scene.add("NoiseFXModule", "Noise");
  scene.add("NoiseFXModule", "Noise1");
  VrFXModule* third = scene.add("NoiseFXModule", "Noise3");
  EXPECT_EQ(scene.spline->uniqueFXName("Noise"), "Noise2");
  EXPECT_EQ(scene.spline->uniqueFXName("Cut"), "Cut");
  // A module keeps its own name when it is the one being named.
  EXPECT_EQ(scene.spline->uniqueFXName("Noise3", third), "Noise3");
  EXPECT_EQ(scene.spline->uniqueFXName("Noise3"), "Noise31");
}

// Saving and restoring module states

TEST(VrPrimitiveStack, DeactivatedModulesComeBackAsTheyWere) {
  Scene scene;
  for (const char* name : {"A", "B", "C", "D"}) ASSERT_NE(scene.add("NoiseFXModule", name), nullptr);
  scene.spline->modules()[1]->setActive(false);

  std::vector<bool> previous = {true, true, true, true, true};
  scene.spline->deactivateFXModules(1, previous);
  EXPECT_EQ(previous, (std::vector<bool>{false, true, true}));
  EXPECT_EQ(scene.states(), (std::vector<bool>{true, false, false, false}));

  EXPECT_TRUE(scene.spline->setFXModulesStatus(1, previous));
  EXPECT_EQ(scene.states(), (std::vector<bool>{true, false, true, true}));

  // A status list past the end sets what exists and says so.
  EXPECT_FALSE(scene.spline->setFXModulesStatus(2, {false, false, true}));
  EXPECT_EQ(scene.states(), (std::vector<bool>{true, false, false, false}));

  // From past the end nothing is recorded or changed.
  scene.spline->deactivateFXModules(9, previous);
  EXPECT_TRUE(previous.empty());
  EXPECT_EQ(scene.states(), (std::vector<bool>{true, false, false, false}));
}

TEST(VrPrimitiveStack, BakedGroomManagerPositionIsTheFirstActiveManager) {
  Scene scene;
  EXPECT_EQ(scene.spline->bakedGroomManagerPosition(), -1);
  scene.add("NoiseFXModule", "Noise");
  VrFXModule* first = scene.add("BakedGroomManagerFXModule", "Bake");
  scene.add("CutFXModule", "Cut");
  VrFXModule* second = scene.add("BakedGroomManagerFXModule", "Bake1");
  EXPECT_EQ(scene.spline->bakedGroomManagerPosition(), 1);
  first->setActive(false);
  EXPECT_EQ(scene.spline->bakedGroomManagerPosition(), 3);
  second->setActive(false);
  EXPECT_EQ(scene.spline->bakedGroomManagerPosition(), -1);
}

// Presets

TEST(VrPrimitiveStack, PresetsCarryOnlyTheModulesThatAskForIt) {
  Scene scene;
  VrFXModule* noise = scene.add("NoiseFXModule", "Noise");
  ASSERT_NE(scene.add("TestPrivateFXModule", "Private"), nullptr);
  VrFXModule* cut = scene.add("CutFXModule", "Cut");

  std::ostringstream none;
  EXPECT_TRUE(scene.spline->exportFXModulesAsPreset(none, false));
  EXPECT_EQ(none.str(), "");

  std::ostringstream out, expected;
  ASSERT_TRUE(scene.spline->exportFXModulesAsPreset(out, true));
  noise->exportObjAsPreset(expected);
  cut->exportObjAsPreset(expected);
  EXPECT_EQ(out.str(), expected.str());
  EXPECT_EQ(out.str().rfind("\nNoiseFXModule\n", 0), 0u);  // the first block

  std::ostringstream broken;
  broken.setstate(std::ios::badbit);
  EXPECT_FALSE(scene.spline->exportFXModulesAsPreset(broken, true));
}

// CV attributes that move with the CVs

TEST(VrPrimitiveStack, AnimatableAttributesAreThePointKind) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  s.context().getGeom().assign(3, Vec());
  s.addCVAttr("Pref", "point");
  s.addCVAttr("Cs", "color");
  s.addCVAttr("rest", "point");
  s.addCVAttr("w", "float");
  std::vector<std::string> names = s.animatableCVAttrs();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Pref", "rest"}));

  std::vector<std::vector<Vec>*> values = s.animatableCVAttrs(s.context());
  ASSERT_EQ(values.size(), 2u);
  for (std::vector<Vec>* v : values) {
    EXPECT_TRUE(v == s.context().cvAttr("Pref") || v == s.context().cvAttr("rest"));
    EXPECT_EQ(v->size(), 3u);
  }
  // A worker's context holds only what was made in it.
  std::unique_ptr<VrPrimitiveContext> worker = s.createContext();
  EXPECT_TRUE(s.animatableCVAttrs(*worker).empty());
  s.addCVAttr("Pref", "point", worker.get());
  ASSERT_EQ(s.animatableCVAttrs(*worker).size(), 1u);
  EXPECT_EQ(s.animatableCVAttrs(*worker)[0], worker->cvAttr("Pref"));
}

// Per-primitive values in packed form

TEST(VrPrimitiveStack, BasePackingIsWidthThenDepth) {
  Scene scene;
  PlainPrimitive plain(scene.description);
  EXPECT_EQ(plain.packedAttrCount(), 2u);
  VrPrimitiveContext& c = plain.context();
  c.overrideCWidth(0.25);
  c.overrideCDepth(3.0);
  std::vector<float> floats = {9.0f};
  plain.packAttrs(c, floats);
  EXPECT_EQ(floats, (std::vector<float>{9.0f, 0.25f, 3.0f}));

  VrPrimitiveContext back(scene.description);
  size_t offset = 1;
  ASSERT_TRUE(plain.unpackAttrs(back, floats, offset));
  EXPECT_EQ(offset, 3u);
  EXPECT_EQ(back.cWidth(), 0.25);
  EXPECT_EQ(back.cDepth(), 3.0);

  // One float short: nothing is read.
  vrtest::CaptureLogger log;
  VrPrimitiveContext untouched(scene.description);
  offset = 2;
  EXPECT_FALSE(plain.unpackAttrs(untouched, floats, offset));
  EXPECT_EQ(offset, 2u);
  EXPECT_EQ(untouched.cWidth(), 1.0);
  ASSERT_EQ(log.warnings().size(), 1u);
  EXPECT_EQ(log.warnings()[0],
            "Packed primitive attributes of TestPlainPrimitive are cut short; not unpacked.");
}

TEST(VrPrimitiveStack, SplinePackingAppendsTaperAndWidthVector) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  VrSplinePrimitiveContext& c = s.splineContext();
  c.overrideCWidth(0.5);
  c.overrideCDepth(2.0);
  c.taper = 0.75f;
  c.taperStart = 0.25f;
  c.setWidthVec(Vec(0, 1, 0));
  std::vector<float> floats;
  s.packAttrs(c, floats);
  EXPECT_EQ(floats, (std::vector<float>{0.5f, 2.0f, 0.75f, 0.25f, 0.0f, 1.0f, 0.0f}));
  EXPECT_EQ(floats.size(), s.packedAttrCount());

  // Two primitives back to back read back in turn.
  c.setWidthVec(Vec(1, 0, 0));
  c.taper = -0.5f;
  s.packAttrs(c, floats);
  std::unique_ptr<VrPrimitiveContext> made = s.createContext();
  auto& back = static_cast<VrSplinePrimitiveContext&>(*made);
  size_t offset = 0;
  ASSERT_TRUE(s.unpackAttrs(back, floats, offset));
  EXPECT_EQ(back.taper, 0.75f);
  EXPECT_EQ(back.taperStart, 0.25f);
  expectNear(back.widthVec(), Vec(0, 1, 0), 0.0);
  ASSERT_TRUE(s.unpackAttrs(back, floats, offset));
  EXPECT_EQ(offset, 14u);
  EXPECT_EQ(back.taper, -0.5f);
  expectNear(back.widthVec(), Vec(1, 0, 0), 0.0);
  EXPECT_EQ(back.cWidth(), 0.5);

  // A plain context takes the shared values and steps over the spline's.
  VrPrimitiveContext plain(scene.description);
  offset = 7;
  ASSERT_TRUE(s.unpackAttrs(plain, floats, offset));
  EXPECT_EQ(offset, 14u);
  EXPECT_EQ(plain.cDepth(), 2.0);
  vrtest::CaptureLogger log;
  offset = 8;
  EXPECT_FALSE(s.unpackAttrs(back, floats, offset));
  EXPECT_EQ(log.warnings().size(), 1u);
}

// Wires

TEST(VrPrimitiveStack, WireListFollowsTheExportedGuides) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  std::string names = "untouched";
  EXPECT_FALSE(s.wireNames(names));
  EXPECT_EQ(names, "untouched");
  EXPECT_TRUE(s.wireNameList().empty());

  for (const char* id : {"3", "7", "9"}) s.addGuide().setId(id);
  s.guide(1u).enableInExporting(false);
  s.setWireNames();
  ASSERT_TRUE(s.wireNames(names));
  EXPECT_EQ(names, "3:9");
  EXPECT_EQ(s.wireNameList(), (std::vector<std::string>{"3", "9"}));
  std::string stored;
  ASSERT_TRUE(s.getAttr("_wireNames", stored));
  EXPECT_EQ(stored, "3:9");

  s.setWireNames({"left", "right"});
  EXPECT_EQ(s.wireNameList(), (std::vector<std::string>{"left", "right"}));
  s.setWireNames(std::vector<std::string>());
  EXPECT_FALSE(s.wireNames(names));
}

// Guide colours

TEST(VrPrimitiveStack, ColourCacheKeepsTheGuideColours) {
  Scene scene;
  VrSplinePrimitive& s = *scene.spline;
  const double roots[2][2] = {{0.25, 0.5}, {0.75, 0.125}};
  for (int i = 0; i < 2; ++i) {
    VrGuide& g = s.addGuide();
    g.setId(std::to_string(i + 1));
    g.setPatch(scene.patch);
    g.setFaceId(5);
    g.setU(roots[i][0]);
    g.setV(roots[i][1]);
    g.setOrigIGeom({Vec(0, 0, 0), Vec(0, 1, 0), Vec(0, 2, 0)});
  }
  s.setGuideColorExpression("[u, v, 0.5]");
  VrPrimitiveContext& c = s.context();
  c.activeGuides = {0, 1};
  c.weight = {1.0, 3.0};
  c.weightN = 0.25;
  // (1 · (0.25, 0.5, 0.5) + 3 · (0.75, 0.125, 0.5)) / 4
  const Vec blended(0.625, 0.21875, 0.5);
  expectNear(s.evalInterpGuideColor(c), blended, 1e-12);

  s.setColorCache(true);
  EXPECT_TRUE(s.colorCacheOn());
  s.setGuideColorExpression("[1, 0, 0]");
  expectNear(s.evalInterpGuideColor(c), blended, 1e-12);  // the kept colours
  s.setColorCache(false);
  expectNear(s.evalInterpGuideColor(c), Vec(1, 0, 0), 1e-12);

  // A pass with CV interpolation keeps the colours for its duration.
  s.setAttr("iMethod", "1");
  s.initDescription();
  EXPECT_TRUE(s.colorCacheOn());
  s.finishDescription();
  EXPECT_FALSE(s.colorCacheOn());
  s.setAttr("iMethod", "0");
  s.initDescription();
  EXPECT_FALSE(s.colorCacheOn());
  s.finishDescription();
}
