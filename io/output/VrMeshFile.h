#pragma once
// VrMeshFile: polygon meshes with uvs, instance transforms and joint chains written into one
// Alembic archive at one frame, for the geometry back end's output. Meshes go under the top as
// polygon meshes or subdivision surfaces with one uv per point; transforms under a group
// transform; joint chains as one set of linear curves. Nothing is left at the path unless
// `close` succeeds (the archive writer puts the file in place at the end).
//
//   VrMeshFile file;
//   if (!file.open("out.abc", 1.0, 24.0)) ...
//   file.addMesh("brows", mesh, false);
//   if (!file.close()) ...

#include "geometry/SgVec3T.h"
#include "io/alembic/VrAbcArchiveWriter.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// Polygons with one uv per point.
struct VrMeshData {
  std::vector<float> positions;     ///< x, y, z per point
  std::vector<float> uvs;           ///< u, v per point
  std::vector<int32_t> faceCounts;  ///< points per face
  std::vector<int32_t> faceIndices; ///< point of each face corner, counter-clockwise

  size_t numPoints() const { return positions.size() / 3; }
  size_t numFaces() const { return faceCounts.size(); }
  bool empty() const { return faceCounts.empty(); }
  /// Where a part of a mesh starts: its first point, face and face corner.
  struct Mark {
    size_t point = 0, face = 0, corner = 0;
  };
  /// Where what is appended next will start.
  Mark end() const { return {numPoints(), numFaces(), faceIndices.size()}; }
  /// Appends `other`, its face indices shifted past the points already here.
  void append(const VrMeshData& other) { appendPart(other, Mark(), other.end()); }
  /// Appends the part of `other` from `from` up to `to`, whose faces use only its points.
  void appendPart(const VrMeshData& other, const Mark& from, const Mark& to);
  void clear();
};

class VrMeshFile {
 public:
  /// Starts the archive at `path`; its objects have one sample at `frame`.
  bool open(const std::string& path, double frame, double framesPerSecond);
  /// Writes `mesh` as `name` (made unique and free of '/' and ':'); false with an Error.
  bool addMesh(const std::string& name, const VrMeshData& mesh, bool subdivision);
  /// Writes a transform `name` under the group transform `group` (made on first use).
  bool addTransform(const std::string& group, const std::string& name, const double matrix[16]);
  /// Writes the chains as one set of linear curves named `name`; nothing for no chains.
  bool addJointChains(const std::string& name, const std::vector<std::vector<SgVec3T<double>>>& chains);
  /// Writes the hierarchy and puts the file in place; false with an Error.
  bool close() { return archive.close(); }

 private:
  std::string uniqueName(const std::string& wanted);

  VrAbcArchiveWriter archive;
  uint32_t timeSampling = 0;
  std::set<std::string> names;
  std::vector<std::pair<std::string, VrAbcObjectWriter*>> groups;
};
