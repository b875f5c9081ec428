#include "renderers/VrGLSurface.h"

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"

#include <algorithm>

std::vector<VrGLCache> VrGLSurfaceCaches(const VrDescription& description, int grid, const SgVec3T<double>& color) {
  std::vector<VrGLCache> out;
  const SgXform3T<double> world = description.palette() ? description.palette()->world() : SgXform3T<double>();
  grid = std::max(grid, 1);
  for (const auto& entry : description.patches()) {
    const VrPatch* patch = entry.second;
    if (!patch || !patch->isBound()) continue;
    const std::vector<int> faces = patch->faceIds();
    std::vector<VrGLCache> perFace(faces.size());
    VrTaskManager::parallelChunks(faces.size(), [&](size_t begin, size_t end) {
      for (size_t f = begin; f < end; ++f) {
        VrGLCache& cache = perFace[f];
        std::vector<SgVec3T<double>> points((grid + 1) * (grid + 1)), normals(points.size());
        bool ok = true;
        for (int j = 0; j <= grid && ok; ++j)
          for (int i = 0; i <= grid && ok; ++i) {
            SgVec3T<double> P, N, dPdu, dPdv;
            ok = patch->evalGeom(double(i) / grid, double(j) / grid, faces[f], P, N, dPdu, dPdv, false);
            points[j * (grid + 1) + i] = world.transformed(P);
            normals[j * (grid + 1) + i] = world.transformed(N, true);
          }
        if (!ok) continue;
        for (size_t k = 0; k < points.size(); ++k) cache.triangles.add(points[k], normals[k], color);
        for (int j = 0; j < grid; ++j)
          for (int i = 0; i < grid; ++i) {
            const uint32_t a = uint32_t(j * (grid + 1) + i), b = a + 1, c = a + uint32_t(grid) + 2, d = a + uint32_t(grid) + 1;
            cache.triangles.indices.insert(cache.triangles.indices.end(), {a, b, c, a, c, d});
          }
      }
    });
    VrGLCache patchCache;
    patchCache.patch = entry.first;
    for (VrGLCache& face : perFace) patchCache.append(std::move(face));
    out.push_back(std::move(patchCache));
  }
  return out;
}
