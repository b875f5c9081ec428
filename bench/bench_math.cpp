// Math kit hot paths: spline evaluation, resampling and transport frames of spines, the random
// stream, and noise.

#include "geometry/SgCurve.h"
#include "geometry/vrutilMath.h"
#include "geometry/vrutilRandom.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

std::vector<SgVec3T<double>> makeSpine(int n) {
  std::vector<SgVec3T<double>> pts;
  for (int i = 0; i < n; ++i) pts.emplace_back(std::sin(i * 0.3), i * 0.1, std::cos(i * 0.2));
  return pts;
}

void BM_CurveEval(benchmark::State& state) {
  const auto pts = makeSpine(20);
  SgVec3T<double> out;
  double t = 0.0;
  for (auto _ : state) {
    SgCurve::eval(pts, t, out);
    benchmark::DoNotOptimize(out);
    t += 0.0137;
    if (t > 1.0) t -= 1.0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CurveEval);

void BM_CurveRebuild(benchmark::State& state) {
  const auto source = makeSpine(20);
  std::vector<SgVec3T<double>> pts;
  for (auto _ : state) {
    SgCurve::rebuild(pts, source, 40, state.range(0) != 0);
    benchmark::DoNotOptimize(pts.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CurveRebuild)->ArgName("uniform")->Arg(0)->Arg(1);

// The transport frame the shaping modules (noise, coil, wind) build for every spline: an 8-CV
// hair that curls.
void BM_CurveFrame(benchmark::State& state) {
  const auto pts = makeSpine(8);
  std::vector<SgVec3T<double>> normals, binormals;
  for (auto _ : state) {
    SgCurve::frame(pts, SgVec3T<double>(0, 1, 0), SgVec3T<double>(1, 0, 0), normals, binormals);
    benchmark::DoNotOptimize(binormals.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CurveFrame);

void BM_PRNGRandom01(benchmark::State& state) {
  vrutil::PRNG prng(uint64_t{12345});
  for (auto _ : state) benchmark::DoNotOptimize(prng.random01());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PRNGRandom01);

void BM_Noise3(benchmark::State& state) {
  double x = 0.0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(vrutil::noise(x, x * 0.7 + 1.3, 2.1 - x));
    x += 0.013;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Noise3);

}  // namespace
