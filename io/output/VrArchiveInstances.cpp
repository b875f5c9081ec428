#include "io/output/VrArchiveInstances.h"

#include "base/VrMessage.h"
#include "base/vrutilString.h"
#include "io/VrArchiveMesh.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcObjectWriter.h"
#include "io/alembic/VrAbcPropertyWriter.h"
#include "io/alembic/VrAbcXformWriter.h"

#include <vector>

namespace {

// The object name of a file (the first of several joined by ';'): its base name without the
// extension, with name-space colons made underscores.
std::string meshNameOf(const std::string& file) {
  std::string name = vrutil::baseFileName(file.substr(0, file.find(';')));
  for (char& c : name)
    if (c == ':') c = '_';
  return name.empty() ? std::string("geometry") : name;
}

// Sample `s` of an archive's placement as a matrix for row vectors: the rows are the axes that
// its own x, y and z go to, then its position.
void placementMatrix(const VrOutputPrimitive& prim, size_t s, double matrix[16]) {
  const float* p = prim.cvs + 12 * s;
  const int axisOfRow[3] = {1, 2, 3};
  for (int row = 0; row < 3; ++row) {
    for (int k = 0; k < 3; ++k) matrix[4 * row + k] = p[3 * axisOfRow[row] + k];
    matrix[4 * row + 3] = 0.0;
  }
  for (int k = 0; k < 3; ++k) matrix[12 + k] = p[k];
  matrix[15] = 1.0;
}

}  // namespace

std::string VrArchiveInstances::chosenFile(const VrOutputPrimitive& prim) {
  for (int slot : {2, 1, 0, 3})
    if (prim.archiveFiles[slot] && *prim.archiveFiles[slot]) return prim.archiveFiles[slot];
  return "";
}

VrAbcObjectWriter* VrArchiveInstances::group(const std::string& name) {
  auto found = groups.find(name);
  if (found != groups.end()) return found->second;
  VrAbcXformWriter xform;
  static const double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  if (!xform.create(archive.top(), name, 0) || !xform.write(identity)) return nullptr;
  return groups[name] = xform.object();
}

bool VrArchiveInstances::add(const std::string& groupName, const VrOutputPrimitive& prim) {
  if (prim.numCVs != 4) return false;
  VrAbcObjectWriter* parent = group(groupName);
  if (!parent) return false;
  VrAbcXformWriter xform;
  if (!xform.create(*parent, "archive_" + std::to_string(prim.face) + "_" + std::to_string(prim.id), timeSampling))
    return false;
  double matrix[16];
  for (size_t s = 0; s < prim.numSamples; ++s) {
    placementMatrix(prim, s, matrix);
    if (!xform.write(matrix)) return false;
  }

  const std::string file = chosenFile(prim);
  if (file.empty() || unreadable.count(file)) return true;
  const std::string name = meshNameOf(file);
  const auto key = std::make_pair(file, prim.archiveFrame);
  auto first = firstUse.find(key);
  if (first == firstUse.end()) {
    if (!writeGeometry(*xform.object(), name, file, prim.archiveFrame)) return unreadable.count(file) > 0;
    firstUse.emplace(key, xform.object()->fullName() + "/" + name);
    return true;
  }
  VrAbcMetaData instance;
  instance.set("isInstance", "1");
  VrAbcObjectWriter* child = xform.object()->createChild(name, instance);
  if (!child) return false;
  VrAbcPropertyWriter* source =
      child->properties().createScalar(".instanceSource", VrAbcMetaData(), VrAbcDataType{VrAbcPod::String, 1}, 0);
  return source && source->setStrings({first->second});
}

bool VrArchiveInstances::writeGeometry(VrAbcObjectWriter& parent, const std::string& name, const std::string& file,
                                       double frame) {
  // Several files under one key come joined by ';'.
  std::vector<std::string> paths;
  vrutil::stoss(file, paths, ";");
  std::vector<VrArchiveSource> sources;
  for (const std::string& path : paths) sources.push_back({path, {}});
  VrArchiveMesh merged;
  std::string failed;
  if (!merged.read(sources, framesPerSecond > 0.0 ? frame / framesPerSecond : 0.0, failed)) {
    VR_ERROR("The archive file " + failed + " has no mesh that can be read; its archives are written without geometry.");
    unreadable.insert(file);
    return false;
  }
  VrAbcMeshWriter mesh;
  VrAbcMeshWriter::Sample sample;
  sample.positions = merged.positions;
  sample.faceCounts = merged.faceCounts;
  sample.faceIndices = merged.faceIndices;
  // The merged mesh comes counter-clockwise, as the import turns it; the writer turns it back.
  return mesh.create(parent, name, VrAbcMeshWriter::Kind::PolyMesh, 0) && mesh.write(sample);
}
