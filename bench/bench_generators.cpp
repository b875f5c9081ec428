// The random generator's scatter over a 10,000-face mesh at about 1,000,000 locations, on the
// serial path and on 1 and 2 worker threads. With "scatter" the renderer refuses every location,
// so what is measured is the choice of locations, the mask and the way through emitIfOk up to the
// renderer's answer; with "frame" it accepts them, and each location also gets its displaced
// surface frame built (the primitive's geometry for now). The counter "allocs/loc" counts heap
// allocations per location during the run.

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "generators/VrRandomGenerator.h"
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

void BM_RandomScatter(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));  // 0: the serial path
  const bool frame = state.range(1) != 0;
  auto surface = vrbench::warpedGrid(100);
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  description->setActive("SplinePrimitive");
  description->setActive("RandomGenerator");
  auto* generator = static_cast<VrRandomGenerator*>(description->activeGenerator());
  generator->setAttr("density", "100");
  generator->setAttr("mask", "0.9");
  auto* patch = new VrSubdPatch(description);
  patch->setName("skin");
  description->addPatch(patch);
  patch->bindGeometry(nullptr, surface.get(), false);
  BenchRenderer renderer(description);
  renderer.emit = frame;
  description->setActiveRenderer(&renderer);
  const std::vector<VrPatch*> patches{patch};
  const int faces = static_cast<int>(patch->numFaces());

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
                            size_t local = 0;
                            for (int face = range.begin(); face != range.end(); ++face) {
                              generator->generateInParallel(context, face, patches, 0.0, 1.0);
                              local += context.id();
                            }
                            made += local;
                          });
      });
    }
    countAllocations = false;
    locations += made;
  }
  VrTaskManager::setSeExprMultithreading(false);
  VrSubdPatch::setMultithreading(false);
  description->setActiveRenderer(nullptr);

  state.counters["locations/s"] = benchmark::Counter(static_cast<double>(locations), benchmark::Counter::kIsRate);
  state.counters["allocs/loc"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(locations ? locations : 1));
  state.SetLabel(std::string(frame ? "frame" : "scatter") + (threads ? "" : ", serial path"));
}
BENCHMARK(BM_RandomScatter)
    ->ArgsProduct({{0, 1, 2}, {0, 1}})
    ->ArgNames({"threads", "frame"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();

}  // namespace
