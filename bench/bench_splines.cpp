// Hair splines built from attributes, with 5 and 20 CVs after the rebuild.
//
// BM_SplineRender: the whole render of a 10,000-face mesh through the null renderer, with the
// random generator at about 100,000 locations, on 1 and 2 worker threads
// (`renderPatchInParallel`). "splines/s" counts the primitives the renderer received and
// "CVs/s" their CVs; "allocs/spline" is every heap allocation of the render divided by the
// splines.
//
// BM_SplineMake: `makeGeometryInParallel` alone, location after location on one worker
// context of one face, with constant attributes; "allocs/spline" is the primitive's own share in
// steady state.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrNullRenderer.h"

#include "BenchAllocations.h"
#include "BenchMeshes.h"
#include "BenchParallelRender.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace {

struct SplineScene {
  explicit SplineScene(int cvs) : surface(vrbench::warpedGrid(100)), palette(new VrPalette) {
    description = new VrDescription;
    palette->addDescription(description);
    description->setAttr("name", "fur");
    description->setActive("SplinePrimitive");
    description->setActive("RandomGenerator");
    description->activeGenerator()->setAttr("density", "10");
    description->activeGenerator()->setAttr("mask", "0.9");
    spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
    spline->setAttr("fxCVCount", std::to_string(cvs));
    spline->setAttr("length", "$a=1.5;#0.05,5.0\\n$a");
    spline->setAttr("offU", "0.3");
    spline->setAttr("bendV[0]", "0.4");
    patch = new VrSubdPatch(description);
    patch->setName("skin");
    description->addPatch(patch);
    patch->bindGeometry(nullptr, surface.get(), false);
  }

  std::unique_ptr<SgSubdSurface> surface;
  std::unique_ptr<VrPalette> palette;
  VrDescription* description = nullptr;
  VrSplinePrimitive* spline = nullptr;
  VrSubdPatch* patch = nullptr;
};

void BM_SplineRender(benchmark::State& state) {
  const int cvs = static_cast<int>(state.range(0));
  const int threads = static_cast<int>(state.range(1));
  SplineScene scene(cvs);
  VrNullRenderer renderer(scene.description);
  scene.description->setActiveRenderer(&renderer);

  const double splines = vrbench::renderSkinInParallel(state, renderer, threads);
  scene.description->setActiveRenderer(nullptr);

  state.counters["CVs/s"] = benchmark::Counter(splines * cvs, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SplineRender)
    ->ArgsProduct({{5, 20}, {1, 2}})
    ->ArgNames({"cvs", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

void BM_SplineMake(benchmark::State& state) {
  const int cvs = static_cast<int>(state.range(0));
  SplineScene scene(cvs);
  VrTaskManager::setSeExprMultithreading(true);
  VrExpression::initTLS();
  std::unique_ptr<VrPrimitiveContext> context = scene.spline->createContext();
  context->setActivePatchFace(scene.patch, 4321);
  constexpr int side = 32;
  // One pass to reach steady state: parses, capacities.
  for (int i = 0; i < side * side; ++i)
    scene.spline->makeGeometryInParallel(*context, (i % side + 0.5) / side, (i / side + 0.5) / side, nullptr);
  double splines = 0.0;
  vrbench::allocations = 0;
  for (auto _ : state) {
    vrbench::countAllocations = true;
    for (int i = 0; i < side * side; ++i) {
      scene.spline->makeGeometryInParallel(*context, (i % side + 0.5) / side, (i / side + 0.5) / side, nullptr);
      benchmark::DoNotOptimize(context->cGeom().data());
    }
    vrbench::countAllocations = false;
    splines += side * side;
  }
  VrExpression::clearTLS();
  VrTaskManager::setSeExprMultithreading(false);
  state.counters["splines/s"] = benchmark::Counter(splines, benchmark::Counter::kIsRate);
  state.counters["CVs/s"] = benchmark::Counter(splines * cvs, benchmark::Counter::kIsRate);
  state.counters["allocs/spline"] = benchmark::Counter(static_cast<double>(vrbench::allocations) / splines);
}
BENCHMARK(BM_SplineMake)->Arg(5)->Arg(20)->ArgName("cvs")->Unit(benchmark::kMicrosecond);

}  // namespace
