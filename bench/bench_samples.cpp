// getSample: one call per location in the generators' innermost loop.

#include "geometry/vrutilSamples.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

// Indices spread over the table itself and the tiling levels up to 512x512, with the flip and
// set varying from call to call as they do across faces.
void BM_GetSample(benchmark::State& state) {
  std::vector<unsigned> indices(4096);
  std::uint64_t x = 0x2545F4914F6CDD1Dull;
  for (size_t i = 0; i < indices.size(); ++i) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    // A random level 0..9, then a random index inside it.
    const unsigned level = static_cast<unsigned>(x % 10);
    const std::uint64_t start = (((std::uint64_t{1} << (2 * level)) - 1) / 3) << 15;
    // The last level is cut off where unsigned indices end.
    const std::uint64_t span =
        std::min(std::uint64_t{32768} << (2 * level), (std::uint64_t{1} << 32) - start);
    indices[i] = static_cast<unsigned>(start + (x >> 20) % span);
  }
  size_t i = 0;
  double sum = 0.0;
  for (auto _ : state) {
    double u, v;
    vrutil::getSample(indices[i], static_cast<unsigned>(i), static_cast<unsigned>(i >> 3), u, v);
    sum += u + v;
    if (++i == indices.size()) i = 0;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetSample);

// The same walk over consecutive indices of one face, as a generator emits them.
void BM_GetSampleSequential(benchmark::State& state) {
  unsigned index = 0;
  double sum = 0.0;
  for (auto _ : state) {
    double u, v;
    vrutil::getSample(index, 3, 7, u, v);
    sum += u + v;
    if (++index == 700000) index = 0;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetSampleSequential);

}  // namespace
