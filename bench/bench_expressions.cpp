// Expression evaluation per location: a constant text, a rand() text and a noise text, on one
// thread and on two (each thread evaluating its own share of the same expression).

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"

#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <memory>

namespace {

const char* const texts[] = {"0.5 * 3", "rand()", "noise($u * 8, $v * 8)"};
constexpr size_t evaluationsPerRun = 200000;

void BM_ExpressionEval(benchmark::State& state) {
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  VrExpression expression("length", "SplinePrimitive", description, texts[state.range(0)], "float");
  expression.isValid();
  const int threads = static_cast<int>(state.range(1));
  tbb::task_arena arena(threads);
  VrTaskManager::setSeExprMultithreading(threads > 1);
  std::atomic<double> sink{0.0};
  for (auto _ : state) {
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<size_t>(0, evaluationsPerRun, 8192), [&](const tbb::blocked_range<size_t>& r) {
        double sum = 0.0;
        for (size_t i = r.begin(); i != r.end(); ++i)
          sum += expression.eval(static_cast<double>(i % 1000) / 1000.0, 0.5, static_cast<int>(i / 1000)).x;
        sink = sink + sum;
      });
    });
  }
  VrTaskManager::setSeExprMultithreading(false);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(evaluationsPerRun));
  state.SetLabel(texts[state.range(0)]);
}
BENCHMARK(BM_ExpressionEval)->ArgsProduct({{0, 1, 2}, {1, 2}})->UseRealTime();

}  // namespace
