#include "io/VrArchiveMesh.h"

#include "io/VrImportGeometry.h"

bool VrArchiveMesh::read(const std::vector<VrArchiveSource>& files, double time, std::string& failed) {
  *this = VrArchiveMesh();
  for (const VrArchiveSource& file : files) {
    AlembicUtil reader(file.path);
    std::vector<std::string> names = file.objects;
    std::vector<std::vector<SgVec3T<double>>> points;
    std::vector<std::vector<int>> counts, indices;
    bool ok = (!names.empty() || reader.meshNames(names)) && !names.empty() &&
              reader.readMeshes(time, names, points, counts, indices);
    for (size_t m = 0; ok && m < points.size(); ++m) {
      const auto offset = static_cast<int32_t>(numPoints());
      const auto size = static_cast<int>(points[m].size());
      size_t corners = 0;
      for (int count : counts[m]) {
        ok = ok && count >= 0;
        corners += count > 0 ? size_t(count) : 0;
      }
      for (int index : indices[m]) ok = ok && index >= 0 && index < size;
      ok = ok && corners == indices[m].size();
      if (!ok) break;
      for (const SgVec3T<double>& p : points[m]) {
        positions.insert(positions.end(), {float(p.x), float(p.y), float(p.z)});
        box.extend(p);
      }
      faceCounts.insert(faceCounts.end(), counts[m].begin(), counts[m].end());
      for (int index : indices[m]) faceIndices.push_back(index + offset);
    }
    if (!ok) {
      *this = VrArchiveMesh();
      failed = file.path;
      return false;
    }
  }
  return true;
}

std::vector<uint32_t> VrArchiveMesh::triangles() const {
  std::vector<uint32_t> out;
  size_t at = 0;
  for (int32_t count : faceCounts) {
    for (int32_t k = 1; k + 1 < count; ++k)
      out.insert(out.end(), {uint32_t(faceIndices[at]), uint32_t(faceIndices[at + size_t(k)]),
                             uint32_t(faceIndices[at + size_t(k) + 1])});
    at += count > 0 ? size_t(count) : 0;
  }
  return out;
}

std::string VrArchiveMesh::keyOf(const std::vector<VrArchiveSource>& files) {
  std::string key;
  for (const VrArchiveSource& file : files) {
    key += (key.empty() ? "" : ";") + file.path;
    for (const std::string& object : file.objects) key += "|" + object;
  }
  return key;
}
