#include "io/alembic/VrAbcMeshWriter.h"

#include "io/alembic/VrAbcSpool.h"
#include "io/alembic/VrAbcWinding.h"

namespace {

// Face-varying values of a sample in the file's order: `values` reversed face by face into
// `store` when the faces are given counter-clockwise. Values of another scope, or that do not
// match the faces (the checks further on report those), pass unchanged.
template <typename T>
VrAbcView<T> clockwise(const VrAbcView<T>& values, size_t components, bool reverse,
                       const std::vector<int32_t>& counts, std::vector<T>& store) {
  if (!reverse || !values.given ||
      !vrabc::reverseEachFace(counts.data(), counts.size(), values.data, values.size, components, store))
    return values;
  return VrAbcView<T>(store);
}

}  // namespace

bool VrAbcMeshWriter::create(VrAbcObjectWriter& parent, const std::string& name, Kind meshKind,
                             uint32_t timeSampling, Winding order) {
  *this = VrAbcMeshWriter();
  kind = meshKind;
  winding = order;
  const VrAbcSchema::Kind schemaKind = kind == Kind::SubD ? VrAbcSchema::Kind::SubD : VrAbcSchema::Kind::PolyMesh;
  if (!base.create(parent, name, schemaKind, timeSampling)) return false;
  VrAbcCompoundWriter& schema = *base.schema();
  const VrAbcDataType i32{VrAbcPod::Int32, 1};
  indices = schema.createArray(".faceIndices", VrAbcMetaData(), i32, timeSampling);
  counts = schema.createArray(".faceCounts", VrAbcMetaData(), i32, timeSampling);
  if (!indices || !counts) return false;
  if (kind == Kind::SubD) {
    fvInterpolate = schema.createScalar(".faceVaryingInterpolateBoundary", VrAbcMetaData(), i32, timeSampling);
    fvPropagate = schema.createScalar(".faceVaryingPropagateCorners", VrAbcMetaData(), i32, timeSampling);
    interpolate = schema.createScalar(".interpolateBoundary", VrAbcMetaData(), i32, timeSampling);
    scheme = schema.createScalar(".scheme", VrAbcMetaData(), VrAbcDataType{VrAbcPod::String, 1}, timeSampling);
    if (!fvInterpolate || !fvPropagate || !interpolate || !scheme) return false;
  }
  return true;
}

bool VrAbcMeshWriter::writeInt(VrAbcPropertyWriter* prop, int32_t value) {
  if (value == keep) return prop->numSamples() ? prop->setFromPrevious() : writeInt(prop, 0);
  return prop->setSample(&value, 1);
}

