#include "io/alembic/VrAbcSubD.h"

#include <algorithm>

namespace {

bool optionalArray(const VrAbcCompoundProperty& schema, const char* name, VrAbcPod pod,
                   VrAbcArrayProperty& out) {
  return !schema.findHeader(name) || VrAbcSchema::typedArray(schema, name, pod, 1, nullptr, out);
}

bool optionalScalar(const VrAbcCompoundProperty& schema, const char* name, VrAbcPod pod,
                    VrAbcScalarProperty& out) {
  return !schema.findHeader(name) || VrAbcSchema::typedScalar(schema, name, pod, 1, nullptr, out);
}

template <class T>
bool readOptionalArray(const VrAbcCompoundProperty& schema, const VrAbcArrayProperty& prop,
                       uint32_t index, std::vector<T>& out) {
  out.clear();
  if (!prop.valid()) return true;
  uint32_t at = 0;
  return VrAbcSchema::clampIndex(schema, prop.path(), index, prop.numSamples(), at) && prop.readAs(at, out);
}

bool readOptionalInt(const VrAbcCompoundProperty& schema, const VrAbcScalarProperty& prop,
                     uint32_t index, int32_t& out) {
  out = 0;
  if (!prop.valid()) return true;
  uint32_t at = 0;
  VrAbcSample sample;
  if (!VrAbcSchema::clampIndex(schema, prop.path(), index, prop.numSamples(), at) || !prop.read(at, sample))
    return false;
  std::memcpy(&out, sample.bytes.data(), 4);
  return true;
}

}  // namespace

bool VrAbcSubD::open(const VrAbcObject& object) {
  *this = VrAbcSubD();
  VrAbcCompoundProperty schema;
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::SubD, schema) || !base.open(schema) ||
      !VrAbcSchema::typedArray(schema, ".faceIndices", VrAbcPod::Int32, 1, nullptr, indices) ||
      !VrAbcSchema::typedArray(schema, ".faceCounts", VrAbcPod::Int32, 1, nullptr, counts) ||
      !optionalScalar(schema, ".faceVaryingInterpolateBoundary", VrAbcPod::Int32, fvInterpolate) ||
      !optionalScalar(schema, ".faceVaryingPropagateCorners", VrAbcPod::Int32, fvPropagate) ||
      !optionalScalar(schema, ".interpolateBoundary", VrAbcPod::Int32, interpolate) ||
      !optionalArray(schema, ".creaseIndices", VrAbcPod::Int32, creaseIndices) ||
      !optionalArray(schema, ".creaseLengths", VrAbcPod::Int32, creaseLengths) ||
      !optionalArray(schema, ".creaseSharpnesses", VrAbcPod::Float32, creaseSharpnesses) ||
      !optionalArray(schema, ".cornerIndices", VrAbcPod::Int32, cornerIndices) ||
      !optionalArray(schema, ".cornerSharpnesses", VrAbcPod::Float32, cornerSharpnesses) ||
      !optionalArray(schema, ".holes", VrAbcPod::Int32, holes) ||
      !optionalScalar(schema, ".scheme", VrAbcPod::String, schemeProp))
    return false;
  if (schema.findHeader("uv") && !uv.open(schema, "uv", VrAbcPod::Float32, 2, "vector")) return false;
  if (schema.findHeader(".arbGeomParams") && !schema.compound(".arbGeomParams", arbitrary)) return false;
  samples = VrAbcSchema::maxChildSamples(schema);
  for (size_t i = 0; i < object.numChildren(); ++i)
    if (VrAbcSchema::strictKind(object.childHeader(i).metaData) == VrAbcSchema::Kind::FaceSet)
      faceSets.push_back(object.childHeader(i).name);
  std::sort(faceSets.begin(), faceSets.end());
  faceSets.erase(std::unique(faceSets.begin(), faceSets.end()), faceSets.end());
  return true;
}

VrAbcSchema::Variance VrAbcSubD::topologyVariance() const {
  if (indices.isConstant() && counts.isConstant())
    return base.positions().isConstant() ? VrAbcSchema::Variance::Constant
                                         : VrAbcSchema::Variance::Homogeneous;
  return VrAbcSchema::Variance::Heterogeneous;
}

bool VrAbcSubD::read(uint32_t index, Sample& out) const {
  const VrAbcCompoundProperty& schema = base.compound();
  if (!readOptionalArray(schema, indices, index, out.faceIndices) ||
      !readOptionalArray(schema, counts, index, out.faceCounts) ||
      !readOptionalInt(schema, fvInterpolate, index, out.faceVaryingInterpolateBoundary) ||
      !readOptionalInt(schema, fvPropagate, index, out.faceVaryingPropagateCorners) ||
      !readOptionalInt(schema, interpolate, index, out.interpolateBoundary) ||
      !base.read(index, out.points) ||
      !readOptionalArray(schema, creaseIndices, index, out.creaseIndices) ||
      !readOptionalArray(schema, creaseLengths, index, out.creaseLengths) ||
      !readOptionalArray(schema, creaseSharpnesses, index, out.creaseSharpnesses) ||
      !readOptionalArray(schema, cornerIndices, index, out.cornerIndices) ||
      !readOptionalArray(schema, cornerSharpnesses, index, out.cornerSharpnesses) ||
      !readOptionalArray(schema, holes, index, out.holes))
    return false;
  out.scheme = "catmull-clark";
  if (schemeProp.valid()) {
    uint32_t at = 0;
    VrAbcSample sample;
    if (!VrAbcSchema::clampIndex(schema, schemeProp.path(), index, schemeProp.numSamples(), at) ||
        !schemeProp.read(at, sample))
      return false;
    out.scheme = sample.strings.empty() ? std::string() : sample.strings[0];
  }
  out.hasUvs = uv.valid();
  if (out.hasUvs && !uv.read(index, out.uvs)) return false;
  return true;
}
