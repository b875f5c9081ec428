#include "io/alembic/VrAbcPolyMesh.h"

#include <algorithm>

namespace {

std::vector<std::string> faceSetChildren(const VrAbcObject& object) {
  std::vector<std::string> names;
  for (size_t i = 0; i < object.numChildren(); ++i)
    if (VrAbcSchema::strictKind(object.childHeader(i).metaData) == VrAbcSchema::Kind::FaceSet)
      names.push_back(object.childHeader(i).name);
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

}  // namespace

bool VrAbcPolyMesh::open(const VrAbcObject& object) {
  *this = VrAbcPolyMesh();
  VrAbcCompoundProperty schema;
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::PolyMesh, schema) || !base.open(schema) ||
      !VrAbcSchema::typedArray(schema, ".faceIndices", VrAbcPod::Int32, 1, nullptr, indices) ||
      !VrAbcSchema::typedArray(schema, ".faceCounts", VrAbcPod::Int32, 1, nullptr, counts))
    return false;
  if (schema.findHeader("uv") && !uv.open(schema, "uv", VrAbcPod::Float32, 2, "vector")) return false;
  if (schema.findHeader("N") && !normals.open(schema, "N", VrAbcPod::Float32, 3, "normal")) return false;
  faceSets = faceSetChildren(object);
  return true;
}

VrAbcSchema::Variance VrAbcPolyMesh::topologyVariance() const {
  if (indices.isConstant() && counts.isConstant())
    return base.positions().isConstant() ? VrAbcSchema::Variance::Constant
                                         : VrAbcSchema::Variance::Homogeneous;
  return VrAbcSchema::Variance::Heterogeneous;
}

bool VrAbcPolyMesh::read(uint32_t index, Sample& out) const {
  const VrAbcCompoundProperty& schema = base.compound();
  uint32_t at = 0;
  if (!VrAbcSchema::clampIndex(schema, indices.path(), index, indices.numSamples(), at) ||
      !indices.readAs(at, out.faceIndices) ||
      !VrAbcSchema::clampIndex(schema, counts.path(), index, counts.numSamples(), at) ||
      !counts.readAs(at, out.faceCounts) || !base.read(index, out.points))
    return false;
  out.hasUvs = uv.valid();
  if (out.hasUvs && !uv.read(index, out.uvs)) return false;
  out.hasNormals = normals.valid();
  if (out.hasNormals && !normals.read(index, out.normals)) return false;
  return true;
}
