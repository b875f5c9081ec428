// Registers every built-in module name at library load. Modules whose classes this build does
// not yet provide are registered as data-only objects of their family, which keep their
// attributes; the patch kinds are real.

#include "base/VrDataObject.h"
#include "base/VrModules.h"
#include "fxmodules/VrAnimWiresFXModule.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "fxmodules/VrCoilFXModule.h"
#include "fxmodules/VrCollisionFXModule.h"
#include "fxmodules/VrCutFXModule.h"
#include "fxmodules/VrFXModule.h"
#include "fxmodules/VrMeshCutFXModule.h"
#include "fxmodules/VrNoiseFXModule.h"
#include "fxmodules/VrWindFXModule.h"
#include "generators/VrFileGenerator.h"
#include "generators/VrGuideGenerator.h"
#include "generators/VrPointGenerator.h"
#include "generators/VrRandomGenerator.h"
#include "generators/VrUniformGenerator.h"
#include "geometry/VrNurbsPatch.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrArchivePrimitive.h"
#include "primitives/VrCardPrimitive.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrSpherePrimitive.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrFileRenderer.h"
#include "renderers/VrGLRenderer.h"
#include "renderers/VrGeometryRenderer.h"
#include "renderers/VrGuideRenderer.h"
#include "renderers/VrNullRenderer.h"
#include "renderers/VrOrmRenderer.h"
#include "renderers/VrParticleRenderer.h"
#include "renderers/VrPointRenderer.h"
#include "renderers/VrPromoteRenderer.h"
#include "renderers/renderapi/VornRenderAPIRenderer.h"

#include <cstddef>
#include <utility>

namespace {

// A data-only module of a family: it keeps attributes and changes nothing.
template <class Base>
struct DataOf {
  using type = VrDataModule<Base>;
};
// A data-only FX module leaves every primitive as it is, from any number of workers.
class VrDataFXModule : public VrDataModule<VrFXModule> {
 public:
  using VrDataModule<VrFXModule>::VrDataModule;
  bool isThreadSafe() const override { return true; }
};
template <>
struct DataOf<VrFXModule> {
  using type = VrDataFXModule;
};

template <class Base, const char* const* Names>
struct Family {
  template <size_t I>
  static void* create(VrDescription* description) {
    return new typename DataOf<Base>::type(Names[I], description);
  }
  template <size_t... I>
  static bool registerAll(std::index_sequence<I...>) {
    bool all = true;
    ((all = VrRegisterModule(Names[I], &create<I>) && all), ...);
    return all;
  }
};

constexpr const char* renderers[] = {"SculptRenderer"};
constexpr const char* fxModules[] = {
    "BakedGroomManagerFXModule", "BlockAnimFXModule",
    "ControlWiresFXModule", "DebugFXModule",
    "ParticleFXModule", "PlaneAnimFXModule",
    "PreserveClumpsFXModule", "SnapshotFXModule", "ApplyNetForceFXModule",
    "DirectionalForceFXModule", "ForceFXModule", "PlaneForceFXModule", "PolylineForceFXModule",
    "SphereForceFXModule"};

template <class PatchT>
void* createPatch(VrDescription* description) {
  return new PatchT(description);
}

template <class ObjectT>
void* createObject(VrDescription* description) {
  return static_cast<VrObject*>(new ObjectT(description));
}

template <class Base, const char* const* Names, size_t N>
bool registerFamily(const char* const (&)[N]) {
  return Family<Base, Names>::registerAll(std::make_index_sequence<N>());
}

const bool registered = VrRegisterModule("RandomGenerator", &createObject<VrRandomGenerator>) &&
                        VrRegisterModule("UniformGenerator", &createObject<VrUniformGenerator>) &&
                        VrRegisterModule("GuideGenerator", &createObject<VrGuideGenerator>) &&
                        VrRegisterModule("PointGenerator", &createObject<VrPointGenerator>) &&
                        VrRegisterModule("FileGenerator", &createObject<VrFileGenerator>) &&
                        VrRegisterModule("NullRenderer", &createObject<VrNullRenderer>) &&
                        VrRegisterModule("GuideRenderer", &createObject<VrGuideRenderer>) &&
                        VrRegisterModule("FileRenderer", &createObject<VrFileRenderer>) &&
                        VrRegisterModule("GLRenderer", &createObject<VrGLRenderer>) &&
                        VrRegisterModule("GeometryRenderer", &createObject<VrGeometryRenderer>) &&
                        VrRegisterModule("PointRenderer", &createObject<VrPointRenderer>) &&
                        VrRegisterModule("OrmRenderer", &createObject<VrOrmRenderer>) &&
                        VrRegisterModule("ParticleRenderer", &createObject<VrParticleRenderer>) &&
                        VrRegisterModule("PromoteRenderer", &createObject<VrPromoteRenderer>) &&
                        VrRegisterModule("RendermanRenderer", &createObject<VornRenderAPI::Renderer2>) &&
                        VrRegisterModule("SplinePrimitive", &createObject<VrSplinePrimitive>) &&
                        VrRegisterModule("CardPrimitive", &createObject<VrCardPrimitive>) &&
                        VrRegisterModule("SpherePrimitive", &createObject<VrSpherePrimitive>) &&
                        VrRegisterModule("ArchivePrimitive", &createObject<VrArchivePrimitive>) &&
                        VrRegisterModule("ClumpingFXModule", &createObject<VrClumpingFXModule>) &&
                        VrRegisterModule("NoiseFXModule", &createObject<VrNoiseFXModule>) &&
                        VrRegisterModule("CutFXModule", &createObject<VrCutFXModule>) &&
                        VrRegisterModule("CoilFXModule", &createObject<VrCoilFXModule>) &&
                        VrRegisterModule("WindFXModule", &createObject<VrWindFXModule>) &&
                        VrRegisterModule("CollisionFXModule", &createObject<VrCollisionFXModule>) &&
                        VrRegisterModule("MeshCutFXModule", &createObject<VrMeshCutFXModule>) &&
                        VrRegisterModule("AnimWiresFXModule", &createObject<VrAnimWiresFXModule>) &&
                        registerFamily<VrObject, renderers>(renderers) &&
                        VrRegisterModule("NurbsPatch", &createPatch<VrNurbsPatch>) &&
                        VrRegisterModule("SubdPatch", &createPatch<VrSubdPatch>) &&
                        registerFamily<VrFXModule, fxModules>(fxModules);

}  // namespace
