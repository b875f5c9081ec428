#pragma once
// Axis-aligned box meshes written as Alembic polygon meshes, the collision and cut meshes of
// the tests and benchmarks, and the cube the Alembic tests write and read.

#include "geometry/SgVec3T.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vrtest {

struct PolyMesh {
  std::vector<SgVec3T<double>> points;
  std::vector<int> counts;
  std::vector<int> indices;
};

/// The box between corners `lo` and `hi`: eight points, six quads wound outwards.
inline PolyMesh boxMesh(const SgVec3T<double>& lo, const SgVec3T<double>& hi) {
  PolyMesh mesh;
  for (int k = 0; k < 8; ++k)
    mesh.points.emplace_back(k & 1 ? hi.x : lo.x, k & 2 ? hi.y : lo.y, k & 4 ? hi.z : lo.z);
  mesh.counts.assign(6, 4);
  mesh.indices = {0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5};
  return mesh;
}

/// A cube of side 2 around the origin as flat arrays: 8 points, 6 quads.
inline const std::vector<float> cubePoints = {-1, -1, 1, 1, -1, 1, -1, 1, 1, 1, 1, 1,
                                              -1, 1, -1, 1, 1, -1, -1, -1, -1, 1, -1, -1};
inline const std::vector<int32_t> cubeCounts = {4, 4, 4, 4, 4, 4};
inline const std::vector<int32_t> cubeIndices = {0, 1, 3, 2, 2, 3, 5, 4, 4, 5, 7, 6,
                                                 6, 7, 1, 0, 1, 7, 5, 3, 6, 0, 2, 4};

/// Flat points x y z x y z ... moved by (dx, dy, dz).
inline std::vector<float> moved(const std::vector<float>& points, float dx, float dy, float dz) {
  std::vector<float> out = points;
  for (size_t i = 0; i + 2 < out.size(); i += 3) {
    out[i] += dx;
    out[i + 1] += dy;
    out[i + 2] += dz;
  }
  return out;
}

/// Writes the meshes as one file, mesh k named "collider<k>", one sample at frame 1 of 24 per
/// second. False when the file cannot be written.
inline bool writeMeshFile(const std::string& path, const std::vector<PolyMesh>& meshes) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t sampling = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
  for (size_t m = 0; m < meshes.size(); ++m) {
    std::vector<float> positions;
    for (const SgVec3T<double>& p : meshes[m].points)
      positions.insert(positions.end(), {float(p.x), float(p.y), float(p.z)});
    const std::vector<int32_t> counts(meshes[m].counts.begin(), meshes[m].counts.end());
    const std::vector<int32_t> indices(meshes[m].indices.begin(), meshes[m].indices.end());
    VrAbcMeshWriter mesh;
    if (!mesh.create(writer.top(), "collider" + std::to_string(m), VrAbcMeshWriter::Kind::PolyMesh, sampling))
      return false;
    VrAbcMeshWriter::Sample sample;
    sample.positions = positions;
    sample.faceCounts = counts;
    sample.faceIndices = indices;
    if (!mesh.write(sample)) return false;
  }
  return writer.close();
}

}  // namespace vrtest
