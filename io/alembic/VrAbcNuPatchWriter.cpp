#include "io/alembic/VrAbcNuPatchWriter.h"

bool VrAbcNuPatchWriter::create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  *this = VrAbcNuPatchWriter();
  if (!base.create(parent, name, VrAbcSchema::Kind::NuPatch, timeSampling)) return false;
  VrAbcCompoundWriter& schema = *base.schema();
  const VrAbcDataType i32{VrAbcPod::Int32, 1}, f32{VrAbcPod::Float32, 1};
  numU = schema.createScalar("nu", VrAbcMetaData(), i32, timeSampling);
  numV = schema.createScalar("nv", VrAbcMetaData(), i32, timeSampling);
  uOrder = schema.createScalar("uOrder", VrAbcMetaData(), i32, timeSampling);
  vOrder = schema.createScalar("vOrder", VrAbcMetaData(), i32, timeSampling);
  uKnot = schema.createArray("uKnot", VrAbcMetaData(), f32, timeSampling);
  vKnot = schema.createArray("vKnot", VrAbcMetaData(), f32, timeSampling);
  return numU && numV && uOrder && vOrder && uKnot && vKnot;
}

bool VrAbcNuPatchWriter::write(const Sample& s) {
  VrAbcCompoundWriter* schema = base.schema();
  if (!schema) return false;
  const uint32_t done = base.numSamples();
  if (done == 0 && (!s.positions.given || !s.uKnots.given || !s.vKnots.given))
    return schema->fail("the first sample needs control points and knots");
  if (s.positions.given && s.positions.size != 3 * static_cast<size_t>(s.numU) * static_cast<size_t>(s.numV))
    return schema->fail("the control points are not nu x nv");
  if ((s.uKnots.given && s.uKnots.size != static_cast<size_t>(s.numU + s.uOrder)) ||
      (s.vKnots.given && s.vKnots.size != static_cast<size_t>(s.numV + s.vOrder)))
    return schema->fail("a knot vector does not have count + order values");
  if (s.weights.given && s.positions.given && s.weights.size * 3 != s.positions.size)
    return schema->fail("the weights are not one per control point");
  const uint32_t ts = base.timeSampling();
  if (s.weights.given && !weights) {
    weights = schema->createArray("w", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Float32, 1}, ts);
    for (uint32_t i = 0; weights && i < done; ++i)
      if (!weights->setSample(nullptr, 0)) return false;
    if (!weights) return false;
  }
  if (s.uvs.given && !uvs.valid()) {
    if (!uvs.create(*schema, "uv", VrAbcDataType{VrAbcPod::Float32, 2}, "vector", s.uvScope, false, ts)) return false;
    for (uint32_t i = 0; i < done; ++i)
      if (!uvs.writeEmpty()) return false;
  }
  if (s.normals.given && !normals.valid()) {
    if (!normals.create(*schema, "N", VrAbcDataType{VrAbcPod::Float32, 3}, "normal", s.normalScope, false, ts))
      return false;
    for (uint32_t i = 0; i < done; ++i)
      if (!normals.writeEmpty()) return false;
  }
  const auto floats = [](VrAbcPropertyWriter* prop, const VrAbcView<float>& values) {
    return values.given ? prop->setSample(values.data, values.size) : prop->setFromPrevious();
  };
  if (!base.writePositions(s.positions) || !numU->setSample(&s.numU, 1) || !numV->setSample(&s.numV, 1) ||
      !uOrder->setSample(&s.uOrder, 1) || !vOrder->setSample(&s.vOrder, 1) || !floats(uKnot, s.uKnots) ||
      !floats(vKnot, s.vKnots) || (weights && !floats(weights, s.weights)) || !base.writeBounds(s.positions))
    return false;
  if (uvs.valid() && !uvs.write(s.uvs.data, s.uvs.size / 2, s.uvs.given)) return false;
  if (normals.valid() && !normals.write(s.normals.data, s.normals.size / 3, s.normals.given)) return false;
  return true;
}
