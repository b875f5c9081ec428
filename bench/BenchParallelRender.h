#pragma once
// The parallel render loop shared by the spline and clump benchmarks: renders the patch "skin"
// of the renderer's description on `threads` workers once per iteration, counting heap
// allocations inside the render only, and reports splines/s, splines per run and allocations
// per spline.

#include "base/VrTaskManager.h"
#include "geometry/VrSubdPatch.h"
#include "renderers/VrNullRenderer.h"

#include "BenchAllocations.h"

#include <benchmark/benchmark.h>

namespace vrbench {

/// The splines emitted over all iterations.
inline double renderSkinInParallel(benchmark::State& state, VrNullRenderer& renderer, int threads) {
  const size_t savedThreads = VrTaskManager::threadCount();
  VrTaskManager::setThreadCount(static_cast<size_t>(threads));
  VrSubdPatch::setMultithreading(true);
  double splines = 0.0;
  allocations = 0;
  for (auto _ : state) {
    renderer.initDescription();
    countAllocations = true;
    renderer.renderPatchInParallel("skin");
    countAllocations = false;
    renderer.finishDescription();
    splines += renderer.totalEmitCount();
  }
  VrSubdPatch::setMultithreading(false);
  VrTaskManager::setThreadCount(savedThreads);
  state.counters["splines/s"] = benchmark::Counter(splines, benchmark::Counter::kIsRate);
  state.counters["splines"] = benchmark::Counter(splines / static_cast<double>(state.iterations()));
  state.counters["allocs/spline"] =
      benchmark::Counter(static_cast<double>(allocations) / (splines > 0.0 ? splines : 1.0));
  return splines;
}

}  // namespace vrbench
