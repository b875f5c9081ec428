#include "io/alembic/VrAbcPoints.h"

bool VrAbcPoints::open(const VrAbcObject& object) {
  *this = VrAbcPoints();
  VrAbcCompoundProperty schema;
  if (!VrAbcSchema::openCompound(object, VrAbcSchema::Kind::Points, schema) || !base.open(schema) ||
      !VrAbcSchema::typedArray(schema, ".pointIds", VrAbcPod::Uint64, 1, nullptr, ids))
    return false;
  if (schema.findHeader(".widths") && !widths.open(schema, ".widths", VrAbcPod::Float32, 1, nullptr))
    return false;
  return true;
}

bool VrAbcPoints::read(uint32_t index, Sample& out) const {
  const VrAbcCompoundProperty& schema = base.compound();
  uint32_t at = 0;
  if (!base.read(index, out.points) ||
      !VrAbcSchema::clampIndex(schema, ids.path(), index, ids.numSamples(), at) || !ids.readAs(at, out.ids))
    return false;
  out.hasWidths = widths.valid();
  return !out.hasWidths || widths.read(index, out.widths);
}
