// Painted-map lookups per location: `map()` at the nearest texel with the thread's texture
// cache warm, against a plain `rand()` text, on one thread and on two.

#include "base/VrTaskManager.h"
#include "expressions/VrExpression.h"
#include "io/ptex/VrPtexWriter.h"
#include "support/GridSurface.h"
#include "support/PatchScene.h"
#include "support/TempDir.h"

#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <filesystem>

namespace {

constexpr size_t evaluationsPerRun = 200000;
const char* const texts[] = {"map('maps/')", "rand()"};

// maps/body.ptx: 64 faces of 16 by 16 single-channel 8-bit texels.
void writeMap(const std::string& path) {
  VrPtexWriter::Options options;
  options.numFaces = 64;
  VrPtexWriter writer(path, options);
  std::vector<uint8_t> texels(256);
  for (int f = 0; f < 64; ++f) {
    for (size_t i = 0; i < texels.size(); ++i) texels[i] = static_cast<uint8_t>(i * 7 + static_cast<size_t>(f));
    vrptex::FaceInfo info;
    info.res = vrptex::Res(4, 4);
    writer.writeFace(f, info, texels.data());
  }
  writer.close();
}

void BM_MapLookup(benchmark::State& state) {
  vrtest::TempDir dir;
  std::filesystem::create_directories(dir.file("maps"));
  writeMap(dir.file("maps/body.ptx"));
  vrtest::PatchScene scene(vrtest::gridSurface(8));
  scene.palette->setAttr("vrDataPath", dir.path());
  VrExpression expression("length", "SplinePrimitive", scene.description, texts[state.range(0)], "float");
  expression.isValid();
  const std::string patch = "body";
  const int threads = static_cast<int>(state.range(1));
  tbb::task_arena arena(threads);
  VrTaskManager::setSeExprMultithreading(threads > 1);
  std::atomic<double> sink{0.0};
  for (auto _ : state) {
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<size_t>(0, evaluationsPerRun, 8192), [&](const tbb::blocked_range<size_t>& r) {
        double sum = 0.0;
        for (size_t i = r.begin(); i != r.end(); ++i)
          sum += expression.eval(static_cast<double>(i % 1000) / 1000.0, 0.5, static_cast<int>(i / 1000 % 64), &patch).x;
        sink = sink + sum;
      });
    });
  }
  VrExpression::clearPtexs();
  VrTaskManager::setSeExprMultithreading(false);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(evaluationsPerRun));
  state.SetLabel(texts[state.range(0)]);
}
BENCHMARK(BM_MapLookup)->ArgsProduct({{0, 1}, {1, 2}})->UseRealTime();

}  // namespace
