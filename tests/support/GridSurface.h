#pragma once
// Flat quad grids for tests and benchmarks of anything that stands on a surface.

#include "geometry/SgSubdSurface.h"

#include <memory>
#include <vector>

namespace vrtest {

/// An n x n grid of unit quads over [0, n] x [0, n], moved by (shiftX, shiftY) in the plane.
/// Vertex (i, j) stands at height `height` + `warp` * ((7i + 3j) mod 5), so a non-zero `warp`
/// makes the limit surface curve.
inline std::unique_ptr<SgSubdSurface> gridSurface(int n, float height = 0.0f, float warp = 0.0f,
                                                  double shiftX = 0.0, double shiftY = 0.0) {
  std::vector<float> verts;
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i)
      verts.insert(verts.end(), {static_cast<float>(i + shiftX), static_cast<float>(j + shiftY),
                                 height + warp * static_cast<float>((i * 7 + j * 3) % 5)});
  std::vector<int> counts(static_cast<size_t>(n * n), 4), faceVerts;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i;
      faceVerts.insert(faceVerts.end(), {a, a + 1, a + n + 2, a + n + 1});
    }
  return std::make_unique<SgSubdSurface>((n + 1) * (n + 1), verts.data(), n * n, counts.data(),
                                         faceVerts.data());
}

}  // namespace vrtest
