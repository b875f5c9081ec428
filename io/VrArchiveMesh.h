#pragma once
// VrArchiveMesh: the geometry an archive's files hold, for the back ends that show or convert it
// rather than name the files (the inline archives of an Alembic render, the GL preview's proxies,
// the geometry back end's meshes). Every mesh of each file (polygon or subdivision; or only the
// objects an entry names) is read at one time through AlembicUtil, in the file's world space,
// and the meshes are merged into one polygon mesh in the order of the files and, within a file,
// of the sorted mesh names. Faces come counter-clockwise, as the import gives them.
//
// Reading goes through the geometry import's reader, so it runs where geometry is read (the
// thread that renders a description's passes), never on render workers.

#include "geometry/SgBox3T.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// One file of an archive and the objects of it that count (every mesh when empty).
struct VrArchiveSource {
  std::string path;
  std::vector<std::string> objects;
};

class VrArchiveMesh {
 public:
  std::vector<float> positions;      ///< x, y, z per point
  std::vector<int32_t> faceCounts;   ///< corners per face
  std::vector<int32_t> faceIndices;  ///< point of each face corner, counter-clockwise
  SgBox3T<double> box;               ///< of the points

  size_t numPoints() const { return positions.size() / 3; }
  size_t numFaces() const { return faceCounts.size(); }

  /// Reads and merges the meshes of `files` at `time` (seconds). False, leaving the mesh empty
  /// and `failed` naming the file, when a file has no mesh that can be read or a face points
  /// outside its mesh or a face count is negative (the reader has sent its Error for a file that does not open).
  bool read(const std::vector<VrArchiveSource>& files, double time, std::string& failed);
  /// The faces as triangles, three point indices each: a fan from each face's first corner.
  std::vector<uint32_t> triangles() const;

  /// The text that tells sources apart: each path with its objects, joined by ';'.
  static std::string keyOf(const std::vector<VrArchiveSource>& files);
};