bool VrAbcMeshWriter::write(const Sample& given) {
  if (given.faceCounts.given) faceCounts.assign(given.faceCounts.data, given.faceCounts.data + given.faceCounts.size);
  const bool reverse = winding == Winding::CounterClockwise;
  Sample s = given;
  std::vector<int32_t> indexStore;
  std::vector<uint32_t> uvIndexStore;
  std::vector<float> uvStore, normalStore;
  s.faceIndices = clockwise(given.faceIndices, 1, reverse, faceCounts, indexStore);
  if (given.uvScope == VrAbcScope::FaceVarying) {
    if (given.uvIndices.given)
      s.uvIndices = clockwise(given.uvIndices, 1, reverse, faceCounts, uvIndexStore);
    else
      s.uvs = clockwise(given.uvs, 2, reverse, faceCounts, uvStore);
  }
  if (given.normalScope == VrAbcScope::FaceVarying) s.normals = clockwise(given.normals, 3, reverse, faceCounts, normalStore);

  VrAbcCompoundWriter* schema = base.schema();
  if (!schema) return false;
  const bool first = base.numSamples() == 0;
  if (first && (!s.positions.given || !s.faceCounts.given || !s.faceIndices.given))
    return schema->fail("the first sample needs points, face counts and face indices");
  if (s.uvs.given && s.uvs.size % 2 != 0) return schema->fail("uv values come in twos");
  if (s.normals.given && s.normals.size % 3 != 0) return schema->fail("normals come in threes");
  if (s.normals.given && kind == Kind::SubD) return schema->fail("subdivision surfaces have no normals");

  // Parameters that appear late get empty samples for the samples before.
  if (s.uvs.given && !uvs.valid()) {
    if (!uvs.create(*schema, "uv", VrAbcDataType{VrAbcPod::Float32, 2}, "vector", s.uvScope, s.uvIndices.given,
                    base.timeSampling()))
      return false;
    for (uint32_t i = 0; i < base.numSamples(); ++i)
      if (!uvs.writeEmpty()) return false;
  }
  if (s.normals.given && !normals.valid()) {
    if (!normals.create(*schema, "N", VrAbcDataType{VrAbcPod::Float32, 3}, "normal", s.normalScope, false,
                        base.timeSampling()))
      return false;
    for (uint32_t i = 0; i < base.numSamples(); ++i)
      if (!normals.writeEmpty()) return false;
  }

  const auto repeatOrSet = [](VrAbcPropertyWriter* prop, const VrAbcView<int32_t>& values) {
    return values.given ? prop->setSample(values.data, values.size) : prop->setFromPrevious();
  };
  if (!base.writePositions(s.positions) || !repeatOrSet(indices, s.faceIndices) || !repeatOrSet(counts, s.faceCounts))
    return false;
  if (kind == Kind::SubD && !first) {
    if (!writeInt(fvInterpolate, s.faceVaryingInterpolateBoundary) ||
        !writeInt(fvPropagate, s.faceVaryingPropagateCorners) || !writeInt(interpolate, s.interpolateBoundary))
      return false;
    if (!(s.scheme.empty() ? scheme->setFromPrevious() : scheme->setStrings({s.scheme}))) return false;
  }
  if (!base.writeBounds(s.positions)) return false;
  if (uvs.valid() && !uvs.write(s.uvs.data, s.uvs.size / 2, s.uvs.given, s.uvIndices.data, s.uvIndices.size))
    return false;
  if (normals.valid() && !normals.write(s.normals.data, s.normals.size / 3, s.normals.given)) return false;
  if (kind == Kind::SubD && first) {
    if (!writeInt(fvInterpolate, s.faceVaryingInterpolateBoundary) ||
        !writeInt(fvPropagate, s.faceVaryingPropagateCorners) || !writeInt(interpolate, s.interpolateBoundary))
      return false;
    if (!scheme->setStrings({s.scheme.empty() ? std::string("catmull-clark") : s.scheme})) return false;
  }
  return true;
}

bool VrAbcMeshWriter::write(const SpooledSample& s) {
  VrAbcCompoundWriter* schema = base.schema();
  if (!schema) return false;
  if (kind != Kind::PolyMesh || winding != Winding::Clockwise)
    return schema->fail("spooled samples are for polygon meshes with faces in the file's order");
  const uint32_t done = base.numSamples();
  if (!s.positions || (done == 0 && (!s.faceCounts || !s.faceIndices)))
    return schema->fail("the first sample needs points, face counts and face indices");
  const uint32_t ts = base.timeSampling();
  if (s.uvs && !uvs.valid()) {
    if (!uvs.create(*schema, "uv", VrAbcDataType{VrAbcPod::Float32, 2}, "vector", s.uvScope, false, ts)) return false;
    for (uint32_t i = 0; i < done; ++i)
      if (!uvs.writeEmpty()) return false;
  }
  if (s.velocities && !velocities) {
    VrAbcMetaData meta;
    meta.set("interpretation", "vector");
    if (!(velocities = schema->createArray(".velocities", meta, VrAbcDataType{VrAbcPod::Float32, 3}, ts)))
      return false;
    for (uint32_t i = 0; i < done; ++i)
      if (!velocities->setSample(nullptr, 0)) return false;
  }
  const auto setOrRepeat = [](VrAbcPropertyWriter* prop, const VrAbcSpool* values) {
    return values ? prop->setSample(*values) : prop->setFromPrevious();
  };
  if (!base.writePositions(*s.positions) || !setOrRepeat(indices, s.faceIndices) ||
      !setOrRepeat(counts, s.faceCounts) || !base.writeBounds(s.bounds))
    return false;
  if (uvs.valid() && !(s.uvs ? uvs.write(*s.uvs) : uvs.write(nullptr, 0, false))) return false;
  if (velocities && !setOrRepeat(velocities, s.velocities)) return false;
  return VrAbcGeomParamWriter::writeSpooled(s.arbitrary.empty() && arbitrary.empty() ? nullptr : base.arbGeomParams(),
                                            s.arbitrary, done == 0, ts, arbitrary);
}
