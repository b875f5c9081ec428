#pragma once
// Meshes shared by the benchmarks.

#include "geometry/SgSubdSurface.h"

#include <memory>
#include <vector>

namespace vrbench {

/// An n x n grid of unit quads in the plane z = 0, gently warped so the limit surface curves.
inline std::unique_ptr<SgSubdSurface> warpedGrid(int n) {
  std::vector<float> verts;
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i)
      verts.insert(verts.end(), {float(i), float(j), 0.1f * static_cast<float>((i * 7 + j * 3) % 5)});
  std::vector<int> counts(static_cast<size_t>(n * n), 4), faceVerts;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i;
      faceVerts.insert(faceVerts.end(), {a, a + 1, a + n + 2, a + n + 1});
    }
  return std::make_unique<SgSubdSurface>((n + 1) * (n + 1), verts.data(), n * n, counts.data(),
                                         faceVerts.data());
}

}  // namespace vrbench
