#include "io/alembic/VrAbcCurvesWriter.h"

namespace {

// Makes a property that appears late and fills the samples before it with empty ones.
VrAbcPropertyWriter* lateArray(VrAbcCompoundWriter& schema, const char* name, VrAbcPod pod, uint32_t ts,
                               uint32_t earlier, uint8_t extent = 1, const char* interpretation = nullptr) {
  VrAbcMetaData meta;
  if (interpretation) meta.set("interpretation", interpretation);
  VrAbcPropertyWriter* prop = schema.createArray(name, meta, VrAbcDataType{pod, extent}, ts);
  for (uint32_t i = 0; prop && i < earlier; ++i)
    if (!prop->setSample(nullptr, 0)) return nullptr;
  return prop;
}

bool lateParam(VrAbcGeomParamWriter& param, VrAbcCompoundWriter& schema, const char* name, VrAbcDataType type,
               const char* interpretation, VrAbcScope scope, uint32_t ts, uint32_t earlier) {
  if (param.valid()) return true;
  if (!param.create(schema, name, type, interpretation, scope, false, ts)) return false;
  for (uint32_t i = 0; i < earlier; ++i)
    if (!param.writeEmpty()) return false;
  return true;
}

template <class T>
bool setOrRepeat(VrAbcPropertyWriter* prop, const VrAbcView<T>& values) {
  return values.given ? prop->setSample(values.data, values.size) : prop->setFromPrevious();
}

}  // namespace

bool VrAbcCurvesWriter::create(VrAbcObjectWriter& parent, const std::string& name, uint32_t timeSampling) {
  *this = VrAbcCurvesWriter();
  if (!base.create(parent, name, VrAbcSchema::Kind::Curves, timeSampling)) return false;
  VrAbcCompoundWriter& schema = *base.schema();
  numVertices = schema.createArray("nVertices", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Int32, 1}, timeSampling);
  basisAndType = schema.createScalar("curveBasisAndType", VrAbcMetaData(), VrAbcDataType{VrAbcPod::Uint8, 4},
                                     timeSampling);
  return numVertices && basisAndType;
}

bool VrAbcCurvesWriter::write(const Sample& s) {
  VrAbcCompoundWriter* schema = base.schema();
  if (!schema) return false;
  const uint32_t done = base.numSamples();
  if (done == 0 && (!s.positions.given || !s.numVertices.given))
    return schema->fail("the first sample needs points and vertex counts");
  if (s.uvs.given && s.uvs.size % 2 != 0) return schema->fail("uv values come in twos");
  if (s.normals.given && s.normals.size % 3 != 0) return schema->fail("normals come in threes");
  const uint32_t ts = base.timeSampling();
  if ((s.widths.given && !lateParam(widths, *schema, "width", VrAbcDataType{VrAbcPod::Float32, 1}, "",
                                    s.widthScope, ts, done)) ||
      (s.uvs.given && !lateParam(uvs, *schema, "uv", VrAbcDataType{VrAbcPod::Float32, 2}, "vector", s.uvScope, ts,
                                 done)) ||
      (s.normals.given && !lateParam(normals, *schema, "N", VrAbcDataType{VrAbcPod::Float32, 3}, "normal",
                                     s.normalScope, ts, done)))
    return false;
  if (s.weights.given && !weights && !(weights = lateArray(*schema, "w", VrAbcPod::Float32, ts, done))) return false;
  if (s.orders.given && !orders && !(orders = lateArray(*schema, ".orders", VrAbcPod::Uint8, ts, done))) return false;
  if (s.knots.given && !knots && !(knots = lateArray(*schema, ".knots", VrAbcPod::Float32, ts, done))) return false;
  if (s.velocities.given && s.velocities.size % 3 != 0) return schema->fail("velocities come in threes");
  if (s.velocities.given && !velocities &&
      !(velocities = lateArray(*schema, ".velocities", VrAbcPod::Float32, ts, done, 3, "vector")))
    return false;

  // The basis is stored twice, as the format has always done.
  const uint8_t basisAndTypeValue[4] = {s.type, s.wrap, s.basis, s.basis};
  if (!base.writePositions(s.positions) || !setOrRepeat(numVertices, s.numVertices) ||
      !basisAndType->setSample(basisAndTypeValue, 1) || !base.writeBounds(s.positions))
    return false;
  if ((widths.valid() && !widths.write(s.widths.data, s.widths.size, s.widths.given)) ||
      (uvs.valid() && !uvs.write(s.uvs.data, s.uvs.size / 2, s.uvs.given)) ||
      (normals.valid() && !normals.write(s.normals.data, s.normals.size / 3, s.normals.given)))
    return false;
  if ((weights && !setOrRepeat(weights, s.weights)) || (orders && !setOrRepeat(orders, s.orders)) ||
      (knots && !setOrRepeat(knots, s.knots)))
    return false;
  if (velocities && !(s.velocities.given ? velocities->setSample(s.velocities.data, s.velocities.size / 3)
                                         : velocities->setFromPrevious()))
    return false;
  return true;
}

bool VrAbcCurvesWriter::write(const SpooledSample& s) {
  VrAbcCompoundWriter* schema = base.schema();
  if (!schema) return false;
  if ((!s.positions && !s.writtenPositions) || !s.numVertices)
    return schema->fail("a spooled sample needs points and vertex counts");
  const uint32_t done = base.numSamples();
  if (s.widths && !lateParam(widths, *schema, "width", VrAbcDataType{VrAbcPod::Float32, 1}, "", VrAbcScope::Vertex,
                             base.timeSampling(), done))
    return false;
  if (s.velocities && !velocities &&
      !(velocities = lateArray(*schema, ".velocities", VrAbcPod::Float32, base.timeSampling(), done, 3, "vector")))
    return false;
  const uint8_t basisAndTypeValue[4] = {s.type, s.wrap, s.basis, s.basis};
  const bool positionsWritten = s.positions ? base.writePositions(*s.positions) : base.writePositions(*s.writtenPositions);
  if (!positionsWritten || !numVertices->setSample(*s.numVertices) ||
      !basisAndType->setSample(basisAndTypeValue, 1) || !base.writeBounds(s.bounds))
    return false;
  if (widths.valid() && !(s.widths ? widths.write(*s.widths) : widths.write(nullptr, 0, false))) return false;
  if ((uvs.valid() && !uvs.write(nullptr, 0, false)) || (normals.valid() && !normals.write(nullptr, 0, false)))
    return false;
  if ((weights && !weights->setFromPrevious()) || (orders && !orders->setFromPrevious()) ||
      (knots && !knots->setFromPrevious()))
    return false;
  if (velocities && !(s.velocities ? velocities->setSample(*s.velocities) : velocities->setFromPrevious()))
    return false;
  return true;
}
