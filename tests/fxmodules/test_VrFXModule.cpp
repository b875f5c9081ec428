// The FX module stack: order, stop module, culling, masks, the CV-count guard, deactivation
// messages and ramp attributes.

#include "fxmodules/VrFXModule.h"

#include "base/VrDataObject.h"
#include "base/VrModules.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "primitives/VrSplinePrimitive.h"
#include "support/CaptureLogger.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Vec = SgVec3T<double>;

enum class Act { Shift, Cull, Grow };

// Moves every CV but the root one unit along x, culls, or adds a CV, as told; honours its mask.
class ShapeFXModule : public VrFXModule {
 public:
  using VrFXModule::VrFXModule;
  std::string typeName() const override { return "TestShapeFXModule"; }
  bool acceptsPrimitive(const std::string& type) const override { return type == "SplinePrimitive"; }
  bool isThreadSafe() const override { return true; }
  bool computeParallel(VrPrimitiveContext& context) override {
    if (maskValue(context) < MaskEpsilon) return true;
    ++calls;
    std::vector<Vec>& cvs = context.getGeom();
    if (act == Act::Shift)
      for (size_t i = 1; i < cvs.size(); ++i) cvs[i][0] += 1.0;
    if (act == Act::Cull) context.setCullPrim(true);
    if (act == Act::Grow) cvs.push_back(cvs.back());
    return true;
  }
  Act act = Act::Shift;
  int calls = 0;
};
void* createShape(VrDescription* description) { return static_cast<VrObject*>(new ShapeFXModule(description)); }
const bool shapeRegistered = VrRegisterModule("TestShapeFXModule", &createShape);

struct Scene : vrtest::PatchScene {
  Scene() : PatchScene(vrtest::gridSurface(4), nullptr, "hair") {
    palette->setAttr("name", "coll");
    description->setActive("SplinePrimitive");
    spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
    spline->context().setActivePatchFace(patch, 0);
  }
  ShapeFXModule* add(Act act) {
    auto* module = static_cast<ShapeFXModule*>(spline->addFXModule("TestShapeFXModule"));
    module->act = act;
    return module;
  }
  VrSplinePrimitive* spline = nullptr;
};

}  // namespace

TEST(VrFXModuleStack, AppliesInOrderAndStopsWhereTold) {
  struct Case {
    const char* name;
    std::vector<Act> acts;
    int stopAt;                 // module index, -1: none
    int masked;                 // module whose mask is below the threshold, -1: none
    int inactive;               // module switched off beforehand, -1: none
    double tipShift;            // tip x moved by
    std::vector<int> calls;     // bodies run per module
    bool culled, answer, allActive;
    unsigned errors;
  };
  const Case cases[] = {
      {"every module", {Act::Shift, Act::Shift}, -1, -1, -1, 2.0, {1, 1}, false, true, true, 0},
      {"stop at the first module", {Act::Shift, Act::Shift}, 0, -1, -1, 0.0, {0, 0}, false, true, true, 0},
      {"stop at the second module", {Act::Shift, Act::Shift}, 1, -1, -1, 1.0, {1, 0}, false, true, true, 0},
      {"a cull ends the stack", {Act::Cull, Act::Shift}, -1, -1, -1, 0.0, {1, 0}, true, true, true, 0},
      {"mask below 0.0001", {Act::Shift, Act::Shift}, -1, 0, -1, 1.0, {0, 1}, false, true, true, 0},
      {"inactive module", {Act::Shift, Act::Shift}, -1, -1, 1, 1.0, {1, 0}, false, true, false, 0},
      {"a CV-count change", {Act::Shift, Act::Grow, Act::Shift}, -1, -1, -1, 1.0, {1, 1, 0}, false, false, false, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    vrtest::CaptureLogger log;
    Scene scene;
    std::vector<ShapeFXModule*> modules;
    for (Act act : c.acts) modules.push_back(scene.add(act));
    if (c.masked >= 0) modules[c.masked]->setAttr("mask", "0.00009", "expr");
    if (c.inactive >= 0) modules[c.inactive]->setAttr("active", "false", "bool");
    VrPrimitiveContext& context = scene.spline->context();
    scene.spline->makeGeometry(0.5, 0.5, modules[0]);  // the primitive as built, before any module
    const std::vector<Vec> built = context.cGeom();
    ASSERT_GT(built.size(), 1u);

    const bool answer = scene.spline->applyFXModules(c.stopAt >= 0 ? modules[c.stopAt] : nullptr);
    EXPECT_EQ(answer, c.answer);
    EXPECT_EQ(context.cullPrim(), c.culled);
    ASSERT_EQ(context.cGeom().size(), built.size());  // a changed count is restored
    EXPECT_DOUBLE_EQ(context.cGeom().back()[0] - built.back()[0], c.tipShift);
    EXPECT_EQ(context.cGeom()[0][0], built[0][0]);
    for (size_t i = 0; i < modules.size(); ++i) {
      EXPECT_EQ(modules[i]->calls, c.calls[i]) << "module " << i;
      if (c.allActive) {
        EXPECT_TRUE(modules[i]->isActive()) << "module " << i;
      }
    }
    ASSERT_EQ(log.errors().size(), c.errors);
    if (c.errors) {
      EXPECT_EQ(log.errors()[0], modules[1]->name() + " from description hair has illegally changed the number "
                                 "of CVs. All FX modules will be deactivated.");
      for (ShapeFXModule* m : modules) EXPECT_FALSE(m->isActive());
      // The stack stays off for the rest of the pass, and the primitive is still made.
      scene.spline->makeGeometry(0.5, 0.5, nullptr);
      EXPECT_FALSE(context.cullPrim());
      EXPECT_EQ(context.cGeom(), built);
    }
  }
}

TEST(VrFXModuleStack, DeactivationAndRampMessagesNameTheModule) {
  vrtest::CaptureLogger log;
  Scene scene;
  ShapeFXModule* module = scene.add(Act::Shift);
  module->setAttr("name", "Shape1");
  module->deactivate("No wires found. ");
  EXPECT_FALSE(module->isActive());
  module->setActive(true);
  module->deactivate("Dependency check fails. ", true);
  EXPECT_FALSE(module->isActive());
  VrFXRamp ramp("rampUI(0,0.5,3)");
  EXPECT_FALSE(module->rampAttr("curlScale", "rampUI(0,0.5", ramp));
  EXPECT_EQ(log.errors(), (std::vector<std::string>{
                              "No wires found. Deactivating the module. [Shape1,hair,coll]",
                              "Syntax Error in parsing curlScale: rampUI(0,0.5 [Shape1,hair,coll]"}));
  EXPECT_EQ(log.warnings(),
            std::vector<std::string>{"Dependency check fails. Deactivating the module. [Shape1,hair,coll]"});

  // One value per CV, CV i at i/(n-1).
  ASSERT_TRUE(ramp.set("rampUI(0,0,1:1,1,1)"));
  std::vector<double> values;
  ramp.sample(5, values);
  EXPECT_EQ(values, (std::vector<double>{0.0, 0.25, 0.5, 0.75, 1.0}));
}
