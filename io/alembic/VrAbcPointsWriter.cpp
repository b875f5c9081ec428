#include "io/alembic/VrAbcPointsWriter.h"

#include "io/alembic/VrAbcSpool.h"

bool VrAbcPointsWriter::create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  *this = VrAbcPointsWriter();
  if (!base.create(parent, name, VrAbcSchema::Kind::Points, timeSampling)) return false;
  ids = base.schema()->createArray(".pointIds", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Uint64, 1}, timeSampling);
  return ids != nullptr;
}

bool VrAbcPointsWriter::write(const SpooledSample& s) {
  VrAbcCompoundWriter* schema = base.schema();
  if (!schema) return false;
  const uint32_t done = base.numSamples();
  if (!s.positions || (done == 0 && !s.ids)) return schema->fail("a points sample needs positions and, first, ids");
  const uint32_t ts = base.timeSampling();
  // Parameters that appear late get empty samples for the samples before.
  if (s.velocities && !velocities) {
    VrAbcMetaData meta;
    meta.set("interpretation", "vector");
    velocities = schema->createArray(".velocities", meta, VrAbcDataType{VrAbcPod::Float32, 3}, ts);
    for (uint32_t i = 0; velocities && i < done; ++i)
      if (!velocities->setSample(nullptr, 0)) return false;
    if (!velocities) return false;
  }
  if (s.widths && !widths.valid()) {
    if (!widths.create(*schema, ".widths", VrAbcDataType{VrAbcPod::Float32, 1}, "", VrAbcScope::Varying, false, ts))
      return false;
    for (uint32_t i = 0; i < done; ++i)
      if (!widths.writeEmpty()) return false;
  }
  if (!base.writePositions(*s.positions) || !(s.ids ? ids->setSample(*s.ids) : ids->setFromPrevious()) ||
      !base.writeBounds(s.bounds))
    return false;
  if (velocities && !(s.velocities ? velocities->setSample(*s.velocities) : velocities->setFromPrevious()))
    return false;
  if (widths.valid() && !(s.widths ? widths.write(*s.widths) : widths.write(nullptr, 0, false))) return false;
  if (!VrAbcGeomParamWriter::writeSpooled(s.arbitrary.empty() && arbitrary.empty() ? nullptr : base.arbGeomParams(),
                                           s.arbitrary, done == 0, ts, arbitrary))
    return false;
  if (done == 0) {
    for (const VrAbcSpooledStrings& p : s.strings) {
      strings.emplace_back();
      VrAbcCompoundWriter* params = base.arbGeomParams();
      if (!params || !strings.back().create(*params, p.name, VrAbcDataType{VrAbcPod::String, 1}, "",
                                            VrAbcScope::Varying, true, ts))
        return false;
    }
  }
  for (size_t i = 0; i < strings.size(); ++i) {
    const VrAbcSpooledStrings* p = i < s.strings.size() ? &s.strings[i] : nullptr;
    if (!(p && p->texts && p->indices ? strings[i].writeStrings(*p->texts, *p->indices)
                                      : strings[i].write(nullptr, 0, false)))
      return false;
  }
  return true;
}
