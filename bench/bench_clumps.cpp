// BM_ClumpRender: the render of a 10,000-face mesh through the null renderer with the random
// generator at about 1,000,000 locations of 8-CV splines, with one clumping module (guides made
// by VrClumpMaker at 0.5 per unit area) or without it, on 1 and 2 worker threads.
// BM_StyledRender: the same splines styled by clump and noise, or by clump, noise, cut and coil.
// "splines/s" counts what the renderer received; "allocs/spline" is every heap allocation of the
// render divided by the splines (the module's guides are read before counting starts).

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrClumpMaker.h"
#include "fxmodules/VrClumpingFXModule.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrNullRenderer.h"

#include "BenchAllocations.h"
#include "BenchMeshes.h"
#include "BenchParallelRender.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

// The stage both benchmarks render: 8-CV splines on the warped 100 x 100 grid, and a scratch
// folder for the clump guides and maps.
struct SplineSkin {
  SplineSkin() : surface(vrbench::warpedGrid(100)), palette(new VrPalette) {
    description = new VrDescription;
    palette->addDescription(description);
    description->setAttr("name", "fur");
    description->setActive("SplinePrimitive");
    description->setActive("RandomGenerator");
    description->activeGenerator()->setAttr("density", "100");
    description->activeGenerator()->setAttr("mask", "0.9");
    spline = static_cast<VrSplinePrimitive*>(description->activePrimitive());
    spline->setAttr("fxCVCount", "8");
    spline->setAttr("length", "$a=1.5;#0.05,5.0\\n$a");
    spline->setAttr("offU", "0.3");
    auto* patch = new VrSubdPatch(description);
    patch->setName("skin");
    description->addPatch(patch);
    patch->bindGeometry(nullptr, surface.get(), false);
    std::string pattern = (std::filesystem::temp_directory_path() / "vorn-bench-XXXXXX").string();
    dir = mkdtemp(pattern.data()) ? pattern : std::string("/tmp");
  }
  ~SplineSkin() { std::filesystem::remove_all(dir); }

  void addClumping() {
    auto* clump = static_cast<VrClumpingFXModule*>(spline->addFXModule("ClumpingFXModule"));
    palette->setAttr("vrDataPath", dir + "/", "string");  // files are found along the data path
    clump->setAttr("pointDir", "points/", "string");
    clump->setAttr("mapDir", "maps/", "string");
    clump->setAttr("texelsPerUnit", "4", "float");
    clump->setAttr("curl", "0.3", "expr");
    VrClumpMaker::Options options;
    options.density = 0.5;
    VrClumpMaker::make(*clump, options);
  }

  void render(benchmark::State& state, int threads) {
    VrNullRenderer renderer(description);
    description->setActiveRenderer(&renderer);
    vrbench::renderSkinInParallel(state, renderer, threads);
    description->setActiveRenderer(nullptr);
  }

  std::unique_ptr<SgSubdSurface> surface;
  std::unique_ptr<VrPalette> palette;
  VrDescription* description;  // owned by the palette
  VrSplinePrimitive* spline;
  std::string dir;
};

void BM_ClumpRender(benchmark::State& state) {
  const bool clumping = state.range(0) != 0;
  SplineSkin skin;
  if (clumping) skin.addClumping();
  skin.render(state, static_cast<int>(state.range(1)));
  state.SetLabel(clumping ? "one clumping module" : "no module");
}
BENCHMARK(BM_ClumpRender)
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->ArgNames({"clumping", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

// Shapes: 0 clump and noise; 1 also cut and coil; 2 also wind.
void BM_StyledRender(benchmark::State& state) {
  const int shapes = static_cast<int>(state.range(0));
  SplineSkin skin;
  skin.addClumping();
  skin.spline->addFXModule("NoiseFXModule")->setAttr("magnitude", "0.2", "expr");
  if (shapes >= 1) {
    skin.spline->addFXModule("CutFXModule")->setAttr("amount", "rand(0.0,0.3)", "expr");
    VrFXModule* coil = skin.spline->addFXModule("CoilFXModule");
    coil->setAttr("radius", "0.05", "expr");
    coil->setAttr("count", "2", "expr");
  }
  if (shapes >= 2) {
    skin.palette->setFrame(12.0);
    skin.spline->addFXModule("WindFXModule")->setAttr("gustStrength", "0.8", "expr");
  }
  skin.render(state, static_cast<int>(state.range(1)));
  static const char* const labels[] = {"clump, noise", "clump, noise, cut, coil", "clump, noise, cut, coil, wind"};
  state.SetLabel(labels[shapes]);
}
BENCHMARK(BM_StyledRender)
    ->ArgsProduct({{0, 1, 2}, {1, 2}})
    ->ArgNames({"shapes", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace
