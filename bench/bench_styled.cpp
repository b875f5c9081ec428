// BM_StyledRender: the render of a 10,000-face mesh through the null renderer with the random
// generator at about 1,000,000 locations of 8-CV splines, styled by a clumping module and a noise
// module, or by clumping, noise, cut and coil, on 1 and 2 worker threads. "splines/s" counts what
// the renderer received (the cut culls some); "allocs/spline" is every heap allocation of the
// render divided by the splines.

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrClumpMaker.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrNullRenderer.h"

#include "BenchMeshes.h"
#include "BenchParallelRender.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

void BM_StyledRender(benchmark::State& state) {
  const bool allShapes = state.range(0) != 0;
  const int threads = static_cast<int>(state.range(1));
  auto surface = vrbench::warpedGrid(100);
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  description->setAttr("name", "fur");
  description->setActive("SplinePrimitive");
  description->setActive("RandomGenerator");
  description->activeGenerator()->setAttr("density", "100");
  description->activeGenerator()->setAttr("mask", "0.9");
  auto* spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
  spline->setAttr("fxCVCount", "8");
  spline->setAttr("length", "$a=1.5;#0.05,5.0\\n$a");
  spline->setAttr("offU", "0.3");
  auto* patch = new VrSubdPatch(description);
  patch->setName("skin");
  description->addPatch(patch);
  patch->bindGeometry(nullptr, surface.get(), false);

  std::string pattern = (std::filesystem::temp_directory_path() / "vorn-bench-XXXXXX").string();
  const std::string dir = mkdtemp(pattern.data()) ? pattern : std::string("/tmp");
  auto* clump = static_cast<VrClumpingFXModule*>(spline->addFXModule("ClumpingFXModule"));
  palette->setAttr("vrDataPath", dir + "/", "string");  // files are found along the data path
  clump->setAttr("pointDir", "points/", "string");
  clump->setAttr("mapDir", "maps/", "string");
  clump->setAttr("texelsPerUnit", "4", "float");
  clump->setAttr("curl", "0.3", "expr");
  VrClumpMaker::Options options;
  options.density = 0.5;
  VrClumpMaker::make(*clump, options);
  spline->addFXModule("NoiseFXModule")->setAttr("magnitude", "0.2", "expr");
  if (allShapes) {
    spline->addFXModule("CutFXModule")->setAttr("amount", "rand(0.0,0.3)", "expr");
    VrFXModule* coil = spline->addFXModule("CoilFXModule");
    coil->setAttr("radius", "0.05", "expr");
    coil->setAttr("count", "2", "expr");
  }
  VrNullRenderer renderer(description);
  description->setActiveRenderer(&renderer);

  vrbench::renderSkinInParallel(state, renderer, threads);
  description->setActiveRenderer(nullptr);
  std::filesystem::remove_all(dir);

  state.SetLabel(allShapes ? "clump, noise, cut, coil" : "clump, noise");
}
BENCHMARK(BM_StyledRender)
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->ArgNames({"allShapes", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace
