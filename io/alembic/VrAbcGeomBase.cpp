#include "io/alembic/VrAbcGeomBase.h"

#include "io/alembic/VrAbcSchema.h"

bool VrAbcGeomBase::open(const VrAbcCompoundProperty& schema) {
  *this = VrAbcGeomBase();
  schemaCompound = schema;
  if (!VrAbcSchema::typedScalar(schema, ".selfBnds", VrAbcPod::Float64, 6, "box", boundsProp) ||
      !VrAbcSchema::typedArray(schema, "P", VrAbcPod::Float32, 3, nullptr, pointsProp))
    return false;
  if (schema.findHeader(".velocities") &&
      !VrAbcSchema::typedArray(schema, ".velocities", VrAbcPod::Float32, 3, "vector", velocitiesProp))
    return false;
  return true;
}

bool VrAbcGeomBase::readPositions(uint32_t index, std::vector<float>& out) const {
  uint32_t at = 0;
  return VrAbcSchema::clampIndex(schemaCompound, pointsProp.path(), index, pointsProp.numSamples(), at) &&
         pointsProp.readAs(at, out);
}

bool VrAbcGeomBase::read(uint32_t index, Sample& out) const {
  if (!readPositions(index, out.positions)) return false;
  uint32_t at = 0;
  VrAbcSample box;
  if (!VrAbcSchema::clampIndex(schemaCompound, boundsProp.path(), index, boundsProp.numSamples(), at) ||
      !boundsProp.read(at, box))
    return false;
  std::memcpy(out.bounds, box.bytes.data(), sizeof out.bounds);
  out.hasVelocities = false;
  out.velocities.clear();
  if (velocitiesProp.valid() && velocitiesProp.numSamples() > 0) {
    if (!VrAbcSchema::clampIndex(schemaCompound, velocitiesProp.path(), index,
                                 velocitiesProp.numSamples(), at) ||
        !velocitiesProp.readAs(at, out.velocities))
      return false;
    out.hasVelocities = true;
  }
  return true;
}
