#include "io/output/VrMeshFile.h"

#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcMotionSpools.h"
#include "io/alembic/VrAbcXformWriter.h"

void VrMeshData::appendPart(const VrMeshData& other, const Mark& from, const Mark& to) {
  const auto shift = static_cast<int32_t>(numPoints()) - static_cast<int32_t>(from.point);
  positions.insert(positions.end(), other.positions.begin() + 3 * from.point, other.positions.begin() + 3 * to.point);
  uvs.insert(uvs.end(), other.uvs.begin() + 2 * from.point, other.uvs.begin() + 2 * to.point);
  faceCounts.insert(faceCounts.end(), other.faceCounts.begin() + from.face, other.faceCounts.begin() + to.face);
  for (size_t c = from.corner; c < to.corner; ++c) faceIndices.push_back(other.faceIndices[c] + shift);
}

void VrMeshData::clear() {
  positions.clear();
  uvs.clear();
  faceCounts.clear();
  faceIndices.clear();
}

bool VrMeshFile::open(const std::string& path, double frame, double framesPerSecond) {
  VrAbcArchiveWriter::Options options;
  options.applicationName = "vorn";
  options.framesPerSecond = framesPerSecond;
  if (!archive.open(path, options)) return false;
  const std::vector<double> times = VrAbcMotionSpools::sampleTimes(frame, framesPerSecond, {});
  timeSampling = archive.addTimeSampling(VrAbcMotionSpools::timeSampling(times, framesPerSecond));
  return true;
}

std::string VrMeshFile::uniqueName(const std::string& wanted) {
  std::string base = wanted.empty() ? std::string("mesh") : wanted;
  for (char& c : base)
    if (c == '/' || c == ':' || c == '\\') c = '_';
  std::string name = base;
  for (int n = 1; names.count(name); ++n) name = base + "_" + std::to_string(n);
  names.insert(name);
  return name;
}

bool VrMeshFile::addMesh(const std::string& name, const VrMeshData& mesh, bool subdivision) {
  VrAbcMeshWriter writer;
  VrAbcMeshWriter::Sample sample;
  sample.positions = mesh.positions;
  sample.faceCounts = mesh.faceCounts;
  sample.faceIndices = mesh.faceIndices;
  sample.uvs = mesh.uvs;
  sample.uvScope = VrAbcScope::Vertex;
  return writer.create(archive.top(), uniqueName(name),
                       subdivision ? VrAbcMeshWriter::Kind::SubD : VrAbcMeshWriter::Kind::PolyMesh, timeSampling) &&
         writer.write(sample);
}

bool VrMeshFile::addTransform(const std::string& group, const std::string& name, const double matrix[16]) {
  VrAbcObjectWriter* parent = nullptr;
  for (const auto& known : groups)
    if (known.first == group) parent = known.second;
  if (!parent) {
    static const double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    VrAbcXformWriter groupWriter;
    if (!groupWriter.create(archive.top(), uniqueName(group), timeSampling) || !groupWriter.write(identity))
      return false;
    parent = groupWriter.object();
    groups.emplace_back(group, parent);
  }
  VrAbcXformWriter writer;
  return writer.create(*parent, name, timeSampling) && writer.write(matrix);
}

bool VrMeshFile::addJointChains(const std::string& name, const std::vector<std::vector<SgVec3T<double>>>& chains) {
  if (chains.empty()) return true;
  std::vector<float> points;
  std::vector<int32_t> counts;
  for (const auto& chain : chains) {
    counts.push_back(static_cast<int32_t>(chain.size()));
    for (const SgVec3T<double>& p : chain) points.insert(points.end(), {float(p.x), float(p.y), float(p.z)});
  }
  VrAbcCurvesWriter writer;
  VrAbcCurvesWriter::Sample sample;
  sample.positions = points;
  sample.numVertices = counts;
  sample.type = VrAbcCurvesWriter::Linear;
  sample.basis = VrAbcCurvesWriter::NoBasis;
  return writer.create(archive.top(), uniqueName(name), timeSampling) && writer.write(sample);
}
