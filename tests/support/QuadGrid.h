#pragma once
// Rectangular quad cages in the plane z = 0, kept as arrays so that tests can move vertices.

#include "geometry/SgSubdSurface.h"

#include <memory>
#include <vector>

namespace vrtest {

struct QuadGrid {
  std::vector<float> verts;    // x, y, z per vertex, row by row
  std::vector<int> faceVerts;  // four per face
  std::unique_ptr<SgSubdSurface> surface() const {
    std::vector<int> counts(faceVerts.size() / 4, 4);
    return std::make_unique<SgSubdSurface>(static_cast<int>(verts.size() / 3), verts.data(),
                                           static_cast<int>(counts.size()), counts.data(), faceVerts.data());
  }
};

/// An n x m grid of sx by sy quads over [0, n sx] x [0, m sy], faces wound counter-clockwise.
inline QuadGrid quadGrid(int n, int m, float sx = 1.0f, float sy = 1.0f) {
  QuadGrid grid;
  for (int j = 0; j <= m; ++j)
    for (int i = 0; i <= n; ++i) grid.verts.insert(grid.verts.end(), {i * sx, j * sy, 0.0f});
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i;
      grid.faceVerts.insert(grid.faceVerts.end(), {a, a + 1, a + n + 2, a + n + 1});
    }
  return grid;
}

}  // namespace vrtest
