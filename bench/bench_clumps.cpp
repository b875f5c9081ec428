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

#include "support/BoxMesh.h"

#include "BenchAllocations.h"
#include "BenchMeshes.h"
#include "BenchParallelRender.h"

#include <benchmark/benchmark.h>

#include <cmath>
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

  VrClumpingFXModule* addClumpingModule() {
    auto* clump = static_cast<VrClumpingFXModule*>(spline->addFXModule("ClumpingFXModule"));
    palette->setAttr("vrDataPath", dir + "/", "string");  // files are found along the data path
    clump->setAttr("pointDir", "points/", "string");
    clump->setAttr("mapDir", "maps/", "string");
    clump->setAttr("texelsPerUnit", "4", "float");
    clump->setAttr("curl", "0.3", "expr");
    return clump;
  }
  static bool makeClumps(VrClumpingFXModule& clump) {
    VrClumpMaker::Options options;
    options.density = 0.5;
    return VrClumpMaker::make(clump, options);
  }
  void addClumping() { makeClumps(*addClumpingModule()); }

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

// Making the clump guides and region maps that BM_ClumpRender renders with.
void BM_ClumpMake(benchmark::State& state) {
  SplineSkin skin;
  VrClumpingFXModule* clump = skin.addClumpingModule();
  const size_t savedThreads = VrTaskManager::threadCount();
  VrTaskManager::setThreadCount(static_cast<size_t>(state.range(0)));
  VrSubdPatch::setMultithreading(true);
  for (auto _ : state)
    if (!SplineSkin::makeClumps(*clump)) state.SkipWithError("the clumps were not made");
  VrSubdPatch::setMultithreading(false);
  VrTaskManager::setThreadCount(savedThreads);
}
BENCHMARK(BM_ClumpMake)->ArgNames({"threads"})->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

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

// The collision row: clump, noise and a collision module (flexible) against a closed slab over
// the whole grid, 20,406 triangles: a wavy floor between heights 0.7 and 1.3 that most splines
// reach, a flat roof at 3 and the four walls between them.
vrtest::PolyMesh collisionSlab() {
  const int n = 100;
  const double step = 100.0 / n;
  vrtest::PolyMesh mesh;
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i) {
      const double x = i * step, y = j * step;
      mesh.points.emplace_back(x, y, 1.0 + 0.3 * std::sin(x / 5.0) * std::cos(y / 7.0));
    }
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i;
      mesh.counts.push_back(4);
      mesh.indices.insert(mesh.indices.end(), {a, a + n + 1, a + n + 2, a + 1});
    }
  // The roof's corners, then each wall as a fan strip from the floor's rim up to the roof edge.
  const int roof = static_cast<int>(mesh.points.size());
  for (const auto& [x, y] : {std::pair{0.0, 0.0}, {100.0, 0.0}, {100.0, 100.0}, {0.0, 100.0}})
    mesh.points.emplace_back(x, y, 3.0);
  mesh.counts.push_back(4);
  mesh.indices.insert(mesh.indices.end(), {roof, roof + 1, roof + 2, roof + 3});
  auto rim = [n](int side, int k) {  // the floor's rim point k of side 0..3, going round
    switch (side) {
      case 0: return k;
      case 1: return k * (n + 1) + n;
      case 2: return n * (n + 1) + n - k;
      default: return (n - k) * (n + 1);
    }
  };
  for (int side = 0; side < 4; ++side)
    for (int k = 0; k < n; ++k) {
      mesh.counts.push_back(3);
      mesh.indices.insert(mesh.indices.end(), {rim(side, k), rim(side, k + 1), roof + (k < n / 2 ? side : (side + 1) % 4)});
      if (k + 1 == n / 2) {
        mesh.counts.push_back(3);
        mesh.indices.insert(mesh.indices.end(), {rim(side, k + 1), roof + (side + 1) % 4, roof + side});
      }
    }
  return mesh;
}

void addCollision(SplineSkin& skin) {
  const std::string path = skin.dir + "/collider.abc";
  vrtest::writeMeshFile(path, {collisionSlab()});
  skin.spline->addFXModule("CollisionFXModule")->setAttr("meshFile", path, "string");
}

void BM_StyledRenderCollision(benchmark::State& state) {
  SplineSkin skin;
  skin.addClumping();
  skin.spline->addFXModule("NoiseFXModule")->setAttr("magnitude", "0.2", "expr");
  addCollision(skin);
  skin.render(state, static_cast<int>(state.range(0)));
  state.SetLabel("clump, noise, collision (20,406 triangles)");
}
BENCHMARK(BM_StyledRenderCollision)
    ->ArgsProduct({{1, 2}})
    ->ArgNames({"threads"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace
