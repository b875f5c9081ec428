// Guide interpolation: building reach maps and candidate lists for 10,000 guides on a
// 10,000-face mesh, and the weights of one location with 4 to 8 guides in reach.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"

#include "BenchMeshes.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

class BenchPrimitive : public VrPrimitive {
 public:
  using VrPrimitive::VrPrimitive;
  std::string typeName() const override { return "SplinePrimitive"; }
};

struct Groom {
  Groom(int n, int guides) : palette(new VrPalette), description(new VrDescription) {
    palette->addDescription(description);
    surface = vrbench::warpedGrid(n);
    patch = new VrSubdPatch(description);
    patch->setName("body");
    description->addPatch(patch);
    patch->bindGeometry(nullptr, surface.get(), false);
    primitive = std::make_unique<BenchPrimitive>(description);
    primitive->setIMethod(1);  // shapes from guides
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_int_distribution<int> anyFace(0, n * n - 1);
    for (int i = 0; i < guides; ++i) {
      VrGuide& g = primitive->addGuide();
      g.setId(std::to_string(i + 1));
      g.setPatch(patch);
      g.setFaceId(anyFace(random));
      g.setU(unit(random));
      g.setV(unit(random));
      g.setOrigIGeom({SgVec3T<double>(0, 0, 0), SgVec3T<double>(0, 1, 0)});
    }
  }
  ~Groom() { patch->unbindGeometry(); }
  std::unique_ptr<VrPalette> palette;
  VrDescription* description;
  std::unique_ptr<SgSubdSurface> surface;
  VrSubdPatch* patch;
  std::unique_ptr<BenchPrimitive> primitive;
};

// Argument 0: serial; 1: on the task manager's threads (subdivision calls still serialised);
// 2: threads with patch multithreading on.
void BM_GuideSetupInterpolation(benchmark::State& state) {
  const bool multi = VrTaskManager::multithreadingEnabled();
  const bool patchMulti = VrTaskManager::patchMultithreading();
  VrTaskManager::setMultithreading(state.range(0) != 0);
  VrTaskManager::setPatchMultithreading(state.range(0) == 2);
  Groom groom(100, 10000);
  for (auto _ : state) {
    groom.primitive->setupInterpolation(true);
    benchmark::DoNotOptimize(groom.primitive->candidates().size());
  }
  size_t entries = 0;
  for (const auto& face : groom.primitive->candidates().at("body")) entries += face.second.size();
  state.counters["candidatesPerFace"] = static_cast<double>(entries) / 10000.0;
  VrTaskManager::setMultithreading(multi);
  VrTaskManager::setPatchMultithreading(patchMulti);
}
BENCHMARK(BM_GuideSetupInterpolation)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

void BM_GuideWeights(benchmark::State& state) {
  Groom groom(100, 10000);
  groom.primitive->setupInterpolation(true);
  VrPrimitiveContext context(groom.description);
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::uniform_int_distribution<int> anyFace(0, 9999);
  // Locations whose active guide count is in [4, 8].
  struct Location {
    int face;
    double u, v;
  };
  std::vector<Location> locations;
  while (locations.size() < 1000) {
    const Location l{anyFace(random), unit(random), unit(random)};
    context.setActivePatchFace(groom.patch, l.face);
    context.setCullPrim(false);
    groom.primitive->findGuidesAndWeightsInParallel(context, l.u, l.v);
    if (context.activeGuides.size() >= 4 && context.activeGuides.size() <= 8) locations.push_back(l);
  }
  size_t i = 0, active = 0;
  for (auto _ : state) {
    const Location& l = locations[i++ % locations.size()];
    context.setActivePatchFace(groom.patch, l.face);
    context.setCullPrim(false);
    groom.primitive->findGuidesAndWeightsInParallel(context, l.u, l.v);
    active += context.activeGuides.size();
  }
  state.counters["activeGuides"] = static_cast<double>(active) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_GuideWeights);

}  // namespace
