#include "io/alembic/VrAbcNuPatch.h"

namespace {

template <class T>
bool readArray(const VrAbcCompoundProperty& schema, const VrAbcArrayProperty& prop, uint32_t index,
               std::vector<T>& out) {
  uint32_t at = 0;
  return VrAbcSchema::clampIndex(schema, prop.path(), index, prop.numSamples(), at) && prop.readAs(at, out);
}

bool readInt(const VrAbcCompoundProperty& schema, const VrAbcScalarProperty& prop, uint32_t index,
             int32_t& out) {
  uint32_t at = 0;
  VrAbcSample sample;
  if (!VrAbcSchema::clampIndex(schema, prop.path(), index, prop.numSamples(), at) || !prop.read(at, sample))
    return false;
  std::memcpy(&out, sample.bytes.data(), 4);
  return true;
}

}  // namespace

bool VrAbcNuPatch::open(const VrAbcObject& object) {
  *this = VrAbcNuPatch();
  VrAbcCompoundProperty schema;
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::NuPatch, schema) || !base.open(schema) ||
      !VrAbcSchema::typedScalar(schema, "nu", VrAbcPod::Int32, 1, nullptr, numU) ||
      !VrAbcSchema::typedScalar(schema, "nv", VrAbcPod::Int32, 1, nullptr, numV) ||
      !VrAbcSchema::typedScalar(schema, "uOrder", VrAbcPod::Int32, 1, nullptr, uOrder) ||
      !VrAbcSchema::typedScalar(schema, "vOrder", VrAbcPod::Int32, 1, nullptr, vOrder) ||
      !VrAbcSchema::typedArray(schema, "uKnot", VrAbcPod::Float32, 1, nullptr, uKnot) ||
      !VrAbcSchema::typedArray(schema, "vKnot", VrAbcPod::Float32, 1, nullptr, vKnot))
    return false;
  if (schema.findHeader("w") && !VrAbcSchema::typedArray(schema, "w", VrAbcPod::Float32, 1, nullptr, weights))
    return false;
  if (schema.findHeader("N") && !normals.open(schema, "N", VrAbcPod::Float32, 3, "normal")) return false;
  if (schema.findHeader("uv") && !uv.open(schema, "uv", VrAbcPod::Float32, 2, "vector")) return false;
  trimProps = true;
  for (const char* name : {"trim_nloops", "trim_n", "trim_order", "trim_knot", "trim_min", "trim_max",
                           "trim_u", "trim_v", "trim_w"})
    trimProps = trimProps && schema.findHeader(name) != nullptr;
  if (trimProps) {
    const VrAbcPod i32 = VrAbcPod::Int32, f32 = VrAbcPod::Float32;
    if (!VrAbcSchema::typedScalar(schema, "trim_nloops", i32, 1, nullptr, trimNumLoops) ||
        !VrAbcSchema::typedArray(schema, "trim_ncurves", i32, 1, nullptr, trimNumCurves) ||
        !VrAbcSchema::typedArray(schema, "trim_n", i32, 1, nullptr, trimNumVertices) ||
        !VrAbcSchema::typedArray(schema, "trim_order", i32, 1, nullptr, trimOrder) ||
        !VrAbcSchema::typedArray(schema, "trim_knot", f32, 1, nullptr, trimKnot) ||
        !VrAbcSchema::typedArray(schema, "trim_min", f32, 1, nullptr, trimMin) ||
        !VrAbcSchema::typedArray(schema, "trim_max", f32, 1, nullptr, trimMax) ||
        !VrAbcSchema::typedArray(schema, "trim_u", f32, 1, nullptr, trimU) ||
        !VrAbcSchema::typedArray(schema, "trim_v", f32, 1, nullptr, trimV) ||
        !VrAbcSchema::typedArray(schema, "trim_w", f32, 1, nullptr, trimW))
      return false;
    trim = trimNumLoops.numSamples() > 0;
  }
  if (schema.findHeader(".arbGeomParams") && !schema.compound(".arbGeomParams", arbitrary)) return false;
  return true;
}

bool VrAbcNuPatch::trimTopologyConstant() const {
  return trim && trimNumLoops.isConstant() && trimNumVertices.isConstant() && trimNumCurves.isConstant() &&
         trimOrder.isConstant() && trimKnot.isConstant() && trimMin.isConstant() && trimMax.isConstant() &&
         trimU.isConstant() && trimV.isConstant() && trimW.isConstant();
}

bool VrAbcNuPatch::trimTopologyHomogeneous() const {
  return trim && trimNumLoops.isConstant() && trimNumVertices.isConstant() && trimNumCurves.isConstant() &&
         trimOrder.isConstant() && trimMin.isConstant() && trimMax.isConstant();
}

VrAbcSchema::Variance VrAbcNuPatch::topologyVariance() const {
  const bool pointsConstant = base.positions().isConstant() && (!weights.valid() || weights.isConstant());
  const bool uvConstant = uOrder.isConstant() && vOrder.isConstant() && uKnot.isConstant() && vKnot.isConstant();
  if (pointsConstant && uvConstant) {
    if (!trim || trimTopologyConstant()) return VrAbcSchema::Variance::Constant;
    return trimTopologyHomogeneous() ? VrAbcSchema::Variance::Homogeneous : VrAbcSchema::Variance::Heterogeneous;
  }
  if (uvConstant) {
    if (!trim || trimTopologyHomogeneous()) return VrAbcSchema::Variance::Homogeneous;
  }
  return VrAbcSchema::Variance::Heterogeneous;
}

bool VrAbcNuPatch::read(uint32_t index, Sample& out) const {
  const VrAbcCompoundProperty& schema = base.compound();
  if (!base.read(index, out.points) || !readInt(schema, numU, index, out.numU) ||
      !readInt(schema, numV, index, out.numV) || !readInt(schema, uOrder, index, out.uOrder) ||
      !readInt(schema, vOrder, index, out.vOrder) || !readArray(schema, uKnot, index, out.uKnots) ||
      !readArray(schema, vKnot, index, out.vKnots))
    return false;
  out.hasWeights = weights.valid();
  out.weights.clear();
  if (out.hasWeights && !readArray(schema, weights, index, out.weights)) return false;
  out.hasTrim = trim;
  if (trim && !(readInt(schema, trimNumLoops, index, out.trimNumLoops) &&
                readArray(schema, trimNumCurves, index, out.trimNumCurves) &&
                readArray(schema, trimNumVertices, index, out.trimNumVertices) &&
                readArray(schema, trimOrder, index, out.trimOrders) &&
                readArray(schema, trimKnot, index, out.trimKnots) &&
                readArray(schema, trimMin, index, out.trimMin) && readArray(schema, trimMax, index, out.trimMax) &&
                readArray(schema, trimU, index, out.trimU) && readArray(schema, trimV, index, out.trimV) &&
                readArray(schema, trimW, index, out.trimW)))
    return false;
  out.hasUvs = uv.valid();
  out.hasNormals = normals.valid();
  return (!out.hasUvs || uv.read(index, out.uvs)) && (!out.hasNormals || normals.read(index, out.normals));
}
