// Location evaluation on a bound subdivision patch: the plain frame, and the displaced frame
// (five surface evaluations and the displacement expression at each).

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"

#include "BenchMeshes.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

void BM_PatchEvalGeom(benchmark::State& state) {
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  auto surface = vrbench::warpedGrid(8);
  VrSubdPatch patch(description);
  patch.bindGeometry(nullptr, surface.get(), false);
  VrExpression displacement("disp", "Bench", description, "0.05 * noise($u * 4, $v * 4)", "float");
  const bool displaced = state.range(0) != 0;
  SgVec3T<double> P, N, du, dv;
  size_t i = 0;
  for (auto _ : state) {
    const double u = static_cast<double>(i % 97) / 97.0, v = static_cast<double>(i % 89) / 89.0;
    const int face = static_cast<int>(i % 64);
    if (displaced)
      patch.evalGeom(u, v, face, &displacement, false, nullptr, nullptr, P, N, du, dv, false);
    else
      patch.evalGeom(u, v, face, P, N, du, dv, false);
    benchmark::DoNotOptimize(P);
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel(displaced ? "displaced" : "plain");
}
BENCHMARK(BM_PatchEvalGeom)->Arg(0)->Arg(1);

}  // namespace
