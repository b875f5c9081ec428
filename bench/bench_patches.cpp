// Location evaluation on a bound subdivision patch: the plain frame, and the displaced frame
// (five surface evaluations and the displacement expression at each).

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "geometry/SgSubdSurface.h"
#include "geometry/VrSubdPatch.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

// An n x n grid of unit quads in the z = 0 plane, slightly warped so the limit surface curves.
std::unique_ptr<SgSubdSurface> grid(int n) {
  std::vector<float> verts;
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i) {
      verts.push_back(static_cast<float>(i));
      verts.push_back(static_cast<float>(j));
      verts.push_back(0.1f * static_cast<float>((i * 7 + j * 3) % 5));
    }
  std::vector<int> counts(static_cast<size_t>(n * n), 4), faceVerts;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i;
      faceVerts.insert(faceVerts.end(), {a, a + 1, a + n + 2, a + n + 1});
    }
  return std::make_unique<SgSubdSurface>((n + 1) * (n + 1), verts.data(), n * n, counts.data(),
                                         faceVerts.data());
}

void BM_PatchEvalGeom(benchmark::State& state) {
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  auto surface = grid(8);
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
