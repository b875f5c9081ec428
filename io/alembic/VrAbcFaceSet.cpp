#include "io/alembic/VrAbcFaceSet.h"

bool VrAbcFaceSet::open(const VrAbcObject& object) {
  *this = VrAbcFaceSet();
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::FaceSet, schema) ||
      !VrAbcSchema::typedArray(schema, ".faces", VrAbcPod::Int32, 1, nullptr, faces))
    return false;
  samples = VrAbcSchema::maxChildSamples(schema);
  return true;
}

bool VrAbcFaceSet::exclusive(uint32_t& value) const {
  value = 0;
  if (!schema.findHeader(".facesExclusive")) return true;
  VrAbcScalarProperty prop;
  VrAbcSample sample;
  if (!VrAbcSchema::typedScalar(schema, ".facesExclusive", VrAbcPod::Uint32, 1, nullptr, prop)) return false;
  if (prop.numSamples() == 0) return true;
  if (!prop.read(prop.numSamples() - 1, sample)) return false;
  std::memcpy(&value, sample.bytes.data(), 4);
  return true;
}

bool VrAbcFaceSet::read(uint32_t index, std::vector<int32_t>& out) const {
  uint32_t at = 0;
  return VrAbcSchema::clampIndex(schema, faces.path(), index, faces.numSamples(), at) && faces.readAs(at, out);
}
