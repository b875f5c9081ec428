#include "io/alembic/VrAbcGeomBaseWriter.h"

#include "io/alembic/VrAbcGeomParamWriter.h"

#include <cfloat>

bool VrAbcGeomBaseWriter::create(VrAbcObjectWriter& parent, const std::string& name, VrAbcSchema::Kind kind,
                                 uint32_t timeSampling) {
  *this = VrAbcGeomBaseWriter();
  const std::string title = VrAbcSchema::title(kind);
  const std::string base = VrAbcSchema::baseType(kind);
  VrAbcMetaData objectMeta;
  objectMeta.set("schema", title);
  objectMeta.set("schemaObjTitle", title + ":" + VrAbcSchema::compoundName(kind));
  objectMeta.set("schemaBaseType", base);
  VrAbcMetaData schemaMeta;
  schemaMeta.set("schema", title);
  schemaMeta.set("schemaBaseType", base);
  obj = parent.createChild(name, objectMeta);
  if (!obj) return false;
  compound = obj->properties().createCompound(VrAbcSchema::compoundName(kind), schemaMeta);
  if (!compound) return false;
  VrAbcMetaData boxMeta, pointMeta;
  boxMeta.set("interpretation", "box");
  pointMeta.set("geoScope", "vtx");
  pointMeta.set("interpretation", "point");
  bounds = compound->createScalar(".selfBnds", boxMeta, VrAbcDataType{VrAbcPod::Float64, 6}, timeSampling);
  points = compound->createArray("P", pointMeta, VrAbcDataType{VrAbcPod::Float32, 3}, timeSampling);
  sampling = timeSampling;
  return bounds && points;
}

bool VrAbcGeomBaseWriter::writePositions(const VrAbcView<float>& positions) {
  if (!points) return false;
  if (!positions.given) return points->setFromPrevious();
  if (positions.size % 3 != 0) return compound->fail("positions come in threes");
  return points->setSample(positions.data, positions.size / 3);
}

bool VrAbcGeomBaseWriter::writeBounds(const VrAbcView<float>& positions) {
  if (!bounds) return false;
  if (!positions.given) return bounds->setFromPrevious();
  // An empty box when there are no points, as the format's writers store it.
  double box[6] = {DBL_MAX, DBL_MAX, DBL_MAX, -DBL_MAX, -DBL_MAX, -DBL_MAX};
  for (size_t i = 0; i + 2 < positions.size; i += 3) {
    for (int k = 0; k < 3; ++k) {
      const double v = positions.data[i + static_cast<size_t>(k)];
      if (v < box[k]) box[k] = v;
      if (v > box[3 + k]) box[3 + k] = v;
    }
  }
  return writeBounds(box);
}

bool VrAbcGeomBaseWriter::writeBounds(const double box[6]) { return bounds && bounds->setSample(box, 1); }

bool VrAbcGeomBaseWriter::writePositions(const VrAbcSpool& spool) { return points && points->setSample(spool); }

bool VrAbcGeomBaseWriter::writePositions(const VrAbcWrittenSample& sample) {
  return points && points->setSample(sample);
}

VrAbcCompoundWriter* VrAbcGeomBaseWriter::arbGeomParams() {
  if (!arbitrary && compound) arbitrary = compound->createCompound(".arbGeomParams");
  return arbitrary;
}

bool VrAbcGeomBaseWriter::writeArbitraryPoints(const std::string& name, const VrAbcView<float>& values,
                                               VrAbcScope scope) {
  VrAbcCompoundWriter* arb = arbGeomParams();
  if (!arb) return false;
  if (values.size % 3 != 0) return arb->fail(name + ": points come in threes");
  VrAbcGeomParamWriter param;
  return param.create(*arb, name, VrAbcDataType{VrAbcPod::Float32, 3}, "point", scope, false, 0) &&
         param.write(values.data, values.size / 3, true);
}
