// The render walk over a 10,000-face mesh through the null renderer, with the random generator at
// about 1,000,000 locations: on the serial path (`render` face by face) and on 1 and 2 worker
// threads (`renderPatchInParallel`). What is measured is the whole way of a face: the sample
// and camera checks, the begin and end of the face, generation, each primitive's surface frame,
// and the renderer's counting and bounding. "prims/s" counts the primitives the renderer
// received.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "generators/VrRandomGenerator.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrNullRenderer.h"

#include "BenchMeshes.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace {

void BM_NullRender(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));  // 0: the serial path
  auto surface = vrbench::warpedGrid(100);
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  description->setAttr("name", "fur");
  description->setActive("SplinePrimitive");
  description->setActive("RandomGenerator");
  description->activeGenerator()->setAttr("density", "100");
  description->activeGenerator()->setAttr("mask", "0.9");
  auto* patch = new VrSubdPatch(description);
  patch->setName("skin");
  description->addPatch(patch);
  patch->bindGeometry(nullptr, surface.get(), false);
  VrNullRenderer renderer(description);
  description->setActiveRenderer(&renderer);
  const int faces = static_cast<int>(patch->numFaces());

  const size_t savedThreads = VrTaskManager::threadCount();
  if (threads > 0) VrTaskManager::setThreadCount(static_cast<size_t>(threads));
  VrSubdPatch::setMultithreading(threads > 0);
  double primitives = 0.0;
  for (auto _ : state) {
    renderer.initDescription();
    if (threads == 0)
      for (int face = 0; face < faces; ++face) renderer.render(face, "skin");
    else
      renderer.renderPatchInParallel("skin");
    renderer.finishDescription();
    primitives += renderer.totalEmitCount();
  }
  VrSubdPatch::setMultithreading(false);
  VrTaskManager::setThreadCount(savedThreads);
  description->setActiveRenderer(nullptr);

  state.counters["prims/s"] = benchmark::Counter(primitives, benchmark::Counter::kIsRate);
  state.counters["prims"] = benchmark::Counter(primitives / static_cast<double>(state.iterations()));
  state.SetLabel(threads ? "renderPatchInParallel" : "serial render");
}
BENCHMARK(BM_NullRender)->Arg(0)->Arg(1)->Arg(2)->ArgName("threads")->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

}  // namespace
