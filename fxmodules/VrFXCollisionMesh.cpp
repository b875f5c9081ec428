#include "fxmodules/VrFXCollisionMesh.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "fxmodules/VrFXModule.h"
#include "io/VrImportGeometry.h"

#include <vector>

namespace {

// Every mesh of the file at `time`, as one point list and one polygon list.
bool readAllMeshes(const std::string& path, double time, std::vector<SgVec3T<double>>& points,
                   std::vector<int>& counts, std::vector<int>& indices) {
  AlembicUtil file(path);
  std::vector<std::string> names;
  if (!file.meshNames(names) || names.empty()) return false;
  std::vector<std::vector<SgVec3T<double>>> positions;
  std::vector<std::vector<int>> faceCounts, faceIndices;
  if (!file.readMeshes(time, names, positions, faceCounts, faceIndices)) return false;
  for (size_t m = 0; m < positions.size(); ++m) {
    const int offset = static_cast<int>(points.size());
    points.insert(points.end(), positions[m].begin(), positions[m].end());
    counts.insert(counts.end(), faceCounts[m].begin(), faceCounts[m].end());
    for (int index : faceIndices[m]) indices.push_back(index + offset);
  }
  return true;
}

}  // namespace

std::shared_ptr<const TzBoundingTree> VrLoadCollisionMesh(VrFXModule& module, const std::string& meshFile) {
  VrDescription* description = module.description();
  std::string path;
  if (!vrutil::findFileInVrDataPath(path, meshFile, "", description, module.name(), true))
    path = vrutil::expandMacros(meshFile, "", description, module.name());
  const VrPalette* palette = description ? description->palette() : nullptr;
  const double fps = palette && palette->framesPerSecond() > 0.0 ? palette->framesPerSecond() : 24.0;
  const double time = palette ? palette->frame() / fps : 0.0;

  std::vector<SgVec3T<double>> points;
  std::vector<int> counts, indices;
  if (!readAllMeshes(path, time, points, counts, indices)) {
    module.deactivate("Errors in reading geometry from file " + path + ". ");
    return nullptr;
  }
  auto tree = std::make_shared<TzBoundingTree>();
  std::string why;
  if (!tree->build(points, counts, indices, &why)) {
    VR_DEBUG(1, vrmsg::CatFXModule, "Bounding tree of " + path + ": " + why);
    module.deactivate("Errors occurred when building bounding tree. ");
    return nullptr;
  }
  VR_DEBUG(2, vrmsg::CatFXModule,
           module.name() + " read " + std::to_string(tree->numTriangles()) + " triangles from " + path);
  return tree;
}
