#include "base/VrModules.h"

#include "base/VrObject.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {
const std::vector<std::string> builtinNames = {
    "RandomGenerator", "GuideGenerator", "UniformGenerator", "PointGenerator", "FileGenerator",
    "CardPrimitive", "SpherePrimitive", "ArchivePrimitive", "SplinePrimitive",
    "GLRenderer", "GeometryRenderer", "GuideRenderer", "FileRenderer", "PointRenderer",
    "NullRenderer", "OrmRenderer", "ParticleRenderer", "PromoteRenderer", "RendermanRenderer",
    "SculptRenderer", "NurbsPatch", "SubdPatch",
    "AnimWiresFXModule", "BakedGroomManagerFXModule", "BlockAnimFXModule", "ClumpingFXModule",
    "CoilFXModule", "CollisionFXModule", "ControlWiresFXModule", "CutFXModule", "DebugFXModule",
    "MeshCutFXModule", "NoiseFXModule", "ParticleFXModule", "PlaneAnimFXModule",
    "PreserveClumpsFXModule", "SnapshotFXModule", "WindFXModule", "ApplyNetForceFXModule",
    "DirectionalForceFXModule", "ForceFXModule", "PlaneForceFXModule", "PolylineForceFXModule",
    "SphereForceFXModule"};

void* createMarker(VrDescription*) { return nullptr; }
}  // namespace

TEST(VrModules, EveryBuiltinNameCreatesAnObjectOfThatWord) {
  for (const std::string& name : builtinNames) {
    void* made = VrCreateObject(name, nullptr);
    ASSERT_NE(made, nullptr) << name;
    if (name.find("Patch") != std::string::npos) {  // patches are not document objects
      std::unique_ptr<VrPatch> patch(static_cast<VrPatch*>(made));
      EXPECT_EQ(patch->typeName(), name);
      continue;
    }
    std::unique_ptr<VrObject> object(static_cast<VrObject*>(made));
    EXPECT_EQ(object->typeName(), name);
    const bool isPrimitive = dynamic_cast<VrPrimitive*>(object.get()) != nullptr;
    const bool isModule = dynamic_cast<VrFXModule*>(object.get()) != nullptr;
    EXPECT_EQ(isPrimitive, name.find("Primitive") != std::string::npos) << name;
    EXPECT_EQ(isModule, name.find("FXModule") != std::string::npos) << name;
  }
  std::vector<std::string> listed;
  VrGetRegisteredModules(listed);
  for (const std::string& name : builtinNames) {
    const bool isListed = std::find(listed.begin(), listed.end(), name) != listed.end();
    EXPECT_EQ(isListed, name != "SculptRenderer") << name;
  }
}

TEST(VrModules, UnknownAndDoubleRegistration) {
  vrtest::CaptureLogger log;
  EXPECT_EQ(VrCreateObject("NoSuchModule", nullptr), nullptr);
  EXPECT_EQ(log.errors(), std::vector<std::string>{
                              "Trying to use the NoSuchModule module but it is not registered."});
  EXPECT_FALSE(VrRegisterModule("Anything", nullptr));
  EXPECT_FALSE(VrRegisterModule("RandomGenerator", &createMarker));  // first creator stays
  std::unique_ptr<VrObject> object(static_cast<VrObject*>(VrCreateObject("RandomGenerator", nullptr)));
  ASSERT_NE(object, nullptr);

  VrRegisterModule("SculptPrimitive", &createMarker);  // may already be there on a repeated run
  std::vector<std::string> listed;
  VrGetRegisteredModules(listed);
  EXPECT_EQ(std::count(listed.begin(), listed.end(), "SculptPrimitive"), 0);
}
