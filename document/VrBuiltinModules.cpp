// Registers every built-in module name at library load. Modules whose classes this build does
// not yet provide are registered as data-only objects that keep their attributes.

#include "document/VrDataObject.h"
#include "document/VrModules.h"

#include <cstddef>
#include <utility>

namespace {

constexpr const char* dataOnlyModules[] = {
    // generators
    "RandomGenerator", "GuideGenerator", "UniformGenerator", "PointGenerator", "FileGenerator",
    // primitives
    "CardPrimitive", "SpherePrimitive", "ArchivePrimitive", "SplinePrimitive",
    // renderers
    "GLRenderer", "GeometryRenderer", "GuideRenderer", "FileRenderer", "PointRenderer",
    "NullRenderer", "OrmRenderer", "ParticleRenderer", "PromoteRenderer", "RendermanRenderer",
    "SculptRenderer",
    // patches
    "NurbsPatch", "SubdPatch",
    // FX modules
    "AnimWiresFXModule", "BakedGroomManagerFXModule", "BlockAnimFXModule", "ClumpingFXModule",
    "CoilFXModule", "CollisionFXModule", "ControlWiresFXModule", "CutFXModule", "DebugFXModule",
    "MeshCutFXModule", "NoiseFXModule", "ParticleFXModule", "PlaneAnimFXModule",
    "PreserveClumpsFXModule", "SnapshotFXModule", "WindFXModule", "ApplyNetForceFXModule",
    "DirectionalForceFXModule", "ForceFXModule", "PlaneForceFXModule", "PolylineForceFXModule",
    "SphereForceFXModule"};

template <size_t I>
void* createDataObject(VrDescription* description) {
  return new VrDataObject(dataOnlyModules[I], description);
}

template <size_t... I>
bool registerAll(std::index_sequence<I...>) {
  bool all = true;
  ((all = VrRegisterModule(dataOnlyModules[I], &createDataObject<I>) && all), ...);
  return all;
}

const bool registered =
    registerAll(std::make_index_sequence<sizeof(dataOnlyModules) / sizeof(dataOnlyModules[0])>());

}  // namespace
