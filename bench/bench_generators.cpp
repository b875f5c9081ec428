// Each generator over a 10,000-face mesh, on the serial path and on 1 and 2 worker threads: the
// random scatter at about 1,000,000 locations; the uniform grid at 10 x 10 per face; the point
// and file generators reading back about 1,000,000 locations and baked splines written by the
// point and file renderers beforehand; the guide generator at one guide per face. With "scatter" the renderer refuses every location,
// so what is measured is the choice of locations, the mask and the way through emitIfOk up to the
// renderer's answer; with "frame" it accepts them, and each location also gets its displaced
// surface frame built (the primitive's geometry for now). The counter "allocs/loc" counts heap
// allocations per location during the run.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "generators/VrRandomGenerator.h"
#include "renderers/VrFileRenderer.h"
#include "renderers/VrPointRenderer.h"
#include "renderers/VrRenderDescription.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrRenderer.h"

#include "BenchAllocations.h"
#include "BenchMeshes.h"

#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <vector>

// Heap allocations, counted while `countAllocations` is set.
namespace vrbench {
std::atomic<bool> countAllocations{false};
std::atomic<size_t> allocations{0};
}  // namespace vrbench
using vrbench::allocations;
using vrbench::countAllocations;

// Kept out of line, so that the compiler pairs each new with its delete and not with malloc and
// free inside them.
__attribute__((noinline)) void* operator new(size_t size) {
  if (countAllocations.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

class BenchRenderer : public VrRenderer {
 public:
  explicit BenchRenderer(VrDescription* description) : VrRenderer(description) {}
  std::string typeName() const override { return "BenchRenderer"; }
  bool okToEmit(int, double, double) override { return emit; }
  void emitPrimitive(int, double, double, int, const std::vector<VrPatch*>&) override { ++emitted; }
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int, double, double, int,
                               const std::vector<VrPatch*>&) override {
    context.rendererContext()->incrEmitCount();
  }
  bool emit = false;
  size_t emitted = 0;
};

const char* const generatorNames[] = {"RandomGenerator", "UniformGenerator", "PointGenerator", "FileGenerator",
                                      "GuideGenerator"};

// The point and file bakes the point and file generators read, written once under `folder`.
void writeBakes(VrDescription* description, const std::string& folder) {
  if (std::filesystem::exists(folder + "/skin.vpd")) return;
  VrPointRenderer points(description);
  points.setAttr("outputDir", "");
  VrRenderDescription(points, 0);
  VrFileRenderer bake(description);
  bake.setAttr("outputDir", "");
  VrRenderDescription(bake, 0);
}

void BM_Generators(benchmark::State& state) {
  const char* kind = generatorNames[state.range(0)];
  const int threads = static_cast<int>(state.range(1));  // 0: the serial path
  const bool frame = state.range(2) != 0;
  auto surface = vrbench::warpedGrid(100);
  std::unique_ptr<VrPalette> palette(new VrPalette);
  const std::string folder = (std::filesystem::temp_directory_path() / "vorn-bench-generators").string();
  std::filesystem::create_directories(folder);
  palette->setAttr("vrDataPath", folder);
  auto* description = new VrDescription;
  palette->addDescription(description);
  description->setActive("SplinePrimitive");
  description->setActive("RandomGenerator");
  description->activeGenerator()->setAttr("density", "100");
  description->activeGenerator()->setAttr("mask", "0.9");
  auto* patch = new VrSubdPatch(description);
  patch->setName("skin");
  description->addPatch(patch);
  patch->bindGeometry(nullptr, surface.get(), false);
  const int faces = static_cast<int>(patch->numFaces());
  if (std::string(kind) == "PointGenerator" || std::string(kind) == "FileGenerator") writeBakes(description, folder);
  for (int face = 0; face < faces; ++face) {
    VrGuide& guide = description->activePrimitive()->addGuide();
    guide.setPatch(patch);
    guide.setFaceId(face);
    guide.setU(0.5);
    guide.setV(0.5);
  }
  description->setActive(kind);
  auto* generator = static_cast<VrGenerator*>(description->activeGenerator());
  generator->setAttr("spacing", "0.1");  // 10 x 10 on the unit faces of the grid
  generator->setAttr("pointDir", "");
  generator->setAttr("inputDir", "");
  BenchRenderer renderer(description);
  renderer.emit = frame;
  description->setActiveRenderer(&renderer);
  const std::vector<VrPatch*> patches{patch};
  generator->initDescription();

  VrTaskManager::setSeExprMultithreading(threads > 0);
  VrSubdPatch::setMultithreading(threads > 0);
  size_t locations = 0;
  allocations = 0;
  for (auto _ : state) {
    std::atomic<size_t> made{0};
    countAllocations = true;
    if (threads == 0) {
      VrPrimitiveContext& context = description->activePrimitive()->context();
      for (int face = 0; face < faces; ++face) {
        generator->generate(face, patches, 0.0, 1.0);
        made += context.id();
      }
    } else {
      tbb::task_arena arena(threads);
      arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<int>(0, faces, static_cast<int>(VrTaskManager::taskGrainSize(faces))),
                          [&](const tbb::blocked_range<int>& range) {
                            VrExpression::initTLS();
                            VrPrimitiveContext context(description->activePrimitive()->context());
                            std::unique_ptr<VrGeneratorContext> record = generator->newGeneratorContext();
                            VrRendererContext results;
                            context.setGeneratorContext(record.get());
                            context.setRendererContext(&results);
                            generator->initDescriptionInParallel(context);
                            size_t local = 0;
                            for (int face = range.begin(); face != range.end(); ++face) {
                              generator->generateInParallel(context, face, patches, 0.0, 1.0);
                              local += context.id();
                            }
                            generator->finishDescriptionInParallel(context);
                            made += local;
                          });
      });
    }
    countAllocations = false;
    locations += made;
  }
  generator->finishDescription();
  VrTaskManager::setSeExprMultithreading(false);
  VrSubdPatch::setMultithreading(false);
  description->setActiveRenderer(nullptr);

  state.counters["locations/s"] = benchmark::Counter(static_cast<double>(locations), benchmark::Counter::kIsRate);
  state.counters["allocs/loc"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(locations ? locations : 1));
  state.SetLabel(std::string(kind) + (frame ? ", frame" : ", locations") + (threads ? "" : ", serial path"));
}
BENCHMARK(BM_Generators)
    ->ArgsProduct({{0, 1, 2, 3, 4}, {0, 1, 2}, {0, 1}})
    ->ArgNames({"generator", "threads", "frame"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

}  // namespace
