#include "io/alembic/VrAbcCamera.h"

#include <cmath>

double VrAbcCamera::Sample::fieldOfView() const {
  const double radians = std::atan(values[HorizontalAperture] * 10.0 / (2.0 * values[FocalLength]));
  return 2.0 * radians * 180.0 / M_PI;
}

bool VrAbcCamera::open(const VrAbcObject& object) {
  *this = VrAbcCamera();
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::Camera, schema)) return false;
  const VrAbcPropertyHeader* h = schema.findHeader(".core");
  if (!h || !h->isScalar() || h->dataType.pod != VrAbcPod::Float64 || h->dataType.extent != 16)
    return schema.fail(schema.path() + "/.core: missing, or not sixteen doubles");
  if (!schema.scalar(".core", core)) return false;

  // The operations are stored once; their channels per sample.
  const VrAbcPropertyHeader* opsHeader = schema.findHeader(".filmBackOps");
  if (opsHeader && opsHeader->dataType.pod == VrAbcPod::String && !opsHeader->isCompound()) {
    VrAbcSample sample;
    if (opsHeader->isScalar()) {
      VrAbcScalarProperty prop;
      if (!schema.scalar(".filmBackOps", prop) || (prop.numSamples() > 0 && !prop.read(0, sample))) return false;
    } else {
      VrAbcArrayProperty prop;
      if (!schema.array(".filmBackOps", prop) || (prop.numSamples() > 0 && !prop.read(0, sample))) return false;
    }
    ops = sample.strings;
  }
  const VrAbcPropertyHeader* channels = schema.findHeader(".filmBackChannels");
  hasChannels = channels && !channels->isCompound();
  return true;
}

bool VrAbcCamera::read(uint32_t index, Sample& out) const {
  uint32_t at = 0;
  VrAbcSample sample;
  if (!VrAbcSchema::clampIndex(schema, core.path(), index, core.numSamples(), at) || !core.read(at, sample))
    return false;
  std::memcpy(out.values, sample.bytes.data(), sizeof out.values);
  out.filmBackOps.clear();
  if (hasChannels) out.filmBackOps = ops;
  return true;
}
